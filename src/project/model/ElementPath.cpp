#include "project/model/ElementPath.h"

#include <QDir>
#include <QStringBuilder>

namespace {

// Whether QDir::cleanPath may find something to do; it is slow, and most paths are clean.
bool isClean(QStringView path)
{
    if (path.endsWith(u'/'))
        return path.size() == 1;
    if (path.startsWith(u'.'))
        return false;
    for (qsizetype slash = path.indexOf(u'/'); slash >= 0; slash = path.indexOf(u'/', slash + 1)) {
        const QChar next = path[slash + 1]; // there is one: the last isn't a slash
        if (next == u'.' || next == u'/')
            return false;
    }
    return true;
}

} // namespace

QString normalizedPath(const QString &path)
{
    return isClean(path) ? path : QDir::cleanPath(path);
}

QString absolutePath(const QString &directory, const QString &path)
{
    return normalizedPath(path.startsWith(u'/') ? path : QString(directory % u'/' % path));
}

QString relativePath(const QString &directory, const QString &path)
{
    if (path.size() > directory.size() && path.startsWith(directory) && path[directory.size()] == u'/')
        return path.sliced(directory.size() + 1);
    const QString relative = normalizedPath(QDir(directory).relativeFilePath(path)); // it may end in "/"
    return relative.isEmpty() ? QStringLiteral(".") : relative;
}
