#include "project/model/ElementPath.h"

#include <QDir>

namespace {

// Whether QDir::cleanPath may find something to do; it is slow, and most paths are clean.
bool isClean(QStringView path)
{
    if (path.endsWith(u'/'))
        return path.size() == 1;
    for (qsizetype i = 0; i < path.size(); ++i) {
        const bool startsPart = i == 0 || path[i - 1] == u'/';
        if (startsPart && (path[i] == u'.' || (path[i] == u'/' && i > 0)))
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
    return normalizedPath(path.startsWith(u'/') ? path : directory + u'/' + path);
}

QString relativePath(const QString &directory, const QString &path)
{
    if (path.size() > directory.size() && path.startsWith(directory) && path[directory.size()] == u'/')
        return path.sliced(directory.size() + 1);
    const QString relative = normalizedPath(QDir(directory).relativeFilePath(path)); // it may end in "/"
    return relative.isEmpty() ? QStringLiteral(".") : relative;
}
