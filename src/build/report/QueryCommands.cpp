#include "build/report/QueryCommands.h"

#include "base/CommandLine.h"
#include "base/HException.h"
#include "base/JsonWriter.h"
#include "base/SafeFile.h"
#include "build/commands/Idler.h"
#include "build/commands/StandardToolCommands.h"
#include "build/engine/BuildEngine.h"
#include "build/engine/CompileCommands.h"
#include "build/engine/ExportBuilder.h"
#include "build/engine/StudioBuilder.h"
#include "build/report/NodeProperties.h"
#include "project/model/ProjectPropertyValue.h"

using namespace Qt::StringLiterals;

namespace {

void printJson(JsonWriter &json)
{
    json.end();
    printOut(QByteArrayView(json.text()));
}

void optionalField(JsonWriter &json, const char *key, const QString &text)
{
    if (text.isEmpty())
        json.nullField(key);
    else
        json.field(key, text);
}

void strings(JsonWriter &json, const char *key, const QStringList &texts)
{
    json.beginArray(key);
    for (const QString &text : texts)
        json.value(text);
    json.end();
}

void listProjects(LoadedSolution &loaded, const QString &configuration, bool isJson)
{
    const StandardProjectSystem &system = loaded.system();
    JsonWriter json;
    json.beginArray();
    for (const ProjectElement *project : system.projects()) {
        if (!isJson) {
            printOut(project->displayName() + u'\n');
            continue;
        }
        json.beginObject();
        json.field("name", project->displayName());
        json.field("node", loaded.nodePath(*project));
        json.field("type", system.value(project, ProjectProperty::project_type, configuration));
        json.field("directory", system.projectDirectory(project));
        strings(json, "dependencies",
                system.propertyList(project, ProjectProperty::project_dependencies, configuration, 0));
        json.end();
    }
    if (isJson)
        printJson(json);
}

void listConfigurations(LoadedSolution &loaded, bool isJson)
{
    const StandardProjectSystem &system = loaded.system();
    JsonWriter json;
    json.beginArray();
    const auto list = [&](const QStringList &names, bool isHidden) {
        for (const QString &name : names) {
            if (!isJson) {
                printOut(name + u'\n');
                continue;
            }
            json.beginObject();
            json.field("name", name);
            json.field("hidden", isHidden);
            strings(json, "inherited", system.inheritedConfigurations(&loaded.solution(), name));
            json.end();
        }
    };
    list(loaded.configurations(), false);
    if (isJson) {
        list(system.privateConfigurations(&loaded.solution()), true);
        printJson(json);
    }
}

void listFiles(LoadedSolution &loaded, ProjectElement &below, const QString &configuration, bool isJson)
{
    const StandardProjectSystem &system = loaded.system();
    JsonWriter json;
    json.beginArray();
    loaded.forEachFile(below, [&](ProjectElement &file) {
        if (!isJson) {
            printOut(loaded.nodePath(file) + u'\n');
            return;
        }
        const ProjectElement *project = projectAround(&file);
        json.beginObject();
        json.field("node", loaded.nodePath(file));
        optionalField(json, "project", project ? project->displayName() : QString());
        json.field("file", system.path(&file, configuration));
        json.field("type", system.fileTypeOf(&file, configuration));
        json.end();
    });
    if (isJson)
        printJson(json);
}

void listProperties(const PropertyClassList &properties, bool isJson)
{
    JsonWriter json;
    json.beginArray();
    for (const PropertyClass *property : properties) {
        if (!isJson) {
            printOut(u"%1 %2 %3\n"_s.arg(property->name.leftJustified(40), property->typeName().leftJustified(13),
                                         property->shortText));
            continue;
        }
        json.beginObject();
        json.field("key", property->name);
        json.field("type", property->typeName());
        json.field("default", property->defaultValue);
        strings(json, "choices", property->isListed() ? property->enumerates() : QStringList());
        json.field("group", property->group);
        json.field("title", property->shortText);
        json.field("description", property->description());
        json.end();
    }
    if (isJson)
        printJson(json);
}

QString contributionText(const PropertyContribution &contribution)
{
    if (!contribution.element)
        return u"  default: %1\n"_s.arg(contribution.value);
    const QString where = kindName(*contribution.element) + u' ' + contribution.element->displayName();
    if (contribution.configuration.isEmpty())
        return u"  %1: %2\n"_s.arg(where, contribution.value);
    return u"  %1 in %2 configuration: %3\n"_s.arg(where, contribution.configuration, contribution.value);
}

struct FoundValue
{
    std::optional<QString> text; // none: there is no such property
    PropertyTrace trace;
};

// Of a key without property what the files say.
FoundValue findValue(const ProjectElement &node, const QString &key, const PropertyClass *property,
                     const QString &configuration)
{
    if (key == "Name"_L1) // of the node; its configurations have names of their own
        return {node.displayName(), {{node.displayName(), QString(), &node}}};
    const FoundValue own{node.property(key), {{node.property(key), QString(), &node}}};
    if (belongsToNode(node, key) && node.hasProperty(key))
        return own;
    const PropertyClass unlisted(key, PropertyType::String, PropertyTexts{});
    FoundValue found;
    found.text = propertyValue(&node, property ? *property : unlisted, configuration, &found.trace);
    const bool isDefault = !found.trace.front().element;
    if (isDefault && node.hasProperty(key))
        return own;
    return isDefault && !property ? FoundValue() : found;
}

void writeContributions(JsonWriter &json, const LoadedSolution &loaded, const PropertyTrace &trace)
{
    json.beginArray("contributions");
    for (const PropertyContribution &contribution : trace) {
        json.beginObject();
        json.field("value", contribution.value);
        if (contribution.element) {
            json.field("kind", kindName(*contribution.element));
            json.field("node", loaded.nodePath(*contribution.element));
        } else {
            json.field("kind", u"default");
            json.nullField("node");
        }
        optionalField(json, "configuration", contribution.configuration);
        json.end();
    }
    json.end();
}

// Notes what it is told to run, and says why nothing can be.
class CommandCollector : public NullBuilder
{
public:
    struct Command
    {
        QString directory, output;
        QStringList arguments;
    };

