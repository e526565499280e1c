#include "project/model/SessionFile.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/macros/SystemMacroTable.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(SessionFile, KeepsOpenFilesAndExpandedNodes)
{
    const TemporaryFolder folder;
    const SystemMacroTable before = SystemMacroTable::instance();
    SystemMacroTable::instance().addSystemMacro(u"StudioDir"_s, u"/opt/studio"_s, QString());
    const QString path = SessionFile::pathFor(folder.path("app.v1.vnProject"));
    EXPECT_EQ(path, folder.path("app.v1.vnSession"));
    SessionFile written;
    std::vector<std::unique_ptr<SessionOpenFile>> files;
    for (const QString &name : {folder.path("src/a.c"), u"/opt/studio/include/b.h"_s, u"/opt/studiox/c.h"_s}) {
        files.push_back(std::make_unique<SessionOpenFile>());
        files.back()->path = name;
    }
    files[1]->x = 7;
    files[1]->codecName = u"UTF-8"_s;
    written.setOpenFiles(files, folder.root());
    const QStringList nodes = {u"app;app;Source <Files>"_s, u"app"_s};
    written.setExpandedNodes({});
    written.setExpandedNodes(nodes); // in place of the first
    written.setPart(written.document().createElement(u"WatchWindow"_s));
    written.save(path);
    const QByteArray text = folder.read("app.v1.vnSession");
    EXPECT_TRUE(text.startsWith("<!DOCTYPE Veldane_Session_File>\n<session>\n")) << text.constData();
    for (const char *stored : {"path=\"src/a.c\"", "path=\"$(StudioDir)/include/b.h\"", "path=\"/opt/studiox/c.h\""})
        EXPECT_TRUE(text.contains(stored)) << stored;

    SessionFile read;
    ASSERT_TRUE(read.load(path));
    EXPECT_EQ(read.expandedNodes(), nodes);
    EXPECT_FALSE(read.part(u"WatchWindow"_s).isNull());
    const auto again = read.openFiles(folder.root());
    ASSERT_EQ(again.size(), 3u);
    for (size_t i = 0; i < again.size(); ++i)
        EXPECT_EQ(again[i]->path, files[i]->path);
    EXPECT_EQ(again[1]->x, 7);
    EXPECT_EQ(again[1]->codecName, u"UTF-8"_s);
    EXPECT_EQ(again[0]->codecName, u"Latin1"_s);
    SystemMacroTable::instance() = before;
}

TEST(SessionFile, PassesOverWhatItCannotRead)
{
    const TemporaryFolder folder;
    SessionFile session;
    EXPECT_FALSE(session.load(folder.path("none")));
    EXPECT_FALSE(session.load(folder.write("a", "<!DOCTYPE Other><session/>")));
    EXPECT_FALSE(session.load(folder.write("b", "<!DOCTYPE Veldane_Session_File><session>")));
    ASSERT_TRUE(session.load(folder.write("c", R"(<!DOCTYPE Veldane_Session_File><session><Files><Other path="x"/>
        <SessionOpenFile/><SessionOpenFile path="a.c" x="many" y="3"/></Files></session>)")));
    const auto files = session.openFiles(u"/d"_s);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0]->path, u"/d/a.c"_s);
    EXPECT_EQ(files[0]->x, 0);
    EXPECT_EQ(files[0]->y, 3);
    EXPECT_TRUE(session.expandedNodes().isEmpty());
}
