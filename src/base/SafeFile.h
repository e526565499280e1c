#pragma once

#include <QFile>
#include <QSaveFile>
#include <memory>

// All of the bytes. When the device takes no more, false, and its errorString() has the reason.
bool writeAll(QIODevice &device, QByteArrayView bytes);

// Writes a file so that a crash, a full disk or a kill at any instant leaves the old content or the new,
// never a half: the bytes go to a temporary file in the same folder, are flushed to the disk and renamed
// over the old file by commit(). Permissions of the old file stay; a symbolic link is followed. Dropped
// without commit(), nothing has happened. What is no regular file (a device, a pipe) is written directly, and
// so is standard output, which "-" stands for.
class SafeFile
{
public:
    explicit SafeFile(const QString &path);

    // False when the file can't be created; errorString() has the reason.
    bool open();
    QIODevice &device() { return *m_device; }
    bool write(QByteArrayView bytes) { return writeAll(*m_device, bytes) || failFlushing(); }
    // Zeros that a write() follows; in a new file they are a hole, which takes no space on the disk.
    bool writeZeros(quint64 count);
    // False when anything could not be written; the old file then stands.
    bool commit();
    QString errorString() const { return m_device->errorString(); }

private:
    bool failFlushing();

    std::unique_ptr<QFileDevice> m_device;
    QSaveFile *m_saveFile = nullptr;   // m_device, when it is one
    QFile *m_standardOutput = nullptr; // m_device, when it stands for it
};

// The whole file in one call. Throws "cannot open PATH" or "cannot write PATH", each with the reason behind it.
void writeFileSafely(const QString &path, QByteArrayView bytes);
