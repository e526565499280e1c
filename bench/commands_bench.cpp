#include "build/commands/CommandRecord.h"
#include "build/commands/CommandText.h"
#include "build/commands/StandardToolCommands.h"
#include "project/model/ProjectSystem.h"
#include "xml/macros/SystemMacroTable.h"

#include <QTemporaryDir>
#include <benchmark/benchmark.h>

using namespace Qt::StringLiterals;

// Input: a project with 2,000 C sources in one folder, ten include directories, ten definitions and five further
// options; 30 headers for each source of 200 in all. What a build that does nothing asks for each source: its
// output, its dependency file, the command that would make it and whether that is the recorded one.

static constexpr int sourceCount = 2000;

namespace {

struct Input
{
    QTemporaryDir folder;
    StandardProjectSystem system;
    BuildState state;
    StandardToolCommands tools{system, state};
    std::vector<const ProjectElement *> files;

    Input()
    {
        SystemMacroTable::instance().addSystemMacro(u"StudioDir"_s, u"/opt/veldane"_s, QString());
        QByteArray text =
            "<!DOCTYPE Veldane_Project_File><solution Name=\"s\" version=\"2\" target=\"8\"><configuration "
            "Name=\"Debug\" inherited_configurations=\"Common\"/><project Name=\"app\"><configuration "
            "Name=\"Common\" c_additional_options=\"-mcpu=cortex-m3;-mthumb;-Os;-ffunction-sections;-Wall\" "
            "c_user_include_directories=\"";
        for (int i = 0; i < 10; ++i)
            text += "$(ProjectDir)/inc" + QByteArray::number(i) + ';';
        text += "\" c_preprocessor_definitions=\"";
        for (int i = 0; i < 10; ++i)
            text += "DEFINITION_" + QByteArray::number(i) + "=$(Configuration);";
        text += "\"/><folder Name=\"Source Files\">";
        for (int i = 0; i < sourceCount; ++i)
            text += "<file file_name=\"src/source_" + QByteArray::number(i) + ".c\"/>";
        text += "</folder></project></solution>";
        QFile file(folder.filePath(u"s.vnProject"_s));
        if (!file.open(QFile::WriteOnly) || file.write(text) != text.size())
            std::abort();
        file.close();
        system.loadSolution(QString(), file.fileName());
        for (XMLNode *node = system.solution(); node; node = node->nextInTree(system.solution()))
            if (static_cast<ProjectElement *>(node->toElement())->type() == ProjectElement::Type::File)
                files.push_back(static_cast<ProjectElement *>(node->toElement()));
    }

    ToolRequest request(const ProjectElement *file)
    {
        ToolRequest made;
        made.element = file;
        made.configuration = u"Debug"_s;
        made.kind = toolKind(system, file, made.configuration);
        made.target = tools.outputName(made.kind, file, made.configuration, false);
        made.inputs = {system.path(file, made.configuration)};
        return made;
    }
};

Input &input()
{
    static Input made;
    return made;
}

void perSource(benchmark::State &state)
{
    state.counters["per source"] = benchmark::Counter(double(state.iterations() * sourceCount),
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void requests(benchmark::State &state) // kind and output name
{
    for (auto _ : state)
        for (const ProjectElement *file : input().files)
            benchmark::DoNotOptimize(input().request(file));
    perSource(state);
}
BENCHMARK(requests)->Unit(benchmark::kMillisecond);

void commands(benchmark::State &state) // the command line alone
{
    std::vector<ToolRequest> made;
    for (const ProjectElement *file : input().files)
        made.push_back(input().request(file));
    for (auto _ : state)
        for (const ToolRequest &request : made)
            benchmark::DoNotOptimize(input().tools.command(request));
    perSource(state);
}
BENCHMARK(commands)->Unit(benchmark::kMillisecond);

void comparison(benchmark::State &state) // all of it, with the hash
{
    quint64 sum = 0;
    for (auto _ : state) {
        for (const ProjectElement *file : input().files) {
            QString error;
            sum += input().tools.hash(input().request(file), {}, error);
        }
    }
    benchmark::DoNotOptimize(sum);
    perSource(state);
}
BENCHMARK(comparison)->Unit(benchmark::kMillisecond);

void firstComparison(benchmark::State &state) // with nothing kept from before
{
    for (auto _ : state) {
        state.PauseTiming();
        Input fresh;
        state.ResumeTiming();
        for (const ProjectElement *file : fresh.files) {
            QString error;
            benchmark::DoNotOptimize(fresh.tools.hash(fresh.request(file), {}, error));
        }
    }
    perSource(state);
}
BENCHMARK(firstComparison)->Unit(benchmark::kMillisecond);

CommandRecord filledRecord()
{
    CommandRecord record;
    for (int i = 0; i < sourceCount; ++i) {
        const QString output = u"Output/Debug/Obj/app/source_%1.o"_s.arg(i);
        QStringList headers;
        for (int k = 0; k < 30; ++k)
            headers += u"/home/user/project/include/header_%1.h"_s.arg((i + k * 7) % 200);
        record.setCommand(output, quint64(i) + 1);
        record.setDependencies(output, {1, 2}, headers);
    }
    return record;
}

void readRecord(benchmark::State &state)
{
    const QByteArray bytes = filledRecord().toBytes();
    for (auto _ : state) {
        CommandRecord record;
        benchmark::DoNotOptimize(record.fromBytes(bytes));
    }
    state.counters["bytes"] = double(bytes.size());
    perSource(state);
}
BENCHMARK(readRecord)->Unit(benchmark::kMillisecond);

void writeRecord(benchmark::State &state)
{
    const CommandRecord record = filledRecord();
    for (auto _ : state)
        benchmark::DoNotOptimize(record.toBytes());
    perSource(state);
}
BENCHMARK(writeRecord)->Unit(benchmark::kMillisecond);

void parseDependencyFile(benchmark::State &state)
{
    QByteArray text = "Output/Debug/Obj/app/source.o: /home/user/project/src/source.c";
    for (int k = 0; k < 30; ++k)
        text += " \\\n /home/user/project/include/header_" + QByteArray::number(k) + ".h";
    for (auto _ : state)
        benchmark::DoNotOptimize(parseDependencies(text));
}
BENCHMARK(parseDependencyFile)->Unit(benchmark::kMicrosecond);

} // namespace
