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
    const char16_t *const text = path.utf16(); // thousands of them are looked at
    for (qsizetype i = 0; i + 1 < path.size(); ++i) {
        if (text[i] == u'/' && (text[i + 1] == u'.' || text[i + 1] == u'/'))
            return false;
    }
    return true;
}

} // namespace

bool ElementPath::isExternal() const
{
    const QString relative = relativePath(directory, path);
    return relative == QStringLiteral("..") || relative.startsWith(QStringLiteral("../"));
}

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
