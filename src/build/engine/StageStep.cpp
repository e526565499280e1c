#include "base/CommandWords.h"
#include "build/commands/Builder.h"
#include "build/commands/Idler.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/ElementBuild_p.h"
#include "project/model/ProjectSystem.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;
using enum ProjectProperty;

bool ElementBuild::stageFile()
{
    m_idler.stepStarted(m_element, m_configuration);
    const QString target = m_tools.outputName(ToolKind::Stage, m_element, m_configuration, false);
    const MacroMap macros{{u"StageOutputFilePath"_s, target}};
    const QString directory = expandedDirectory(stage_command_wd);
    const Commands pieces = commands(expanded(stage_command, macros), "&&"_L1, directory, absolute(target));
    QStringList words{value(stage_set_readonly)};
    for (const Command &piece : pieces)
        words += piece.arguments;
    const quint64 hash = commandHash(directory, words);
    if (!target.isEmpty()) {
        UpToDate test(m_engine, m_builder, isQuiet());
        if (!m_isForced && test.targetTime(absolute(target), target) &&
            test.inputsOlder(m_directory, {m_system.path(m_element, m_configuration)}) &&
            test.optionsUpToDate(m_element, m_configuration, ToolKind::Stage) &&
            test.commandUpToDate(m_element, m_configuration, hash)) {
            noteUpToDate(target, "' is up to date."_L1);
            return false;
        }
        if (isOwnInput(target, {m_system.path(m_element, m_configuration)}))
            return false;
        if (removes())
            removeFile(absolute(target));
    }
    if (runsTools())
        runCopy("Copying "_L1 + m_element->displayName(), target, pieces, stage_set_readonly, directory, hash);
    return true;
}

bool ElementBuild::stageProject()
{
    m_idler.stepStarted(m_element, m_configuration);
    const QStringList words = splitWords(expanded(stage_post_build_command));
    const QString postStage = u"post-stage"_s;
    if (words.isEmpty() || !runsTools() || !(m_isForced || m_engine.isOwed(m_element, m_configuration, postStage)))
        return false;
    m_engine.setOwed(m_element, m_configuration, postStage, true);
    runStep(u"Post-stage command"_s, {{expandedDirectory(stage_post_build_command_wd), words}});
    anythingMade();
    outputMade(BuildEngine::owedName(postStage, m_configuration), 0); // no longer owed
    return true;
}

bool ElementBuild::combine()
{
    m_idler.stepStarted(m_element, m_configuration);
    const QString target = m_tools.outputName(ToolKind::Combine, m_element, m_configuration, false);
    QStringList inputs;
    gatherFiles(m_element, inputs);
    QStringList relativeInputs;
    for (const QString &input : inputs)
        relativeInputs += u'"' + relative(input) + u'"';
    const MacroMap macros{{u"CombiningOutputFilePath"_s, target},
                          {u"CombiningRelInputPaths"_s, relativeInputs.join(u' ')}};
    const QString directory = expandedDirectory(combine_command_wd);
    const Commands pieces = commands(expanded(combine_command, macros), "&&"_L1, directory, absolute(target));
    QStringList words{value(combine_set_readonly)};
    for (const Command &piece : pieces)
        words += piece.arguments;
    const quint64 hash = commandHash(directory, words, relativeInputs);
    UpToDate test(m_engine, m_builder, isQuiet());
    if (!m_isForced && test.targetTime(absolute(target), target) && test.inputsOlder(m_directory, inputs) &&
        test.optionsUpToDate(m_element, m_configuration, ToolKind::Combine) &&
        test.commandUpToDate(m_element, m_configuration, hash)) {
        noteUpToDate(target, "' is up to date"_L1);
        return false;
    }
    if (isOwnInput(target, inputs))
        return false;
    if (removes() && !target.isEmpty())
        removeFile(absolute(target));
    if (runsTools())
        runCopy("Combining "_L1 + m_element->displayName(), target, pieces, combine_set_readonly, directory, hash);
    return true;
}

void ElementBuild::runCopy(const QString &title, const QString &target, const Commands &pieces,
                           ProjectProperty setReadOnly, const QString &directory, quint64 hash)
{
    if (pieces.empty()) {
        if (!isQuiet())
            m_builder->reportNote(u"nothing to do"_s);
        return;
    }
    Commands all = pieces;
    const QString readOnly = value(setReadOnly);
    if (!target.isEmpty() && readOnly != "Don't"_L1) {
        if (m_engine.runsTools())
            QFile::remove(absolute(target)); // the last copy may be read-only
        all.push_back({directory, {u"chmod"_s, readOnly == "Yes"_L1 ? u"-w"_s : u"+w"_s, absolute(target)}});
    }
    QDir().mkpath(directory);
    runStep(title, all);
    anythingMade();
    if (!target.isEmpty())
        outputMade(absolute(target), hash);
}
