#include "base/CommandWords.h"
#include "base/HException.h"
#include "build/commands/Builder.h"
#include "build/commands/CommandText.h"
#include "build/commands/Idler.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/CompileTemplates_p.h"
#include "build/engine/ElementBuild_p.h"
#include "project/model/ProjectSystem.h"

using namespace Qt::StringLiterals;
using enum ProjectProperty;

struct ElementBuild::CompilePlan
{
    QString source;                 // absolute
    QStringList members;            // of a unity folder: what the source includes
    QString target, absoluteTarget; // target: as the command names it
    FileTimes::Id targetId = 0;
    bool isExternal = false; // a command of the solution's
    bool hasOptionFiles = false;
    QString error; // why it can't be made
    quint64 hash = 0;
};

// What runs for one object, beside an external command.
struct ElementBuild::CompileSteps
{
    QStringList preWords, postWords;
    QString preDirectory, preOutput, postDirectory;
    ToolRequest request; // without an external command
};

namespace {

// Properties of the external command by kind: the command, and the macros and files of the further options.
struct ExternalCompile
{
    ToolKind kind;
    ProjectProperty command;
    struct
    {
        const char *macro;
        ProjectProperty options, optionsFile;
    } rounds[2];
    int roundCount;
};
constexpr ExternalCompile externalCompiles[] = {
    {ToolKind::CCompile,
     external_c_compile_command,
     {{"COptions", c_additional_options, c_additional_options_from_file},
      {"COnlyOptions", c_only_additional_options, c_only_additional_options_from_file}},
     2},
    {ToolKind::CppCompile,
     external_cpp_compile_command,
     {{"COptions", c_additional_options, c_additional_options_from_file},
      {"CppOnlyOptions", cpp_only_additional_options, cpp_only_additional_options_from_file}},
     2},
    {ToolKind::Assemble,
     external_assemble_command,
     {{"AsmOptions", asm_additional_options, asm_additional_options_from_file}, {}},
     1},
};

const ExternalCompile &externalCompile(ToolKind kind)
{
    return externalCompiles[int(kind) - int(ToolKind::CCompile)];
}

// Items as words of a command: one with a blank is kept together.
QString joined(const QString &prefix, const QStringList &items)
{
    QStringList words;
    for (const QString &item : items) {
        const QString word = prefix + item;
        words += word.contains(u' ') && !word.contains(u'"') ? u'"' + word + u'"' : word;
    }
    return words.join(u' ');
}

} // namespace

bool ElementBuild::compile(ToolKind kind)
{
    m_idler.stepStarted(m_element, m_configuration);
    const CompilePlan plan = planCompile(kind);
    if (isCompileUpToDate(kind, plan)) {
        noteUpToDate(plan.target, "' is up to date"_L1);
        return false;
    }
    if (isOwnInput(plan.absoluteTarget, QStringList(plan.source) + plan.members))
        return false;
    if (removes()) {
        removeFile(plan.absoluteTarget);
        removeFile(absolute(m_tools.dependencyFileName(m_element, m_configuration, plan.target, false)));
        for (const QString &extra : m_tools.extraOutputs(kind, m_element, m_configuration, plan.target))
            removeFile(absolute(extra));
    }
    if (runsTools())
        runCompile(kind, plan);
    return true;
}

ElementBuild::CompilePlan ElementBuild::planCompile(ToolKind kind)
{
    CompilePlan plan;
    plan.source =
        m_isUnity ? unityFileName(m_system, m_element, m_configuration) : m_system.path(m_element, m_configuration);
    if (m_isUnity)
        plan.members = inputs();
    plan.target = m_engine.outputOf(m_element, m_configuration, m_flags);
    plan.targetId = m_engine.outputId(m_element, m_configuration, m_flags);
    if (!plan.target.isEmpty())
        plan.absoluteTarget = m_engine.times().path(plan.targetId);
    const CompileTemplates::Template &shared = compileTemplate(kind, plan);
    plan.isExternal = shared.isExternal;
    plan.hasOptionFiles = shared.hasOptionFiles;
    if (shared.isOwn) {
        plan.hash = ownCompileHash(kind, plan);
        return plan;
    }
    plan.error = shared.error;
    CommandHash hash = shared.common;
    hash.add(plan.source);
    hash.add(plan.target);
    if (shared.hasNodeName)
        hash.add(m_element->displayName());
    plan.hash = hash.value();
    return plan;
}

