#include "script/engine/ScriptRunner.h"

#include "base/CommandLine.h"
#include "base/PlainText.h"
#include "script/engine/ESNativeSupport.h"

#include <QFile>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <pthread.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int exitInterrupted = 130;

void printError(const QString &text)
{
    std::fflush(stdout);
    const QByteArray line = (text + u'\n').toUtf8();
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr); // a NUL in it doesn't end it
}

// ---- The objects Script and WScript: one object under two names

ESValue echo(ESContext &context, const ESCall &call)
{
    QString line;
    for (int i = 0; i < call.argc; ++i)
        line += (i ? u" "_s : QString()) + context.toQString(call.argv[i]);
    printOut(line + u'\n');
    return {};
}

constexpr ESNativeRow scriptRows[] = {
    {"Echo", 1, echo, "<b>Script.Echo(<i>s</i>)</b> writes <i>s</i> and a line end to standard output."},
};

class BuiltinScript : public ESClass
{
public:
    explicit BuiltinScript(const QStringList &arguments) : ESClass("Script"), m_arguments(arguments) {}
    void init(ESContext &context) override
    {
        ESObject *script = context.makeObject(context.prototypes().object, this);
        context.install(script, this, "Script.", scriptRows, 0);
        std::vector<ESValue> arguments;
        for (const QString &argument : m_arguments)
            arguments.push_back(context.makeString(argument));
        context.put(script, "Arguments", context.makeArray(arguments));
        context.defineProperty(context.global(), esDontEnumerate, esIntern("Script"), script);
        context.defineProperty(context.global(), esDontEnumerate, esIntern("WScript"), script);
    }

private:
    QStringList m_arguments;
};

void prepare(ESContext &context, const ScriptRunOptions &options)
{
    for (const QString &folder : options.searchPaths)
        context.addSearchPath(folder);
    context.addClass(std::make_unique<BuiltinScript>(options.arguments));
    std::srand(unsigned(::getpid()) ^ unsigned(::time(nullptr)));
}

// ---- Results

// The text of a value, whatever its toString does.
QString printable(ESContext &context, const ESValue &value)
{
    try {
        return context.toQString(value);
    } catch (const ESException &) {
        return u"[object %1]"_s.arg(QLatin1StringView(value.object->esClass()->name()));
    }
}

void printUncaught(ESContext &context, const ESValue &thrown)
{
    if (!context.isError(thrown))
        return printError(u"Uncaught exception: "_s + printable(context, thrown));
    const auto property = [&](ESSymbol *name) {
        const ESValue value = ESContext::ordinaryGet(thrown.object, name);
        return value.isUndefined() ? QString() : printable(context, value);
    };
    const QString file = property(esNames().fileName), line = property(esNames().lineNumber);
    QStringList report = {property(esNames().message)};
    if (!file.isEmpty() && !line.isEmpty())
        report += {file + u':' + line, shownLine(property(esNames().sourceLine))};
    else if (const QString stack = property(esNames().stack); !stack.isEmpty())
        report += stack; // after an eval only this knows the place
    printError(report.join(u'\n'));
}

// True if it ended normally. The value is printed if it's wanted and there is one.
bool evaluate(ESContext &context, const QString &name, const QString &source, const ScriptRunOptions &options,
              bool printsValue)
{
    if (options.listsOnly) {
        try {
            printOut(context.list(name, source));
            return true;
        } catch (const ESException &error) {
            printUncaught(context, error.value());
            return false;
        }
    }
    ESCompletion completion;
    try {
        completion = context.evaluate(name, source);
    } catch (const ESFatalError &error) {
        const QString at = error.place.section(u'\n', 0, 0), line = error.place.section(u'\n', 1);
        printError(QStringList{error.message(), at, shownLine(line)}.mid(0, at.isEmpty() ? 1 : 3).join(u'\n'));
        return false;
    }
    for (const QStringList warnings = context.takeWarnings(); const QString &warning : warnings)
        if (options.warns)
            printError(warning);
    if (completion.kind == ESCompletion::Exception) {
        printUncaught(context, completion.value);
        return false;
    }
    if (printsValue && !completion.value.isUndefined())
        printOut(printable(context, completion.value) + u'\n');
    return true;
}

