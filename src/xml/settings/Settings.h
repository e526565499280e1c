#pragma once

#include <QMap>
#include <QString>
#include <optional>

struct SettingsEntry
{
    enum State { AsRead = 0, Changed = 1, Removed = 2 }; // against the file

    int state = AsRead;
    QString value;
};
using SettingsMap = QMap<QString, SettingsEntry>;

// The settings file: a line an entry, ordered by name, UTF-8.
//
//     <!DOCTYPE Tormont_Settings_File>
//     <settings>
//       <setting name="NAME">VALUE</setting>
//     </settings>
//
// Both operations hold the lock on PATH.lck, which they wait for at most 1000 ms. A symbolic link is followed.

// False, the map being untouched, when there is no file, no lock or no well-formed settings in it. A lock file
// that may not be written, as in the system's folder, isn't needed: files are only ever replaced whole.
bool readSettingsFile(const QString &path, SettingsMap &map);

// Writes what isn't removed, making the folder if need be. The file is in place at every instant, old or new,
// and PATH.bak is what it was before. False when there is no lock or something can't be written.
bool writeSettingsFile(const QString &path, const SettingsMap &map);

// The settings of one file, which other processes may change at the same time: changes made here are noted
// and laid over the file's content when they are saved, so that keys changed elsewhere stay.
class Settings
{
public:
    virtual ~Settings() = default;

    void setFile(const QString &path) { m_path = path; }
    const QString &file() const { return m_path; }

    // As readSettingsFile; local changes are forgotten when it succeeds.
    bool read();
    // Brings memory and file together. Without local changes a file that somebody else wrote is only read.
    // False when that fails; memory then keeps its values and changes for the next try.
    bool save();

    QString value(const QString &name, const QString &otherwise = {}) const;
    bool contains(const QString &name) const;
    void set(const QString &name, const QString &value);
    void remove(const QString &name);
    // Forgets everything and deletes the file and its ".bak".
    void clear();

    bool isDirty() const { return m_isDirty; }
    const SettingsMap &entries() const { return m_map; }

private:
    // What tells one writing of the file from another: its time, and more for file systems with coarse times.
    struct Version
    {
        qint64 timeNs;
        quint64 inode;
        qint64 size;
        bool operator==(const Version &) const = default;
    };
    std::optional<Version> versionOnDisk() const;

    QString m_path;
    SettingsMap m_map;
    std::optional<Version> m_version; // at the last read or save; none: not read
    bool m_isDirty = false;
};
