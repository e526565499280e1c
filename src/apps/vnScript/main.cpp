#include "base/CommandLine.h"
#include "console/LineReader.h"
#include "forth/machine/ForthRunner.h"
#include "script/engine/ScriptRunner.h"

using namespace Qt::StringLiterals;

namespace {

int runScript(const CommandArguments &given)
{
    QStringList arguments = given.positional();
    const auto text = given.has("eval") ? std::optional(given.value("eval")) : std::nullopt;
    const QString file = text || arguments.isEmpty() ? QString() : arguments.takeFirst();
    const bool isConsole = !text && file.isEmpty();
    if (isConsole && given.has("list"))
        throw UsageError(u"--list needs a FILE or -e"_s);
    std::optional<LineReader> reader;
    if (isConsole)
        reader.emplace("vnScript");
    const bool isTerminal = isConsole && reader->isTerminal();
    const auto readLine = [&](const QString &prompt) { return reader->read(prompt); };

    if (!given.has("forth") && !file.endsWith(u".fs"_s))
        return runJavaScript({text, file, arguments, given.values("I"), given.has("list"), !given.has("no-warnings"),
                              isTerminal, readLine});
    if (given.has("list"))
        throw UsageError(u"--list is for JavaScript"_s);
    return runForth({text, file, arguments, given.values("I"), isTerminal, readLine});
}

constexpr CommandOption options[] = {
    {"e,eval", "TEXT", "evaluate TEXT and print its value"},
    {"forth", nullptr, "TEXT, standard input and the console are Forth"},
    {"list", nullptr, "compile only and print the bytecode"},
    {"I", "DIR", "search path for load and INCLUDE"},
    {"no-warnings", nullptr, "say nothing of code that does nothing"},
};
constexpr CommandVerb verbs[] = {
    {"", "[FILE [ARGUMENT...]]", "runs JavaScript (.js) and Forth (.fs); without FILE and -e a console", 0, -1, options,
     runScript, true},
};

} // namespace

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return CommandLine("vnScript", "runs scripts", verbs).run(arguments, VN_VERSION);
}
