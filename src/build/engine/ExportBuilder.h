#pragma once

#include "build/commands/BuildFlags.h"
#include "build/commands/Builder.h"

#include <QStringList>
#include <map>
#include <set>
#include <vector>

class BuildEngine;

// Writes the commands of a build down in place of running them: as lines for a shell, or as the rules of a make file.
//
// The make file is for GNU make in the base directory, that of the solution. Its names are relative to it where they
// lie below it. Commands of projects in other directories change there first.
class ExportBuilder : public Builder
{
public:
    enum class Form { Commands, MakeFile };

    ExportBuilder(BuildEngine &engine, Form form, const QString &baseDirectory);

    QStringList lines() const; // what was collected so far

    void beginStep(const ProjectElement *element, const QString &title, const QString &configuration,
                   int steps) override;
    void endStep(const ProjectElement *, const QString &) override {}
    void runCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    void startCommand(const QString &directory, const QStringList &arguments, const QString &output) override;
    bool pollCommand(const ProjectElement *, const QString &) override { return true; }
    void reportError(const QString &text) override;
    void reportWarning(const QString &) override {}
    void reportInfo(const QString &) override {}
    void reportNote(const QString &) override {}
    void reportDetail(const QString &) override {}
    bool verifyOutput(const QString &) override { return true; }

private:
    using ProjectKey = std::pair<const ProjectElement *, QString>;
    struct Rule // paths absolute, or names of what is no file
    {
        const ProjectElement *element;
        QString target;
        QStringList inputs = {};
        QString dependencyFile = {};
        QStringList recipe = {};
        bool isFile = true;
        QStringList others = {}; // what the recipe makes beside the target
    };
    struct Project
    {
        QString directory;
        QString name; // for what is no file
        std::vector<Rule> rules;
        QString preBuild;         // the target that its other rules wait for; empty if none
        QStringList dependencies; // targets of other projects that come first
    };

    Project &project(const ProjectElement *element, const QString &configuration);
    Rule &beginRule(Project &project, const ProjectElement *element, const QString &configuration, bool isPreBuild);
    QString projectTarget(const Project &project) const;
    bool isOwnDirectory(const QString &directory) const;
    void addCommand(const QString &directory, const QString &line);
    void writeHelperFiles(const QString &directory);
    QStringList makeLines() const;
    void addRuleLines(const Project &project, const Rule &rule, std::set<QString> &directories,
                      QStringList &lines) const;
    QString ruleName(const QString &path, bool isTarget = false) const;

    BuildEngine &m_engine;
    const Form m_form;
    const QString m_base;
    QStringList m_lines, m_errors;
    QString m_currentDirectory;
    std::set<QString> m_madeDirectories;
    const ProjectElement *m_element = nullptr; // of the step that is open
    QString m_configuration;
    std::vector<ProjectKey> m_order;
    std::map<ProjectKey, Project> m_projects;
};

// The commands, or the make file, by which the element is built from nothing; what can't be told is a line that begins
// with the mark. Flags: noUnity, noDepend.
inline constexpr QLatin1StringView exportErrorMark("ERROR occurred ");
QStringList exportBuildCommands(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                                BuildFlags flags = 0);
QStringList exportMakefile(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                           BuildFlags flags = 0);
