#include "xml/settings/Settings.h"

#include <QTemporaryDir>
#include <cstdlib>

// Any bytes read or are refused; what was read survives a write, but for the characters of XML's own limits.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QTemporaryDir folder(QStringLiteral("/dev/shm/settings-XXXXXX")); // no waiting for a disk
    const QString path = folder.filePath(QStringLiteral("settings.xml"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(reinterpret_cast<const char *>(data), qint64(size)) < 0)
        return 0;
    file.close();
    SettingsMap map, again;
    if (!readSettingsFile(path, map))
        return 0;
    if (!writeSettingsFile(path, map) || !readSettingsFile(path, again) || again.size() > map.size())
        std::abort();
    for (auto entry = again.cbegin(); entry != again.cend(); ++entry)
        if (map.contains(entry.key()) && map.value(entry.key()).value != entry->value)
            std::abort();
    return 0;
}
