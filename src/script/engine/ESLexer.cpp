#include "script/engine/ESLexer.h"

#include <QHash>
#include <charconv>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

struct TokenName
{
    quint32 token;
    const char *name;
    bool isKeyword = false;
};
const TokenName tokenNames[] = {
    {tokEnd, "end of input"},
    {tokAndAssign, "&="},
    {tokOrAssign, "|="},
    {tokXorAssign, "^="},
    {tokShlAssign, "<<="},
    {tokShrAssign, ">>="},
    {tokUshrAssign, ">>>="},
    {tokAddAssign, "+="},
    {tokSubAssign, "-="},
    {tokMulAssign, "*="},
    {tokDivAssign, "/="},
    {tokModAssign, "%="},
    {tokOr, "||"},
    {tokAnd, "&&"},
    {tokIdentical, "==="},
    {tokNotIdentical, "!=="},
    {tokEqual, "=="},
    {tokNotEqual, "!="},
    {tokLessEqual, "<="},
    {tokGreaterEqual, ">="},
    {tokShl, "<<"},
    {tokShr, ">>"},
    {tokUshr, ">>>"},
    {tokIncrement, "++"},
    {tokDecrement, "--"},
    {tokNumber, "a number"},
    {tokIdentifier, "an identifier"},
    {tokString, "a string"},
    {tokPostIncrement, "++"},
    {tokPostDecrement, "--"},
    {tokNegate, "-"},
    {tokPlus, "+"},
    {tokCall, "call"},
    {tokNewCall, "newcall"},
    {tokForIn, "forin"},
    {tokForVar, "forvar"},
    {tokForVarIn, "forvarin"},
    {tokArray, "arrayinit"},
    {tokObject, "objectinit"},
    {tokThis, "this", true},
    {tokTypeof, "typeof", true},
    {tokDelete, "delete", true},
    {tokVoid, "void", true},
    {tokWhile, "while", true},
    {tokFor, "for", true},
    {tokBreak, "break", true},
    {tokContinue, "continue", true},
    {tokWith, "with", true},
    {tokReturn, "return", true},
    {tokFunction, "function", true},
    {tokVar, "var", true},
    {tokIf, "if", true},
    {tokElse, "else", true},
    {tokIn, "in", true},
    {tokNew, "new", true},
    {tokCase, "case", true},
    {tokDefault, "default", true},
    {tokSwitch, "switch", true},
    {tokTrue, "true", true},
    {tokFalse, "false", true},
    {tokNull, "null", true},
    {tokCatch, "catch", true},
    {tokClass, "class", true},
    {tokConst, "const", true},
    {tokDebugger, "debugger", true},
    {tokDo, "do", true},
    {tokEnum, "enum", true},
    {tokExport, "export", true},
    {tokExtends, "extends", true},
    {tokFinally, "finally", true},
    {tokImport, "import", true},
    {tokSuper, "super", true},
    {tokThrow, "throw", true},
    {tokTry, "try", true},
};

// By the symbol: a word is interned once and then compared by address.
const QHash<const ESSymbol *, quint32> &keywords()
{
    static const QHash<const ESSymbol *, quint32> table = [] {
        QHash<const ESSymbol *, quint32> words;
        for (const TokenName &row : tokenNames)
            if (row.isKeyword)
                words.insert(esIntern(row.name), row.token);
        return words;
    }();
    return table;
}

// What a character below 256 may be part of.
enum CharacterClass : quint8 { lower = 1, upper = 2, dollar = 4, digit = 8, hexadecimal = 64, octal = 128 };
constexpr quint8 identifierStart = lower | upper | dollar, identifierPart = identifierStart | digit;

constexpr auto classes = [] {
    std::array<quint8, 256> table = {};
    for (int c = 'a'; c <= 'z'; ++c) {
        table[c] |= lower;
        table[c - 32] |= upper;
    }
    table['$'] = table['_'] = dollar;
    for (int c = '0'; c <= '9'; ++c)
        table[c] |= digit | hexadecimal | (c < '8' ? octal : 0);
    for (int c = 'a'; c <= 'f'; ++c) {
        table[c] |= hexadecimal;
        table[c - 32] |= hexadecimal;
    }
    return table;
}();

