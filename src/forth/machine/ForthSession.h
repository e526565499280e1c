#pragma once

#include "forth/machine/FSContext.h"
#include "forth/machine/ScriptEngine.h"

// A conversation with a Forth machine: what a console does with its lines, whatever it looks like, and the
// side that hosts see.
class ForthSession final : public ScriptEngine
{
public:
    // The messages are the caller's and outlive the session.
    explicit ForthSession(ForthScriptMessageInterface *messages) : m_context(messages) {}

    FSContext &context() { return m_context; }
    static QString banner();

    // Runs a line that the user typed, `name` telling where: a blank, its output, then " OK". Gives the prompt
    // for the next line, which is ">" within a definition and else empty.
    QString process(const QString &text, const QString &name = QStringLiteral("console"));
    // Runs a file. Gives the error's text, empty when all went well; throws HException when it can't be opened.
    QString load(const QString &path);
    // Runs a text of any number of lines, named `name` in messages. Gives the error's text.
    QString runText(const QString &text, const QString &name);
    // Runs a line without output and messages. Gives the error's text.
    QString evaluate(const QString &text);

    void registerMethod(const QString &name, MethodWrapper *method) override;
    void pushString(const QString &text) override { m_context.pushString(text); }
    void pushInteger(qint64 value) override { m_context.pushInteger(value); }
    QString popString() override { return m_context.popString(); }
    qint64 popInteger() override { return m_context.popInteger(); }
    void print(const QString &text) override { m_context.output(text); }

private:
    FSContext m_context;
};
