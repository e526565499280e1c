#include "build/report/BuildProgram.h"

#include "base/HException.h"
#include "build/report/BuildRun.h"
#include "build/report/JsonReport.h"
#include "build/report/QueryCommands.h"
#include "build/report/TextReport.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int exitDone = 0, exitFailed = 1, exitInterrupted = 130;

const CommandOption options[] = {
    {"c,config", "NAME", "configuration; default: the first public one by name"},
    {"p,project", "NAME", "this project and what it depends on; default: the solution"},
    {"only", "FILE", "one file, by its node path or its name"},
    {"rebuild", nullptr, "remove what was built and build everything"},
    {"clean", nullptr, "remove what was built"},
    {"check", nullptr, "decide, but run nothing; exit status 1 if something is out of date"},
    {"batch", nullptr, "each project's batch configurations"},
    {"j,jobs", "N", "parallel jobs; 0: as many as there are processors (default)"},
    {"k,keep-going", nullptr, "go on with what doesn't depend on what failed"},
    {"no-unity", nullptr, "compile the files of unity folders one by one"},
    {"analyze", nullptr, "run the static analyzer in place of the tools"},
    {"parallel-projects", nullptr, "build whole projects in parallel, not files"},
    {"show-commands", nullptr, "print each command line"},
    {"q,quiet", nullptr, "only what the tools say, and the result if it isn't good"},
    {"v,verbose", nullptr, "also what is up to date; reasons for rebuilds are told anyway"},
    {"D,define", "NAME=TEXT", "a global macro"},
    {"list", "WHAT", "projects, configurations, files or properties"},
    {"get", "KEY", "the value of a property, at --node"},
    {"expand", nullptr, "with --get: with its macros expanded"},
    {"trace-value", nullptr, "with --get: and where each part of it comes from"},
    {"set", "KEY=VALUE", "set a property at --node and --config (Common), and save the solution"},
    {"node", "PATH", "a node of the solution, by names joined with \"/\""},
    {"command", "FILE", "print the commands that make a node's output, run nothing"},
    {"export", "WHAT", "commands, make or compile-commands"},
    {"o,output", "FILE", "where --export writes; default: standard output"},
    {"json", nullptr, "print JSON; of a build one object a line"},
    {"color", "WHEN", "auto, always or never"},
};

// At most one of the options may be given; the one that is.
QByteArray oneOf(const CommandArguments &arguments, std::initializer_list<const char *> names)
{
    QByteArray given;
    for (const char *name : names) {
        if (!arguments.has(name))
            continue;
        if (!given.isEmpty())
            throw UsageError(
                u"--%1 and --%2 exclude each other"_s.arg(QLatin1StringView(given), QLatin1StringView(name)));
        given = name;
    }
    return given;
}

std::optional<QString> optional(const CommandArguments &arguments, const char *name)
{
    return arguments.has(name) ? std::optional(arguments.value(name)) : std::nullopt;
}

BuildFlags buildFlags(const CommandArguments &arguments)
{
    static constexpr struct
    {
        const char *option;
        BuildFlags flags;
    } table[] = {
        {"rebuild", BuildFlag::rebuild},
        {"clean", BuildFlag::clean},
        {"check", BuildFlag::noRun},
        {"keep-going", BuildFlag::keepGoing},
        {"no-unity", BuildFlag::noUnity},
        {"analyze", BuildFlag::analyze},
        {"parallel-projects", BuildFlag::parallelProjects},
        {"show-commands", BuildFlag::showCommands},
        {"quiet", BuildFlag::quiet},
    };
    BuildFlags flags = 0;
    for (const auto &row : table)
        if (arguments.has(row.option))
            flags |= row.flags;
    return flags;
}

int jobCount(const CommandArguments &arguments)
{
    bool ok = false;
    const int jobs = arguments.value("jobs", u"0"_s).toInt(&ok);
    if (!ok || jobs < 0)
        throw UsageError(u"--jobs takes a number; not '%1'"_s.arg(arguments.value("jobs")));
    return jobs;
}

TextReport::Options textOptions(const CommandArguments &arguments)
{
    static const QStringList modes{u"auto"_s, u"always"_s, u"never"_s};
    const qsizetype mode = modes.indexOf(arguments.value("color", u"auto"_s));
    if (mode < 0)
        throw UsageError(u"--color takes auto, always or never; not '%1'"_s.arg(arguments.value("color")));
    TextReport::Options text;
    text.colors = ColorMode(mode);
    text.showsCommands = arguments.has("show-commands");
    text.detail = arguments.has("quiet")     ? TextReport::Detail::Quiet
                  : arguments.has("verbose") ? TextReport::Detail::All
                                             : TextReport::Detail::Reasons;
    return text;
}

