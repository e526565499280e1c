#pragma once

#include <QString>

// Where a node of the project tree lies, see ProjectSystem::resolve.
struct ElementPath
{
    QString path;             // absolute and normalised: of the file, or of a project the directory
    QString directory;        // against which the name is resolved; empty for solutions and configurations
    QString fileName;         // "file_name" with its macros expanded
    bool hasMacros = false;   // "file_name" has a "$", so that the path depends on the configuration
    bool wasRelative = false; // fileName is

    bool isExternal() const; // not below the project's directory
};

// Without redundant separators, "." and "..", where that is possible.
QString normalizedPath(const QString &path);
// The path, or that below the directory when it is relative; normalised.
QString absolutePath(const QString &directory, const QString &path);
// The path seen from the directory, both absolute and normalised: "." for the directory itself.
QString relativePath(const QString &directory, const QString &path);
