#include "build/engine/FileTimes.h"

#include <QFile>
#include <ctime>
#include <sys/stat.h>

namespace {

constexpr qint64 nanoseconds = 1'000'000'000;

} // namespace

FileTimes::Id FileTimes::id(const QString &path)
{
    const qsizetype known = m_ids.size();
    Id &id = m_ids[path];
    if (m_ids.size() > known) {
        id = Id(m_files.size());
        m_files.push_back({path, {}, false, false});
    }
    return id;
}

FileStamp FileTimes::stamp(Id id)
{
    File &file = m_files[id];
    if (!file.isKnown) {
        struct stat status;
        const bool exists = ::stat(QFile::encodeName(file.path).constData(), &status) == 0;
        file.stamp = exists ? FileStamp{status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec, status.st_size}
                            : FileStamp{};
        if (exists && !file.stamp.time)
            file.stamp.time = 1; // 1970 to the nanosecond is a time too
        file.isKnown = true;
    }
    return file.stamp;
}

void FileTimes::forget(const QString &path)
{
    m_files[id(path)].isKnown = false;
}

void FileTimes::forgetAll()
{
    for (File &file : m_files)
        file.isKnown = false;
}

void FileTimes::setWritten(const QString &path)
{
    File &file = m_files[id(path)];
    file.isKnown = false;
    file.isWritten = true;
}

void FileTimes::clear()
{
    m_ids.clear();
    m_files.clear();
    m_now = 0;
}

qint64 FileTimes::now()
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    m_now = std::max(m_now, time.tv_sec * nanoseconds + time.tv_nsec);
    return m_now;
}
