#include "project/model/FileType.h"
#include "project/model/ProjectFixture.h"

using namespace Qt::StringLiterals;

using ProjectPaths = ProjectFixture;

TEST_F(ProjectPaths, CountFromTheProjectsDirectory)
{
    QDir(folder.root()).mkdir(u"lib"_s);
    writeSolution("lib/lib.vnProject",
                  "<solution Name='lib'><project Name='l'><file file_name='l.c'/></project></solution>");
    load(R"xml(<solution><import file_name="lib/lib.vnProject"/>
        <project Name="p"><configuration Name="Common" project_directory="$(HostOS)//code/"/>
          <file file_name="./src//a.c"/><file file_name="../b.c"/><file file_name="/x/../c.c"/></project>
        <project Name="q"><configuration Name="Common" project_directory="/q"/><file file_name="d.c"/></project>
        <folder Name="f"><file file_name="e.c"/></folder></solution>)xml");
    struct
    {
        const char *name, *path;
        bool isExternal;
    } const rows[] = {
        {"l.c", "FOLDER/lib/l.c", false},  {"a.c", "FOLDER/linux/code/src/a.c", false},
        {"b.c", "FOLDER/linux/b.c", true}, {"c.c", "/c.c", true},
        {"d.c", "/q/d.c", false},          {"e.c", "FOLDER/e.c", false},
        {"p", "FOLDER/linux/code", false},
    };
    for (const auto &row : rows) {
        const ElementPath &path = system.resolve(node(row.name), u"Debug"_s);
        EXPECT_EQ(QString(path.path).replace(folder.root(), u"FOLDER"_s), QLatin1StringView(row.path)) << row.name;
        EXPECT_EQ(path.isExternal(), row.isExternal) << row.name;
    }
    EXPECT_EQ(system.solutionDirectory(node("l.c")), folder.path("lib"));
    EXPECT_EQ(system.path(system.solution(), u"Debug"_s), folder.path("main.vnProject"));
    system.setPropertyValue(node("p"), &system.schema()[ProjectProperty::project_directory], u"Common"_s, u"moved"_s);
    EXPECT_EQ(system.path(node("a.c"), u"Debug"_s), folder.path("moved/src/a.c"));
}

TEST(ElementPath, NormalizesAndRelates)
{
    struct
    {
        const char *path, *normalized;
    } const rows[] = {{"", ""},         {"a/b", "a/b"},    {"a//b", "a/b"}, {"a/./b/", "a/b"},    {"a/../b", "b"},
                      {"../a", "../a"}, {"/", "/"},        {"//a", "/a"},   {".git/x", ".git/x"}, {"a/..", "."},
                      {"a..b", "a..b"}, {"/a/b/.", "/a/b"}};
    for (const auto &row : rows)
        EXPECT_EQ(normalizedPath(QString::fromLatin1(row.path)), QLatin1StringView(row.normalized)) << row.path;
    EXPECT_EQ(relativePath(u"/a/b"_s, u"/a/b/c"_s), u"c"_s);
    EXPECT_EQ(relativePath(u"/a/b"_s, u"/a/bc"_s), u"../bc"_s);
    EXPECT_EQ(relativePath(u"/a/b"_s, u"/a/b"_s), u"."_s);
    EXPECT_EQ(relativePath(u"/"_s, u"/a"_s), u"a"_s);
}

TEST_F(ProjectPaths, TellWhatAFileIs)
{
    folder.write("map.xml", "<?xml version='1.0'?>\n<!DOCTYPE Board_Memory_Definition_File>\n<root/>");
    folder.write("place.xml", "<!DOCTYPE Linker_Placement_File><Root/>");
    folder.write("regs.XML", "<!DOCTYPE Register_Definition_File><a/>");
    folder.write("other.xml", "<a/>");
    const QByteArrayList files = {"a.c",     "a.CPP",     "a.cc",     "a.hh",      "a.S",      "a.asm",
                                  "a.ld",    "a.o",       "liba.a",   "a.elf",     "a.txt",    "none",
                                  "map.xml", "place.xml", "regs.XML", "other.xml", "gone.xml", "dir.c/none"};
    const QStringList types = {u"C"_s,
                               u"C++"_s,
                               u"C++"_s,
                               u"Header"_s,
                               u"Assembly"_s,
                               u"Assembly"_s,
                               u"Linker Script"_s,
                               u"Object file"_s,
                               u"Library"_s,
                               u"Executable"_s,
                               {},
                               {},
                               u"Memory Map"_s,
                               u"Section Placement"_s,
                               u"Register Definitions"_s,
                               {},
                               {},
                               {}};
    QByteArray text = "<solution><project Name='p'>";
    for (const QByteArray &file : files)
        text += "<file Name='" + file + "' file_name='" + file + "'/>";
    load(text + "</project></solution>");
    for (qsizetype i = 0; i < files.size(); ++i)
        EXPECT_EQ(system.fileTypeOf(node(files[i].constData()), u"Debug"_s), types[i]) << files[i].constData();

    const auto set = [this](const char *name, ProjectProperty property, const QString &value) {
        system.setPropertyValue(node(name), &system.schema()[property], u"Common"_s, value);
    };
    set("p", ProjectProperty::c_files_are_cpp, u"Yes"_s);
    EXPECT_EQ(system.fileTypeOf(node("a.c"), u"Debug"_s), u"C++"_s);
    set("a.c", ProjectProperty::file_type, u"C"_s);
    EXPECT_EQ(system.fileTypeOf(node("a.c"), u"Debug"_s), u"C"_s) << "said outright";
    node("a.txt")->setBuildType(u"C"_s);
    EXPECT_EQ(system.fileTypeOf(node("a.txt"), u"Debug"_s), u"C++"_s) << "found by a build step";
}

TEST(FileTypes, HandOverWhatTheyOffer)
{
    struct Handler : FileTypeHandler
    {
        explicit Handler(QString *log) : seen(log) {}
        void compile(const QString &path) override { *seen = path; }
        QString *seen;
    };
    const TemporaryFolder folder;
    FileTypes types;
    const auto nameOf = [&types](const QString &path) {
        const FileType *type = types.typeOf(path);
        return type ? type->name() : u"none"_s;
    };
    EXPECT_EQ(nameOf(u"x/a.CXX"_s), u"C++ source file"_s);
    EXPECT_EQ(nameOf(u"Makefile"_s), u"none"_s);
    EXPECT_EQ(nameOf(folder.write("m.xml", "<!DOCTYPE Board_Memory_Definition_File>")), u"Memory Map File"_s);
    EXPECT_EQ(nameOf(folder.write("o.xml", "<a/>")), u"XML File"_s);
    EXPECT_TRUE(types.typeWithId(u"ElfObjectFileType"_s)->isBinary());
    QString seen;
    FileType *source = types.typeWithId(u"CFileType"_s);
    EXPECT_FALSE(source->perform(FileAction::Compile, u"a.c"_s)) << "nobody does it";
    source->setHandler(std::make_unique<Handler>(&seen));
    EXPECT_TRUE(source->perform(FileAction::Compile, u"a.c"_s));
    EXPECT_EQ(seen, u"a.c"_s);
    EXPECT_FALSE(source->perform(FileAction::Download, u"a.c"_s)) << "not for sources";
}
