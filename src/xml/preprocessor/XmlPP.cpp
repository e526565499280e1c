#include "xml/preprocessor/XmlPP.h"

#include "base/Log.h"
#include "xml/macros/SystemMacroTable.h"
#include "xml/preprocessor/Preprocessing_p.h"

#include <QFile>
#include <QStringDecoder>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

namespace {

// What includes may add to a document: this many files, where 256 elements count as another file.
constexpr int maximumIncluded = 1024;
constexpr int elementsPerFile = 256;

// What QDomDocument::setContent gives, and no more than the permitted depth and attributes.
struct DomError
{
    QString text;
    int line = 0, column = 0;
};

bool setContent(QDomDocument &document, const QString &text, DomError &error)
{
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    for (int depth = 0; !reader.atEnd();) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        depth += token == QXmlStreamReader::StartElement ? 1 : token == QXmlStreamReader::EndElement ? -1 : 0;
        const bool isTooDeep = depth > XmlPP::maximumDepth;
        if (isTooDeep || reader.attributes().size() > XmlPP::maximumAttributes) {
            error = {isTooDeep ? u"elements are nested too deeply"_s : u"an element has too many attributes"_s,
                     int(reader.lineNumber()), int(reader.columnNumber())};
            return false;
        }
    }
    return document.setContent(text, &error.text, &error.line, &error.column);
}

int elementCount(const QDomElement &top)
{
    return int(top.elementsByTagName(u"*"_s).size()) + 1;
}

} // namespace

// One walk over a document, in the manner of XMLPP2's.
class XmlPP::Walk
{
public:
    explicit Walk(XmlPP &preprocessor) : m_preprocessor(preprocessor) {}
    void run(const QDomNode &first, const QString &file, const MacroMap &macros, bool expand);

private:
    struct Chain
    {
        QDomNode next, end; // to be processed; behind the last, null: to the last sibling
        MacroMap macros;
        bool expand;
        Origin origin;
    };
    struct Directive
    {
        const char *tag;
        void (Walk::*process)(Chain &, QDomElement &);
    };
    static const Directive directives[];

    void processElement(Chain &chain, QDomElement element);
    void processIf(Chain &chain, QDomElement &element);
    void processIfdef(Chain &chain, QDomElement &element);
    void processSwitch(Chain &chain, QDomElement &element);
    void processInclude(Chain &chain, QDomElement &element);
    void processDefine(Chain &chain, QDomElement &element);
    void processExpandDefinition(Chain &chain, QDomElement &element);
    void includeText(QDomElement &element, const QByteArray &bytes);
    void includeDocument(Chain &chain, QDomElement &element, const QString &path, const QByteArray &bytes);

    void keep(Chain &chain, QDomElement &element);
    void splice(Chain &chain, QDomElement directive, QDomElement body);
    void giveWay(Chain &chain, QDomElement directive, QDomElement holder, const MacroMap &macros, bool expand,
                 const Origin &origin);
    void decide(Chain &chain, QDomElement &element, bool holds);
    void log(LogBit bit, const QString &message, const Chain &chain, const QDomElement &element);

    static void drop(QDomElement &element) { element.parentNode().removeChild(element); }
    static void expandAttribute(QDomAttr attribute, const MacroMap &macros);
    static void expandAttributes(const QDomElement &element, const MacroMap &macros);

    XmlPP &m_preprocessor;
    std::vector<Chain> m_chains;
    int m_included = 0;
    bool m_toldOfLimit = false;
};

const XmlPP::Walk::Directive XmlPP::Walk::directives[] = {
    {"if", &Walk::processIf},
    {"ifnot", &Walk::processIf},
    {"ifdef", &Walk::processIfdef},
    {"ifndef", &Walk::processIfdef},
    {"switch", &Walk::processSwitch},
    {"include", &Walk::processInclude},
    {"define", &Walk::processDefine},
    {"define_macro", &Walk::processDefine},
    {"expand_definition", &Walk::processExpandDefinition},
};

bool XmlPP::load(const QString &fileName, const QString &macroString, bool expand, QString *errorText, int *errorLine,
                 int *errorColumn)
{
    const std::optional<QByteArray> bytes = readFile(fileName);
    if (!bytes)
        return false;
    const bool ok = read(QString::fromUtf8(*bytes), errorText, errorLine, errorColumn);
    if (ok) {
        MacroMap macros = m_defaultMacros;
        macros.insert(readMacroString(macroString));
        processConditionals(m_document.documentElement(), fileName, macros, expand);
    }
    return ok;
}

bool XmlPP::loadString(const QString &text, bool expand, QString *errorText, int *errorLine, int *errorColumn)
{
    const bool ok = read(text, errorText, errorLine, errorColumn);
    if (ok)
        processConditionals(m_document.documentElement(), QString(), m_defaultMacros, expand);
    return ok;
}

bool XmlPP::read(const QString &text, QString *errorText, int *errorLine, int *errorColumn)
{
    DomError error;
    const bool ok = setContent(m_document, text, error);
    if (errorText)
        *errorText = error.text;
    if (errorLine)
        *errorLine = error.line;
    if (errorColumn)
        *errorColumn = error.column;
    return ok;
}

