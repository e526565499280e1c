#include "base/Directories.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

QString installationDirectory()
{
    const QString program = QFileInfo(u"/proc/self/exe"_s).symLinkTarget();
    return QFileInfo(QFileInfo(program).path()).path();
}

QString userDirectory(UserFiles files)
{
    const QString own = qEnvironmentVariable("VELDANE_USER_DIR");
    if (!own.isEmpty())
        return QDir::cleanPath(QFileInfo(own).absoluteFilePath());
    struct Row
    {
        const char *variable, *fallback;
    };
    static constexpr Row rows[] = {
        {"XDG_CONFIG_HOME", ".config"}, {"XDG_DATA_HOME", ".local/share"}, {"XDG_CACHE_HOME", ".cache"}};
    const Row &row = rows[int(files)];
    QString base = qEnvironmentVariable(row.variable);
    if (!QDir::isAbsolutePath(base))
        base = QDir::home().filePath(QString::fromLatin1(row.fallback));
    return QDir::cleanPath(base + u"/veldane"_s);
}
