#pragma once

#include "project/model/ProjectElement.h"

#include <QStringList>
#include <memory>

// Why a solution can't be loaded.
struct SolutionLoadError
{
    QString fileName;
    bool hasPosition = false; // line and column count
    QString message;
    int line = 0; // from 1
    int column = 0;
    QString importedAt; // "FILE:LINE" of the import of the file, if there is one
};

struct SolutionSaveError : SolutionLoadError
{};

// Who follows the load of a solution and of those that it imports. What it throws ends the load.
class SolutionLoadSteps
{
public:
    virtual ~SolutionLoadSteps() = default;
    virtual bool fileNotFound(const QString & /*file*/) { return false; } // true: it exists now
    virtual void opened(const QString & /*file*/) {}
    virtual void parsed(const XMLElement & /*root*/, const QString & /*file*/) {} // before the tree is made
    virtual void building(int /*step*/, int /*steps*/) {} // among the children of the outermost root
    virtual void built(ProjectElement & /*root*/) {}
};

// A solution file (*.vnProject) is XML with the doctype Veldane_Project_File. Directives of the preprocessor
// work in it, but are resolved when it is written back:
//
//     <solution Name="" version="2" target="8">
//       <import file_name="" macros="" can_modify_solution="No"/>
//       <project Name=""> <configuration Name="" .../> <folder Name=""> <file file_name=""/> ... </project>
//       <configuration Name="" hidden="Yes" inherited_configurations=""/>
//
// Loads the file and what it imports, each in the place of its import element, and adds their absolute paths to
// `loadedFiles`; one that is among them already is refused. A relative path that isn't found here counts from
// `directory`. Macros: "NAME=value;NAME=value", for the directives and, when there are any, the attributes.
// Throws SolutionLoadError; `loadedFiles` is then as it was.
std::unique_ptr<ProjectElement> loadSolution(const QString &directory, const QString &path, const QString &macros,
                                             QStringList &loadedFiles, SolutionLoadSteps *steps = nullptr);

// The text that saveSolution writes.
QByteArray solutionText(const ProjectElement &solution);

// Replaces the solution's file whole. What it imports isn't written, and the files of dynamic folders neither.
// All of the tree but imports then counts as unmodified. Throws SolutionSaveError, the file being as it was.
void saveSolution(ProjectElement &solution);
