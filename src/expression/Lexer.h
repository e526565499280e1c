#pragma once

#include <QString>
#include <vector>

enum Token : quint32 {
#define TOKEN(name, id, text, precedence) name = id,
#include "expression/Tokens.def"
};

// Cuts a text into tokens, one at a time, and looks into macros on the way: what a macro stands for is read
// as a line of its own before the rest of the line that named it. What the tokens are, a subclass says.
class Lexer
{
public:
    virtual ~Lexer() = default;

    // What an identifier stands for; the empty text for one that is no macro.
    virtual QString expandMacro(const QString &name);

    void setInput(const QString &text);
    // Goes on to the next token; TOKEN_EOL at the end of the input, as often as asked. Throws a ParserException
    // "unrecognised token: " and the rest of the line.
    Token next();

    Token token() const { return m_token; }
    // Of the current token as a binary operator, from -4 (loosest) to 9; anything above is no operator.
    int precedence() const { return m_precedence; }
    void setPrecedence(int precedence) { m_precedence = precedence; }
    QStringView text() const { return m_text; } // of the current token; valid until next()
    // Where the current token begins in the input; for one out of a macro, where the name of the macro does.
    qsizetype position() const { return m_tokenStart; }

    static QString tokenName(Token token);

protected:
    struct Match
    {
        Token token;
        int precedence;
        qsizetype length; // 0: nothing fits
    };
    // The first token of a text that isn't empty.
    virtual Match match(QStringView rest) const = 0;

private:
    struct Line
    {
        QString text;
        qsizetype position = 0;
    };
    std::vector<Line> m_lines; // the last is being read; the first is the input
    Token m_token = TOKEN_EOL;
    int m_precedence = 10;
    QStringView m_text;
    qsizetype m_tokenStart = 0;
    quint32 m_expansions = 0;
};

// The tokens of a C-like expression language.
class CStyleLexer : public Lexer
{
protected:
    Match match(QStringView rest) const override;
};
