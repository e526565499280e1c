#pragma once

#include "build/commands/BuildFlags.h"
#include "build/commands/CommandRecord.h"
#include "build/commands/ToolKind.h"
#include "project/properties/GenericOptions.h"

#include <QHash>
#include <QSet>
#include <QStringList>
#include <map>
#include <tuple>

class Builder;
struct CommandRow;

// One use of the tool-chain driver. Its output is `target` as the command names it, which is relative to the
// project's directory or absolute, and `absoluteTarget`.
struct ToolRequest
{
    const ProjectElement *element = nullptr;
    QString configuration;
    ToolKind kind = ToolKind::None; // CCompile, CppCompile, Assemble, Link or Archive
    QString target, absoluteTarget;
    QStringList inputs; // the source; what is linked or archived
    BuildFlags flags = 0;
};

// A command that isn't run yet. What a file names to it belongs to it as well.
struct ToolCommand
{
    QString directory;
    QStringList arguments; // the program first
    QStringList inputs;    // lines of the inputs file, of a link or archive
    QString error;         // why it can't be made; empty if it can
    QStringList programs;  // stamps of what runs
};

// Turns properties into file names and command lines of the tool chain.
//
// All compiling, assembling, archiving and linking goes through one program, "$(StudioDir)/bin/cc". Which
// property makes which argument, in which order, is a table in CommandRows.cpp.
//
// What is equal for all files of a folder or project is worked out once and kept until a property changes.
class ToolCommands
{
public:
    // Both outlive it.
    ToolCommands(StandardProjectSystem &system, BuildState &state);
    ToolCommands(const ToolCommands &) = delete;
    ToolCommands &operator=(const ToolCommands &) = delete;
    virtual ~ToolCommands();

    // Absolute, below the intermediate directory, which is made if it isn't there.
    virtual QString intermediatePath(const ProjectElement *element, const QString &configuration, const QString &name);
    // Where the driver says which files the object was made from: its name up to the first dot with ".d", or up to the
    // last one where objects of the project would share the file; of a project's link up to the last one with ".ld.d".
    // The directory of the absolute form is made.
    virtual QString dependencyFileName(const ProjectElement *element, const QString &configuration,
                                       const QString &object, bool absolute);
    // Runs the driver on the builder, in a step of its own. What can't be run sets the state's `failed`.
    virtual void toolCommands(const ToolRequest &request, Builder &builder);
    // What the object was made from but its source, as the compiler said; relative paths count from the project's
    // directory. Empty without a dependency file.
    virtual QStringList readDependencies(const ProjectElement *element, const QString &configuration,
                                         const QString &object);
    // Files to link that are no outputs of this build.
    virtual QStringList additionalLinkInputs(const ProjectElement *element, const QString &configuration);
    // What a project that depends on this executable links; empty: nothing.
    virtual QString executableLinkInput(const ProjectElement *, const QString & /*configuration*/) { return QString(); }
    // Empty for what makes no file.
    virtual QString outputName(ToolKind kind, const ProjectElement *element, const QString &configuration,
                               bool absolute);
    virtual bool hasCppFile(const ProjectElement *element, const QString &configuration);
    // The map file of a link, relative or absolute as the target; none when the linker writes none.
    virtual std::optional<QString> mapFileName(const ProjectElement *element, const QString &configuration,
                                               const QString &target);
    // Compiler options by which clang reads a file of this project: definitions, includes, target. The tool
    // chain knows them.
    virtual QStringList languageArguments(const ProjectElement *element, const QString &configuration) = 0;

    // Puts the tool chain's own properties into the schema, by the file that the element's project names for
    // them; command() does it first. Whoever asks for values of an element before that does it himself, for the file
    // may change their defaults. An additional option of the project's that such a property makes becomes its
    // value; what was there before is kept in the backup property.
    void loadGenericOptions(const ProjectElement *element, const QString &configuration);
    // By which another program of that name, or another version of it, is known: where it was found, its time and
    // size. The directory counts for relative paths. It is looked for once in a build.
    QString programStamp(const QString &program, const QString &directory);
    // Looks at the file system anew: files of options and of property groups, directories that were made. To be
    // called before a build and behind what may have written such files.
    void refresh();

