#include "forth/machine/ForthRunner.h"

#include "base/CommandLine.h"
#include "base/PlainText.h"
#include "forth/machine/ForthMessages.h"
#include "forth/machine/ForthSession.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

void printError(const QString &line)
{
    std::fflush(stdout);
    const QByteArray bytes = (line + u'\n').toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr); // a NUL in it doesn't end it
}

QString placed(const ForthLocation &location, const QString &text)
{
    return u"%1:%2: %3"_s.arg(location.source, QString::number(location.line), text);
}

class StreamMessages final : public ForthScriptMessageInterface
{
public:
    // `showsErrors`: as they happen, which a console wants; otherwise the caller shows where they happened too.
    explicit StreamMessages(bool showsErrors) : m_showsErrors(showsErrors), m_isTerminal(isatty(STDOUT_FILENO)) {}

    void output(const QString &text) override
    {
        printOut(text);
        if (m_isTerminal) // whoever watches a loop wants to see where it is
            std::fflush(stdout);
    }
    void error(const QString &text) override
    {
        if (m_showsErrors)
            printError(text);
    }
    void notice(const ForthLocation &location, const QString &text) override
    {
        printError(placed(location, text.trimmed()));
    }

private:
    bool m_showsErrors, m_isTerminal;
};

// Sends Ctrl-C to a context. System calls that wait are broken off, so that the words get to know.
class InterruptGuard
{
public:
    explicit InterruptGuard(FSContext &context)
    {
        target = &context;
        struct sigaction action = {};
        action.sa_handler = [](int) { target->requestInterrupt(); };
        sigaction(SIGINT, &action, &m_before);
    }
    ~InterruptGuard() { sigaction(SIGINT, &m_before, nullptr); }

private:
    static inline FSContext *target = nullptr;
    struct sigaction m_before;
};

void runConsole(ForthSession &session, const ForthRunOptions &options)
{
    if (options.showsBanner)
        printOut(ForthSession::banner());
    QString prompt;
    while (const auto line = options.readLine(prompt)) {
        prompt = session.process(*line);
        printOut(u"\n"_s);
        std::fflush(stdout);
    }
}

} // namespace

int runForth(const ForthRunOptions &options)
{
    const bool isConsole = !options.text && options.file.isEmpty();
    StreamMessages messages(isConsole);
    ForthSession session(&messages);
    FSContext &context = session.context();
    context.includePath = options.includePath;
    const InterruptGuard guard(context);
    if (isConsole) {
        runConsole(session, options);
        return 0;
    }
    for (const QString &argument : options.arguments)
        session.pushString(argument);
    const QString error = options.text ? session.runText(*options.text, u"-e"_s) : session.load(options.file);
    if (!error.isEmpty()) {
        const ForthErrorPlace &place = context.errorPlace();
        printError(u"%1\n%2:%3\n%4"_s.arg(error, place.location.source, QString::number(place.location.line),
                                          shownLine(place.line)));
        return 1;
    }
    if (options.text && context.dataStack.depth() > 0) {
        QStringList cells;
        for (int i = context.dataStack.depth() - 1; i >= 0; --i)
            cells.append(context.dataStack.pick(i).printable());
        printOut(cells.join(u' ') + u'\n');
    }
    return 0;
}
