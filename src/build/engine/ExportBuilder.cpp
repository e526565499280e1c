#include "build/engine/ExportBuilder.h"

#include "build/commands/Idler.h"
#include "build/commands/ToolCommands.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/ProjectNodes.h"
#include "build/engine/StudioBuilder.h"
#include "project/model/ProjectSystem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr auto recipeIndent = "  "_L1, equals = "$(equals)"_L1;
constexpr QLatin1StringView headers[] = {"h"_L1, "hh"_L1, "hpp"_L1, "hxx"_L1, "inc"_L1};
constexpr qsizetype namesPerLine = 100; // of a command that writes a file

// A word for a shell. One that only has a blank stands in double quotes.
QString shellWord(const QString &word)
{
    constexpr auto special = "\"'`$\\&;|<>()*?[]{}#~!\t\n"_L1;
    const bool isSpecial =
        word.isEmpty() || std::any_of(word.begin(), word.end(), [&](QChar c) { return special.contains(c); });
    if (!isSpecial)
        return word.contains(u' ') ? u'"' + word + u'"' : word;
    QString quoted = word;
    return u'\'' + quoted.replace(u'\'', "'\\''"_L1) + u'\'';
}

QString doubleQuoted(QString word)
{
    for (const char special : {'\\', '"', '$', '`'})
        word.replace(QLatin1Char(special), u'\\' + QString(QLatin1Char(special)));
    return u'"' + word + u'"';
}

// The words of a command as a shell reads them. Redirections are the process's own, which a shell has in part only.
QString shellLine(const QStringList &arguments)
{
    QStringList words;
    QString behind;
    for (const QString &argument : installedCommand(arguments)) {
        if (argument == "&>"_L1 || argument == "&>>"_L1) {
            words += argument.mid(1);
            behind = u" 2>&1"_s;
        } else if (argument == ">"_L1 || argument == ">>"_L1 || argument == "1>"_L1 || argument == "1>>"_L1 ||
                   argument == "2>"_L1 || argument == "2>>"_L1) {
            words += argument;
        } else {
            words += shellWord(argument);
        }
    }
    return words.join(u' ') + behind;
}

} // namespace

ExportBuilder::ExportBuilder(BuildEngine &engine, Form form, const QString &baseDirectory)
    : m_engine(engine), m_form(form), m_base(baseDirectory)
{}

QStringList ExportBuilder::lines() const
{
    return (m_form == Form::MakeFile ? makeLines() : m_lines) + m_errors;
}

void ExportBuilder::reportError(const QString &text)
{
    (m_form == Form::MakeFile ? m_errors : m_lines) += exportErrorMark + text;
}

void ExportBuilder::beginStep(const ProjectElement *element, const QString &title, const QString &configuration, int)
{
    m_element = element;
    m_configuration = configuration;
    if (m_form == Form::MakeFile && element)
        beginRule(project(element, configuration), element, configuration, title == "Pre-build command "_L1);
}

void ExportBuilder::runCommand(const QString &directory, const QStringList &arguments, const QString &output)
{
    startCommand(directory, arguments, output);
}

void ExportBuilder::startCommand(const QString &directory, const QStringList &arguments, const QString &output)
{
    const QString outputDirectory = output.isEmpty() ? output : QFileInfo(output).path();
    if (m_form == Form::Commands) {
        if (!output.isEmpty() && m_madeDirectories.insert(outputDirectory).second)
            m_lines += "mkdir -p "_L1 + shellWord(outputDirectory);
        if (directory != m_currentDirectory) {
            if (isOwnDirectory(directory) && m_madeDirectories.insert(directory).second)
                m_lines += "mkdir -p "_L1 + shellWord(directory);
            m_lines += "cd "_L1 + doubleQuoted(directory);
        }
        m_currentDirectory = directory;
    }
    writeHelperFiles(directory);
    addCommand(directory, shellLine(arguments));
}

// Of a command alone, which a build makes.
bool ExportBuilder::isOwnDirectory(const QString &directory) const
{
    return m_element && directory != m_engine.system().projectDirectory(m_element);
}

void ExportBuilder::addCommand(const QString &directory, const QString &line)
{
    if (m_form == Form::Commands) {
        m_lines += line;
        return;
    }
    if (!m_element)
        return;
    QString recipe = line;
    if (directory != m_base)
        recipe.prepend("cd "_L1 + shellWord(directory) + " && "_L1);
    if (isOwnDirectory(directory))
        recipe.prepend("mkdir -p "_L1 + shellWord(directory) + " && "_L1);
    project(m_element, m_configuration).rules.back().recipe += recipe.replace(u'$', "$$"_L1);
}