    // The command that toolCommands would run. Nothing is written or reported.
    ToolCommand command(const ToolRequest &request);
    // Its commandHash(), `more` counting as further inputs, for less than the command costs; `error` is set if it
    // has one.
    quint64 hash(const ToolRequest &request, const QStringList &more, QString &error);
    // Adds to the hash what tells this command from those of other folders; source and target tell the sources of one
    // folder from each other. False where they don't, as something else is each one's own.
    bool addShared(const ToolRequest &request, CommandHash &hash, QString &error);
    // What names the inputs to linker and archiver, absolute; toolCommands writes it.
    QString inputsFileName(const ToolRequest &request) const;
    // What else the tool makes; relative or absolute as the target.
    QStringList extraOutputs(ToolKind kind, const ProjectElement *element, const QString &configuration,
                             const QString &target);
    // The files of options that go into this tool's command, absolute; what changes them makes its outputs old.
    QStringList optionFiles(ToolKind kind, const ProjectElement *element, const QString &configuration);
    bool hasOptionFiles(ToolKind kind, const ProjectElement *element, const QString &configuration) const;
    // A file that a project names by a property: the value where that exists, else behind the project's
    // directory. None when it isn't there, or isn't named.
    std::optional<QString> linkerScript(const ProjectElement *element, const QString &configuration);
    std::optional<QString> memoryMapFile(const ProjectElement *element, const QString &configuration);
    std::optional<QString> sectionPlacementFile(const ProjectElement *element, const QString &configuration);

    // Runs the static analyzer over a C or C++ source.
    void analyzeFile(const ProjectElement *element, const QString &configuration, Builder &builder);
    // languageArguments, the source's language and the code completion options.
    QStringList languageServiceArguments(const ProjectElement *element, const QString &configuration);

protected:
    // The program that the driver runs to compile with these arguments; empty when nothing is known of it.
    virtual QString compilerBehind(const QStringList & /*arguments*/) { return QString(); }

    StandardProjectSystem &m_system;
    BuildState &m_state;

private:
    // The commands of one tool for all nodes with the same values.
    struct Template
    {
        struct Piece
        {
            QStringList arguments; // in common
            CommandHash hash;      // of these
            const CommandRow *row; // or what makes those of each; null if they are in common
        };
        std::vector<Piece> pieces;
        QString directory;
        QStringList programs; // stamps of the driver and of the compiler
        QString error;
    };

    const Template &templateOf(const ToolRequest &request);
    QStringList inputsOf(const ToolRequest &request) const; // lines of the inputs file
    void loadGenericOptionsOf(const ProjectElement *project, const QString &configuration);
    void takeOverOptions(const ProjectElement *project, const QString &configuration);
    QString intermediateDirectory(const ProjectElement *element, const QString &configuration) const;
    QString dependencyPath(const ProjectElement *element, const QString &configuration, const QString &object,
                           bool absolute);
    int objectCount(const ProjectElement *element, const QString &configuration, QStringView name);
    QString expandedValue(const ProjectElement *element, ProjectProperty property, const QString &configuration) const;
    std::optional<QString> existingFile(const ProjectElement *element, ProjectProperty property,
                                        const QString &configuration) const;
    void makeDirectory(const QString &path);
    bool writeInputsFile(const ToolRequest &request, const QStringList &inputs, Builder &builder);

    GenericOptions m_genericOptions;
    QString m_genericOptionsPath, m_genericOptionsError;
    struct // so that asking for each source costs next to nothing
    {
        const ProjectElement *project = nullptr;
        QString configuration;
        quint64 changeCount = ~quint64(0);
    } m_optionsInForce;
    using TemplateKey = std::tuple<const void *, ToolKind, BuildFlags>; // the context, see ProjectSystem
    std::map<TemplateKey, Template> m_templates;
    quint64 m_changeCount = 0; // of the system, when they were made
    // Of a project in a configuration, by what stands before the first dot of their names.
    std::map<std::pair<const void *, QString>, QHash<QString, int>> m_objectCounts;
    quint64 m_objectCountsChange = 0; // of the system, when they were counted
    QSet<QString> m_directories;      // that were made
    QHash<QString, QString> m_programStamps;
};