    void runCommand(const QString &directory, const QStringList &arguments, const QString &output) override
    {
        commands.push_back({directory, output, installedCommand(arguments)});
    }
    void startCommand(const QString &directory, const QStringList &arguments, const QString &output) override
    {
        runCommand(directory, arguments, output);
    }
    void reportError(const QString &text) override { throw HException(text); }

    std::vector<Command> commands;
};

} // namespace

void listSolution(LoadedSolution &loaded, const QString &what, ProjectElement &below, const QString &configuration,
                  bool isJson)
{
    if (what == "projects"_L1)
        listProjects(loaded, configuration, isJson);
    else if (what == "configurations"_L1)
        listConfigurations(loaded, isJson);
    else if (what == "files"_L1)
        listFiles(loaded, below, configuration, isJson);
    else if (what == "properties"_L1)
        listProperties(NodeProperties(loaded.system(), below, configuration).all(), isJson);
    else
        throw UsageError(u"--list takes projects, configurations, files or properties; not '%1'"_s.arg(what));
}

void getProperty(LoadedSolution &loaded, const PropertyQuery &query, const ProjectElement &node,
                 const QString &configuration, bool isJson)
{
    const NodeProperties properties(loaded.system(), node, configuration);
    FoundValue found = findValue(node, query.key, properties.find(query.key), configuration);
    if (found.text && query.isExpanded)
        found.text = loaded.system().expand(&node, configuration, *found.text);
    if (isJson) {
        JsonWriter json;
        json.beginObject();
        json.field("key", query.key);
        json.field("node", loaded.nodePath(node));
        json.field("configuration", configuration);
        if (found.text)
            json.field("value", *found.text);
        else
            json.nullField("value");
        writeContributions(json, loaded, found.trace);
        printJson(json);
    }
    if (!found.text)
        throw properties.notFound(query.key);
    if (isJson)
        return;
    printOut(*found.text + u'\n');
    if (query.isTraced)
        for (const PropertyContribution &contribution : found.trace)
            printOut(contributionText(contribution));
}

