#include "project/model/ConfigFile.h"

#include "base/Directories.h"
#include "base/HException.h"
#include "xml/macros/SystemMacroTable.h"
#include "xml/preprocessor/XmlPP.h"
#include "xml/settings/EnvironmentSettings.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

constexpr int maximumReplacements = 100; // a folder may be called "$(StudioDir)"

QString expandedValue(const QDomElement &element)
{
    QString value = element.attribute(u"value"_s);
    if (element.attribute(u"expand"_s).compare("no"_L1, Qt::CaseInsensitive) == 0)
        return value;
    const std::pair<QLatin1StringView, QString> references[] = {
        {"$(StudioDir)"_L1, installationDirectory()},
        {"$(UserHomeDir)"_L1, QDir::homePath()},
        {"$(UserDataDir)"_L1, userDirectory(UserFiles::Data)},
    };
    for (int count = 0; count < maximumReplacements; ++count) {
        qsizetype first = -1;
        const std::pair<QLatin1StringView, QString> *found = nullptr;
        for (const auto &reference : references) {
            const qsizetype at = value.indexOf(reference.first);
            if (at >= 0 && (first < 0 || at < first)) {
                first = at;
                found = &reference;
            }
        }
        if (!found)
            break;
        value.replace(first, found->first.size(), found->second);
    }
    return value;
}

QList<ConfigFile::Entry> entriesOf(const QDomDocument &document, const QString &tag)
{
    QList<ConfigFile::Entry> entries;
    const QDomNodeList elements = document.elementsByTagName(tag);
    entries.reserve(elements.size());
    for (int i = 0; i < elements.size(); ++i) {
        const QDomElement element = elements.at(i).toElement();
        if (element.hasAttribute(u"name"_s))
            entries.append({element.attribute(u"name"_s), expandedValue(element)});
    }
    return entries;
}

} // namespace

ConfigFile ConfigFile::read(const QString &path)
{
    ConfigFile config;
    if (!QFile::exists(path))
        return config;
    XmlPP document;
    QString error = u"cannot open it"_s;
    int line = 0;
    if (!document.load(path, QString(), true, &error, &line))
        throw HException(u"cannot load configuration file - %1 : %2:%3"_s.arg(error, path, QString::number(line)));
    config.settings = entriesOf(document.document(), u"setting"_s);
    config.systemMacros = entriesOf(document.document(), u"system-macro"_s);
    config.environmentVariables = entriesOf(document.document(), u"environment-variable"_s);
    return config;
}

void ConfigFile::apply(EnvironmentSettings *environment) const
{
    if (environment) {
        for (const auto &[name, value] : settings) {
            const EnvironmentOption *known = environment->option(name);
            EnvironmentOption option = known ? *known : EnvironmentOption{};
            option.key = name;
            option.initialValue = value;
            environment->addOption(option);
        }
    }
    for (const auto &[name, value] : systemMacros)
        SystemMacroTable::instance().addSystemMacro(name, value, QString());
    for (const auto &[name, value] : environmentVariables)
        qputenv(name.toLocal8Bit().constData(), value.toLocal8Bit());
}

void loadInstallation(EnvironmentSettings *settings)
{
    const QString directory = installationDirectory();
    SystemMacroTable::instance().addInstallationMacros(QDir(directory), QDir(userDirectory(UserFiles::Data)));
    ConfigFile::read(directory + "/bin/config.xml"_L1).apply(settings);
}
