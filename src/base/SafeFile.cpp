#include "base/SafeFile.h"

#include "base/HException.h"

#include <QFileInfo>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// A full disk takes some of the bytes before it refuses the rest, and only then there is a reason.
bool writeAll(QIODevice &device, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const qint64 count = device.write(bytes.data(), bytes.size());
        if (count <= 0)
            return false;
        bytes = bytes.sliced(count);
    }
    return true;
}

SafeFile::SafeFile(const QString &path)
{
    // "/dev/stdout" may lead to a regular file: one that others write to, so it is neither replaced nor cut.
    const bool isDescriptor = path.startsWith(u"/dev/") || path.startsWith(u"/proc/");
    const QFileInfo existing(path);
    if (path == u"-") {
        auto file = std::make_unique<QFile>();
        m_standardOutput = file.get();
        m_device = std::move(file);
    } else if (isDescriptor || (existing.exists() && !existing.isFile() && !existing.isDir())) {
        m_device = std::make_unique<QFile>(path);
    } else {
        auto saveFile = std::make_unique<QSaveFile>(path);
        m_saveFile = saveFile.get();
        m_device = std::move(saveFile);
    }
}

bool SafeFile::open()
{
    if (m_standardOutput)
        return m_standardOutput->open(STDOUT_FILENO, QIODevice::WriteOnly);
    const bool addsToFile = !m_saveFile && QFileInfo(m_device->fileName()).isFile();
    return m_device->open(addsToFile ? QIODevice::WriteOnly | QIODevice::Append : QIODevice::WriteOnly);
}

bool SafeFile::writeZeros(quint64 count)
{
    if (m_saveFile)
        return m_saveFile->seek(m_saveFile->pos() + qint64(count));
    const QByteArray zeros(qsizetype(std::min<quint64>(count, 65536)), '\0');
    for (; count; count -= std::min<quint64>(count, quint64(zeros.size())))
        if (!write(QByteArrayView(zeros).first(qsizetype(std::min<quint64>(count, quint64(zeros.size()))))))
            return false;
    return true;
}

// Tells nothing new but the reason: the buffer that could be written in part only has none yet.
bool SafeFile::failFlushing()
{
    m_device->flush();
    return false;
}

// What root, or another one of a group, replaces stays its owner's, as far as the one who replaces it may do so.
static void keepOwner(const QSaveFile &file)
{
    struct stat former = {};
    if (::stat(QFile::encodeName(file.fileName()).constData(), &former) != 0)
        return;
    if (::fchown(file.handle(), former.st_uid, former.st_gid) != 0)
        (void)!::fchown(file.handle(), uid_t(-1), former.st_gid);
}

bool SafeFile::commit()
{
    if (m_saveFile) { // a commit that fails keeps no reason
        if (!m_saveFile->flush())
            return failFlushing();
        keepOwner(*m_saveFile);
        return m_saveFile->commit();
    }
    const bool written = m_device->flush() && m_device->error() == QFileDevice::NoError;
    m_device->close();
    return written;
}

void writeFileSafely(const QString &path, QByteArrayView bytes)
{
    SafeFile file(path);
    if (!file.open())
        throw HException(u"cannot open %1: %2"_s.arg(path, file.errorString()));
    if (!file.write(bytes) || !file.commit())
        throw HException(u"cannot write %1: %2"_s.arg(path, file.errorString()));
}
