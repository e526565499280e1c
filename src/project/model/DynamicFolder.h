#pragma once

#include <QStringList>

class ProjectElement;

// What a dynamic folder shows.
struct DynamicFolderScan
{
    struct Directory
    {
        QString path;            // absolute
        bool isRelative = false; // as it was written; what is found below it is named in the same way
    };

    QList<Directory> directories; // those that don't exist are passed over
    QStringList filters;          // wildcards of files, none: all
    QStringList excludes;         // wildcards of files and directories
    bool isRecursive = false;
    QString projectDirectory; // where relative names count from
};

// Puts the files that are there, and the folders that they are in, in place of the folder's children. Its
// configurations stay. What is made can't be modified. A directory that symbolic links lead to a second time
// is passed over.
void populateDynamicFolder(ProjectElement &folder, const DynamicFolderScan &scan);
