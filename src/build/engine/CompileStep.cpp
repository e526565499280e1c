#include "base/CommandWords.h"
#include "build/commands/Builder.h"
#include "build/commands/CommandText.h"
#include "build/commands/Idler.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/ElementBuild_p.h"
#include "build/engine/ExternalTemplates_p.h"
#include "project/model/ProjectSystem.h"

using namespace Qt::StringLiterals;
using enum ProjectProperty;

// All that making one object takes.
struct ElementBuild::CompilePlan
{
    QString source;                 // absolute
    QStringList members;            // of a unity folder: what the source includes
    QString target, absoluteTarget; // target: as the command names it
    QStringList preWords, postWords;
    QString preDirectory, preOutput, postDirectory;
    bool isExternal = false; // a command of the solution's
    ToolRequest request;     // without one
    QString error;           // why it can't be made
    quint64 hash = 0;
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
    plan.absoluteTarget = absolute(plan.target);
    if (!value(compile_pre_build_command).isEmpty()) {
        plan.preWords = splitWords(expanded(compile_pre_build_command));
        plan.preDirectory = expandedDirectory(compile_pre_build_command_wd);
        const QString output = expanded(compile_pre_build_command_output_file_name);
        plan.preOutput = output.isEmpty() ? output : ::absolutePath(plan.preDirectory, output);
    }
    const bool hasPreOutput = !plan.preWords.isEmpty() && !plan.preOutput.isEmpty();
    plan.isExternal = !value(externalCompile(kind).command).isEmpty();
    if (!plan.isExternal)
        plan.request = request(kind, plan.target, {hasPreOutput ? plan.preOutput : plan.source});
    if (!value(compile_post_build_command).isEmpty()) {
        const MacroMap macros{{u"TargetPath"_s, plan.absoluteTarget}, {u"RelTargetPath"_s, plan.target}};
        plan.postWords = splitWords(expanded(compile_post_build_command, macros));
        plan.postDirectory = expandedDirectory(compile_post_build_command_wd);
    }
    const QStringList around = plan.preWords + plan.postWords;
    if (plan.isExternal) {
        plan.hash = externalCompileHash(kind, plan, around);
    } else {
        plan.hash = m_tools.hash(plan.request, around, plan.error);
    }
    return plan;
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
    const bool isNested = text.contains(":$("_L1); // what that gives may name any
    const auto add = [&](const char *name, const auto &makeValue) {
        const QString macro = QString::fromLatin1(name);
        if (isNested || text.contains(macro)) // the others would cost more than the command
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
    if (!plan.isExternal)
        return plan.error.isEmpty() ? m_tools.command(plan.request).arguments : QStringList();
    QString error;
    return externalCompileWords(kind, plan, nullptr, error);
}

// By the template of the folder's sources and what is this one's own. Where the template depends on the source in
// other ways, by the words themselves.
quint64 ElementBuild::externalCompileHash(ToolKind kind, CompilePlan &plan, const QStringList &around)
{
    ExternalTemplates::Template &made =
        m_engine.externalTemplates().of(m_system.contextOf(m_element, m_configuration), kind, m_system.changeCount());
    if (!made.isMade) {
        const QString dependencyFile = value(build_dependency_file_name);
        made.isMade = true;
        made.isOwn =
            m_isUnity || dependencyFile.contains(u'$') || value(externalCompile(kind).command).contains(":$("_L1);
        MacroMap markers;
        for (const char *own : ExternalTemplates::ownMacros)
            markers.insert(QString::fromLatin1(own), u'\1' + QString::fromLatin1(own));
        QStringList words = externalCompileWords(kind, plan, &made.isOwn, made.error, markers);
        words << dependencyFile << m_tools.programStamp(words.value(0), m_directory)
              << m_system.expandedValue(m_element, build_intermediate_directory, m_configuration, &made.isOwn);
        made.key = QString::number(commandHash(m_directory, words));
        made.hasNodeName = value(externalCompile(kind).command).contains("ProjectNodeName"_L1);
    }
    plan.error = made.error;
    if (!made.isOwn)
        return commandHash(made.key,
                           {plan.source, plan.target, made.hasNodeName ? m_element->displayName() : QString()}, around);
    const QStringList words = externalCompileWords(kind, plan, nullptr, plan.error);
    return commandHash(m_directory, words, around + QStringList{m_tools.programStamp(words.value(0), m_directory)});
}

bool ElementBuild::isCompileUpToDate(ToolKind kind, const CompilePlan &plan)
{
    UpToDate test(m_engine, m_builder, isQuiet());
    if (m_isForced || !test.targetTime(m_engine.outputId(m_element, m_configuration, m_flags), plan.target) ||
        !plan.error.isEmpty())
        return false;
    FileTimes &times = m_engine.times();
    if (!test.inputOlder(times.id(plan.source), plan.source))
        return false;
    for (const QString &member : plan.members) {
        if (!test.inputOlder(times.id(member), member))
            return false;
    }
    CommandRecord &record = m_engine.record(m_element, m_configuration);
    CommandRecord::Entry known = record.entry(plan.absoluteTarget);
    if (known.stamp != test.stamp()) { // made by somebody else
        record.setDependencies(plan.absoluteTarget, test.stamp(),
                               m_tools.readDependencies(m_element, m_configuration, plan.target));
        known = record.entry(plan.absoluteTarget);
    }
    for (const FileTimes::Id dependency : m_engine.dependencyIds(m_element, m_configuration, known)) {
        if (!test.inputOlder(dependency, times.path(dependency)))
            return false;
    }
    return test.optionsUpToDate(m_element, m_configuration, kind) &&
           test.commandUpToDate(record, known.command, plan.hash);
}

void ElementBuild::runCompile(ToolKind kind, const CompilePlan &plan)
{
    const QString name = m_element->displayName();
    if (!plan.preWords.isEmpty()) {
        runStep("Pre-compile command "_L1 + name, {{plan.preDirectory, plan.preWords, plan.preOutput}});
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
        m_tools.toolCommands(plan.request, *m_builder);
    }
    if (goesOn() && kind != ToolKind::Assemble && m_system.isYes(m_element, analyze_after_compile, m_configuration))
        analyzeSources();
    if (goesOn() && !plan.postWords.isEmpty())
        runStep("Post-compile command "_L1 + name, {{plan.postDirectory, plan.postWords, {}}});
    if (!plan.preWords.isEmpty() || !plan.postWords.isEmpty())
        anythingMade();
    outputMade(plan.absoluteTarget, plan.hash);
}
