#pragma once

#include "base/FileDescriptor.h"
#include "build/commands/CommandRecord.h"

#include <QHash>
#include <vector>

// Times of files, each asked of the system once in a build. What a build writes is forgotten and so asked again.
class FileTimes
{
public:
    using Id = quint32;

    // Of an absolute path; stays valid until clear().
    Id id(const QString &path);
    const QString &path(Id id) const { return m_files[id].path; }
    void reserve(qsizetype count); // for that many more ids
    // Time 0: no such file.
    FileStamp stamp(Id id);
    FileStamp stamp(const QString &path) { return stamp(id(path)); }
    bool exists(const QString &path) { return stamp(path).time != 0; }

    void forget(const QString &path); // it was deleted or may have changed
    void forgetAll();
    // This build has written it: it counts as newer than what was there when the build began, however quickly.
    void setWritten(const QString &path);
    bool isWritten(Id id) const { return m_files[id].isWritten; }

    // For a new build.
    void clear();
    // Nanoseconds since 1970, at least as late as the last call.
    qint64 now();
    qint64 lastNow() const { return m_now; }

private:
    struct File
    {
        QString path;
        FileStamp stamp;
        bool isKnown = false;
        bool isWritten = false;
    };

    FileStamp ask(const QString &path);
    int directory(QStringView path);

    // Thousands of files lie in a few directories; a file is reached faster from its own than from the root.
    struct Directory
    {
        QString path;
        FileDescriptor descriptor;
    };
    std::vector<Directory> m_directories;
    size_t m_nextDirectory = 0; // the one to be replaced
    QHash<QString, Id> m_ids;
    std::vector<File> m_files;
    qint64 m_now = 0;
};
