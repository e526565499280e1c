#include "expression/Lexer.h"

#include "expression/ParserException.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int noOperator = 10;
constexpr size_t maximumOpenLines = 100;       // the input and the macros inside each other
constexpr quint32 maximumExpansions = 100'000; // in one input; names beyond it stay names

struct TokenRow
{
    Token token;
    const char *name;
    const char *text;
    int precedence;
};
constexpr TokenRow tokenRows[] = {
#define TOKEN(name, id, text, precedence) {name, #name, text, precedence},
#include "expression/Tokens.def"
};

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}
bool isHexDigit(QChar c)
{
    return isDigit(c) || (c >= u'A' && c <= u'F') || (c >= u'a' && c <= u'f');
}
bool isNameCharacter(QChar c)
{
    return isDigit(c) || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'_';
}
bool isIdentifierCharacter(QChar c)
{
    return isNameCharacter(c) || c == u'$';
}

// The end of the run of characters of a class that begins at `from`.
qsizetype endOfRun(QStringView text, qsizetype from, bool (*belongs)(QChar))
{
    while (from < text.size() && belongs(text[from]))
        ++from;
    return from;
}

// U?L?L?u?l?l?
qsizetype endOfSuffix(QStringView text, qsizetype from)
{
    for (const char16_t letter : {u'U', u'L', u'L', u'u', u'l', u'l'}) {
        if (from < text.size() && text[from] == letter)
            ++from;
    }
    return from;
}

} // namespace

QString Lexer::expandMacro(const QString &)
{
    return {};
}

void Lexer::setInput(const QString &text)
{
    m_place.lines.clear();
    m_place.lines.push_back({text});
    m_place.token = TOKEN_EOL;
    m_place.text = {};
    m_place.tokenStart = 0;
    m_place.expansions = 0;
}

Token Lexer::next()
{
    for (;;) {
        Line &line = m_place.lines.back();
        if (m_place.lines.size() == 1)
            m_place.tokenStart = line.position;
        const QStringView rest = QStringView(line.text).sliced(line.position);
        if (rest.isEmpty()) {
            if (m_place.lines.size() > 1) {
                m_place.lines.pop_back();
                continue;
            }
            m_place.token = TOKEN_EOL;
            m_place.precedence = noOperator;
            m_place.text = {};
            return m_place.token;
        }
        const Match found = match(rest);
        if (found.length == 0)
            throw ParserException(u"unrecognised token: "_s + rest.toString());
        line.position += found.length;
        if (found.token == TOKEN_SPACE)
            continue;
        m_place.token = found.token;
        m_place.precedence = found.precedence;
        m_place.text = rest.first(found.length);
        if (m_place.token != TOKEN_IDENT || m_place.lines.size() >= maximumOpenLines ||
            m_place.expansions >= maximumExpansions)
            return m_place.token;
        const QString expansion = expandMacro(m_place.text.toString());
        if (expansion.isEmpty() || expansion == m_place.text)
            return m_place.token;
        ++m_place.expansions;
        m_place.lines.push_back({expansion});
    }
}

QString Lexer::tokenName(Token token)
{
    const auto row = std::ranges::find(tokenRows, token, &TokenRow::token);
    return row == std::end(tokenRows) ? QString() : QString::fromLatin1(row->name);
}

// The alternatives in their order: a number is tried as hexadecimal, binary, float, integer.
Lexer::Match CStyleLexer::match(QStringView rest) const
{
    const auto token = [](Token id, qsizetype length) { return Match{id, noOperator, length}; };
    const QChar first = rest.front();
    if (first.isSpace())
        return token(TOKEN_SPACE, endOfRun(rest, 1, [](QChar c) { return c.isSpace(); }));
    if (first == u'"')
        return token(TOKEN_STRING, rest.indexOf(u'"', 1) + 1);
    if (isDigit(first)) {
        if (rest.startsWith(u"0x"))
            return token(TOKEN_HEXINTEGER, endOfSuffix(rest, endOfRun(rest, 2, isHexDigit)));
        if (rest.startsWith(u"0b"))
            return token(TOKEN_BININTEGER, endOfRun(rest, 2, [](QChar c) { return c == u'0' || c == u'1'; }));
        const qsizetype whole = endOfRun(rest, 1, isDigit);
        const qsizetype fraction = rest.sliced(whole).startsWith(u'.') ? endOfRun(rest, whole + 1, isDigit) : 0;
        if (fraction > whole + 1)
            return token(TOKEN_FLOAT, fraction);
        return token(TOKEN_INTEGER, endOfSuffix(rest, whole));
    }
    if (isIdentifierCharacter(first))
        return token(TOKEN_IDENT, endOfRun(rest, 1, isIdentifierCharacter));
    if (first == u'@')
        return token(TOKEN_REGISTER, endOfRun(rest, 1, isNameCharacter));
    for (const TokenRow &row : tokenRows) {
        if (row.text && first == QLatin1Char(row.text[0]) && rest.startsWith(QLatin1StringView(row.text)))
            return {row.token, row.precedence, QLatin1StringView(row.text).size()};
    }
    return token(TOKEN_EOL, 0);
}