bool is(char16_t c, quint8 kinds)
{
    return c < classes.size() && classes[c] & kinds;
}

int digitValue(char16_t c)
{
    return c <= u'9' ? c - u'0' : (c | 32) - u'a' + 10;
}

struct Operator
{
    char16_t text[5];
    quint32 token;
};
// Longest first.
constexpr Operator operators[] = {
    {u">>>=", tokUshrAssign}, {u"===", tokIdentical},   {u"!==", tokNotIdentical},
    {u"<<=", tokShlAssign},   {u">>=", tokShrAssign},   {u">>>", tokUshr},
    {u"&=", tokAndAssign},    {u"|=", tokOrAssign},     {u"^=", tokXorAssign},
    {u"+=", tokAddAssign},    {u"-=", tokSubAssign},    {u"*=", tokMulAssign},
    {u"/=", tokDivAssign},    {u"%=", tokModAssign},    {u"||", tokOr},
    {u"&&", tokAnd},          {u"==", tokEqual},        {u"!=", tokNotEqual},
    {u"<=", tokLessEqual},    {u">=", tokGreaterEqual}, {u"<<", tokShl},
    {u">>", tokShr},          {u"++", tokIncrement},    {u"--", tokDecrement},
};

} // namespace

QString esTokenName(quint32 token)
{
    if (token < 128)
        return QString(QChar(token));
    for (const TokenName &row : tokenNames)
        if (row.token == token)
            return QString::fromLatin1(row.name);
    return u"token<%1>"_s.arg(token);
}

ESLexer::ESLexer(const QString &source)
    : m_source(source), m_at(reinterpret_cast<const char16_t *>(m_source.utf16())), m_end(m_at + m_source.size())
{}

void ESLexer::fail(const QString &message) const
{
    throw ESSyntaxError{m_line, message};
}

quint32 ESLexer::next()
{
    const quint32 token = peek();
    m_held = false;
    return token;
}

bool ESLexer::isLabel() const
{
    const char16_t *at = m_at;
    while (*at == u' ' || *at == u'\t')
        ++at;
    return *at == u':';
}

// m_at is behind "/*". False at the end of the input.
bool ESLexer::skipComment()
{
    for (; *m_at; ++m_at) {
        if (*m_at == u'\n')
            ++m_line;
        if (m_at[0] == u'*' && m_at[1] == u'/') {
            m_at += 2;
            return true;
        }
    }
    return false;
}

quint32 ESLexer::scan()
{
    m_afterLineEnd = false;
    for (;;) {
        const char16_t c = *m_at;
        switch (c) {
        case 0: return tokEnd;
        case u'\n': ++m_line; [[fallthrough]];
        case u'\r': m_afterLineEnd = true; [[fallthrough]];
        case u' ':
        case u'\t':
        case 11:
        case 12:
        case 26: ++m_at; continue;
        case u'"':
        case u'\'': ++m_at; return scanString(c);
        case u'.':
            if (is(m_at[1], digit))
                return scanNumber();
            break;
        case u'/':
            if (m_at[1] == u'/') {
                while (*m_at && *m_at != u'\n' && *m_at != u'\r')
                    ++m_at;
                continue;
            }
            if (m_at[1] == u'*') {
                m_at += 2;
                if (!skipComment())
                    return tokEnd;
                continue;
            }
            break;
        default: break;
        }
        if (is(c, identifierStart))
            return scanIdentifier();
        if (is(c, digit))
            return scanNumber();
        for (const Operator &row : operators) {
            const size_t length = std::char_traits<char16_t>::length(row.text);
            if (std::char_traits<char16_t>::compare(m_at, row.text, std::min<size_t>(length, size_t(m_end - m_at))) ==
                    0 &&
                length <= size_t(m_end - m_at)) {
                m_at += length;
                return row.token;
            }
        }
        if (c < 128 && std::strchr("{}()[];,<>=!+-*/%&|^~?:.", int(c))) {
            ++m_at;
            return c;
        }
        fail(u"unknown character '%1'"_s.arg(QChar(c)));
    }
}