bool XmlPP::loadInputSource(QIODevice &source, bool expand, QString *errorText, int *errorLine, int *errorColumn)
{
    return loadString(QString::fromUtf8(source.readAll()), expand, errorText, errorLine, errorColumn);
}

void XmlPP::processConditionals(const QDomNode &node, const QString &currentFile, const MacroMap &macros, bool expand)
{
    Walk(*this).run(node, currentFile, macros, expand);
}

std::optional<QByteArray> XmlPP::readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

void XmlPP::Walk::run(const QDomNode &first, const QString &file, const MacroMap &macros, bool expand)
{
    m_chains.push_back({first, QDomNode(), macros, expand, {file, file}});
    while (!m_chains.empty()) {
        Chain &chain = m_chains.back();
        if (chain.next == chain.end) {
            m_chains.pop_back();
            continue;
        }
        const QDomNode node = chain.next;
        chain.next = node.nextSibling();
        if (node.isElement())
            processElement(chain, node.toElement());
    }
}

void XmlPP::Walk::processElement(Chain &chain, QDomElement element)
{
    if (chain.expand) {
        expandAttributes(element, chain.macros);
    } else if (element.hasAttribute(u"expand_attributes"_s)) {
        const QStringList names = conditionList(element.attribute(u"expand_attributes"_s));
        element.removeAttribute(u"expand_attributes"_s);
        for (const QString &name : names)
            expandAttribute(element.attributeNode(name), chain.macros);
    }
    for (const Directive &directive : directives) {
        if (element.tagName() != QLatin1StringView(directive.tag))
            continue;
        if (element.parentNode().isElement())
            return (this->*directive.process)(chain, element);
        log(logWarnings, u"<%1> cannot be the root of a document"_s.arg(element.tagName()), chain, element);
        break;
    }
    keep(chain, element);
}

void XmlPP::Walk::keep(Chain &chain, QDomElement &element)
{
    m_chains.push_back(Chain{element.firstChild(), QDomNode(), chain.macros, chain.expand, chain.origin});
}

void XmlPP::Walk::splice(Chain &chain, QDomElement directive, QDomElement body)
{
    giveWay(chain, directive, body, chain.macros, chain.expand, chain.origin);
}

// The children of `holder` stand where the directive was and are walked next.
void XmlPP::Walk::giveWay(Chain &chain, QDomElement directive, QDomElement holder, const MacroMap &macros, bool expand,
                          const Origin &origin)
{
    QDomNode parent = directive.parentNode(), last = directive;
    Chain inner{holder.firstChild(), chain.next, macros, expand, origin};
    while (!holder.firstChild().isNull())
        last = parent.insertAfter(holder.firstChild(), last);
    drop(directive);
    if (!inner.next.isNull())
        m_chains.push_back(std::move(inner));
}

void XmlPP::Walk::decide(Chain &chain, QDomElement &element, bool holds)
{
    if (holds)
        splice(chain, element, element);
    else
        drop(element);
}

void XmlPP::Walk::processIf(Chain &chain, QDomElement &element)
{
    const QDomNamedNodeMap attributes = element.attributes();
    if (attributes.size() != 1) {
        log(logWarnings, u"one condition required for <if[not]>"_s, chain, element);
        return keep(chain, element);
    }
    const QDomAttr condition = attributes.item(0).toAttr();
    const bool isListed = conditionList(condition.value()).contains(chain.macros[condition.name()]);
    decide(chain, element, isListed == (element.tagName() == u"if"));
}

void XmlPP::Walk::processIfdef(Chain &chain, QDomElement &element)
{
    const bool isDefined = chain.macros.contains(element.attribute(u"name"_s));
    decide(chain, element, isDefined == (element.tagName() == u"ifdef"));
}

void XmlPP::Walk::processSwitch(Chain &chain, QDomElement &element)
{
    const QString value = chain.macros[element.attribute(u"name"_s)];
    QDomElement chosen, otherwise;
    for (QDomElement child = element.firstChildElement(); !child.isNull() && chosen.isNull();
         child = child.nextSiblingElement()) {
        if (child.tagName() == u"case" && conditionList(child.attribute(u"value"_s)).contains(value))
            chosen = child;
        else if (child.tagName() == u"default")
            otherwise = child;
    }
    if (chosen.isNull())
        chosen = otherwise;
    if (chosen.isNull())
        drop(element);
    else
        splice(chain, element, chosen);
}

void XmlPP::Walk::processDefine(Chain &chain, QDomElement &element)
{
    if (element.hasAttribute(u"name"_s) && element.hasAttribute(u"value"_s))
        chain.macros[element.attribute(u"name"_s)] = element.attribute(u"value"_s);
    else
        log(logWarnings, u"missing name and/or value in <define_macro>"_s, chain, element);
    drop(element);
}

