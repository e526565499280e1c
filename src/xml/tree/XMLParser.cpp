#include "xml/tree/XMLParser.h"

#include <array>
#include <cstring>

namespace {

// Above this many attributes their names are looked up in a hash.
constexpr size_t fewAttributes = 64;

enum CharacterClass : quint8 {
    nameCharacter = 1,
    nameStart = 2, // of an attribute
    space = 4,
    endsDoubleQuoted = 8, // these two: the quote, "&" and NUL
    endsSingleQuoted = 16,
};

constexpr std::array<quint8, 256> characterClasses = [] {
    std::array<quint8, 256> table{};
    for (int c = 'a'; c <= 'z'; ++c)
        table[size_t(c)] = table[size_t(c - 'a' + 'A')] = nameCharacter | nameStart;
    for (int c = '0'; c <= '9'; ++c)
        table[size_t(c)] = nameCharacter;
    for (const char c : {'-', ':', '_'})
        table[quint8(c)] = nameCharacter | nameStart;
    for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'})
        table[quint8(c)] = space;
    table['"'] = endsDoubleQuoted;
    table['\''] = endsSingleQuoted;
    table['&'] = table[0] = endsDoubleQuoted | endsSingleQuoted;
    return table;
}();

bool isOf(quint8 classes, char c)
{
    return characterClasses[quint8(c)] & classes;
}

int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = char(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : 16;
}

struct Reference
{
    char byte;
    const char *end; // behind the ";"
};

// What the "&" at `position` begins; one that isn't known is the "&" alone.
Reference readReference(const char *position, const char *end)
{
    struct Entity
    {
        QByteArrayView text;
        char byte;
    };
    static constexpr Entity entities[] = {
        {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&apos;", '\''}, {"&quot;", '"'},
    };
    const Reference plain{'&', position + 1};
    if (!QByteArrayView(position, end).startsWith("&#")) {
        for (const auto &[text, byte] : entities)
            if (QByteArrayView(position, end).startsWith(text))
                return {byte, position + text.size()};
        return plain;
    }
    const char *digit = position + 2;
    const int radix = digit < end && *digit == 'x' ? 16 : 10;
    if (radix == 16)
        ++digit;
    quint32 number = 0;
    for (; digit < end && digitValue(*digit) < radix; ++digit)
        number = number * quint32(radix) + quint32(digitValue(*digit));
    return digit < end && *digit == ';' ? Reference{char(number), digit + 1} : plain;
}

} // namespace

XMLParser::XMLParser(XMLDocument &document, XMLSource &source, size_t start)
    : m_document(document), m_source(source), m_cursor(source.begin() + start), m_counted(m_cursor)
{}

bool XMLParser::parse()
{
    skipSpace();
    bool ok = true;
    while (ok && *m_cursor == '<') {
        m_markupLine = lineAt(m_cursor);
        ++m_cursor;
        ok = parseMarkup();
        if (ok)
            parseCharacterData();
    }
    m_document.m_openElement = {};
    if (!m_open.empty())
        m_document.m_openElement = {m_open.back()->name().toByteArray(), m_open.back()->line()};
    m_open.clear();
    m_document.setRoot(std::move(m_root));
    return ok;
}

bool XMLParser::parseMarkup()
{
    switch (*m_cursor) {
    case '?': ++m_cursor; return parseProcessingInstruction();
    case '!':
        ++m_cursor;
        parseDeclarationOrComment();
        return true;
    case '/': ++m_cursor; return parseEndTag();
    default: return parseStartTag();
    }
}

bool XMLParser::fail(const char *message)
{
    m_document.m_errorText = message;
    m_document.m_errorLine = lineAt(m_cursor);
    return false;
}

// Anything but <?xml ... ?> is left to be passed over as character data.
bool XMLParser::parseProcessingInstruction()
{
    if (readName() != "xml")
        return true;
    skipSpace();
    readAttributes();
    for (const XMLAttribute &attribute : m_attributes) {
        if (attribute.name() == "version")
            m_document.m_version = attribute.value().toByteArray();
        else if (attribute.name() == "encoding")
            m_document.m_encoding = attribute.value().toByteArray();
    }
    if (*m_cursor == '?')
        ++m_cursor;
    else if (*m_cursor && *m_cursor != '>')
        return fail("bad tagName");
    if (*m_cursor == '>')
        ++m_cursor;
    return true;
}

void XMLParser::parseDeclarationOrComment()
{
    if (*m_cursor == '-') {
        if (*++m_cursor != '-')
            return;
        const char *begin = ++m_cursor;
        char *end = std::strstr(m_cursor, "-->");
        if (end && m_document.keepsText())
            appendToOpen(std::make_unique<XMLComment>(text(begin, end)));
        m_cursor = end ? end + 3 : m_cursor + std::strlen(m_cursor);
        return;
    }
    const QByteArrayView keyword = readName();
    if (keyword.isEmpty()) {
        parseCDATASection();
    } else if (QByteArrayView("DOCTYPE").startsWith(keyword)) {
        skipSpace();
        const QByteArrayView name = readName();
        skipSpace();
        if (*m_cursor == '>') {
            ++m_cursor;
            m_document.m_doctype = name.isEmpty() ? QByteArray("") : name.toByteArray();
        }
    }
}

// The cursor stands on the bracket, or whatever else, behind "<!".
void XMLParser::parseCDATASection()
{
    if (*m_cursor)
        ++m_cursor;
    readName();
    if (*m_cursor)
        ++m_cursor;
    const char *begin = m_cursor;
    char *end = std::strstr(m_cursor, "]]>");
    if (end)
        appendToOpen(std::make_unique<XMLCDATASection>(text(begin, end)));
    m_cursor = end ? end + 3 : m_cursor + std::strlen(m_cursor);
}

bool XMLParser::parseStartTag()
{
    const QByteArrayView name = readName();
    skipSpace();
    m_open.push_back(m_document.createElement(XMLText(name, &m_source)));
    XMLElement &element = *m_open.back();
    element.setLine(m_markupLine);
    readAttributes();
    if (!m_attributes.empty()) {
        if (element.source() == &m_source && element.m_attributeCount == 0) {
            element.m_attributes = m_source.storeAttributes(m_attributes);
            element.m_attributeCount = quint32(m_attributes.size());
        } else {
            for (const XMLAttribute &attribute : m_attributes)
                element.setAttribute(attribute.name(), attribute.value());
        }
    }
    switch (*m_cursor) {
    case '>': ++m_cursor; return true;
    case '/': ++m_cursor; return parseEndTag();
    case 0: return true;
    default: return fail("bad tagName");
    }
}

// The cursor stands behind the "/" of an end tag or of an empty element's tag. An end tag closes the open
// element when that one's name begins with its name.
bool XMLParser::parseEndTag()
{
    if (*m_cursor != '>') {
        const QByteArrayView name = readName();
        skipSpace();
        if (m_open.empty())
            return true;
        if (!m_open.back()->name().startsWith(name))
            return fail("tagName mismatch");
        if (*m_cursor != '>')
            return true;
    }
    ++m_cursor;
    closeElement();
    return true;
}

void XMLParser::closeElement()
{
    if (m_open.empty())
        return;
    std::unique_ptr<XMLElement> element = std::move(m_open.back());
    m_open.pop_back();
    if (m_open.empty())
        m_root = std::move(element);
    else
        m_open.back()->appendChild(std::move(element));
}

void XMLParser::appendToOpen(std::unique_ptr<XMLNode> node)
{
    node->setLine(m_markupLine);
    if (!m_open.empty())
        m_open.back()->appendChild(std::move(node));
}

void XMLParser::parseCharacterData()
{
    char *begin = m_cursor;
    m_cursor = strchrnul(begin, '<');
    if (!m_document.keepsText() || m_open.empty())
        return;
    m_markupLine = lineAt(begin);
    appendToOpen(std::make_unique<XMLData>(XMLText(decode(begin, m_cursor, true), &m_source)));
}

// Reads name="value" pairs up to the first byte that can't begin a name. A name without a quoted value is dropped.
void XMLParser::readAttributes()
{
    m_attributes.clear();
    m_seenNames = 0;
    while (isOf(nameStart, *m_cursor)) {
        const QByteArrayView name = readName();
        skipSpace();
        if (*m_cursor != '=')
            continue;
        ++m_cursor;
        skipSpace();
        if (*m_cursor != '"' && *m_cursor != '\'')
            continue;
        addAttribute(name, readAttributeValue());
        skipSpace();
    }
}

// A name that was there already keeps its place and takes the new value.
void XMLParser::addAttribute(QByteArrayView name, QByteArrayView value)
{
    const XMLAttribute attribute(name, value);
    if (m_attributes.size() < fewAttributes) {
        const quint64 bit = 1ull << ((quint8(name.front()) + 5 * quint8(name.back()) + 23 * name.size()) & 63);
        if (m_seenNames & bit) {
            for (XMLAttribute &entry : m_attributes) {
                if (entry.name() == name) {
                    entry = attribute;
                    return;
                }
            }
        }
        m_seenNames |= bit;
    } else {
        if (m_attributes.size() == fewAttributes) {
            m_attributeMap.clear();
            for (const XMLAttribute &entry : m_attributes)
                m_attributeMap.insert(entry.name(), quint32(m_attributeMap.size()));
        }
        const auto found = m_attributeMap.constFind(name);
        if (found != m_attributeMap.constEnd()) {
            m_attributes[*found] = attribute;
            return;
        }
        m_attributeMap.insert(name, quint32(m_attributes.size()));
    }
    m_attributes.push_back(attribute);
}

QByteArrayView XMLParser::readName()
{
    const char *begin = m_cursor;
    while (isOf(nameCharacter, *m_cursor))
        ++m_cursor;
    return {begin, m_cursor};
}

// The cursor stands on the opening quote and goes behind the closing one, or to the end of the text.
QByteArrayView XMLParser::readAttributeValue()
{
    const char quote = *m_cursor++;
    const quint8 ends = quote == '"' ? endsDoubleQuoted : endsSingleQuoted;
    char *begin = m_cursor;
    char *end = begin;
    while (!isOf(ends, *end))
        ++end;
    QByteArrayView value(begin, end);
    if (*end == '&') {
        end = strchrnul(end, quote);
        value = decode(begin, end, false);
    }
    m_cursor = *end ? end + 1 : end;
    return value;
}

// Replaces the references in place, and drops carriage returns if asked. A reference to byte 0 ends the string.
QByteArrayView XMLParser::decode(char *begin, char *end, bool dropReturns)
{
    lineAt(end); // before line feeds come and go
    char *written = begin;
    for (const char *position = begin; position != end;) {
        if (*position == '&') {
            const Reference reference = readReference(position, end);
            if (!reference.byte)
                break;
            *written++ = reference.byte;
            position = reference.end;
        } else {
            if (*position != '\r' || !dropReturns)
                *written++ = *position;
            ++position;
        }
    }
    return {begin, written};
}

void XMLParser::skipSpace()
{
    while (isOf(space, *m_cursor))
        ++m_cursor;
}

quint32 XMLParser::lineAt(const char *position)
{
    while (m_counted < position) {
        const void *feed = std::memchr(m_counted, '\n', size_t(position - m_counted));
        if (feed)
            ++m_line;
        m_counted = feed ? static_cast<const char *>(feed) + 1 : position;
    }
    return m_line;
}
