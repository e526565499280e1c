#include "base/CommandWords.h"
#include "base/HException.h"
#include "base/SafeFile.h"
#include "build/commands/Builder.h"
#include "build/commands/Idler.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/ElementBuild_p.h"
#include "build/engine/ProjectNodes.h"
#include "project/model/ProjectSystem.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using enum ProjectProperty;

// All that making an executable or library takes.
struct ElementBuild::LinkPlan
{
    ToolKind kind;
    QString target, absoluteTarget;
    QStringList objects; // the project's own
    std::vector<FileTimes::Id> objectIds;
    QStringList dependents;      // what the projects make that it depends on
    QStringList additionalFiles; // further ones to link, there or not
    QStringList inputs;          // of the command, in order
    QString mapFile;             // absolute; empty if none is made
    QStringList extraOutputs;
    ToolRequest request;
    Commands external;   // in place of the tool chain's
    QString objectsFile; // absolute, for the external command
    QString preCommand, postCommand;
    QString error;
    quint64 hash = 0;
};

namespace {

QString quotedWords(const QStringList &words)
{
    return words.isEmpty() ? QString() : u'"' + words.join("\" \""_L1) + u'"';
}

} // namespace

bool ElementBuild::linkOrArchive(ToolKind kind)
{
    m_idler.stepStarted(m_element, m_configuration);
    LinkPlan plan;
    plan.kind = kind;
    if (!planLink(plan))
        return false;
    if (isLinkUpToDate(plan)) {
        noteUpToDate(plan.target, "' is up to date"_L1);
        return false;
    }
    if (isOwnInput(plan.absoluteTarget, plan.inputs))
        return false;
    if (removes())
        removeLinkOutputs(plan, false);
    if (!runsTools())
        return true;
    const bool isLink = kind == ToolKind::Link;
    if (!plan.preCommand.isEmpty()) {
        runStep(u"Pre-link command "_s,
                {{expandedDirectory(linker_pre_build_command_wd), splitWords(plan.preCommand)}});
        if (!goesOn())
            return true;
    }
    if (!runLinkCommand(plan) || !goesOn())
        return true;
    if (isLink && !m_builder->verifyOutput(plan.absoluteTarget)) {
        removeLinkOutputs(plan, true);
        m_engine.state().failed = true;
        return true;
    }
    runLinkPostBuild(plan);
    if (!plan.preCommand.isEmpty() || !plan.postCommand.isEmpty())
        anythingMade();
    for (const QString &extra : plan.extraOutputs)
        outputMade(absolute(extra), 0);
    outputMade(plan.absoluteTarget, plan.hash);
    return true;
}

// False when the build can't go on.
bool ElementBuild::planLink(LinkPlan &plan)
{
    const bool isLink = plan.kind == ToolKind::Link;
    plan.target = m_tools.outputName(plan.kind, m_element, m_configuration, false);
    plan.absoluteTarget = absolute(plan.target);
    gatherObjects(m_element, false, plan.objects, &plan.objectIds);
    std::vector<FileTimes::Id> sorted = plan.objectIds; // a number is compared faster than a path
    std::sort(sorted.begin(), sorted.end());
    const auto twice = std::adjacent_find(sorted.begin(), sorted.end());
    if (twice != sorted.end()) {
        const auto first = std::find(plan.objectIds.begin(), plan.objectIds.end(), *twice);
        fail("The object file "_L1 + plan.objects[first - plan.objectIds.begin()] +
             " has been supplied more than once"_L1);
        return false;
    }
    plan.inputs = plan.objects;
    plan.extraOutputs = m_tools.extraOutputs(plan.kind, m_element, m_configuration, plan.target);
    if (isLink) {
        plan.dependents = dependentOutputs();
        plan.additionalFiles = m_tools.additionalLinkInputs(m_element, m_configuration);
        if (m_system.isYes(m_element, link_dependent_projects, m_configuration))
            plan.inputs += plan.dependents;
        plan.inputs += plan.additionalFiles;
        plan.mapFile = absolute(m_tools.mapFileName(m_element, m_configuration, plan.target).value_or(QString()));
        plan.preCommand = expanded(linker_pre_build_command);
    }
    MacroMap macros{{u"TargetPath"_s, plan.absoluteTarget}, {u"RelTargetPath"_s, plan.target}};
    if (isLink)
        macros.insert(u"PostLinkOutputFilePath"_s, expanded(linker_post_build_command_output_file));
    plan.postCommand = expanded(isLink ? linker_post_build_command : archive_post_build_command, macros);
    planExternalLink(plan);
    const QStringList around{plan.preCommand, plan.postCommand};
    if (!plan.external.empty()) {
        QStringList words;
        for (const Command &command : plan.external)
            words += command.arguments;
        words += m_tools.programStamp(words.value(0), m_directory);
        plan.hash = commandHash(m_directory, words, plan.inputs + around);
    } else {
        plan.request = request(plan.kind, plan.target, plan.inputs);
        plan.hash = m_tools.hash(plan.request, around, plan.error);
    }
    return true;
}

