#include "base/SafeFile.h"

#include "base/HException.h"

#include <QFileInfo>
#include <unistd.h>

using namespace Qt::StringLiterals;

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

bool SafeFile::commit()
{
    const bool written = m_device->flush() && m_device->error() == QFileDevice::NoError;
    if (m_saveFile)
        return written && m_saveFile->commit(); // which doesn't look whether the last buffer could be written
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