const CompileTemplates::Template &ElementBuild::compileTemplate(ToolKind kind, const CompilePlan &plan)
{
    const auto find = [&]() -> CompileTemplates::Template & {
        return m_engine.compileTemplates().of(m_system.contextOf(m_element, m_configuration), kind,
                                              m_flags & BuildFlag::noDepend, m_system.changeCount());
    };
    if (const CompileTemplates::Template &known = find(); known.isMade)
        return known;
    CompileTemplates::Template made;
    made.isMade = true;
    made.isExternal = !value(externalCompile(kind).command).isEmpty();
    made.hasOptionFiles = m_tools.hasOptionFiles(kind, m_element, m_configuration);
    made.isOwn =
        m_isUnity || !value(compile_pre_build_command).isEmpty() || !value(compile_post_build_command).isEmpty();
    if (made.isExternal)
        made.isOwn |= !addExternalCompile(kind, plan, made);
    else if (!made.isOwn)
        made.isOwn = !m_tools.addShared(request(kind, plan.target, {plan.source}), made.common, made.error);
    return find() = made; // the tool chain's options may have changed the schema, and so what was found
}

// False when the commands differ in more than the markers stand for.
bool ElementBuild::addExternalCompile(ToolKind kind, const CompilePlan &plan, CompileTemplates::Template &made)
{
    made.hasNodeName = value(externalCompile(kind).command).contains("ProjectNodeName"_L1);
    const QString dependencyFile = value(build_dependency_file_name);
    bool isOwn = dependencyFile.contains(u'$');
    MacroMap markers;
    for (const char *own : CompileTemplates::ownMacros)
        markers.insert(QString::fromLatin1(own), u'\1' + QString::fromLatin1(own));
    made.common.add(m_directory);
    const QStringList words = externalCompileWords(kind, plan, &isOwn, made.error, markers);
    made.common.add(words);
    made.common.add(m_tools.programStamp(words.value(0), m_directory));
    made.common.add(dependencyFile);
    made.common.add(m_system.expandedValue(m_element, build_intermediate_directory, m_configuration, &isOwn));
    return !isOwn;
}

quint64 ElementBuild::ownCompileHash(ToolKind kind, CompilePlan &plan)
{
    const CompileSteps steps = compileSteps(kind, plan);
    QStringList around = steps.preWords + steps.postWords;
    if (!plan.isExternal)
        return m_tools.hash(steps.request, around, plan.error);
    const QStringList words = externalCompileWords(kind, plan, nullptr, plan.error);
    around += m_tools.programStamp(words.value(0), m_directory);
    return commandHash(m_directory, words, around);
}

ElementBuild::CompileSteps ElementBuild::compileSteps(ToolKind kind, const CompilePlan &plan)
{
    CompileSteps steps;
    if (!value(compile_pre_build_command).isEmpty()) {
        steps.preWords = splitWords(expanded(compile_pre_build_command));
        steps.preDirectory = expandedDirectory(compile_pre_build_command_wd);
        const QString output = expanded(compile_pre_build_command_output_file_name);
        steps.preOutput = output.isEmpty() ? output : ::absolutePath(steps.preDirectory, output);
    }
    if (!plan.isExternal) {
        const bool hasPreOutput = !steps.preWords.isEmpty() && !steps.preOutput.isEmpty();
        steps.request = request(kind, plan.target, {hasPreOutput ? steps.preOutput : plan.source});
    }
    if (!value(compile_post_build_command).isEmpty()) {
        const MacroMap macros{{u"TargetPath"_s, plan.absoluteTarget}, {u"RelTargetPath"_s, plan.target}};
        steps.postWords = splitWords(expanded(compile_post_build_command, macros));
        steps.postDirectory = expandedDirectory(compile_post_build_command_wd);
    }
    return steps;
}

// The words of the external command. For a template, what differs between the sources of one folder is given by
// `markers` in place of its values; with `isOwn` true then, the template can't be theirs.
QStringList ElementBuild::externalCompileWords(ToolKind kind, const CompilePlan &plan, bool *isOwn, QString &error,
                                               const MacroMap &markers)
{
    const ExternalCompile &row = externalCompile(kind);
    const QString text = value(row.command);
    const int escaped = ProjectSystem::EscapedList | ProjectSystem::ExpandItems;
    const auto list = [&](ProjectProperty property, int options) {
        return m_system.propertyList(m_element, property, m_configuration, options, isOwn);
    };
    MacroMap macros = m_macros;
    const bool isInvolved = hasNestedReference(text);
    const auto add = [&](const char *name, const auto &makeValue) {
        const QString macro = QString::fromLatin1(name);
        // The others would cost more than the command.
        if (!markers.contains(macro) && (isInvolved || text.contains(macro)))
            macros.insert(macro, makeValue());
    };
    add("TargetPath", [&] { return plan.absoluteTarget; });
    add("RelTargetPath", [&] { return relative(plan.absoluteTarget); });
    add("DependencyPath", [&] { return m_tools.dependencyFileName(m_element, m_configuration, plan.target, true); });
    add("RelDependencyPath",
        [&] { return m_tools.dependencyFileName(m_element, m_configuration, plan.target, false); });
    add("Defines", [&] { return joined(u"-D"_s, list(c_preprocessor_definitions, escaped)); });
    add("Undefines", [&] { return joined(u"-U"_s, list(c_preprocessor_undefinitions, ProjectSystem::EscapedList)); });
    add("Includes", [&] { return joined(u"-I"_s, list(c_user_include_directories, ProjectSystem::ExpandItems)); });
    for (int round = 0; round < row.roundCount; ++round)
        add(row.rounds[round].macro, [&] { return joined({}, list(row.rounds[round].options, escaped)); });
    macros.insert(markers);
    QStringList words = splitWords(m_system.expand(m_element, m_configuration, text, macros, isOwn));
    for (int round = 0; round < row.roundCount; ++round) {
        const QString file =
            m_system.expand(m_element, m_configuration, value(row.rounds[round].optionsFile), m_macros, isOwn);
        if (!file.isEmpty() && !loadOptionsFile(absolute(file), words))
            error = "Cannot load options file: "_L1 + file;
    }
    return words;
}