void ElementBuild::planExternalLink(LinkPlan &plan)
{
    const bool isLink = plan.kind == ToolKind::Link;
    QString text = isLink ? value(external_link_command) : value(external_archive_command);
    if (isLink && !value(external_cpp_link_command).isEmpty() && m_tools.hasCppFile(m_element, m_configuration))
        text = value(external_cpp_link_command);
    if (text.isEmpty())
        return;
    plan.objectsFile = absolute(expanded(external_objects_file_name));
    MacroMap macros{{u"ObjectsFilePath"_s, plan.objectsFile},
                    {u"RelObjectsFilePath"_s, plan.objectsFile.isEmpty() ? QString() : relative(plan.objectsFile)},
                    {u"TargetPath"_s, plan.absoluteTarget},
                    {u"RelTargetPath"_s, relative(plan.absoluteTarget)}};
    if (text.contains("$(Objects"_L1) || hasNestedReference(text)) // thousands of them
        macros.insert(u"Objects"_s, quotedWords(plan.inputs));
    if (!isLink) {
        plan.external = commands(expand(text, macros), "&&"_L1, m_directory, plan.absoluteTarget);
        return;
    }
    const QString script = m_tools.linkerScript(m_element, m_configuration).value_or(QString());
    const int escaped = ProjectSystem::EscapedList | ProjectSystem::ExpandItems;
    macros.insert(u"MapPath"_s, plan.mapFile);
    macros.insert(u"RelMapPath"_s, plan.mapFile.isEmpty() ? QString() : relative(plan.mapFile));
    macros.insert(u"LinkOptions"_s,
                  m_system.propertyList(m_element, linker_additional_options, m_configuration, escaped).join(u' '));
    macros.insert(u"LinkerScriptPath"_s, absolute(script));
    macros.insert(u"RelLinkerScriptPath"_s, script.isEmpty() ? QString() : relative(absolute(script)));
    plan.external = {{m_directory, splitWords(expand(text, macros)), plan.absoluteTarget}};
}

void ElementBuild::gatherObjects(const ProjectElement *parent, bool isAbsolute, QStringList &objects,
                                 std::vector<FileTimes::Id> *ids)
{
    const auto add = [&](const ProjectElement *node) {
        const QString &name = m_engine.outputOf(node, m_configuration, m_flags);
        if (name.isEmpty())
            return;
        objects += isAbsolute ? m_system.absolutePath(node, name) : name;
        if (ids)
            ids->push_back(m_engine.outputId(node, m_configuration, m_flags));
    };
    for (const ProjectElement *child = parent->firstElement(); child; child = child->nextElement()) {
        if (child->type() == ProjectElement::Type::Configuration)
            continue;
        const auto [kind, isUnity] = [&] {
            const BuildEngine::NodeFacts &facts = m_engine.facts(child, m_configuration, m_flags);
            return std::pair(facts.kind, facts.isUnity);
        }();
        if (kind == ToolKind::Excluded)
            continue;
        if (kind != ToolKind::None)
            add(child);
        if (!isUnity) {
            gatherObjects(child, isAbsolute, objects, ids);
            continue;
        }
        for (const ProjectElement *file : unityFiles(m_system, child, m_configuration).excluded)
            add(file);
    }
}

QStringList ElementBuild::dependentOutputs()
{
    QStringList result;
    for (const ProjectElement *project : transitiveDependencies(m_system, m_element, m_configuration)) {
        if (m_system.value(project, build_exclude_from_build, m_configuration) != "No"_L1)
            continue;
        const QString type = m_system.value(project, project_type, m_configuration);
        QString output;
        if (type == "Object file"_L1 || type == "Externally Built Object file"_L1)
            gatherObjects(project, true, result);
        else if (type == "Library"_L1 || type == "Externally Built Library"_L1)
            output = m_tools.outputName(toolKind(m_system, project, m_configuration), project, m_configuration, true);
        else if (type == "Executable"_L1)
            output = m_tools.executableLinkInput(project, m_configuration);
        if (!output.isEmpty())
            result += output;
    }
    return result;
}

