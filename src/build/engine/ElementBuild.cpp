#include "build/engine/ElementBuild_p.h"

#include "base/CommandWords.h"
#include "base/HException.h"
#include "base/SafeFile.h"
#include "build/commands/Builder.h"
#include "build/commands/Idler.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/BuildThread.h"
#include "build/engine/ProjectNodes.h"
#include "project/model/ProjectSystem.h"

#include <QDir>
#include <QFile>
#include <QStringBuilder>

using namespace Qt::StringLiterals;
using enum ProjectProperty;

ElementBuild::ElementBuild(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                           Builder *builder, Idler &idler, BuildFlags flags)
    : m_engine(engine),
      m_system(engine.system()),
      m_tools(engine.tools()),
      m_element(element),
      m_configuration(configuration),
      m_builder(builder),
      m_idler(idler),
      m_flags(flags),
      m_directory(m_system.projectDirectory(element))
{
    m_tools.loadGenericOptions(element, configuration); // before any value is asked for: it may change their defaults
    m_isForced = flags & BuildFlag::force || m_system.isYes(element, build_always_rebuild, configuration);
}

bool ElementBuild::run()
{
    if (m_element->type() == ProjectElement::Type::Configuration)
        return false;
    m_idler.idle(0);
    const BuildEngine::NodeFacts &facts = m_engine.facts(m_element, m_configuration, m_flags);
    m_isUnity = facts.isUnity;
    const ToolKind kind = facts.kind;
    if (m_isUnity)
        m_isForced |= buildUnityMembers();
    else if (!(m_flags & BuildFlag::noChildren) && kind != ToolKind::External)
        m_isForced |= buildChildren();
    if (!goesOn())
        return false;
    const bool didSomething = m_flags & BuildFlag::analyze ? analyze(kind) : buildStep(kind);
    if (didSomething && kind != ToolKind::None)
        m_engine.noteStep();
    return didSomething;
}

bool ElementBuild::buildStep(ToolKind kind)
{
    const bool isProject = m_element->type() == ProjectElement::Type::Project;
    if (isPassedOver(kind))
        return false;
    switch (kind) {
    case ToolKind::None: return m_element->type() == ProjectElement::Type::Folder && m_isForced;
    case ToolKind::Excluded: return false;
    case ToolKind::CCompile:
    case ToolKind::CppCompile:
    case ToolKind::Assemble: return compile(kind);
    case ToolKind::External: return isProject && m_builder && runExternal();
    case ToolKind::Link:
    case ToolKind::Archive: return linkOrArchive(kind);
    case ToolKind::Stage: return isProject ? stageProject() : stageFile();
    case ToolKind::Combine: return combine();
    }
    return false;
}

// With keep-going: what it is made from couldn't be made, and the tool would only say that it isn't there, or take
// what an older build has left.
bool ElementBuild::isPassedOver(ToolKind kind)
{
    if (!m_engine.failureCount() || kind == ToolKind::None || kind == ToolKind::Excluded || isCompile(kind))
        return false;
    const bool isProject = m_element->type() == ProjectElement::Type::Project;
    QString cause = isProject && m_engine.hasFailed(m_element, m_configuration) ? u"one of its own steps"_s : QString();
    if (cause.isEmpty() && kind != ToolKind::Archive) {
        for (const ProjectElement *dependency :
             transitiveDependencies(m_system, projectOf(m_element), m_configuration)) {
            if (m_engine.hasFailed(dependency, m_configuration))
                cause = u'\'' + dependency->displayName() + u'\'';
        }
    }
    if (cause.isEmpty())
        return false;
    if (m_builder)
        m_builder->reportInfo(u'\'' + m_element->displayName() + "' is passed over because "_L1 + cause + " failed"_L1);
    if (isProject && !(m_flags & BuildFlag::noRun) && !m_engine.hasFailed(m_element, m_configuration))
        m_engine.jobFailed(m_element, m_configuration);
    return true;
}

bool ElementBuild::buildChildren()
{
    bool didSomething = false;
    for (const ProjectElement *child = m_element->firstElement(); child; child = child->nextElement()) {
        didSomething |= m_engine.buildElement(child, m_configuration, m_builder, m_idler, m_flags);
        if (!goesOn())
            break;
    }
    return didSomething;
}