QStringList ElementBuild::compileArguments(bool &isExternal)
{
    const ToolKind kind = m_engine.facts(m_element, m_configuration, m_flags).kind;
    const CompilePlan plan = planCompile(kind);
    isExternal = plan.isExternal;
    if (!plan.error.isEmpty())
        throw HException(plan.error);
    if (!plan.isExternal)
        return m_tools.command(compileSteps(kind, plan).request).arguments;
    QString error;
    return externalCompileWords(kind, plan, nullptr, error);
}

bool ElementBuild::isCompileUpToDate(ToolKind kind, const CompilePlan &plan)
{
    UpToDate test(m_engine, m_builder, isQuiet());
    if (m_isForced || !test.targetTime(plan.targetId, plan.target) || !plan.error.isEmpty())
        return false;
    FileTimes &times = m_engine.times();
    if (!test.inputOlder(times.id(plan.source), plan.source))
        return false;
    for (const QString &member : plan.members) {
        if (!test.inputOlder(times.id(member), member))
            return false;
    }
    quint64 command = 0;
    return dependenciesOlder(test, plan.absoluteTarget, &command) &&
           test.optionsUpToDate(m_element, m_configuration, kind, plan.hasOptionFiles) &&
           test.commandUpToDate(m_engine.record(m_element, m_configuration), command, plan.hash);
}

// Of what the tool has said that it read. `command` gets the hash on record, which is found in the same place.
bool ElementBuild::dependenciesOlder(UpToDate &test, const QString &target, quint64 *command)
{
    CommandRecord &record = m_engine.record(m_element, m_configuration);
    CommandRecord::Entry known = record.entry(target);
    if (known.stamp != test.stamp()) { // made by somebody else
        m_engine.noteDependencies(m_element, m_configuration, target, test.stamp());
        known = record.entry(target);
    }
    if (command)
        *command = known.command;
    const std::span<const FileTimes::Id> ids = m_engine.recordedIds(m_element, m_configuration);
    return std::all_of(known.dependencies.begin(), known.dependencies.end(), [&](quint32 dependency) {
        return test.inputOlder(ids[dependency], m_engine.times().path(ids[dependency]));
    });
}

void ElementBuild::runCompile(ToolKind kind, const CompilePlan &plan)
{
    const QString name = m_element->displayName();
    const CompileSteps steps = compileSteps(kind, plan);
    if (!steps.preWords.isEmpty()) {
        const bool isInPlace = steps.preOutput == plan.source; // no output, which goes when a command fails
        runStep("Pre-compile command "_L1 + name,
                {{steps.preDirectory, steps.preWords, isInPlace ? QString() : steps.preOutput}});
        if (!goesOn())
            return;
    }
    if (plan.isExternal) {
        QString error;
        const QStringList words = externalCompileWords(kind, plan, nullptr, error);
        if (!error.isEmpty())
            return fail(error);
        const QLatin1StringView title = kind == ToolKind::Assemble ? "Assembling "_L1 : "Compiling "_L1;
        runStep(title + name, {{m_directory, words, plan.absoluteTarget}});
    } else {
        m_tools.toolCommands(steps.request, *m_builder);
    }
    if (goesOn() && kind != ToolKind::Assemble && m_system.isYes(m_element, analyze_after_compile, m_configuration))
        analyzeSources();
    if (goesOn() && !steps.postWords.isEmpty())
        runStep("Post-compile command "_L1 + name, {{steps.postDirectory, steps.postWords, {}}});
    if (!steps.preWords.isEmpty() || !steps.postWords.isEmpty())
        anythingMade();
    outputMade(plan.absoluteTarget, plan.hash);
}
