#pragma once

#include "base/FileDescriptor.h"
#include "build/commands/CommandRecord.h"

#include <vector>

// Asks the system for stamps of files. Thousands of files lie in a few directories; a file is reached faster from its
// own than from the root, so some are kept open.
class StampReader
{
public:
    // Of an absolute path; time 0: no such file.
    FileStamp read(QStringView path);
    void clear(); // a directory may have been replaced

private:
    int directory(QStringView path);

    struct Directory
    {
        QString path;
        FileDescriptor descriptor;
    };
    std::vector<Directory> m_directories;
    size_t m_next = 0; // the one to be replaced
};
