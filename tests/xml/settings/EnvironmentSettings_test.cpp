#include "xml/settings/EnvironmentSettings.h"

#include "base/Log.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/tree/XMLDocument.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QStringList *loggedTexts = nullptr;

QStringList addDescribed(EnvironmentSettings &settings, const QByteArray &description)
{
    QStringList logged;
    loggedTexts = &logged;
    setLogSink([](const char *category, const char *text) {
        loggedTexts->append(QString::fromUtf8(category) + u": "_s + QString::fromUtf8(text));
    });
    XMLDocument document;
    EXPECT_TRUE(document.parse(description));
    settings.addOptions(document.root());
    setLogSink(nullptr);
    return logged;
}

QString saved(const QString &path, const QString &key)
{
    SettingsMap map;
    readSettingsFile(path, map);
    return map.value(key).value;
}

} // namespace

class EnvironmentSettingsTest : public testing::Test
{
protected:
    int count = 0;
    char *none[1] = {nullptr};
    QCoreApplication application{count, none}; // timers need one
};

TEST_F(EnvironmentSettingsTest, TakesOptionsFromADescription)
{
    const TemporaryFolder folder;
    EnvironmentSettings settings(folder.path("user.xml"), folder.path("global.xml"));
    const QStringList logged = addDescribed(settings, R"(<options>
        <page><environment-setting name="P/G/n" type="integer" page="P" group="G" title="n" description="how many"
            default-value="4" minimum-value="-1" maximum-value="0x40" special-value-text="all" suffix=" jobs"/></page>
        <environment-setting name="s" value="initial" default-value="default"/>
        <environment-setting name="b" type="boolean" default-value="Yes"/>
        <environment-setting name="d" type="dirpaths" value="a;b"/>
        <environment-setting name="bad" type="colour"/>
        <environment-setting type="filepath"/>
        <environment-setting name="s" type="dirpath" default-value="/x"/></options>)");
    EXPECT_EQ(logged, QStringList({u"error: unknown environment setting type: colour\n"_s,
                                   u"error: environment setting without a name : line 8\n"_s}));
    ASSERT_EQ(settings.options().size(), 4u);
    const EnvironmentOption &n = settings.options()[0];
    EXPECT_EQ(n.type, EnvironmentOption::Integer);
    EXPECT_EQ(n.page + n.group + n.title + n.description + n.specialValueText + n.suffix, u"PGnhow manyall jobs"_s);
    EXPECT_EQ(n.minimum, -1);
    EXPECT_EQ(n.maximum, 64);
    EXPECT_EQ(settings.intValue(u"P/G/n"_s), 4);
    EXPECT_EQ(settings.options()[1].type, EnvironmentOption::DirPath) << "a repeated name replaces the option";
    EXPECT_EQ(settings.value(u"s"_s), u"/x"_s);
    EXPECT_TRUE(settings.boolValue(u"b"_s));
    EXPECT_EQ(settings.listValue(u"d"_s), QStringList({u"a"_s, u"b"_s}));
    EXPECT_EQ(settings.option(u"bad"_s), nullptr);
    EXPECT_EQ(settings.value(u"bad"_s), QString());
}

TEST_F(EnvironmentSettingsTest, LooksInTheUsersThenTheSystemsFile)
{
    const TemporaryFolder folder;
    writeSettingsFile(folder.path("global.xml"), {{u"a"_s, {0, u"1"_s}}, {u"b"_s, {0, u"1"_s}}});
    writeSettingsFile(folder.path("user.xml"), {{u"b"_s, {0, u"2"_s}}});
    EnvironmentSettings settings(folder.path("user.xml"), folder.path("global.xml"));
    EnvironmentOption option;
    option.key = u"c"_s;
    option.type = EnvironmentOption::Integer;
    option.defaultValue = u"3"_s;
    option.maximum = 10;
    settings.addOption(option);
    QStringList changed;
    QObject::connect(&settings, &EnvironmentSettings::changed, [&](const QString &key) { changed += key; });
    EXPECT_EQ(settings.value(u"a"_s), u"1"_s);
    EXPECT_EQ(settings.value(u"b"_s), u"2"_s);
    settings.resetValue(u"b"_s);
    EXPECT_EQ(settings.value(u"b"_s), u"1"_s);
    settings.setValue(u"a"_s, u"1"_s);
    EXPECT_EQ(changed, QStringList(u"b"_s)) << "the same value is no change";
    settings.setIntValue(u"c"_s, 11);
    EXPECT_EQ(settings.intValue(u"c"_s), 10);
    settings.resetValue(u"c"_s);
    EXPECT_EQ(settings.intValue(u"c"_s), 3);
}