quint32 ESLexer::scanIdentifier()
{
    const char16_t *start = m_at;
    while (is(*m_at, identifierPart))
        ++m_at;
    m_symbol = esIntern(QStringView(start, m_at));
    return keywords().value(m_symbol, tokIdentifier);
}

quint32 ESLexer::scanNumber()
{
    m_number = 0;
    if (*m_at == u'0' && ((m_at[1] | 32) == u'x' || is(m_at[1], digit))) {
        const bool isHexadecimal = !is(m_at[1], digit);
        const quint8 wanted = isHexadecimal ? quint8(hexadecimal) : quint8(octal);
        const quint8 taken = isHexadecimal ? identifierPart : quint8(digit);
        m_at += isHexadecimal ? 2 : 1;
        do {
            if (!is(*m_at, wanted))
                fail(u"digit '%1' is not radix %2"_s.arg(*m_at ? QString(QChar(*m_at)) : QString())
                         .arg(isHexadecimal ? 16 : 8));
            m_number = m_number * (isHexadecimal ? 16 : 8) + digitValue(*m_at++);
        } while (is(*m_at, taken));
        return tokNumber;
    }
    const char16_t *start = m_at;
    while (is(*m_at, digit))
        ++m_at;
    if (*m_at == u'.')
        for (++m_at; is(*m_at, digit);)
            ++m_at;
    if ((*m_at | 32) == u'e') {
        const char16_t *exponent = m_at + 1;
        if (*exponent == u'+' || *exponent == u'-')
            ++exponent;
        if (is(*exponent, digit))
            for (m_at = exponent; is(*m_at, digit);)
                ++m_at;
    }
    const std::string text(start, m_at); // all of them are ASCII
    if (std::from_chars(text.data(), text.data() + text.size(), m_number).ec == std::errc::result_out_of_range)
        m_number = QByteArrayView(text.data(), text.size()).toDouble(); // infinity, or zero
    return tokNumber;
}

// m_at is behind the backslash.
char16_t ESLexer::scanEscape()
{
    const char16_t c = *m_at++;
    switch (c) {
    case u'b': return 8;
    case u'f': return 12;
    case u'n': return 10;
    case u'r': return 13;
    case u't': return 9;
    case u'x':
    case u'u': {
        char16_t value = 0;
        for (int left = c == u'x' ? 2 : 4; left; --left) {
            if (!is(*m_at, hexadecimal))
                fail(u"malformed hex escape sequence"_s);
            value = char16_t(value * 16 + digitValue(*m_at++));
        }
        return value;
    }
    case u'\n': ++m_line; return c;
    default: break;
    }
    if (!is(c, octal))
        return c;
    char16_t value = c - u'0';
    for (int left = 2; left && is(*m_at, octal) && value <= 31; --left)
        value = char16_t(value * 8 + (*m_at++ - u'0'));
    return value;
}

quint32 ESLexer::scanString(char16_t quote)
{
    const char16_t *start = m_at;
    while (*m_at != quote && *m_at != u'\\' && *m_at != u'\n' && *m_at != u'\r' && *m_at)
        ++m_at;
    if (*m_at == quote) {
        m_symbol = esIntern(QStringView(start, m_at++));
        return tokString;
    }
    QString text = QStringView(start, m_at).toString();
    while (*m_at != quote) {
        if (!*m_at && m_at == m_end)
            fail(u"end of file in string constant"_s);
        if (*m_at == u'\n' || *m_at == u'\r')
            fail(u"newline in string constant"_s);
        if (*m_at != u'\\') {
            text += QChar(*m_at++);
            continue;
        }
        if (++m_at == m_end)
            fail(u"end of file in string constant"_s);
        text += QChar(scanEscape());
    }
    ++m_at;
    m_symbol = esIntern(text);
    return tokString;
}
