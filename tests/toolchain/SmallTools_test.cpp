#include "toolchain/ToolchainFixture.h"

#include <QDir>
#include <QFileInfo>
#include <filesystem>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class SmallTools : public testing::Test
{
protected:
    // Runs a tool; "@" stands for the folder.
    ProgramResult run(const char *line)
    {
        QStringList words = QString::fromLatin1(line).split(u' ', Qt::SkipEmptyParts);
        for (QString &word : words)
            word.replace(u'@', folder.root() + u'/');
        const QString tool = words.takeFirst();
        return runProgram(tool, words);
    }
    QString error(const char *line)
    {
        const ProgramResult result = run(line);
        EXPECT_NE(result.status, 0) << line;
        return QString::fromUtf8(result.error).replace(folder.root() + u'/', u"@"_s).trimmed();
    }
    bool exists(const char *name) { return QFileInfo::exists(folder.path(name)); }

    TemporaryFolder folder;
};

TEST_F(SmallTools, CopyFilesAndFolders)
{
    const QString source = folder.write("a.txt", "one");
    QFile::setPermissions(source, QFile::ReadOwner | QFile::ExeOwner);
    ASSERT_EQ(run("cp @a.txt @new/folder/b.txt").status, 0);
    EXPECT_EQ(folder.read("new/folder/b.txt"), "one");
    EXPECT_TRUE(QFileInfo(folder.path("new/folder/b.txt")).isExecutable());
    EXPECT_FALSE(QFileInfo(folder.path("new/folder/b.txt")).permissions() & QFile::WriteOwner);

    QFile::setPermissions(source, QFile::ReadOwner | QFile::WriteOwner);
    folder.write("a.txt", "two");
    ASSERT_EQ(run("cp @a.txt @new/folder/b.txt").status, 0) << "a write-protected target is replaced";
    EXPECT_EQ(folder.read("new/folder/b.txt"), "two");

    ASSERT_EQ(run("cp -r @new @a.txt @copy/").status, 0);
    EXPECT_EQ(folder.read("copy/new/folder/b.txt"), "two");
    EXPECT_EQ(folder.read("copy/a.txt"), "two");
    ASSERT_EQ(::symlink("b.txt", folder.path("new/folder/link").toLocal8Bit().constData()), 0);
    ASSERT_EQ(::symlink("gone", folder.path("new/folder/dead").toLocal8Bit().constData()), 0);
    const QString seenFromHere = QDir::current().relativeFilePath(folder.path("new"));
    ASSERT_EQ(runProgram(u"cp"_s, {u"-r"_s, seenFromHere, folder.path("mirror")}).status, 0);
    EXPECT_EQ(folder.read("mirror/folder/b.txt"), "two") << "what lies in a folder named relatively";
    EXPECT_EQ(std::filesystem::read_symlink(folder.path("mirror/folder/link").toStdString()), "b.txt");
    EXPECT_EQ(std::filesystem::read_symlink(folder.path("mirror/folder/dead").toStdString()), "gone");

    EXPECT_EQ(error("cp @new @x"), u"cp: error: '@new' is a folder; -r copies it"_s);
    EXPECT_EQ(error("cp -r @new @new/folder/deep"), u"cp: error: cannot copy '@new' into itself"_s);
    EXPECT_FALSE(exists("new/folder/deep"));
    EXPECT_EQ(error("cp @a.txt @./a.txt"), u"cp: error: '@a.txt' and '@./a.txt' are the same file"_s);
    EXPECT_EQ(error("cp @none @x"), u"cp: error: cannot open '@none': No such file or directory"_s);
    EXPECT_EQ(error("cp @a.txt @new @a.txt"), u"cp: error: '@a.txt' is no folder"_s);
    EXPECT_EQ(run("cp @a.txt").status, 2);
}