TEST_F(EnvironmentSettingsTest, ASeriesOfChangesCostsOneWrite)
{
    const TemporaryFolder folder;
    const QString path = folder.path("user.xml");
    {
        EnvironmentSettings settings(path, folder.path("global.xml"));
        auto *timer = settings.findChild<QTimer *>(u"environment-settings-save-timer"_s);
        ASSERT_TRUE(timer && timer->isSingleShot() && !timer->isActive());
        timer->setInterval(0);
        settings.setValue(u"a"_s, u"1"_s);
        settings.setBoolValue(u"b"_s, true);
        EXPECT_TRUE(timer->isActive());
        EXPECT_FALSE(QFile::exists(path));
        while (timer->isActive())
            application.processEvents(QEventLoop::WaitForMoreEvents);
        EXPECT_EQ(saved(path, u"a"_s), u"1"_s);
        EXPECT_EQ(saved(path, u"b"_s), u"Yes"_s);

        // What another process saves is seen at the next save.
        QStringList changed;
        QObject::connect(&settings, &EnvironmentSettings::changed, [&](const QString &key) { changed += key; });
        Settings other;
        other.setFile(path);
        other.read();
        other.set(u"a"_s, u"2"_s);
        other.save();
        EXPECT_EQ(settings.value(u"a"_s), u"1"_s);
        settings.save();
        EXPECT_EQ(settings.value(u"a"_s), u"2"_s);
        EXPECT_EQ(changed, QStringList(u"a"_s));
        settings.setValue(u"late"_s, u"1"_s);
    }
    EXPECT_EQ(saved(path, u"late"_s), u"1"_s) << "saved when the object goes";
}

TEST_F(EnvironmentSettingsTest, TellsOfAFailedSaveAndABrokenFile)
{
    const TemporaryFolder folder;
    QStringList logged;
    loggedTexts = &logged;
    setLogSink([](const char *, const char *text) { loggedTexts->append(QString::fromUtf8(text)); });
    {
        EnvironmentSettings broken(folder.write("broken.xml", "<settings>"), folder.path("global.xml"));
    }
    setLogSink(nullptr);
    EXPECT_EQ(logged, QStringList(u"cannot read settings from %1\n"_s.arg(folder.path("broken.xml"))));

    EnvironmentSettings settings(folder.write("file", "") + u"/user.xml"_s, folder.path("global.xml"));
    int failures = 0;
    QObject::connect(&settings, &EnvironmentSettings::saveFailed, [&] { ++failures; });
    settings.setValue(u"a"_s, u"1"_s);
    EXPECT_FALSE(settings.save());
    EXPECT_EQ(failures, 1);
    EXPECT_EQ(settings.value(u"a"_s), u"1"_s);
}

TEST_F(EnvironmentSettingsTest, FilesLieWhereTheUserSays)
{
    qputenv("VELDANE_USER_DIR", "/u");
    qputenv("XDG_CONFIG_DIRS", "/g:/h");
    EXPECT_EQ(EnvironmentSettings::defaultUserFile(), u"/u/settings.xml"_s);
    EXPECT_EQ(EnvironmentSettings::defaultGlobalFile(), u"/g/veldane/settings.xml"_s);
    qunsetenv("VELDANE_USER_DIR");
    qunsetenv("XDG_CONFIG_DIRS");
    qputenv("XDG_CONFIG_HOME", "/c");
    EXPECT_EQ(EnvironmentSettings::defaultUserFile(), u"/c/veldane/settings.xml"_s);
    qunsetenv("XDG_CONFIG_HOME");
}
