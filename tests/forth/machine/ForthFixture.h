#pragma once

#include "forth/machine/ForthMessages.h"
#include "forth/machine/ForthSession.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

// A machine whose messages are kept.
class ForthFixture : public ForthScriptMessageInterface
{
public:
    void output(const QString &text) override { out += text; }
    void error(const QString &text) override { errors += text; }
    void notice(const ForthLocation &location, const QString &text) override
    {
        notices += location.source + u':' + QString::number(location.line) + u':' + text;
    }

    // Runs the lines; gives what they print and then, behind a "!", the error.
    QString run(const QString &text)
    {
        out.clear();
        const QString error = session.runText(text, QStringLiteral("test"));
        return error.isEmpty() ? out : out + u'!' + error;
    }
    QString run(const char *text) { return run(QString::fromUtf8(text)); }
    // The cells on the data stack, deepest first.
    QString stack()
    {
        QString text;
        const CellStack &cells = session.context().dataStack;
        for (int i = cells.depth() - 1; i >= 0; --i)
            text += cells.pick(i).printable() + u' ';
        return text.trimmed();
    }

    QString out;
    QStringList errors, notices;
    ForthSession session{this};
};

struct ForthCase
{
    const char *text, *printed;
};

// Each row on a machine of its own.
template <size_t Count>
void expectPrinted(const ForthCase (&rows)[Count])
{
    for (const ForthCase &row : rows) {
        ForthFixture forth;
        EXPECT_EQ(forth.run(row.text), QString::fromUtf8(row.printed)) << row.text;
    }
}