// The files that the build has written for this step's command: a make file or a shell may find them gone.
void ExportBuilder::writeHelperFiles(const QString &directory)
{
    for (const QString &path : m_engine.takeHelperFiles(m_element)) {
        QFile file(path);
        if (!file.open(QFile::ReadOnly))
            continue;
        const QStringList content = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
        QString arrow = u" > "_s;
        for (qsizetype first = 0; first < content.size() || arrow == " > "_L1; first += namesPerLine) {
            QString line = u"printf '%s\\n'"_s;
            for (const QString &word : content.mid(first, namesPerLine))
                line += u' ' + shellWord(word);
            addCommand(directory, line + arrow + shellWord(path));
            arrow = u" >> "_s;
        }
    }
}

// ---- The make file -----------------------------------------------------------------------------------------------

ExportBuilder::Project &ExportBuilder::project(const ProjectElement *element, const QString &configuration)
{
    const ProjectElement *project = projectOf(element);
    const ProjectKey key{project, configuration};
    const auto known = m_projects.find(key);
    if (known != m_projects.end())
        return known->second;
    m_order.push_back(key);
    Project &made = m_projects[key];
    made.name = project ? project->displayName() : u"solution"_s;
    made.directory = m_engine.system().projectDirectory(element);
    if (!project)
        return made;
    for (const QString &name : dependencyNames(m_engine.system(), project, configuration)) {
        const auto dependency = m_projects.find({m_engine.system().project(name), configuration});
        if (dependency != m_projects.end() && dependency->first != key)
            made.dependencies += projectTarget(dependency->second);
    }
    return made;
}

// A step goes on with the rule of the step before when that was for the same element.
ExportBuilder::Rule &ExportBuilder::beginRule(Project &project, const ProjectElement *element,
                                              const QString &configuration, bool isPreBuild)
{
    if (isPreBuild) {
        project.preBuild = "pre-build-"_L1 + project.name;
        project.rules.push_back({.element = element, .target = project.preBuild, .isFile = false});
        return project.rules.back();
    }
    if (!project.rules.empty() && project.rules.back().element == element &&
        project.rules.back().target != project.preBuild)
        return project.rules.back();
    ToolCommands &tools = m_engine.tools();
    const ToolKind kind = toolKind(m_engine.system(), element, configuration);
    Rule rule{.element = element, .target = tools.outputName(kind, element, configuration, true)};
    if (isCompile(kind) || kind == ToolKind::Link)
        rule.dependencyFile = tools.dependencyFileName(element, configuration, rule.target, true);
    rule.inputs = m_engine.inputs(element, configuration) + tools.optionFiles(kind, element, configuration);
    for (const QString &other : tools.extraOutputs(kind, element, configuration, rule.target))
        rule.others += m_engine.system().absolutePath(element, other);
    if (element->type() == ProjectElement::Type::Project && (rule.target.isEmpty() || kind == ToolKind::External)) {
        rule.isFile = false; // nobody knows when it is out of date
        rule.target = project.name;
        for (const Rule &other : project.rules) {
            if (other.isFile)
                rule.inputs += other.target;
        }
    }
    project.rules.push_back(rule);
    return project.rules.back();
}

// What stands for the whole project: the last thing that it makes, else its name.
QString ExportBuilder::projectTarget(const Project &project) const
{
    const bool isMade = !project.rules.empty() &&
                        project.rules.back().element->type() == ProjectElement::Type::Project &&
                        project.rules.back().target != project.preBuild;
    return isMade ? project.rules.back().target : project.name;
}

// As make reads it in a rule. An equals sign would make a variable of it, and only a target can be a pattern.
QString ExportBuilder::ruleName(const QString &path, bool isTarget) const
{
    QString name = path;
    if (path.startsWith(m_base + u'/'))
        name = path.mid(m_base.size() + 1);
    name.replace(u'$', "$$"_L1);
    for (const char special : {'#', ' ', ':', '*', '?', '[', ']'})
        name.replace(QLatin1Char(special), u'\\' + QString(QLatin1Char(special)));
    if (isTarget)
        name.replace(u'%', "\\%"_L1);
    return name.replace(u'=', equals);
}