QStringList globalMacros(const CommandArguments &arguments)
{
    const QStringList macros = arguments.values("define");
    for (const QString &macro : macros)
        if (macro.indexOf(u'=') <= 0)
            throw UsageError(u"--define takes NAME=TEXT; not '%1'"_s.arg(macro));
    return macros;
}

// What is to be built, cleaned, checked or exported.
ProjectElement &chosenElement(const CommandArguments &arguments, LoadedSolution &loaded, const QString &configuration)
{
    if (arguments.has("only"))
        return loaded.file(arguments.value("only"), configuration);
    return arguments.has("project") ? loaded.project(arguments.value("project")) : loaded.solution();
}

int build(const CommandArguments &arguments, LoadedSolution &loaded)
{
    BuildRequest request;
    request.configuration = loaded.configuration(optional(arguments, "config"));
    request.flags = buildFlags(arguments);
    request.jobs = jobCount(arguments);
    request.isBatch = arguments.has("batch");
    request.element = &chosenElement(arguments, loaded, request.configuration);
    const TextReport::Options text = textOptions(arguments);
    std::unique_ptr<BuildReport> report;
    if (arguments.has("json"))
        report = std::make_unique<JsonReport>(text.detail == TextReport::Detail::All);
    else
        report = std::make_unique<TextReport>(text);
    const BuildOutcome outcome = runBuild(loaded, request, *report);
    if (outcome.result == BuildResult::Terminated)
        return exitInterrupted;
    return outcome.isDone() ? exitDone : exitFailed;
}

// What --list, --get and --set are about.
ProjectElement &askedNode(const CommandArguments &arguments, LoadedSolution &loaded, const QString &configuration)
{
    return arguments.has("node") ? loaded.node(arguments.value("node"), configuration)
                                 : chosenElement(arguments, loaded, configuration);
}

// Options that mean something with others only.
void checkCompanions(const CommandArguments &arguments)
{
    static constexpr struct
    {
        const char *option;
        std::array<const char *, 3> companions;
    } table[] = {
        {"expand", {"get"}},
        {"trace-value", {"get"}},
        {"output", {"export"}},
        {"node", {"list", "get", "set"}},
    };
    for (const auto &[option, companions] : table) {
        QStringList names;
        bool isUseful = !arguments.has(option);
        for (const char *name : companions) {
            if (!name)
                continue;
            names.append("--"_L1 + QLatin1StringView(name));
            isUseful |= arguments.has(name);
        }
        if (!isUseful)
            throw UsageError(u"--%1 goes with %2"_s.arg(QLatin1StringView(option), names.join(" or "_L1)));
    }
}

int run(const CommandArguments &arguments)
{
    const QByteArray query = oneOf(arguments, {"list", "get", "set", "command", "export", "rebuild", "clean", "check"});
    oneOf(arguments, {"project", "only", "node"});
    oneOf(arguments, {"quiet", "verbose"});
    checkCompanions(arguments);
    jobCount(arguments); // wrong words are told before the solution is loaded
    textOptions(arguments);
    const bool isJson = arguments.has("json");

    // Never taken apart: the process ends with it, and a large tree takes its time.
    static LoadedSolution *const solution = new LoadedSolution(arguments.positional().first(), globalMacros(arguments));
    LoadedSolution &loaded = *solution;
    if (query == "set") {
        const QString configuration = loaded.configuration(arguments.value("config", u"Common"_s));
        setProperties(loaded, arguments.values("set"), askedNode(arguments, loaded, configuration), configuration);
        return exitDone;
    }
    const QString configuration = loaded.configuration(optional(arguments, "config"));
    if (query == "list") {
        listSolution(loaded, arguments.value("list"), askedNode(arguments, loaded, configuration), configuration,
                     isJson);
    } else if (query == "get") {
        getProperty(loaded, {arguments.value("get"), arguments.has("expand"), arguments.has("trace-value")},
                    askedNode(arguments, loaded, configuration), configuration, isJson);
    } else if (query == "command") {
        printCommands(loaded, loaded.nodeOrFile(arguments.value("command"), configuration), configuration, isJson);
    } else if (query == "export") {
        exportBuild(loaded, {arguments.value("export"), arguments.value("output"), buildFlags(arguments)},
                    chosenElement(arguments, loaded, configuration), configuration);
    } else {
        return build(arguments, loaded);
    }
    return exitDone;
}

const CommandVerb program[] = {
    {"", "SOLUTION", "Builds, cleans, checks, queries and exports a solution.", 1, 1, options, run},
};

} // namespace

std::span<const CommandVerb> buildProgram()
{
    return program;
}