QString readSource(const QString &path)
{
    QFile file(path);
    const bool opened = path == u"-" ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    if (!opened)
        throw HException(u"cannot open %1: %2"_s.arg(path, file.errorString()));
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw HException(u"cannot read %1: %2"_s.arg(path, file.errorString()));
    QString source = QString::fromUtf8(bytes.first(qstrnlen(bytes.constData(), size_t(bytes.size()))));
    if (source.startsWith(u"#!"))
        source.replace(0, 2, u"//"_s);
    return source;
}

// ---- Ctrl-C

// A thread of its own waits for the signal, so that running scripts pay nothing for it and what they wrote is
// not lost. A second one kills, should standard output be stuck.
void exitOnInterrupt()
{
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    std::thread([interrupt] {
        int number;
        sigwait(&interrupt, &number);
        pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
        std::fflush(stdout);
        ::_exit(exitInterrupted);
    }).detach();
}

volatile sig_atomic_t interrupted = 0, running = 0;

// Stops what runs at its next instruction; one that can't be stopped so ends with the process at the second time.
class ConsoleContext : public ESContext
{
public:
    ConsoleContext()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {
            if (running && interrupted)
                ::_exit(exitInterrupted);
            interrupted = 1;
        };
        sigaction(SIGINT, &action, &m_before);
    }
    ~ConsoleContext() override { sigaction(SIGINT, &m_before, nullptr); }
    bool step() override { return !interrupted; }

private:
    struct sigaction m_before;
};

// ---- The console

// Whether the compiler would go on if there were more: "if (x)" alone.
bool isUnfinished(ESContext &context, const QString &source)
{
    try {
        context.list(QString(), source);
    } catch (const ESException &error) {
        return context.isError(error.value()) &&
               printable(context, context.get(error.value().object, esNames().message)).contains(u"end of input");
    }
    return false;
}

int runConsole(ESContext &context, const ScriptRunOptions &options)
{
    const QString name = u"<stdin>"_s;
    QString source;
    ScriptLineScanner scanner;
    bool failed = false;
    const auto reset = [&] {
        source.clear();
        scanner = {};
    };
    for (;;) {
        const QString prompt = source.isEmpty() ? u"> "_s : u"... "_s;
        const auto line = options.readLine(options.isTerminal ? prompt : QString());
        if (interrupted) { // the line that stood there is dropped
            interrupted = 0;
            reset();
            if (line)
                continue;
        }
        if (line) {
            source += source.isEmpty() ? *line : u'\n' + *line;
            scanner.add(*line);
            const bool forced = options.isTerminal && line->isEmpty();
            if (!forced && (scanner.isOpen() || isUnfinished(context, source)))
                continue;
        }
        context.takeWarnings();
        try {
            running = 1;
            failed |= !source.isEmpty() && !evaluate(context, name, source, options, true);
        } catch (const HException &error) {
            printError(error.message());
            failed = true;
        }
        running = 0;
        if (interrupted)
            printError(u"interrupted"_s);
        interrupted = 0;
        reset();
        if (!line && options.isTerminal)
            printOut(u"\n"_s);
        std::fflush(stdout);
        if (!line)
            return failed && !options.isTerminal;
    }
}

} // namespace

void ScriptLineScanner::add(QStringView line)
{
    QChar quote;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line[i];
        const QStringView two = line.mid(i, 2);
        if (m_inComment) {
            if (two == u"*/") {
                m_inComment = false;
                ++i;
            }
        } else if (!quote.isNull()) {
            if (c == u'\\')
                ++i;
            else if (c == quote)
                quote = {};
        } else if (two == u"//") {
            return;
        } else if (two == u"/*") {
            m_inComment = true;
            ++i;
        } else if (c == u'"' || c == u'\'') {
            quote = c;
        } else if (c == u'(' || c == u'[' || c == u'{') {
            ++m_depth;
        } else if (c == u')' || c == u']' || c == u'}') {
            --m_depth;
        }
    }
}

int runJavaScript(const ScriptRunOptions &options)
{
    const bool isConsole = !options.text && options.file.isEmpty();
    if (isConsole && options.isTerminal) {
        ConsoleContext context;
        prepare(context, options);
        return runConsole(context, options);
    }
    exitOnInterrupt();
    ESContext context;
    prepare(context, options);
    if (isConsole)
        return runConsole(context, options);
    const QString name = options.text ? u"-e"_s : options.file;
    const QString source = options.text ? *options.text : readSource(options.file);
    return evaluate(context, name, source, options, options.text.has_value()) ? 0 : 1;
}
