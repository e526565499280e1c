#pragma once

#include "xml/settings/Settings.h"

#include <QObject>
#include <QStringList>
#include <QTimer>
#include <limits>
#include <vector>

class XMLElement;

// What an option of the environment is. The numbers are those of the property types.
struct EnvironmentOption
{
    enum Type { Boolean = 0, Integer = 1, String = 4, FilePath = 5, DirPath = 8, DirPathList = 9 };

    QString key; // "Page/Group/Title", as in "Environment/Build/Building Threads"
    Type type = String;
    QString page, group, title, description;
    QString initialValue; // while no file has the key; null: the default
    QString defaultValue;
    int minimum = std::numeric_limits<int>::min();
    int maximum = std::numeric_limits<int>::max();
    QString specialValueText, suffix; // of the box that shows an integer
};

// The options of the environment over two settings files: the user's, which is written, and below it the
// system's. An option keeps its slot for good. Values are text ("Yes" and "No", decimal, paths joined by ";"),
// found once and then kept. A key without an option works as a string whose default is empty.
//
// A change goes to the user's file a second later, so that a series of changes costs one write, and at the
// latest when this object goes.
class EnvironmentSettings : public QObject
{
    Q_OBJECT

public:
    EnvironmentSettings(const QString &userFile, const QString &globalFile, QObject *parent = nullptr);
    ~EnvironmentSettings() override;

    // $VELDANE_USER_DIR/settings.xml, else $XDG_CONFIG_HOME/veldane/settings.xml; veldane/settings.xml below
    // the first of $XDG_CONFIG_DIRS.
    static QString defaultUserFile();
    static QString defaultGlobalFile();

    // Adds an option and gives its slot; one whose key is there replaces it in its slot.
    int addOption(const EnvironmentOption &option);
    // Adds those that the "environment-setting" elements at and below `description` tell of. What can't be
    // used is logged as an error and passed over.
    void addOptions(const XMLElement *description);
    const std::vector<EnvironmentOption> &options() const { return m_options; }
    const EnvironmentOption *option(const QString &key) const;

    QString value(const QString &key) const;
    bool boolValue(const QString &key) const { return value(key) == QStringLiteral("Yes"); }
    int intValue(const QString &key) const; // within the option's limits
    QStringList listValue(const QString &key) const;
    // Nothing happens when that is the value already.
    void setValue(const QString &key, const QString &value);
    void setBoolValue(const QString &key, bool value);
    void setIntValue(const QString &key, int value);
    // Takes the user's value away.
    void resetValue(const QString &key);

    Settings &userSettings() { return m_user; }
    Settings &globalSettings() { return m_global; }

    // Writes changes and takes in those of other processes. False when it can't; the changes stay.
    bool save();

Q_SIGNALS:
    void changed(const QString &key); // here or by another process
    void saveFailed(const QString &path);

private:
    QString findValue(const QString &key) const;
    void valueSet(const QString &key, const QString &old);
    void updateCache();

    Settings m_user, m_global;
    std::vector<EnvironmentOption> m_options;
    QMap<QString, int> m_slots;
    mutable QMap<QString, QString> m_cache;
    QTimer m_saveTimer;
};
