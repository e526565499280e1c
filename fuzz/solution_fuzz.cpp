#include "project/model/ProjectSystem.h"

#include <QTemporaryDir>
#include <cstdlib>

// The kept values against the plain look-up, and everything else that a build asks a node for.
static void askNode(const ProjectSystem &system, const ProjectElement *node, const QString &configuration)
{
    for (const ProjectProperty id : {ProjectProperty::c_preprocessor_definitions,
                                     ProjectProperty::build_output_directory, ProjectProperty::macros})
        if (system.value(node, id, configuration) != propertyValue(node, system.schema()[id], configuration))
            std::abort();
    system.buildMacros(node, configuration);
    system.expandedValue(node, ProjectProperty::build_object_file_name, configuration);
    system.propertyList(node, ProjectProperty::c_user_include_directories, configuration, ProjectSystem::ExpandItems);
    system.fileTypeOf(node, configuration);
    system.path(node, configuration);
    system.configurationNames(node, ProjectSystem::PublicConfigurations);
}

// Opens the solution whole, if nothing is run, set or searched then.
static void open(const QString &path, const QByteArray &text)
{
    for (const char *word : {"load_command", "environment_variables", "recurse"})
        if (text.contains(word))
            return;
    StandardProjectSystem system;
    try {
        system.loadSolution(QString(), path);
    } catch (const SolutionLoadError &) {
        return; // its target or a template
    }
    for (const ProjectElement *project : system.projects()) {
        if (system.project(project->displayName()) == nullptr)
            std::abort();
        askNode(system, project, QStringLiteral("Debug"));
    }
    system.renameConfiguration(system.solution(), QStringLiteral("Debug"), QStringLiteral("Test"));
    system.setPublicConfigurations(system.solution(), {QStringLiteral("Common"), QStringLiteral("New")});
    solutionText(*system.solution());
}

// Any bytes are a solution or are refused. One that loads is written so that it loads as the same. What a solution
// tells to be run when it is opened isn't run here.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QTemporaryDir folder(QStringLiteral("/dev/shm/solution-XXXXXX"));
    const QString path = folder.filePath(QStringLiteral("a.vnProject"));
    const auto write = [&path](QByteArrayView text) {
        QFile file(path);
        if (!file.open(QFile::WriteOnly) || file.write(text.data(), text.size()) != text.size())
            std::abort();
    };
    write(QByteArrayView(data, qsizetype(size)));
    try {
        QStringList loaded;
        const auto root = loadSolution(folder.path(), path, QString(), loaded);
        const StandardProjectSystem system;
        for (const XMLNode *node = root.get(); node; node = node->nextInTree(root.get()))
            if (const auto *element = static_cast<const ProjectElement *>(node->toElement()))
                for (const char *configuration : {"Debug", "Common"})
                    askNode(system, element, QString::fromLatin1(configuration));
        const QByteArray text = solutionText(*root);
        write(text);
        loaded.clear();
        if (solutionText(*loadSolution(folder.path(), path, QString(), loaded)) != text)
            std::abort();
        open(path, text);
    } catch (const SolutionLoadError &) {
    }
    return 0;
}