// Writes the file that includes the members and builds what is compiled by itself. The file stays as it is while it
// says the same, so that an edit of the solution compiles only what it changes.
bool ElementBuild::buildUnityMembers()
{
    m_macros = unityMacros(m_system, m_element, m_configuration);
    const QString path = unityFileName(m_system, m_element, m_configuration);
    const UnityFiles files = unityFiles(m_system, m_element, m_configuration);
    QStringList sources;
    for (const ProjectElement *file : files.members + files.excluded)
        sources += m_system.path(file, m_configuration);
    if (isOwnInput(path, sources))
        return false;
    if (removes())
        removeFile(path);
    if (!(m_flags & (BuildFlag::noRun | BuildFlag::analyze)) && !writeUnityFile(path, files))
        return false;
    bool didSomething = false;
    for (const ProjectElement *file : files.excluded)
        didSomething |= m_engine.buildElement(file, m_configuration, m_builder, m_idler, m_flags);
    return didSomething;
}

bool ElementBuild::writeUnityFile(const QString &path, const UnityFiles &files)
{
    QByteArray text;
    for (const ProjectElement *member : files.members)
        text += "#include \"" + QFile::encodeName(m_system.path(member, m_configuration)) + "\"\n";
    QFile file(path);
    const bool isSame = !m_isForced && file.open(QFile::ReadOnly) && file.readAll() == text;
    file.close();
    if (!isSame) {
        QDir().mkpath(QFileInfo(path).path());
        try {
            writeFileSafely(path, text);
        } catch (const HException &e) {
            fail(e.message());
            return false;
        }
        m_engine.times().setWritten(path);
    }
    m_engine.noteHelperFile(m_element, path);
    return true;
}

bool ElementBuild::analyze(ToolKind kind)
{
    if (kind == ToolKind::None || kind == ToolKind::Excluded || kind == ToolKind::External)
        return false; // no step of the build either
    m_idler.stepStarted(m_element, m_configuration);
    if ((kind == ToolKind::CCompile || kind == ToolKind::CppCompile) && runsTools())
        analyzeSources();
    return true;
}

// Of a unity folder its members one by one: the file that includes them is ours.
void ElementBuild::analyzeSources()
{
    QList<const ProjectElement *> sources{m_element};
    if (m_isUnity)
        sources = unityFiles(m_system, m_element, m_configuration).members;
    for (const ProjectElement *source : sources) {
        if (goesOn())
            m_tools.analyzeFile(source, m_configuration, *m_builder);
    }
}

bool ElementBuild::runExternal()
{
    const QString output = m_tools.outputName(ToolKind::External, m_element, m_configuration, true);
    const auto run = [this](QLatin1StringView title, const QStringList &words, const QString &made) {
        if (words.isEmpty() || !goesOn())
            return false;
        runStep(title + m_element->displayName(), {{m_directory, words, made}});
        anythingMade();
        return true;
    };
    bool ran = removes() && run("Running Clean command "_L1, splitWords(expanded(external_clean_command)), {});
    if (runsTools())
        ran |= run("Running Build command "_L1, splitWords(expanded(external_build_command)), output);
    return ran;
}

QStringList ElementBuild::inputs()
{
    const ToolKind kind = toolKind(m_system, m_element, m_configuration, m_flags);
    QStringList result;
    if (isUnityFolder(m_system, m_element, m_configuration, m_flags)) {
        for (const ProjectElement *member : unityFiles(m_system, m_element, m_configuration).members)
            result += m_system.path(member, m_configuration);
    } else if (kind == ToolKind::Link || kind == ToolKind::Archive) {
        gatherObjects(m_element, true, result);
        if (kind == ToolKind::Link) {
            result += dependentOutputs();
            for (const QString &file : linkDocuments())
                result += absolute(file);
        }
    } else if (kind == ToolKind::Combine) {
        gatherFiles(m_element, result);
    } else if (m_element->type() == ProjectElement::Type::File) {
        result += m_system.path(m_element, m_configuration);
    }
    return result;
}

