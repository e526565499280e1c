#include "xml/settings/EnvironmentSettings.h"

#include "base/Directories.h"
#include "base/IntegerReader.h"
#include "base/Log.h"
#include "xml/tree/XMLNode.h"

#include <QFile>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int saveDelayMs = 1000;

std::optional<EnvironmentOption::Type> typeNamed(const QString &name)
{
    static const QMap<QString, EnvironmentOption::Type> types = {
        {u""_s, EnvironmentOption::String},
        {u"string"_s, EnvironmentOption::String},
        {u"integer"_s, EnvironmentOption::Integer},
        {u"boolean"_s, EnvironmentOption::Boolean},
        {u"filepath"_s, EnvironmentOption::FilePath},
        {u"dirpath"_s, EnvironmentOption::DirPath},
        {u"dirpaths"_s, EnvironmentOption::DirPathList},
    };
    const auto found = types.constFind(name);
    return found == types.constEnd() ? std::nullopt : std::optional(*found);
}

int limited(qint64 value, const EnvironmentOption &option)
{
    return int(std::max<qint64>(option.minimum, std::min<qint64>(value, option.maximum)));
}

} // namespace

EnvironmentSettings::EnvironmentSettings(const QString &userFile, const QString &globalFile, QObject *parent)
    : QObject(parent)
{
    m_user.setFile(userFile);
    m_global.setFile(globalFile);
    for (Settings *settings : {&m_user, &m_global}) {
        if (!settings->read() && QFile::exists(settings->file()))
            logMessage(logErrors, "error", 1, "cannot read settings from %s", qPrintable(settings->file()));
    }
    m_saveTimer.setObjectName(u"environment-settings-save-timer"_s);
    m_saveTimer.setParent(this);
    m_saveTimer.setSingleShot(true);
    m_saveTimer.setInterval(saveDelayMs);
    connect(&m_saveTimer, &QTimer::timeout, this, &EnvironmentSettings::save);
}

EnvironmentSettings::~EnvironmentSettings()
{
    if (m_user.isDirty())
        m_user.save();
}

QString EnvironmentSettings::defaultUserFile()
{
    return userDirectory(UserFiles::Config) + "/settings.xml"_L1;
}

QString EnvironmentSettings::defaultGlobalFile()
{
    const QString folder = qEnvironmentVariable("XDG_CONFIG_DIRS").section(u':', 0, 0);
    return (folder.isEmpty() ? u"/etc/xdg"_s : folder) + "/veldane/settings.xml"_L1;
}

int EnvironmentSettings::addOption(const EnvironmentOption &option)
{
    m_cache.remove(option.key);
    const auto slot = m_slots.constFind(option.key);
    if (slot != m_slots.constEnd()) {
        m_options[size_t(*slot)] = option;
        return *slot;
    }
    m_options.push_back(option);
    return *m_slots.insert(option.key, int(m_options.size()) - 1);
}

void EnvironmentSettings::addOptions(const XMLElement *description)
{
    for (const XMLNode *node = description; node; node = node->nextInTree(description)) {
        const XMLElement *element = node->toElement();
        if (!element || element->name() != "environment-setting")
            continue;
        const auto text = [element](const char *name) { return QString::fromUtf8(element->attribute(name)); };
        const auto number = [&](const char *name, int otherwise) {
            return element->hasAttribute(name) ? int(readInteger(text(name))) : otherwise;
        };
        const QString type = text("type");
        EnvironmentOption option;
        if (!typeNamed(type)) {
            logMessage(logErrors, "error", 1, "unknown environment setting type: %s", qPrintable(type));
            continue;
        }
        option.key = text("name");
        if (option.key.isEmpty()) {
            logMessage(logErrors, "error", 1, "environment setting without a name : line %u", element->line() + 1);
            continue;
        }
        option.type = *typeNamed(type);
        option.page = text("page");
        option.group = text("group");
        option.title = text("title");
        option.description = text("description");
        option.initialValue = text("value");
        option.defaultValue = text("default-value");
        option.minimum = number("minimum-value", option.minimum);
        option.maximum = number("maximum-value", option.maximum);
        option.specialValueText = text("special-value-text");
        option.suffix = text("suffix");
        addOption(option);
    }
}

const EnvironmentOption *EnvironmentSettings::option(const QString &key) const
{
    const auto slot = m_slots.constFind(key);
    return slot == m_slots.constEnd() ? nullptr : &m_options[size_t(*slot)];
}

QString EnvironmentSettings::findValue(const QString &key) const
{
    for (const Settings *settings : {&m_user, &m_global})
        if (settings->contains(key))
            return settings->value(key);
    const EnvironmentOption *known = option(key);
    if (!known)
        return {};
    return known->initialValue.isNull() ? known->defaultValue : known->initialValue;
}

QString EnvironmentSettings::value(const QString &key) const
{
    const auto cached = m_cache.constFind(key);
    return cached != m_cache.constEnd() ? *cached : *m_cache.insert(key, findValue(key));
}

int EnvironmentSettings::intValue(const QString &key) const
{
    const EnvironmentOption *known = option(key);
    return limited(qint64(readInteger(value(key))), known ? *known : EnvironmentOption());
}

QStringList EnvironmentSettings::listValue(const QString &key) const
{
    return value(key).split(u';', Qt::SkipEmptyParts);
}

void EnvironmentSettings::setValue(const QString &key, const QString &text)
{
    const QString old = value(key);
    if (old == text)
        return;
    m_user.set(key, text);
    valueSet(key, old);
}

void EnvironmentSettings::setBoolValue(const QString &key, bool value)
{
    setValue(key, value ? u"Yes"_s : u"No"_s);
}

void EnvironmentSettings::setIntValue(const QString &key, int value)
{
    const EnvironmentOption *known = option(key);
    setValue(key, QString::number(limited(value, known ? *known : EnvironmentOption())));
}

void EnvironmentSettings::resetValue(const QString &key)
{
    if (!m_user.contains(key))
        return;
    const QString old = value(key);
    m_user.remove(key);
    valueSet(key, old);
}

void EnvironmentSettings::valueSet(const QString &key, const QString &old)
{
    if (!m_saveTimer.isActive())
        m_saveTimer.start();
    m_cache.remove(key);
    if (value(key) != old)
        Q_EMIT changed(key);
}

bool EnvironmentSettings::save()
{
    m_saveTimer.stop();
    const bool ok = m_user.save();
    if (ok)
        updateCache();
    else
        Q_EMIT saveFailed(m_user.file());
    return ok;
}

void EnvironmentSettings::updateCache()
{
    const QMap<QString, QString> old = std::exchange(m_cache, {});
    for (auto entry = old.begin(); entry != old.end(); ++entry) {
        if (value(entry.key()) != *entry)
            Q_EMIT changed(entry.key());
    }
}
