#pragma once

#include "project/model/ProjectSystem.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/macros/SystemMacroTable.h"

#include <QDir>
#include <gtest/gtest.h>

// Solutions in a folder of their own, and a project system to open them.
class ProjectFixture : public testing::Test
{
protected:
    // Writes the solution with its doctype; an attribute value may use ' in place of ".
    QString writeSolution(const char *name, const QByteArray &text) const
    {
        return folder.write(name, "<!DOCTYPE Veldane_Project_File>\n" + text);
    }
    ProjectElement *load(const QByteArray &text, const char *name = "main.vnProject")
    {
        system.closeSolution();
        return system.loadSolution(QString(), writeSolution(name, text));
    }
    // What loading it throws, with its line, and "FOLDER" for the test's.
    QString loadError(const QByteArray &text)
    {
        try {
            load(text);
        } catch (const SolutionLoadError &error) {
            const QString at = error.hasPosition ? QStringLiteral(" : %1").arg(error.line) : QString();
            return QString(error.message + at).replace(folder.root(), QStringLiteral("FOLDER"));
        }
        return QStringLiteral("no error");
    }
    // The node with that display name; the first in document order.
    ProjectElement *node(const char *name) const
    {
        ProjectElement *top = system.solution();
        for (XMLNode *at = top; at; at = at->nextInTree(top)) {
            auto *element = static_cast<ProjectElement *>(at->toElement());
            if (element && element->displayName() == QLatin1StringView(name))
                return element;
        }
        ADD_FAILURE() << "no node " << name;
        return nullptr;
    }
    QString expanded(const char *name, const char *text, const char *configuration = "Debug") const
    {
        return system.expand(node(name), QString::fromLatin1(configuration), QString::fromLatin1(text))
            .replace(folder.root(), QStringLiteral("FOLDER"));
    }

    const TemporaryFolder folder;
    StandardProjectSystem system;
};
