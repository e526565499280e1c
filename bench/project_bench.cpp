// A solution of 10,000 files in 10 projects of 20 folders, three configurations, and one file in ten with a
// configuration of its own: reading it, and asking its nodes for values, paths and macros as a build does.
// Times are for the whole solution; "per" in the label names what to divide by.
#include "project/model/ProjectSystem.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int projectCount = 10, folderCount = 20, fileCount = 50, propertyCount = 60;

QString solutionPath()
{
    static const QTemporaryDir folder;
    const QString path = folder.filePath(u"big.vnProject"_s);
    if (QFile::exists(path))
        return path;
    QByteArray text = "<!DOCTYPE Veldane_Project_File>\n<solution Name=\"big\" target=\"8\" version=\"2\">\n";
    for (int p = 0; p < projectCount; ++p) {
        text +=
            "  <project Name=\"p" + QByteArray::number(p) +
            "\">\n    <configuration\n      Name=\"Common\"\n      c_preprocessor_definitions=\"A;B=1\"\n"
            "      c_user_include_directories=\"include;$(SolutionDir)/shared\"\n"
            "      project_type=\"Executable\" />\n    <configuration Name=\"Debug\" c_additional_options=\"-Og\" />\n";
        for (int f = 0; f < folderCount; ++f) {
            text += "    <folder Name=\"folder" + QByteArray::number(f) + "\" filter=\"c;cpp\">\n";
            for (int i = 0; i < fileCount; ++i) {
                const QByteArray name = "src/dir" + QByteArray::number(f) + "/file" + QByteArray::number(i) + ".c";
                text += "      <file file_name=\"" + name + "\"";
                text += i % 10 ? QByteArray(" />\n")
                               : ">\n        <configuration Name=\"Common\" c_preprocessor_definitions=\"ONE\" />\n"
                                 "      </file>\n";
            }
            text += "    </folder>\n";
        }
        text += "  </project>\n";
    }
    text +=
        "  <configuration Name=\"Debug\" inherited_configurations=\"Base\" />\n  <configuration Name=\"Release\" />\n"
        "  <configuration Name=\"Base\" hidden=\"Yes\" build_debug_information=\"Yes\" />\n</solution>\n";
    QFile file(path);
    if (!file.open(QFile::WriteOnly) || file.write(text) != text.size())
        qFatal("can't write %s", qPrintable(path));
    return path;
}

struct Solution
{
    StandardProjectSystem system;
    std::vector<const ProjectElement *> files;

    Solution()
    {
        system.loadSolution(QString(), solutionPath());
        for (XMLNode *node = system.solution(); node; node = node->nextInTree(system.solution()))
            if (node->toElement()->name() == "file")
                files.push_back(static_cast<ProjectElement *>(node));
    }
};

template <typename Ask>
void askFiles(benchmark::State &state, const Ask &ask)
{
    Solution solution;
    const QString configuration = u"Debug"_s;
    for (auto _ : state) {
        solution.system.schema().noteChange(); // nothing is known yet
        for (const ProjectElement *file : solution.files)
            benchmark::DoNotOptimize(ask(solution.system, file, configuration));
    }
    state.SetItemsProcessed(state.iterations() * qint64(solution.files.size()));
}

void load(benchmark::State &state)
{
    const QString path = solutionPath();
    for (auto _ : state) {
        StandardProjectSystem system;
        system.loadSolution(QString(), path);
        benchmark::DoNotOptimize(system.solution());
    }
    state.SetItemsProcessed(state.iterations() * projectCount * folderCount * fileCount);
}

void save(benchmark::State &state)
{
    Solution solution;
    for (auto _ : state)
        benchmark::DoNotOptimize(solutionText(*solution.system.solution()));
}

void schema(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(std::make_unique<StandardProjectSystem>());
}

void values(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        qsizetype sum = 0;
        for (int i = 0; i < propertyCount; ++i)
            sum += system.value(file, ProjectProperty(int(ProjectProperty::project_type) + i), configuration).size();
        return sum;
    });
}

void plainLookup(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        qsizetype sum = 0;
        for (int i = 0; i < propertyCount; ++i) {
            const auto id = ProjectProperty(int(ProjectProperty::project_type) + i);
            sum += propertyValue(file, system.schema()[id], configuration).size();
        }
        return sum;
    });
}

void expandedValues(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        qsizetype sum = 0;
        for (int i = 0; i < propertyCount; ++i)
            sum += system.expandedValue(file, ProjectProperty(int(ProjectProperty::project_type) + i), configuration)
                       .size();
        return sum;
    });
}

void paths(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        return system.path(file, configuration);
    });
}

void fileTypes(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        return system.fileTypeOf(file, configuration);
    });
}

void objectNames(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        return system.expandedValue(file, ProjectProperty::build_object_file_name, configuration);
    });
}

void includeLists(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        return system.propertyList(file, ProjectProperty::c_user_include_directories, configuration,
                                   ProjectSystem::ExpandItems);
    });
}

void macroMaps(benchmark::State &state)
{
    askFiles(state, [](const ProjectSystem &system, const ProjectElement *file, const QString &configuration) {
        return system.buildMacros(file, configuration).size();
    });
}

} // namespace

BENCHMARK(schema)->Unit(benchmark::kMillisecond);
BENCHMARK(load)->Unit(benchmark::kMillisecond);
BENCHMARK(save)->Unit(benchmark::kMillisecond);
BENCHMARK(plainLookup)->Unit(benchmark::kMillisecond);
BENCHMARK(values)->Unit(benchmark::kMillisecond);
BENCHMARK(expandedValues)->Unit(benchmark::kMillisecond);
BENCHMARK(paths)->Unit(benchmark::kMillisecond);
BENCHMARK(fileTypes)->Unit(benchmark::kMillisecond);
BENCHMARK(objectNames)->Unit(benchmark::kMillisecond);
BENCHMARK(includeLists)->Unit(benchmark::kMillisecond);
BENCHMARK(macroMaps)->Unit(benchmark::kMillisecond);
