#pragma once

#include <QFile>

namespace QTx {

// A file that makes its folder with all parents before it opens for writing, and doesn't open when it can't.
class QCheckedFile : public QFile
{
public:
    using QFile::QFile;

    bool open(OpenMode mode) override;
};

// A lock between processes: an fcntl write lock over a whole file, which stays on the disk. A process that
// dies gives it up. Two objects of one process don't exclude each other, and the first to close drops both.
class LockFile : public QCheckedFile
{
public:
    explicit LockFile(const QString &path) : QCheckedFile(path) {}

    // Opens the file and tries every 10 ms until it has the lock; false when `timeoutMs` have passed or the
    // file can't be opened. The lock ends with close() or this object.
    bool lock(int timeoutMs = 1000);
    bool isHeld() const { return m_isHeld && isOpen(); }

private:
    bool m_isHeld = false;
};

} // namespace QTx
