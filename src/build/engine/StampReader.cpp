#include "build/engine/StampReader.h"

#include <QFile>
#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>

static constexpr size_t mostDirectories = 8;

static FileStamp stampOf(const struct stat &status)
{
    constexpr qint64 nanoseconds = 1'000'000'000;
    const qint64 time = status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec;
    return {time ? time : 1, status.st_size}; // the first instant of 1970 is a time too
}

FileStamp StampReader::read(QStringView path)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    const int from = directory(path.first(std::max<qsizetype>(slash, 0)));
    const QStringView name = from == AT_FDCWD ? path : path.sliced(slash + 1);
    // Nearly all names are ASCII.
    char ascii[PATH_MAX];
    const bool isAscii = name.size() < PATH_MAX && !name.isEmpty() &&
                         std::all_of(name.begin(), name.end(), [](QChar c) { return c.unicode() - 1u < 0x7F; });
    struct stat status;
    int result;
    if (isAscii) {
        std::transform(name.begin(), name.end(), ascii, [](QChar c) { return char(c.unicode()); });
        ascii[name.size()] = 0;
        result = ::fstatat(from, ascii, &status, 0);
    } else {
        result = ::stat(QFile::encodeName(path.toString()).constData(), &status);
    }
    return result == 0 ? stampOf(status) : FileStamp{};
}

void StampReader::clear()
{
    m_directories.clear();
    m_next = 0;
}

// AT_FDCWD when the directory can't be opened.
int StampReader::directory(QStringView path)
{
    for (const Directory &known : m_directories) {
        if (known.path == path)
            return known.descriptor.number();
    }
    FileDescriptor opened(::open(QFile::encodeName(path.toString()).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen())
        return AT_FDCWD;
    const int number = opened.number();
    if (m_directories.size() < mostDirectories) {
        m_directories.push_back({path.toString(), std::move(opened)});
    } else {
        m_directories[m_next] = {path.toString(), std::move(opened)};
        m_next = (m_next + 1) % mostDirectories;
    }
    return number;
}
