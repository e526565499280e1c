#pragma once

#include "expression/ExpressionParser.h"
#include "xml/preprocessor/Preprocessing_p.h"
#include "xml/preprocessor/XMLPP2.h"

// One walk over a tree, see XMLPP2::processConditionals. It keeps a stack of the chains of siblings that it is
// in, instead of recursing, so that depth costs no stack.
//
// A directive that is replaced by children gives way to them at once. They are walked as a chain of their own
// within that of the directive, which goes on behind them. Products of loops are met by the chain of their loop.
class XMLPP2::Walk
{
public:
    explicit Walk(XMLPP2 &document) : m_document(document) {}
    void run(XMLNode *first, const QString &file, const MacroMap &macros, bool expand);

private:
    struct Chain
    {
        XMLNode *next;      // to be processed
        const XMLNode *end; // behind the last; null: to the last sibling
        MacroMap macros;
        bool expand;
        Origin origin;
        quint64 ownMacros = 0; // so many came to stand in `macros` when it stopped to be that of the chain around
    };
    struct Context
    {
        MacroMap macros;
        bool expand;
    };
    struct Directive
    {
        QByteArrayView tag;
        void (Walk::*process)(Chain &, XMLElement &);
    };
    struct LoopVariable
    {
        QString name;
        QStringList items;
    };
    static const Directive directives[];

    void processElement(Chain &chain, XMLElement &element);
    void processIf(Chain &chain, XMLElement &element);
    void processIfex(Chain &chain, XMLElement &element);
    void processIfdef(Chain &chain, XMLElement &element);
    void processSwitch(Chain &chain, XMLElement &element);
    void processInclude(Chain &chain, XMLElement &element);
    void processDefine(Chain &chain, XMLElement &element);
    void processFor(Chain &chain, XMLElement &element);
    void processXmldef(Chain &chain, XMLElement &element);
    void processXmlput(Chain &chain, XMLElement &element);
    void processForeach(Chain &chain, XMLElement &element);

    // How a directive ends. Nothing of the chain or the element may be used behind these.
    void keep(Chain &chain, XMLElement &element);
    void drop(XMLElement &element);
    void splice(Chain &chain, XMLElement &directive, XMLElement &body);
    void giveWay(Chain &chain, XMLElement &directive, XMLNodeChain children, Context context, const Origin &origin);
    void decide(Chain &chain, XMLElement &element, bool holds);
    void place(Chain &chain, XMLElement &loop, XMLNodeChain products);

    QString macroValue(Chain &chain, const XMLElement &element, const QString &name);
    void setMacro(Chain &chain, const XMLElement &element, const QString &name, const QString &value);
    bool defineValue(Chain &chain, const XMLElement &element, const QString &name);
    std::vector<LoopVariable> loopVariables(Chain &chain, const XMLElement &element);
    Context contextFor(const Chain &chain, const XMLElement &element) const;
    bool isTooNested(const Chain &chain, const XMLElement &element);

    // The children that a loop repeats, and how many elements they are.
    struct Body
    {
        std::vector<const XMLElement *> elements;
        quint64 count = 0;
    };
    Body bodyOf(const XMLElement &loop) const;
    bool addCopies(const Chain &chain, const XMLElement &loop, const Body &body, const MacroMap &macros,
                   XMLNodeChain &products);
    std::unique_ptr<XMLNode> copyOf(const XMLElement &element);
    void expandAttributes(const Chain &chain, XMLElement &element, const MacroMap &macros);
    // Takes from what may be produced; when that is used up reports it once and gives false from then on.
    bool charge(quint64 count, const Chain &chain, const XMLElement &element);
    void report(const Chain &chain, const XMLElement &element, const QString &message);

    XMLPP2 &m_document;
    SimpleExpressionParser m_calculator;
    std::vector<Chain> m_chains;
    quint64 m_produced = 0;
    quint64 m_ownMacros = 0; // of all chains
    bool m_toldOfProduction = false, m_toldOfNesting = false, m_toldOfMacros = false;
};