void ElementBuild::gatherFiles(const ProjectElement *parent, QStringList &files)
{
    for (const ProjectElement *child = parent->firstElement(); child; child = child->nextElement()) {
        if (child->type() == ProjectElement::Type::File &&
            !m_system.isYes(child, build_exclude_from_build, m_configuration))
            files += m_system.path(child, m_configuration);
        gatherFiles(child, files);
    }
}

// ---- Shared by the steps -----------------------------------------------------------------------------------------

bool ElementBuild::goesOn() const
{
    return m_engine.state().goesOn();
}

QString ElementBuild::value(ProjectProperty property) const
{
    return m_system.value(m_element, property, m_configuration);
}

QString ElementBuild::expand(const QString &text, const MacroMap &extra) const
{
    if (m_macros.isEmpty() || extra.isEmpty())
        return m_system.expand(m_element, m_configuration, text, m_macros.isEmpty() ? extra : m_macros);
    MacroMap both = m_macros;
    both.insert(extra);
    return m_system.expand(m_element, m_configuration, text, both);
}

QString ElementBuild::expanded(ProjectProperty property, const MacroMap &extra) const
{
    const QString text = value(property);
    return text.isEmpty() ? text : expand(text, extra);
}

QString ElementBuild::expandedDirectory(ProjectProperty property) const
{
    return ::absolutePath(m_directory, expanded(property));
}

QString ElementBuild::absolute(const QString &path) const
{
    return path.isEmpty() ? path : ::absolutePath(m_directory, path);
}

QString ElementBuild::relative(const QString &path) const
{
    return m_system.relativePath(m_element, path);
}

ElementBuild::Commands ElementBuild::commands(const QString &text, QLatin1StringView separator,
                                              const QString &directory, const QString &output)
{
    Commands result;
    for (const QString &piece : text.split(separator)) {
        const QStringList words = splitWords(piece);
        if (!words.isEmpty())
            result.push_back({directory, words, output});
    }
    return result;
}

void ElementBuild::runStep(const QString &title, const Commands &commands)
{
    m_builder->beginStep(m_element, title, m_configuration, 0);
    for (const Command &command : commands) {
        m_builder->runCommand(command.directory, command.arguments, command.output);
        if (!goesOn())
            break;
    }
    m_builder->endStep(m_element, m_configuration);
}

ToolRequest ElementBuild::request(ToolKind kind, const QString &target, const QStringList &inputs) const
{
    return {m_element, m_configuration, kind, target, absolute(target), inputs, m_flags};
}

void ElementBuild::removeFile(const QString &path)
{
    m_engine.times().forget(path);
    m_engine.record(m_element, m_configuration).forget(path);
    QFile file(path);
    if (!file.exists())
        return;
    const bool isRemoved = file.remove();
    if (!isRemoved)
        m_engine.noteFailure();
    if (!m_builder || isQuiet())
        return;
    if (isRemoved)
        m_builder->reportInfo("Remove "_L1 + path);
    else
        m_builder->reportError("Cannot remove "_L1 + path);
}

bool ElementBuild::isOwnInput(const QString &target, const QStringList &inputs)
{
    const QString path = absolute(target);
    const bool isOwn = !target.isEmpty() && std::any_of(inputs.begin(), inputs.end(),
                                                        [&](const QString &input) { return absolute(input) == path; });
    if (isOwn)
        fail("The output "_L1 + target + " is one of its own inputs"_L1);
    return isOwn;
}

void ElementBuild::noteUpToDate(const QString &target, QLatin1StringView end)
{
    if (m_builder && !isQuiet())
        m_builder->reportNote(u'\'' % target % end);
}

void ElementBuild::outputMade(const QString &output, quint64 hash)
{
    if (auto *thread = dynamic_cast<BuildThread *>(m_builder))
        thread->outputMade(m_element, m_configuration, output, hash);
    else if (goesOn())
        m_engine.outputMade(m_element, m_configuration, output, hash);
}

void ElementBuild::anythingMade()
{
    outputMade({}, 0);
}

void ElementBuild::fail(const QString &text)
{
    if (m_builder)
        m_builder->reportError(text);
    m_engine.state().failed = true;
}