void XmlPP::Walk::processExpandDefinition(Chain &chain, QDomElement &element)
{
    const QString name = element.attribute(u"name"_s);
    const auto found = chain.macros.constFind(name);
    QString value =
        found != chain.macros.constEnd() ? *found : SystemMacroTable::instance().currentTime(name).value_or(QString());
    if (value.isEmpty())
        value = element.attribute(u"default"_s);
    if (value.isEmpty())
        return drop(element);
    if (element.hasAttribute(u"lowercase"_s))
        value = value.toLower();
    if (element.hasAttribute(u"underscore_spaces"_s))
        value.replace(u' ', u'_');
    element.parentNode().replaceChild(m_preprocessor.m_document.createTextNode(value), element);
}

void XmlPP::Walk::processInclude(Chain &chain, QDomElement &element)
{
    if (!element.hasAttribute(u"filename"_s)) {
        log(logErrors, u"missing filename in <include>"_s, chain, element);
        return keep(chain, element);
    }
    if (chain.origin.inclusion >= maximumInclusion || m_included >= maximumIncluded) {
        if (!std::exchange(m_toldOfLimit, true))
            log(logErrors, u"includes go too deep or bring too much"_s, chain, element);
        return keep(chain, element);
    }
    QString name = element.attribute(u"filename"_s);
    if (element.hasAttribute(u"expand_macros"_s))
        name = expandWith(chain.macros, name);
    const QString path = includePath(name, chain.origin);
    const std::optional<QByteArray> bytes = m_preprocessor.readFile(path);
    if (!bytes) {
        const QString message = u"XmlPP::processConditionals could not open include file "_s + path;
        logMessage(logErrors, "error", 1, "%s",
                   qUtf8Printable(located(message, chain.origin, quint32(element.lineNumber() - 1))));
        return keep(chain, element);
    }
    if (element.attribute(u"type"_s) == u"text")
        includeText(element, *bytes);
    else
        includeDocument(chain, element, path, *bytes);
}

void XmlPP::Walk::includeText(QDomElement &element, const QByteArray &bytes)
{
    QDomElement holder = m_preprocessor.m_document.createElement(element.attribute(u"tag"_s, u"pre"_s));
    for (const QString &name : {u"class"_s, u"id"_s, u"style"_s}) {
        if (!element.attribute(name).isEmpty())
            holder.setAttribute(name, element.attribute(name));
    }
    QStringDecoder decoder(element.attribute(u"encoding"_s).toLatin1().constData());
    QString text = decoder.isValid() ? decoder(bytes) : QString::fromUtf8(bytes.constData()); // up to the first NUL
    text.replace(u"\r\n"_s, u"\n"_s);
    holder.appendChild(m_preprocessor.m_document.createTextNode(text));
    element.parentNode().replaceChild(holder, element);
    ++m_included;
}

void XmlPP::Walk::includeDocument(Chain &chain, QDomElement &element, const QString &path, const QByteArray &bytes)
{
    QDomDocument document;
    DomError error;
    if (!setContent(document, QString::fromUtf8(bytes), error)) {
        logMessage(logErrors, "error", 1, "XmlPP: error reading XML - %s on line %d column %d : %s",
                   qUtf8Printable(error.text), error.line, error.column, qUtf8Printable(path));
        return keep(chain, element);
    }
    QDomElement root = m_preprocessor.m_document.importNode(document.documentElement(), true).toElement();
    m_included += 1 + elementCount(root) / elementsPerFile;
    const bool expands = chain.expand || element.hasAttribute(u"expand_macros"_s);
    const bool hasOwnMacros = expands && element.hasAttribute(u"macros"_s);
    const MacroMap macros = hasOwnMacros ? overriddenBy(chain.macros, element.attribute(u"macros"_s)) : chain.macros;
    const bool expand = hasOwnMacros || chain.expand;
    if (expand)
        expandAttributes(root, macros);
    const Origin origin = {path, path, chain.origin.inclusion + 1};
    if (element.hasAttribute(u"no_root"_s))
        return giveWay(chain, element, root, macros, expand, origin);
    element.parentNode().replaceChild(root, element);
    m_chains.push_back(Chain{root.firstChild(), QDomNode(), macros, expand, origin});
}

void XmlPP::Walk::expandAttribute(QDomAttr attribute, const MacroMap &macros)
{
    if (attribute.value().contains(u'$'))
        attribute.setValue(expandWith(macros, attribute.value()));
}

void XmlPP::Walk::expandAttributes(const QDomElement &element, const MacroMap &macros)
{
    const QDomNamedNodeMap attributes = element.attributes();
    for (int i = 0; i < attributes.size(); ++i)
        expandAttribute(attributes.item(i).toAttr(), macros);
}

void XmlPP::Walk::log(LogBit bit, const QString &message, const Chain &chain, const QDomElement &element)
{
    const QString text =
        located(QLatin1StringView(messagePrefix) + message, chain.origin, quint32(element.lineNumber() - 1));
    logMessage(bit, bit == logErrors ? "error" : "warning", 1, "%s", qUtf8Printable(text));
}
