#include "build/engine/FileTimes.h"

#include <QFile>
#include <algorithm>
#include <climits>
#include <ctime>
#include <fcntl.h>
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
        file.stamp = ask(file.path);
        file.isKnown = true;
    }
    return file.stamp;
}

FileStamp FileTimes::ask(const QString &path) const
{
    const bool isBelow = m_baseDirectory.isOpen() && path.startsWith(m_base);
    const QStringView name = QStringView(path).sliced(isBelow ? m_base.size() : 0);
    const int directory = isBelow ? m_baseDirectory.number() : AT_FDCWD;
    // Thousands of names are asked for, nearly all of them ASCII.
    char ascii[PATH_MAX];
    const bool isAscii = name.size() < PATH_MAX && !name.isEmpty() &&
                         std::all_of(name.begin(), name.end(), [](QChar c) { return c.unicode() - 1u < 0x7F; });
    struct stat status;
    int result;
    if (isAscii) {
        std::transform(name.begin(), name.end(), ascii, [](QChar c) { return char(c.unicode()); });
        ascii[name.size()] = 0;
        result = ::fstatat(directory, ascii, &status, 0);
    } else {
        result = ::stat(QFile::encodeName(path).constData(), &status);
    }
    if (result != 0)
        return {};
    const qint64 time = status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec;
    return {time ? time : 1, status.st_size}; // the first instant of 1970 is a time too
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

void FileTimes::clear(const QString &base)
{
    m_base = base.endsWith(u'/') ? base : base + u'/';
    m_baseDirectory =
        FileDescriptor(base.isEmpty() ? -1 : ::open(QFile::encodeName(base).constData(), O_PATH | O_CLOEXEC));
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
