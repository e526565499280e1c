#include "base/Directories.h"
#include "base/HException.h"
#include "project/model/ConfigFile.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/macros/SystemMacroTable.h"
#include "xml/settings/EnvironmentSettings.h"

#include <QCoreApplication>
#include <QDir>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(ConfigFile, SetsWhatAnInstallationHas)
{
    const TemporaryFolder folder;
    const QString path =
        folder.write("config.xml", R"xml(<config><a><system-macro name="VnTool" value="$(StudioDir)/t;$(None)"/></a>
        <system-macro name="VnHome" value="$(UserHomeDir)$(UserDataDir)"/><setting name="A/B/C" value="4"/>
        <environment-variable name="VN_TEST_CONFIG" value="$(StudioDir)" expand="No"/>
        <system-macro value="x"/></config>)xml");
    int argc = 0;
    const QCoreApplication application(argc, nullptr); // the settings' timer
    const SystemMacroTable before = SystemMacroTable::instance();
    EnvironmentSettings settings(folder.path("user.xml"), folder.path("global.xml"));
    ConfigFile::read(path).apply(&settings);
    EXPECT_EQ(expandSystem(u"$(VnTool)"_s), installationDirectory() + "/t;$(None)"_L1);
    EXPECT_EQ(expandSystem(u"$(VnHome)"_s), QDir::homePath() + userDirectory(UserFiles::Data));
    EXPECT_EQ(qgetenv("VN_TEST_CONFIG"), "$(StudioDir)");
    EXPECT_EQ(settings.value(u"A/B/C"_s), u"4"_s);
    settings.setValue(u"A/B/C"_s, u"5"_s);
    ConfigFile::read(path).apply(&settings);
    EXPECT_EQ(settings.value(u"A/B/C"_s), u"5"_s) << "the user's word counts";
    qunsetenv("VN_TEST_CONFIG");
    SystemMacroTable::instance() = before;
}

TEST(ConfigFile, IsOptionalButMustBeXml)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(ConfigFile::read(folder.path("none.xml")).systemMacros.isEmpty());
    try {
        ConfigFile::read(folder.write("bad.xml", "<config>\n<a></config>"));
        ADD_FAILURE();
    } catch (const HException &error) {
        EXPECT_TRUE(error.message().startsWith(u"cannot load configuration file - "_s)) << error.what();
        EXPECT_TRUE(error.message().endsWith(u"bad.xml:2"_s)) << error.what();
    }
}
