#pragma once

#include "script/engine/ESValue.h"

// What the lexer reads, and the kinds of nodes that the parser makes from it. Single characters stand for
// themselves.
enum ESToken : quint32 {
    tokEnd = 128,
    tokAndAssign,
    tokOrAssign,
    tokXorAssign,
    tokShlAssign,
    tokShrAssign,
    tokUshrAssign,
    tokAddAssign,
    tokSubAssign,
    tokMulAssign,
    tokDivAssign,
    tokModAssign,
    tokOr,
    tokAnd,
    tokIdentical,
    tokNotIdentical,
    tokEqual,
    tokNotEqual,
    tokLessEqual,
    tokGreaterEqual,
    tokShl,
    tokShr,
    tokUshr,
    tokIncrement,
    tokDecrement,
    tokNumber = 153,
    tokIdentifier = 159,
    tokString = 161,
    tokThis,
    tokTypeof,
    tokDelete,
    tokVoid,
    tokWhile,
    tokFor,
    tokBreak,
    tokContinue,
    tokWith,
    tokReturn,
    tokFunction,
    tokVar,
    tokIf,
    tokElse,
    tokIn,
    tokNew,
    tokCase,
    tokDefault,
    tokSwitch,
    tokTrue,
    tokFalse,
    tokNull,
    tokPostIncrement = 186,
    tokPostDecrement,
    tokNegate,
    tokPlus,
    tokCall,
    tokNewCall,
    tokForIn,
    tokForVar,
    tokForVarIn,
    tokArray,
    tokObject,
    tokHole,
    tokLabel,
    tokCatch,
    tokClass,
    tokConst,
    tokDebugger,
    tokDo,
    tokEnum,
    tokExport,
    tokExtends,
    tokFinally,
    tokImport,
    tokSuper,
    tokThrow,
    tokTry,
    tokList, // statements one after the other; never shown
};

QString esTokenName(quint32 token);

// What stops a compilation: the line and the message of a SyntaxError.
struct ESSyntaxError
{
    quint32 line;
    QString message;
};

// Cuts a source text into tokens, one ahead of its reader. Throws ESSyntaxError.
class ESLexer
{
public:
    explicit ESLexer(const QString &source);

    quint32 next();
    quint32 peek()
    {
        if (!m_held) {
            m_ahead = scan();
            m_held = true;
        }
        return m_ahead;
    }
    // Of the token that was peeked at or read last.
    bool isAfterLineEnd() const { return m_afterLineEnd; }
    ESSymbol *symbol() const { return m_symbol; } // of an identifier or string
    double number() const { return m_number; }
    quint32 line() const { return m_line; }
    // Whether a ":" follows the identifier that was just peeked at, on the same line.
    bool isLabel() const;

private:
    quint32 scan();
    quint32 scanNumber();
    quint32 scanString(char16_t quote);
    quint32 scanIdentifier();
    bool skipComment();
    char16_t scanEscape();
    [[noreturn]] void fail(const QString &message) const;

    QString m_source;
    const char16_t *m_at; // ends with 0
    const char16_t *m_end;
    quint32 m_line = 1, m_ahead = 0;
    bool m_held = false, m_afterLineEnd = false;
    ESSymbol *m_symbol = nullptr;
    double m_number = 0;
};
