#pragma once

#include "build/commands/BuildFlags.h"
#include "build/report/LoadedSolution.h"

// What vnBuild answers without building. Each prints its result, as text or as one JSON document, and throws
// HException for what isn't there.

// "projects", "configurations", "files" (below that node) or "properties". Throws UsageError for other words.
void listSolution(LoadedSolution &loaded, const QString &what, ProjectElement &below, const QString &configuration,
                  bool isJson);

struct PropertyQuery
{
    QString key;
    bool isExpanded = false;
    bool isTraced = false; // told with where each part of the value comes from
};
void getProperty(LoadedSolution &loaded, const PropertyQuery &query, const ProjectElement &node,
                 const QString &configuration, bool isJson);

// Each assignment is "KEY=VALUE". All are checked before the first is made; then the solution is saved.
void setProperties(LoadedSolution &loaded, const QStringList &assignments, ProjectElement &node,
                   const QString &configuration);

// The command lines that would make the node's output, pre- and post-steps included; nothing is run.
void printCommands(LoadedSolution &loaded, const ProjectElement &node, const QString &configuration, bool isJson);

struct ExportRequest
{
    QString what; // "commands", "make" or "compile-commands"
    QString file; // empty or "-": standard output
    BuildFlags flags = 0;
};
// Writes the build of the node down; a file only if all of it could be told. Throws UsageError for another `what`, and
// HException with what couldn't.
void exportBuild(LoadedSolution &loaded, const ExportRequest &request, const ProjectElement &node,
                 const QString &configuration);
