#pragma once

#include "build/commands/Builder.h"
#include "build/commands/StandardToolCommands.h"
#include "project/model/ProjectSystem.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/macros/SystemMacroTable.h"

#include <QDir>
#include <gtest/gtest.h>
#include <stdexcept>

// Writes down what it is told, a line a call.
class NotingBuilder : public NullBuilder
{
public:
    void beginStep(const ProjectElement *, const QString &title, const QString &, int) override
    {
        notes += QString::fromLatin1("step ") + title;
    }
    void endStep(const ProjectElement *, const QString &) override { notes += QString::fromLatin1("end"); }
    void runCommand(const QString &directory, const QStringList &arguments, const QString &output) override
    {
        notes += QString::fromLatin1("run in ") + directory + QString::fromLatin1(" for ") + output;
        lastArguments = arguments;
    }
    void reportError(const QString &text) override { notes += QString::fromLatin1("error ") + text; }
    void reportWarning(const QString &text) override { notes += QString::fromLatin1("warning ") + text; }

    QStringList notes, lastArguments;
};

// A solution with one project "app" in the folder P, and the tool chain of a studio in "/studio".
class CommandsTest : public testing::Test
{
protected:
    CommandsTest()
    {
        SystemMacroTable::instance() = SystemMacroTable();
        SystemMacroTable::instance().addSystemMacro(QString::fromLatin1("StudioDir"), QString::fromLatin1("/studio"),
                                                    QString());
    }
    ~CommandsTest() override { SystemMacroTable::instance() = SystemMacroTable(); }

    // `attributes`: of the project in Common; `content`: its children.
    void load(const QByteArray &attributes, const QByteArray &content = defaultContent)
    {
        const QString path =
            folder.write("s.vnProject", R"(<!DOCTYPE Veldane_Project_File><solution Name="s" target="8" version="2">
            <configuration Name="Debug" inherited_configurations="Common"/><project Name="app"><configuration
            Name="Common" build_intermediate_directory="o" build_output_directory="out" )" +
                                            attributes + "/>" + content + "</project></solution>");
        system.closeSolution();
        try {
            system.loadSolution(QString(), path);
        } catch (const SolutionLoadError &error) {
            throw std::runtime_error(error.message.toStdString() + " in " + attributes.toStdString());
        }
        project = system.project(QString::fromLatin1("app"));
    }
    static constexpr char defaultContent[] = R"(<folder Name="Source Files"><file file_name="main.c"/>
        <file file_name="sub/util.cpp"/><file file_name="start.s"/></folder>)";

    // The node of that display name, or the project.
    const ProjectElement *node(const char *name) const
    {
        const ProjectElement *found = project;
        for (XMLNode *one = project; one; one = one->nextInTree(project))
            if (static_cast<ProjectElement *>(one->toElement())->displayName() == QString::fromUtf8(name))
                found = static_cast<ProjectElement *>(one->toElement());
        return found;
    }
    ToolRequest request(const char *name, BuildFlags flags = 0)
    {
        ToolRequest made;
        made.element = node(name);
        made.configuration = debug;
        made.kind = toolKind(system, made.element, debug, flags);
        made.target = tools.outputName(made.kind, made.element, debug, false);
        made.absoluteTarget = tools.outputName(made.kind, made.element, debug, true);
        if (made.element == project)
            made.inputs = {QString::fromLatin1("o/main.o"), QString::fromLatin1("$(IntDir)/b c.o")};
        else
            made.inputs = {made.element->type() == ProjectElement::Type::Folder
                               ? unityFileName(system, made.element, debug)
                               : system.path(made.element, debug)};
        made.flags = flags;
        return made;
    }
    // With blanks between the arguments, "P" for the folder and "CC" for the driver.
    QString line(const QStringList &arguments) const { return shown(arguments.join(u' ')); }
    QString shown(QString text) const
    {
        return text.replace(folder.root(), QString::fromLatin1("P"))
            .replace(QString::fromLatin1("/studio/bin/cc"), QString::fromLatin1("CC"));
    }

    const TemporaryFolder folder;
    const QString debug = QString::fromLatin1("Debug");
    StandardProjectSystem system;
    BuildState state;
    StandardToolCommands tools{system, state};
    NotingBuilder builder;
    ProjectElement *project = nullptr;
};
