#include "xml/settings/Settings.h"

#include "xml/settings/LockFile.h"

#include <QFileInfo>
#include <QXmlStreamReader>
#include <array>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 largestFile = 1 << 28;

struct Entity
{
    char16_t character;
    QStringView text;
};
constexpr std::array<Entity, 7> entities = {{
    {u'&', u"&amp;"},
    {u'>', u"&gt;"},
    {u'<', u"&lt;"},
    {u'"', u"&quot;"},
    {u'\'', u"&apos;"},
    {u'\u00B7', u"&middot;"},
    {u'\r', u"&#xd;"}, // as it stands, a reader would take it for part of a line end
}};

class EntityResolver : public QXmlStreamEntityResolver
{
public:
    QString resolveUndeclaredEntity(const QString &name) override
    {
        if (name == "nbsp"_L1)
            return QString(QChar::Nbsp);
        return name == "middot"_L1 ? QString(QChar(u'\u00B7')) : QString();
    }
};

// XML 1.0, section 2.2: no document can hold other characters, not even by reference.
bool canStandInXml(QChar c)
{
    return c >= u' ' ? c < QChar(0xFFFE) : c == u'\t' || c == u'\n' || c == u'\r';
}

QString escaped(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c.isSurrogate()) {
            if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
                result += c;
                result += text[++i];
            }
            continue;
        }
        const auto entity = std::find_if(entities.begin(), entities.end(),
                                         [c](const Entity &row) { return QChar(row.character) == c; });
        if (entity != entities.end())
            result += entity->text;
        else if (canStandInXml(c))
            result += c;
    }
    return result;
}

// Where the file is, behind symbolic links, so that replacing it leaves them alone.
QString realPath(const QString &path)
{
    const QString target = QFileInfo(path).canonicalFilePath();
    return target.isEmpty() ? path : target;
}

QString lockPath(const QString &path)
{
    return realPath(path) + ".lck"_L1;
}

// Under the lock.
bool readEntries(const QString &path, SettingsMap &map)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.isSequential() || file.size() > largestFile)
        return false;
    QXmlStreamReader reader(file.readAll());
    EntityResolver resolver;
    reader.setEntityResolver(&resolver);
    reader.setNamespaceProcessing(false);
    SettingsMap entries;
    if (!reader.readNextStartElement() || reader.name() != "settings"_L1)
        return false;
    while (reader.readNextStartElement()) {
        const QString name =
            reader.name() == "setting"_L1 ? reader.attributes().value("name"_L1).toString() : QString();
        if (name.isEmpty())
            reader.skipCurrentElement();
        else
            entries.insert(name, {SettingsEntry::AsRead, reader.readElementText(QXmlStreamReader::SkipChildElements)});
    }
    while (!reader.atEnd())
        reader.readNext();
    if (reader.hasError())
        return false;
    map.swap(entries);
    return true;
}

// Under the lock. The old file gets its second name before the new one takes its first, so that a kill at any
// instant leaves a file in place.
bool writeEntries(const QString &givenPath, const SettingsMap &map)
{
    const QString path = realPath(givenPath);
    QString text = u"<!DOCTYPE Tormont_Settings_File>\n<settings>\n"_s;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
        if (entry->state != SettingsEntry::Removed)
            text +=
                "  <setting name=\""_L1 + escaped(entry.key()) + "\">"_L1 + escaped(entry->value) + "</setting>\n"_L1;
    }
    text += "</settings>\n"_L1;

    const QString newPath = path + ".new"_L1, backupPath = path + ".bak"_L1;
    QTx::QCheckedFile file(newPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray bytes = text.toUtf8();
    if (file.write(bytes) != bytes.size() || !file.flush() || fsync(file.handle()) != 0) {
        file.remove(); // a full disk: give back what it took
        return false;
    }
    file.close();
    const QByteArray name = QFile::encodeName(path), backupName = QFile::encodeName(backupPath);
    if (QFile::exists(path)) {
        file.setPermissions(QFile::permissions(path));
        QFile::remove(backupPath);
        if (link(name.constData(), backupName.constData()) != 0)
            QFile::copy(path, backupPath); // a file system without second names
    }
    return rename(QFile::encodeName(newPath).constData(), name.constData()) == 0;
}

} // namespace

bool readSettingsFile(const QString &path, SettingsMap &map)
{
    if (!QFile::exists(path))
        return false;
    QTx::LockFile lock(lockPath(path));
    if (!lock.lock() && lock.isOpen())
        return false;
    return readEntries(path, map);
}

bool writeSettingsFile(const QString &path, const SettingsMap &map)
{
    QTx::LockFile lock(lockPath(path));
    return lock.lock() && writeEntries(path, map);
}

std::optional<Settings::Version> Settings::versionOnDisk() const
{
    struct stat status;
    if (stat(QFile::encodeName(m_path).constData(), &status) != 0)
        return std::nullopt;
    return Version{qint64(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec, status.st_ino,
                   status.st_size};
}

bool Settings::read()
{
    const std::optional<Version> version = versionOnDisk();
    if (!readSettingsFile(m_path, m_map))
        return false;
    m_version = version;
    m_isDirty = false;
    return true;
}

bool Settings::save()
{
    // One lock over reading and writing: nobody's save can fall between.
    QTx::LockFile lock(lockPath(m_path));
    if (!lock.lock())
        return false;
    const std::optional<Version> onDisk = versionOnDisk();
    SettingsMap merged;
    const bool canMerge = onDisk && readEntries(m_path, merged);
    if (!m_isDirty && onDisk && onDisk != m_version) {
        if (canMerge) {
            m_map.swap(merged);
            m_version = onDisk;
        }
        return canMerge;
    }
    if (canMerge) { // even when its version is ours: another's save may be too quick for the file's time to tell
        for (auto entry = m_map.cbegin(); entry != m_map.cend(); ++entry) {
            if (entry->state != SettingsEntry::AsRead)
                merged.insert(entry.key(), *entry);
        }
        m_map.swap(merged);
    }
    if (!writeEntries(m_path, m_map))
        return false;
    m_version = versionOnDisk();
    m_isDirty = false;
    m_map.removeIf([](const auto &entry) { return entry.value().state == SettingsEntry::Removed; });
    for (SettingsEntry &entry : m_map)
        entry.state = SettingsEntry::AsRead;
    return true;
}

QString Settings::value(const QString &name, const QString &otherwise) const
{
    const auto entry = m_map.constFind(name);
    return entry != m_map.constEnd() && entry->state != SettingsEntry::Removed ? entry->value : otherwise;
}

bool Settings::contains(const QString &name) const
{
    const auto entry = m_map.constFind(name);
    return entry != m_map.constEnd() && entry->state != SettingsEntry::Removed;
}

void Settings::set(const QString &name, const QString &value)
{
    m_map.insert(name, {SettingsEntry::Changed, value});
    m_isDirty = true;
}

void Settings::remove(const QString &name)
{
    const auto entry = m_map.find(name);
    if (entry == m_map.end())
        return;
    *entry = {SettingsEntry::Removed, {}};
    m_isDirty = true;
}

void Settings::clear()
{
    m_map.clear();
    m_version.reset();
    m_isDirty = false;
    const QString path = realPath(m_path);
    QFile::remove(path);
    QFile::remove(path + ".bak"_L1);
}