TEST_F(SmallTools, CopyDescriptions)
{
    folder.write("part.xml", "<part n=\"$(N)\"/>");
    folder.write("in.xml",
                 "<!DOCTYPE Thing><root><if A=\"1\"><b v=\"$(A)$(B)\"/></if><include filename=\"part.xml\"/></root>");
    ASSERT_EQ(run("xmlcp @in.xml @out/out.xml -macros A=1;B=2 -D N=x;y").status, 0);
    EXPECT_EQ(folder.read("out/out.xml").simplified(),
              "<!DOCTYPE Thing> <root> <b v=\"12\" /> <part n=\"x;y\" /> </root>");
    folder.write("bad.xml", "<root>\n<if/></root>");
    EXPECT_TRUE(error("xmlcp @bad.xml @out.xml").startsWith(u"xmlcp: error: @bad.xml:2: XmlPP::"_s));
    EXPECT_FALSE(exists("out.xml"));
}

TEST_F(SmallTools, MakeHeaders)
{
    folder.write("a-b.bin", QByteArray("\x00\x7F\xFF", 3));
    folder.write("text", "say \"hi\\\"\n?\?=\n\xC3\xA4"
                         "1");
    ASSERT_EQ(run("mkhdr @a-b.bin @bin.h").status, 0);
    ASSERT_EQ(run("mkhdr -text -name words @text @text.h").status, 0);
    EXPECT_TRUE(folder.read("bin.h").contains("static const unsigned char a_b_bin[] = {\n    0x00, 0x7f, 0xff,\n};"));
    folder.write("check.c", "#include \"bin.h\"\n#include \"text.h\"\n"
                            "_Static_assert(sizeof a_b_bin == A_B_BIN_SIZE && sizeof words == WORDS_SIZE + 1, \"\");\n"
                            "_Static_assert(WORDS_SIZE == 17, \"\");\n");
    NEEDS_PROGRAM("cc");
    const ProgramResult result =
        runProgram(QStandardPaths::findExecutable(u"cc"_s),
                   {u"-std=c11"_s, u"-trigraphs"_s, u"-fsyntax-only"_s, folder.path("check.c")});
    EXPECT_EQ(result.status, 0) << result.error.constData();
    folder.write("empty", "");
    EXPECT_EQ(error("mkhdr @empty @e.h"), u"mkhdr: error: '@empty' is empty, and C has no empty array"_s);
    EXPECT_EQ(error("mkhdr -name 1x @text @e.h"), u"mkhdr: error: '1x' is no C name"_s);
}

TEST_F(SmallTools, ChangeModes)
{
    const QString path = folder.write("a", "");
    const auto mode = [&] {
        return QFileInfo(path).permissions() & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
    };
    ASSERT_EQ(run("chmod 640 @a").status, 0);
    EXPECT_EQ(mode(), QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
    ASSERT_EQ(run("chmod -w @a").status, 0);
    EXPECT_EQ(mode(), QFile::ReadOwner | QFile::ReadGroup);
    ASSERT_EQ(run("chmod +w @a").status, 0);
    EXPECT_TRUE(mode() & QFile::WriteOwner);
    EXPECT_EQ(run("chmod w @a").status, 2);
    EXPECT_EQ(error("chmod +w @none"), u"chmod: error: cannot open '@none': No such file or directory"_s);
}

TEST_F(SmallTools, RemoveFiles)
{
    folder.write("a", "");
    QDir().mkpath(folder.path("d/e"));
    EXPECT_EQ(error("rm @d"), u"rm: error: '@d' is a folder; -r removes it"_s);
    EXPECT_EQ(error("rm @none"), u"rm: error: no file '@none'"_s);
    EXPECT_EQ(run("rm -f @none").status, 0);
    EXPECT_EQ(run("rm -rf @a @d @none").status, 0);
    EXPECT_FALSE(exists("a") || exists("d"));
    EXPECT_EQ(run("rm -r /").status, 1) << "it holds the current folder";
    EXPECT_EQ(run("rm -x").status, 2);
}

} // namespace