void setProperties(LoadedSolution &loaded, const QStringList &assignments, ProjectElement &node,
                   const QString &configuration)
{
    StandardProjectSystem &system = loaded.system();
    for (const ProjectElement *at = &node; at; at = at->parentElement())
        if (!at->canModify())
            throw HException(u"%1 '%2' may not be changed from here"_s.arg(kindName(*at), at->displayName()));
    const NodeProperties properties(system, node, configuration);
    std::vector<std::pair<std::unique_ptr<ProjectPropertyValue>, QString>> values;
    for (const QString &assignment : assignments) {
        const qsizetype equals = assignment.indexOf(u'=');
        if (equals <= 0)
            throw UsageError(u"--set takes KEY=VALUE; not '%1'"_s.arg(assignment));
        const QString key = assignment.first(equals);
        const PropertyClass *property = properties.find(key);
        if (!property)
            throw properties.notFound(key);
        if (isOfSolutions(*property) && node.type() != ProjectElement::Type::Solution)
            throw HException(u"%1 is a property of solutions"_s.arg(key));
        values.emplace_back(makeProjectPropertyValue(&system, property, &node, configuration),
                            assignment.sliced(equals + 1));
        if (values.back().first->configuration() == "Common"_L1 && configuration != "Common"_L1)
            throw HException(u"%1 belongs to all configurations; it is set without --config"_s.arg(key));
        if (const QString problem = valueProblem(*property, values.back().second); !problem.isEmpty())
            throw HException(problem);
    }
    for (const auto &[property, value] : values)
        property->setValue(value);
    saveSolutionOf(system, node);
}

void printCommands(LoadedSolution &loaded, const ProjectElement &node, const QString &configuration, bool isJson)
{
    BuildState state;
    StandardToolCommands tools(loaded.system(), state);
    BuildEngine engine(loaded.system(), tools, state);
    engine.setRunsTools(false);
    CommandCollector collector;
    Idler idler;
    engine.buildElement(&node, configuration, &collector, idler,
                        BuildFlag::force | BuildFlag::quiet | BuildFlag::noChildren);
    JsonWriter json;
    json.beginArray();
    for (const CommandCollector::Command &command : collector.commands) {
        if (!isJson) {
            printOut(commandText(command.arguments) + u'\n');
            continue;
        }
        json.beginObject();
        json.field("directory", command.directory);
        strings(json, "arguments", command.arguments);
        optionalField(json, "output", command.output);
        json.end();
    }
    if (isJson)
        printJson(json);
}

void exportBuild(LoadedSolution &loaded, const ExportRequest &request, const ProjectElement &node,
                 const QString &configuration)
{
    BuildState state;
    StandardToolCommands tools(loaded.system(), state);
    BuildEngine engine(loaded.system(), tools, state);
    QByteArray text;
    QStringList lines;
    if (request.what == "commands"_L1)
        lines = exportBuildCommands(engine, &node, configuration, request.flags);
    else if (request.what == "make"_L1)
        lines = exportMakefile(engine, &node, configuration, request.flags);
    else if (request.what == "compile-commands"_L1)
        text = exportCompileCommands(engine, &node, configuration, request.flags);
    else
        throw UsageError(u"--export takes commands, make or compile-commands; not '%1'"_s.arg(request.what));
    for (const QString &line : lines)
        text += line.toUtf8() + '\n';
    const bool isFile = !request.file.isEmpty() && request.file != "-"_L1;
    if (!isFile)
        printOut(QByteArrayView(text));
    for (const QString &line : lines)
        if (line.startsWith(exportErrorMark))
            throw HException(line.sliced(exportErrorMark.size()));
    if (isFile)
        writeFileSafely(request.file, text);
}
