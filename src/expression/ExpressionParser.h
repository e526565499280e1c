#pragma once

#include "expression/BaseType.h"
#include "expression/Expression.h"
#include "expression/ExpressionValue.h"
#include "expression/Lexer.h"
#include "expression/MarkerType.h"

#include <memory>

// Builds trees of Expression nodes from text and evaluates them. The nodes ask it for all that needs symbols:
// a subclass overrides what it knows about. Without that an expression is a calculation, and each operation
// throws a ParserException with its own text.
//
// Markers that operations give belong to the parser. Null stands for no value.
class ExpressionParser
{
public:
    explicit ExpressionParser(std::unique_ptr<Lexer> lexer = std::make_unique<CStyleLexer>());
    virtual ~ExpressionParser() = default;

    virtual MarkerType *lookupScoped(const QStringList &names);
    virtual MarkerType *lookup(const QString &name);
    virtual MarkerType *lookupRegister(const QString &name);
    virtual bool isTypeName(const QString &name);
    virtual bool isTemplateName(const QString &name);
    virtual MarkerType *cast(const BaseType &type, const ExpressionValue &value);
    virtual bool isPointer(MarkerType *marker);
    virtual bool isArray(MarkerType *marker);
    virtual MarkerType *index(MarkerType *marker, qint64 n);
    virtual MarkerType *field(MarkerType *marker, const QString &name);
    virtual MarkerType *fieldPath(MarkerType *marker, const QStringList &names);
    virtual MarkerType *addressOf(MarkerType *marker);
    virtual ExpressionValue sizeOf(MarkerType *marker);
    virtual ExpressionValue sizeOfType(const BaseType &type);
    virtual ExpressionValue addressOfLine(const QString &file, quint32 line);
    virtual ExpressionValue assign(MarkerType *marker, const ExpressionValue &value);
    virtual ExpressionValue markerValue(MarkerType *marker);
    virtual ExpressionValue call(MarkerType *marker, const QList<ExpressionValue> &arguments);
    virtual MarkerType *pointerAdd(MarkerType *marker, qint64 n);

    // The tree of the expression that `text` begins with; null when there is none but blanks. `endPosition` takes
    // where the rest of the text begins, the text's length when there is none. Throws a ParserException.
    std::unique_ptr<Expression> parse(const QString &text, int *endPosition = nullptr);
    // The type that is all of the text; null for a text that is none. Throws a ParserException.
    std::unique_ptr<BaseType> parseTypeText(const QString &text);
    // Kind None for an empty text. Throws a ParserException.
    ExpressionValue evaluate(const QString &text, int *endPosition = nullptr);

    // These don't throw. `ok` tells of success: a numeric result (a boolean is none), for the last a boolean one.
    quint64 evaluateUnsigned(const QString &text, bool *ok);
    qint64 evaluateSigned(const QString &text, bool *ok);
    bool evaluateBool(const QString &text, bool *ok);

private:
    class Nesting;

    ExpressionPointer parseBinary(int level);
    ExpressionPointer parseUnary();
    ExpressionPointer parsePrefix();
    ExpressionPointer parseBracket();
    ExpressionPointer parseSizeof();
    ExpressionPointer parseAddressofLine();
    ExpressionPointer parseIdentifier();
    ExpressionPointer parseScoped(QStringList names);
    ExpressionPointer parsePostfix(ExpressionPointer operand);
    ExpressionPointer parseArguments(ExpressionPointer callee);
    ExpressionPointer makeBinary(Token token, ExpressionPointer left, ExpressionPointer right);
    ExpressionPointer makeStep(ExpressionPointer operand, Token token);

    std::unique_ptr<BaseType> parseType();
    std::unique_ptr<BaseType> parseSimpleType();
    std::unique_ptr<BaseType> parseQualifiedType();
    std::unique_ptr<BaseType> parseDeclarator(std::unique_ptr<BaseType> type);
    std::unique_ptr<BaseType> parseCastType();
    std::unique_ptr<BaseType> parseStruct();
    std::unique_ptr<BaseType> parseRegister();
    QString parseTemplateName();

    Token token() const { return m_lexer->token(); }
    bool isWord(const char *word) const { return token() == TOKEN_IDENT && m_lexer->text() == QLatin1StringView(word); }
    // Passes over the token if it is the current one.
    bool accept(Token wanted);
    bool acceptWord(const char *word);
    // Throws `message` unless the token is the current one.
    void expect(Token wanted, const char *message);
    QString takeText();
    QString takeIdentifier();
    quint32 takeInteger(const char *message);
    QString takeQuoted(const char *message);
    ExpressionValue evaluateQuietly(const QString &text);

    std::unique_ptr<Lexer> m_lexer;
    quint32 m_nesting = 0;
};

// The calculator: no symbols, no types.
class SimpleExpressionParser : public ExpressionParser
{};
