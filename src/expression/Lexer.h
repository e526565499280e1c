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

    Token token() const { return m_place.token; }
    // Of the current token as a binary operator, from -4 (loosest) to 9; anything above is no operator.
    int precedence() const { return m_place.precedence; }
    void setPrecedence(int precedence) { m_place.precedence = precedence; }
    QStringView text() const { return m_place.text; } // of the current token; valid until next()
    // Where the current token begins in the input; for one out of a macro, where the name of the macro does.
    qsizetype position() const { return m_place.tokenStart; }

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

public:
    // Where the lexer stands, to come back to after a look ahead in the same input.
    class Place
    {
        friend class Lexer;
        std::vector<Line> lines; // the last is being read; the first is the input
        Token token = TOKEN_EOL;
        int precedence = 10;
        QStringView text; // of one of the lines
        qsizetype tokenStart = 0;
        quint32 expansions = 0;
    };
    Place place() const { return m_place; }
    void setPlace(const Place &place) { m_place = place; }

private:
    Place m_place;
};

// The tokens of a C-like expression language.
class CStyleLexer : public Lexer
{
protected:
    Match match(QStringView rest) const override;
};
