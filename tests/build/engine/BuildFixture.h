#pragma once

#include "build/commands/Builder.h"
#include "build/commands/Idler.h"
#include "build/commands/StandardToolCommands.h"
#include "build/engine/BuildEngine.h"
#include "project/model/ProjectSystem.h"

#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QFileInfo>
#include <fcntl.h>
#include <sys/stat.h>

// What the builders and the idler of a test have been told, in order.
struct BuildEvents
{
    QStringList lines;
    QStringList failing; // commands with one of these words fail
    bool writesOutputs = true;
    int pollsPerCommand = 1; // so often a command says that it still runs
    BuildState *state = nullptr;
    std::function<void(const QString &)> onStart = [](const QString &) {};

    QStringList matching(const QString &part) const { return lines.filter(part); }
    qsizetype indexOf(const QString &line) const { return lines.indexOf(line); }
};

// A slot that runs nothing. Lines: "SLOT start WORDS", "SLOT end", "SLOT begin TITLE", "SLOT error TEXT", ...
class ScriptedBuilder : public Builder
{
public:
    ScriptedBuilder(BuildEvents &events, int slot) : m_events(events), m_slot(QString::number(slot) + QLatin1Char(' '))
    {}

    void beginStep(const ProjectElement *, const QString &title, const QString &, int) override
    {
        add("begin ", title);
    }
    void endStep(const ProjectElement *, const QString &) override { add("endStep", {}); }
    void runCommand(const QString &directory, const QStringList &arguments, const QString &output) override
    {
        startCommand(directory, arguments, output);
        m_polls = 0;
        pollCommand(nullptr, {});
    }
    void startCommand(const QString &, const QStringList &arguments, const QString &output) override
    {
        ASSERT_FALSE(m_isRunning) << qPrintable(m_slot + arguments.join(QLatin1Char(' ')));
        m_isRunning = true;
        m_polls = m_events.pollsPerCommand;
        m_command = arguments.join(QLatin1Char(' '));
        m_output = output;
        add("start ", m_command);
        m_events.onStart(m_command);
    }
    bool pollCommand(const ProjectElement *, const QString &) override
    {
        if (m_polls-- > 0)
            return false;
        m_isRunning = false;
        const bool fails = std::any_of(m_events.failing.begin(), m_events.failing.end(),
                                       [this](const QString &word) { return m_command.contains(word); });
        add(fails ? "failed " : "end ", m_command);
        if (fails)
            m_events.state->failed = true;
        else if (m_events.writesOutputs && !m_output.isEmpty())
            writeOutput();
        return true;
    }
    void reportError(const QString &text) override { add("error ", text); }
    void reportWarning(const QString &text) override { add("warning ", text); }
    void reportInfo(const QString &text) override { add("info ", text); }
    void reportNote(const QString &text) override { add("note ", text); }
    void reportDetail(const QString &text) override { add("detail ", text); }
    void markFailed() override { add("markFailed", {}); }
    bool verifyOutput(const QString &path) override { return !path.contains(QLatin1String("bad")); }

private:
    void add(const char *what, const QString &text) { m_events.lines += m_slot + QLatin1String(what) + text; }
    void writeOutput()
    {
        QDir().mkpath(QFileInfo(m_output).path());
        QFile file(m_output);
        file.open(QFile::WriteOnly);
        file.write("made");
    }

    BuildEvents &m_events;
    const QString m_slot;
    bool m_isRunning = false;
    int m_polls = 0;
    QString m_command, m_output;
};

class ScriptedIdler : public Idler
{
public:
    explicit ScriptedIdler(BuildEvents &events) : m_events(events) {}

    void beginStep(const ProjectElement *element, const QString &, const QString &, int steps) override
    {
        m_events.lines += QStringLiteral("open %1 %2").arg(element->displayName()).arg(steps);
    }
    void closeProject(const ProjectElement *element, const QString &) override
    {
        m_events.lines += QStringLiteral("close ") + element->displayName();
    }

private:
    BuildEvents &m_events;
};

// A solution in a folder of its own, with external commands that the builders of the test only note. Projects are
// given as the text inside <solution>; "@" stands for the attributes of such commands.
class BuildFixture : public testing::Test
{
protected:
    void load(const QByteArray &content, const QByteArray &commonAttributes = {})
    {
        const QByteArray common =
            "external_c_compile_command=\"compile $(RelInputPath)\" external_cpp_compile_command=\"compilepp "
            "$(RelInputPath)\" external_link_command=\"link $(RelTargetPath)\" "
            "external_archive_command=\"ar $(RelTargetPath)\" build_output_directory=\"out\" "
            "build_intermediate_directory=\"obj/$(ProjectName)\" linker_map_file=\"No\" "
            "linker_section_placement_file=\"\" ";
        folder.write("test.vnProject",
                     "<!DOCTYPE Veldane_Project_File>\n<solution Name=\"test\" version=\"2\" target=\"8\">" + content +
                         "<configuration Name=\"Common\" " + common + commonAttributes +
                         "/><configuration Name=\"Debug\" inherited_configurations=\"Common\"/>"
                         "<configuration Name=\"Release\" inherited_configurations=\"Common\"/>"
                         "</solution>");
        system.closeSolution();
        solution = system.loadSolution(folder.root(), folder.path("test.vnProject"));
        events.state = &state;
    }

    BuildResult build(const ProjectElement *element, int slotCount, BuildFlags flags = 0, bool batch = false,
                      const char *configuration = "Debug")
    {
        events.lines.clear();
        std::vector<std::unique_ptr<ScriptedBuilder>> owned;
        std::vector<Builder *> builders;
        for (int slot = 0; slot < slotCount; ++slot) {
            owned.push_back(std::make_unique<ScriptedBuilder>(events, slot));
            builders.push_back(owned.back().get());
        }
        ScriptedIdler idler(events);
        return engine.buildProject(element, QLatin1String(configuration), builders, idler, flags, true, batch);
    }
    BuildResult build(int slotCount, BuildFlags flags = 0) { return build(solution, slotCount, flags); }

    // A file whose time lies that many seconds before now.
    QString write(const char *name, int age, const QByteArray &text = "x")
    {
        QDir().mkpath(QFileInfo(folder.path(name)).path());
        const QString path = folder.write(name, text);
        setAge(name, age);
        return path;
    }
    void setAge(const char *name, int age)
    {
        const timespec time{now - age, 0};
        const timespec times[] = {time, time};
        ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(folder.path(name)).constData(), times, 0), 0);
    }
    // The words of the commands that were started, in order.
    QStringList started() const
    {
        QStringList result;
        for (const QString &line : events.lines) {
            if (line.mid(2).startsWith(QLatin1String("start ")))
                result += line.mid(8);
        }
        return result;
    }
    QStringList told(const char *kind) const
    {
        QStringList result;
        for (const QString &line : events.lines) {
            if (line.mid(2).startsWith(QLatin1String(kind)))
                result += line.mid(2 + qsizetype(strlen(kind)) + 1);
        }
        return result;
    }
    ProjectElement *project(const char *name) { return system.project(QLatin1String(name)); }

    TemporaryFolder folder;
    StandardProjectSystem system;
    BuildState state;
    StandardToolCommands tools{system, state};
    BuildEngine engine{system, tools, state};
    BuildEvents events;
    ProjectElement *solution = nullptr;
    const time_t now = ::time(nullptr);
};
