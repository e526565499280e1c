#pragma once

#include "project/model/ProjectSystem.h"

#include <functional>

// The solution that a program was given, and its nodes as users name them. What isn't there throws HException
// with the list of what is.
class LoadedSolution
{
public:
    // Sets up the macros of the installation and the user's global ones ("NAME=TEXT"), reads the installation's
    // configuration and loads the solution. Throws HException: one line with the file and, when known, the line.
    LoadedSolution(const QString &path, const QStringList &globalMacros);

    StandardProjectSystem &system() { return m_system; }
    ProjectElement &solution() const { return *m_system.solution(); }

    // What can be built, by name: the public configurations for this platform, and "Common" when there is none.
    QStringList configurations() const;
    // The configuration of that name, a hidden one or "Common" included; null: the first that can be built.
    QString configuration(const std::optional<QString> &name) const;
    ProjectElement &project(const QString &name) const;
    // By names joined with "/" from the solution's children down; the empty path is the solution. A file's name is
    // its Name, its file name or its path from the project's directory, which may also follow the project's name.
    ProjectElement &node(const QString &path, const QString &configuration) const;
    // A file by its node path, or by one of its names alone when there is but one such file.
    ProjectElement &file(const QString &name, const QString &configuration) const;
    // Any node by its path, or a file by its name alone.
    ProjectElement &nodeOrFile(const QString &name, const QString &configuration) const;

    // The path by which node() finds the node again.
    QString nodePath(const ProjectElement &node) const;
    // In the order of the tree, those of imports too.
    void forEachFile(ProjectElement &below, const std::function<void(ProjectElement &)> &visit) const;

private:
    bool isNamed(const ProjectElement &node, const QString &name, const QString &configuration) const;
    ProjectElement *findNode(ProjectElement &parent, const QString &path, const QString &configuration) const;
    ProjectElement *findNodeOrFile(const QString &name, const QString &configuration) const; // null if none
    std::vector<ProjectElement *> filesNamed(ProjectElement &below, const QString &name,
                                             const QString &configuration) const;
    ProjectElement *onlyFile(ProjectElement &below, const QString &name, const QString &configuration) const;
    ProjectElement *fileOfProject(const QString &path, const QString &configuration) const;

    mutable StandardProjectSystem m_system;
};

// Saves the file of the solution that the node is in. Throws HException.
void saveSolutionOf(StandardProjectSystem &system, ProjectElement &node);

// "solution", "project", "folder", "file", "configuration".
QString kindName(const ProjectElement &node);