// What says where the linker places things.
QStringList ElementBuild::linkDocuments()
{
    QStringList result;
    for (const auto &file :
         {m_tools.linkerScript(m_element, m_configuration), m_tools.memoryMapFile(m_element, m_configuration),
          m_tools.sectionPlacementFile(m_element, m_configuration)}) {
        if (file)
            result += *file;
    }
    return result;
}

bool ElementBuild::isLinkUpToDate(const LinkPlan &plan)
{
    UpToDate test(m_engine, m_builder, isQuiet());
    if (m_isForced || !test.targetTime(plan.absoluteTarget, plan.target) || !plan.error.isEmpty())
        return false;
    for (qsizetype index = 0; index < plan.objects.size(); ++index) {
        if (!test.inputOlder(plan.objectIds[size_t(index)], plan.objects[index]))
            return false;
    }
    if (plan.kind == ToolKind::Link) {
        QStringList inputs = plan.dependents;
        for (const QString &file : plan.additionalFiles) {
            if (test.exists(m_directory, file))
                inputs += file;
        }
        if (!test.inputsOlder(m_directory, inputs + linkDocuments()))
            return false;
        if (plan.external.empty() && !dependenciesOlder(test, plan.absoluteTarget))
            return false;
    }
    if (!test.optionsUpToDate(m_element, m_configuration, plan.kind))
        return false;
    for (const QString &extra : plan.extraOutputs) {
        if (!test.exists(m_directory, extra))
            return false;
    }
    return (plan.mapFile.isEmpty() || test.exists({}, plan.mapFile)) &&
           test.commandUpToDate(m_element, m_configuration, plan.hash);
}

// False when nothing could be run.
bool ElementBuild::runLinkCommand(const LinkPlan &plan)
{
    if (plan.external.empty()) {
        m_engine.noteHelperFile(m_element,
                                m_tools.intermediatePath(m_element, m_configuration,
                                                         QFileInfo(plan.target).completeBaseName() + ".ind"_L1));
        m_tools.toolCommands(plan.request, *m_builder);
        return goesOn();
    }
    if (!plan.objectsFile.isEmpty() && !writeObjectsFile(plan))
        return false;
    const QLatin1StringView verb = plan.kind == ToolKind::Link ? "Linking "_L1 : "Archiving "_L1;
    runStep(verb + QFileInfo(plan.target).fileName(), plan.external);
    return true;
}

bool ElementBuild::writeObjectsFile(const LinkPlan &plan)
{
    QByteArray text;
    for (const QString &input : plan.inputs)
        text += '"' + QFile::encodeName(input) + "\"\n";
    QDir().mkpath(QFileInfo(plan.objectsFile).path());
    try {
        writeFileSafely(plan.objectsFile, text);
    } catch (const HException &) {
        fail("Cannot open file: "_L1 + plan.objectsFile);
        return false;
    }
    m_engine.noteHelperFile(m_element, plan.objectsFile);
    return true;
}

void ElementBuild::removeLinkOutputs(const LinkPlan &plan, bool isSilent)
{
    const auto remove = [&](const QString &path) {
        if (isSilent)
            QFile::remove(path);
        else
            removeFile(path);
    };
    remove(plan.absoluteTarget);
    for (const QString &extra : plan.extraOutputs)
        remove(absolute(extra));
    if (!plan.mapFile.isEmpty())
        remove(plan.mapFile);
    if (plan.external.empty()) { // what goes between us and the driver, in silence
        const QString inputs = m_tools.inputsFileName(plan.request);
        QFile::remove(inputs);
        if (plan.kind == ToolKind::Link && !m_tools.linkerScript(m_element, m_configuration)) {
            QFile::remove(inputs.chopped(3) + "ld"_L1);
            QFile::remove(inputs.chopped(3) + "ld.d"_L1);
        }
    } else if (!plan.objectsFile.isEmpty()) {
        QFile::remove(plan.objectsFile);
    }
}

void ElementBuild::runLinkPostBuild(const LinkPlan &plan)
{
    if (plan.postCommand.isEmpty())
        return;
    const bool isLink = plan.kind == ToolKind::Link;
    const QString directory = expandedDirectory(isLink ? linker_post_build_command_wd : archive_post_build_command_wd);
    const Commands pieces = commands(plan.postCommand, isLink ? " && "_L1 : "&&"_L1, directory);
    if (pieces.empty())
        return;
    QDir().mkpath(directory);
    runStep(isLink ? u"Post-link command "_s : u"Post-archive command "_s, pieces);
}