QStringList ExportBuilder::makeLines() const
{
    QStringList lines{u"all: \\"_s}, later;
    for (const ProjectKey &key : m_order) {
        const QString name = ruleName(projectTarget(m_projects.at(key)));
        if (name.contains(equals)) // which isn't known yet
            later += "all: "_L1 + name;
        else
            lines += recipeIndent + name + " \\"_L1;
    }
    lines += {QString(), u".RECIPEPREFIX := $(empty) $(empty)"_s, u"equals := ="_s};
    lines += later;
    std::set<QString> directories;
    for (const ProjectKey &key : m_order) {
        const Project &project = m_projects.at(key);
        for (const Rule &rule : project.rules)
            addRuleLines(project, rule, directories, lines);
        if (projectTarget(project) == project.name &&
            (project.rules.empty() || project.rules.back().target != project.name)) {
            Rule whole{.element = nullptr, .target = project.name, .isFile = false};
            for (const Rule &rule : project.rules)
                whole.inputs += rule.target;
            addRuleLines(project, whole, directories, lines);
        }
    }
    lines += QString();
    for (const QLatin1StringView header : headers) // that one is gone is no failure: what included it is compiled anew
        lines += "%."_L1 + header + ": ;"_L1;
    for (const QString &directory : directories)
        lines += {QString(), ruleName(directory, true) + u':',
                  recipeIndent + "mkdir -p "_L1 + shellWord(directory).replace(u'$', "$$"_L1)};
    return lines;
}

void ExportBuilder::addRuleLines(const Project &project, const Rule &rule, std::set<QString> &directories,
                                 QStringList &lines) const
{
    // Names in a compiler's file count from the project's directory.
    const bool isElsewhere = !rule.dependencyFile.isEmpty() && project.directory != m_base;
    const QString renamed = rule.dependencyFile + ".mk"_L1;
    lines += QString();
    if (!rule.dependencyFile.isEmpty())
        lines += "-include "_L1 + ruleName(isElsewhere ? renamed : rule.dependencyFile);
    if (!rule.isFile)
        lines += ".PHONY: "_L1 + ruleName(rule.target);
    QString line = ruleName(rule.target, true);
    for (const QString &other : rule.others)
        line += u' ' + ruleName(other, true);
    line += rule.others.isEmpty() ? u":"_s : u" &:"_s; // all by one run of the recipe
    for (const QString &input : rule.inputs)
        line += u' ' + ruleName(input);
    QStringList before;
    if (rule.target != project.preBuild && !project.preBuild.isEmpty())
        before += ruleName(project.preBuild);
    for (const QString &dependency : project.dependencies)
        before += ruleName(dependency);
    const QString directory = QFileInfo(rule.target).path();
    if (rule.isFile && directory != m_base) {
        directories.insert(directory);
        before += ruleName(directory);
    }
    lines += before.isEmpty() ? line : line + " | "_L1 + before.join(u' ');
    for (const QString &command : rule.recipe)
        lines += recipeIndent + command;
    if (isElsewhere) {
        QString prefix = ruleName(project.directory) + u'/';
        for (const char special : {'\\', '&', ','})
            prefix.replace(QLatin1Char(special), u'\\' + QString(QLatin1Char(special)));
        const QString script = QString(uR"(s,(^|[^\\]) +([^/ \\]),\1 @\2,g; s,^([^/ ]),@\1,)"_s).replace(u'@', prefix);
        const QString from = shellWord(rule.dependencyFile), to = shellWord(renamed);
        lines += recipeIndent +
                 QString("test ! -f "_L1 + from + " || sed -E "_L1 + shellWord(script) + u' ' + from + " > "_L1 + to)
                     .replace(u'$', "$$"_L1);
    }
}

// ---- Exports -----------------------------------------------------------------------------------------------------

namespace {

QStringList exportBuild(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                        ExportBuilder::Form form, BuildFlags flags)
{
    ExportBuilder builder(engine, form, engine.system().solutionDirectory(element));
    Builder *const builders[] = {&builder};
    Idler nobody;
    // With keep-going each file is a job, so that what is written for one comes with it.
    const BuildFlags all = BuildFlag::force | BuildFlag::quiet | BuildFlag::keepGoing | flags;
    const bool runsTools = engine.runsTools();
    engine.setRunsTools(false);
    engine.buildProject(element, configuration, builders, nobody, all);
    engine.setRunsTools(runsTools);
    return builder.lines();
}

} // namespace

QStringList exportBuildCommands(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                                BuildFlags flags)
{
    return exportBuild(engine, element, configuration, ExportBuilder::Form::Commands, flags);
}

QStringList exportMakefile(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                           BuildFlags flags)
{
    return exportBuild(engine, element, configuration, ExportBuilder::Form::MakeFile, flags);
}
