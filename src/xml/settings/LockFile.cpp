#include "xml/settings/LockFile.h"

#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <fcntl.h>

namespace QTx {

bool QCheckedFile::open(OpenMode mode)
{
    if ((mode & WriteOnly) && !QDir().mkpath(QFileInfo(fileName()).absolutePath()))
        return false;
    return QFile::open(mode);
}

bool LockFile::lock(int timeoutMs)
{
    constexpr int pauseMs = 10;
    if (!isOpen() && !open(ReadWrite))
        return false;
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    for (int tries = qMax(1, timeoutMs / pauseMs); tries > 0; --tries) {
        m_isHeld = fcntl(handle(), F_SETLK, &whole) == 0;
        if (m_isHeld)
            return true;
        if (tries > 1)
            QThread::msleep(pauseMs);
    }
    return false;
}

} // namespace QTx
