#pragma once

#include "build/commands/BuildFlags.h"
#include "build/commands/ToolCommands.h"
#include "build/engine/CompileTemplates_p.h"
#include "build/engine/UpToDate.h"
#include "xml/macros/MacroExpansion.h"

class Builder;
class Idler;

// One call of BuildEngine::buildElement: what an element is made from, whether it is out of date, and the steps
// that make it. ElementBuild.cpp decides which; CompileStep, LinkStep and StageStep.cpp hold the steps by kind.
class ElementBuild
{
public:
    // Without a builder it is only decided.
    ElementBuild(BuildEngine &engine, const ProjectElement *element, const QString &configuration, Builder *builder,
                 Idler &idler, BuildFlags flags);

    bool run();
    QStringList inputs(); // absolute
    QStringList compileArguments(bool &isExternal);

private:
    struct Command
    {
        QString directory;
        QStringList arguments;
        QString output = {}; // absolute
    };
    using Commands = std::vector<Command>;

    // Each true when it ran, or would have.
    bool buildUnityMembers();
    bool writeUnityFile(const QString &path, const UnityFiles &files);
    bool buildChildren();
    bool buildStep(ToolKind kind);
    bool isPassedOver(ToolKind kind);
    bool analyze(ToolKind kind);
    void analyzeSources();
    bool compile(ToolKind kind);
    bool runExternal();
    bool stageFile();
    bool stageProject();
    bool combine();

    // Compile.
    struct CompilePlan;
    struct CompileSteps;
    CompilePlan planCompile(ToolKind kind);
    const CompileTemplates::Template &compileTemplate(ToolKind kind, const CompilePlan &plan);
    bool addExternalCompile(ToolKind kind, const CompilePlan &plan, CompileTemplates::Template &made);
    quint64 ownCompileHash(ToolKind kind, CompilePlan &plan);
    CompileSteps compileSteps(ToolKind kind, const CompilePlan &plan);
    QStringList externalCompileWords(ToolKind kind, const CompilePlan &plan, bool *isOwn, QString &error,
                                     const MacroMap &markers = {});
    bool isCompileUpToDate(ToolKind kind, const CompilePlan &plan);
    void runCompile(ToolKind kind, const CompilePlan &plan);

    // Link and archive.
    struct LinkPlan;
    bool linkOrArchive(ToolKind kind);
    bool planLink(LinkPlan &plan);
    void planExternalLink(LinkPlan &plan);
    void gatherObjects(const ProjectElement *parent, bool isAbsolute, QStringList &objects,
                       std::vector<FileTimes::Id> *ids = nullptr);
    QStringList dependentOutputs();
    QStringList linkDocuments();
    bool dependenciesOlder(UpToDate &test, const QString &target, quint64 *command = nullptr);
    bool isLinkUpToDate(const LinkPlan &plan);
    bool runLinkCommand(const LinkPlan &plan);
    bool writeObjectsFile(const LinkPlan &plan);
    void removeLinkOutputs(const LinkPlan &plan, bool isSilent);
    void runLinkPostBuild(const LinkPlan &plan);

    // Stage and combine.
    void gatherFiles(const ProjectElement *parent, QStringList &files);
    void runCopy(const QString &title, const QString &target, const Commands &commands, ProjectProperty setReadOnly,
                 const QString &directory, quint64 hash);

    // Shared by the steps.
    bool isQuiet() const { return m_flags & BuildFlag::quiet; }
    bool runsTools() const { return m_builder && !(m_flags & BuildFlag::noRun); }
    bool removes() const { return m_flags & BuildFlag::remove; }
    bool goesOn() const;
    QString value(ProjectProperty property) const;
    QString expand(const QString &text, const MacroMap &extra = {}) const;
    QString expanded(ProjectProperty property, const MacroMap &extra = {}) const;
    QString expandedDirectory(ProjectProperty property) const; // absolute
    QString absolute(const QString &path) const;               // the empty one stays so
    QString relative(const QString &path) const;
    // The commands in a text that joins them by the separator, to be run in the directory.
    static Commands commands(const QString &text, QLatin1StringView separator, const QString &directory,
                             const QString &output = {});
    void runStep(const QString &title, const Commands &commands);
    ToolRequest request(ToolKind kind, const QString &target, const QStringList &inputs) const;
    void removeFile(const QString &path); // absolute
    // Fails the build then: the output would be removed or cut off before its command reads it.
    bool isOwnInput(const QString &target, const QStringList &inputs);
    void noteUpToDate(const QString &target, QLatin1StringView end);
    void outputMade(const QString &output, quint64 hash); // absolute; hash 0: no command of ours made it
    void anythingMade();
    void fail(const QString &text);

    BuildEngine &m_engine;
    StandardProjectSystem &m_system;
    ToolCommands &m_tools;
    const ProjectElement *m_element;
    const QString &m_configuration;
    Builder *m_builder;
    Idler &m_idler;
    const BuildFlags m_flags;
    const QString m_directory; // of the project
    bool m_isForced;
    bool m_isUnity = false;
    MacroMap m_macros; // of a unity folder: its file's
};
