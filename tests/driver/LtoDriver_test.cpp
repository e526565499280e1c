#include "elf/ElfFile.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

constexpr quint8 global = ELF32_ST_INFO(STB_GLOBAL, STT_FUNC), weak = ELF32_ST_INFO(STB_WEAK, STT_FUNC);

QByteArray elfObject(const QList<QByteArray> &defined, const QList<QByteArray> &undefined = {},
                     const QList<QByteArray> &weakDefined = {})
{
    ElfBuilder elf;
    elf.sections = {{".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0, "\x70\x47"}};
    for (const QByteArray &name : defined)
        elf.symbols.append({name, 1, global, 1});
    for (const QByteArray &name : weakDefined)
        elf.symbols.append({name, 1, weak, 1});
    for (const QByteArray &name : undefined)
        elf.symbols.append({name, 0, global, SHN_UNDEF});
    return elf.build();
}

class LtoDriverProgram : public testing::Test
{
protected:
    // Runs the driver over inputs that lie in the folder.
    ProgramResult run(const QStringList &options, const QStringList &inputs, const QStringList &keep = {},
                      const QString &library = u"old"_s, const QStringList &environment = {})
    {
        QByteArray list;
        for (const QString &input : inputs)
            list += '"' + folder.path(input.toUtf8()).toUtf8() + "\"\n";
        folder.write("list", list);
        QFile::remove(folder.path("log"));
        return runProgram(u"ltollvm"_s,
                          options +
                              QStringList{QString::fromLatin1(FAKE_LTO) + library + u".so"_s, folder.path("list"),
                                          folder.path("ld"), folder.path("object")} +
                              keep,
                          {}, environment + QStringList{u"FAKE_LTO_LOG="_s + folder.path("log")});
    }
    QByteArray log() { return folder.read("log"); }

    TemporaryFolder folder;
};

TEST_F(LtoDriverProgram, LeavesElfToTheLinkerAndCompilesBitcode)
{
    folder.write("a.bc", "BC\n19a0 main\n19c2 table\n300 shared\n400 helper\n500 hook\n200 common\n");
    folder.write("b.bc", "BC\n100 unused\n300 both\n");
    folder.write("start.o", elfObject({"helper", "both"}, {"main", "both", "elsewhere"}, {"shared"}));
    folder.write("lib.a", buildArchive({{"hook.o", elfObject({"hook"}, {"table", "deep"}), {"hook"}},
                                        {"deep.o", elfObject({"deep"}, {"unused"}), {"deep"}},
                                        {"idle.o", elfObject({"idle"}, {"shared"}), {"idle"}}}));
    folder.write("notes.txt", "neither");
    folder.write("tiny", "x");
    const ProgramResult result =
        run({}, {u"a.bc"_s, u"start.o"_s, u"b.bc"_s, u"lib.a"_s, u"notes.txt"_s, u"tiny"_s}, {u"keep"_s, u"main"_s});
    EXPECT_EQ(result.status, 0) << result.error.toStdString();
    EXPECT_EQ(result.out, "TENTATIVE\n");
    EXPECT_EQ(folder.read("object"), QByteArray("OB\0JE\n", 6));
    EXPECT_EQ(folder.read("ld"),
              '"' + folder.path("start.o").toUtf8() + "\"\n\"" + folder.path("lib.a").toUtf8() + "\"\n");
    EXPECT_EQ(log(), "version\ngenerator\noptions -lto-freestanding --disable-llvm-verifier -O0\n"
                     "create 6\nadd main\ncreate 2\nadd unused\n"
                     "preserve main\npreserve table\npreserve unused\n" // needed by ELF code, pulled members included
                     "preserve shared\n"                                // weak in ELF
                     "preserve helper\npreserve hook\n"                 // ELF provides what bitcode needs
                     "preserve keep\npreserve main\ncompile\n");
}

TEST_F(LtoDriverProgram, OptionsComeInAFixedOrder)
{
    const QStringList all = {u"-S"_s,
                             u"-disable-inlining"_s,
                             u"-O3"_s,
                             u"-O1"_s,
                             u"-fnoexceptions"_s,
                             u"-g"_s,
                             u"-opts"_s,
                             u"-x -y"_s,
                             u"-float-abi=hard"_s,
                             u"-mcpu=cortex-m0"_s,
                             u"-mcpu="_s,
                             u"-ffunction-sections"_s,
                             u"-fdata-sections"_s};
    EXPECT_EQ(run(all, {}).status, 0);
    EXPECT_EQ(log(), "version\ngenerator\ndebug 1\ncpu ''\noptions -lto-freestanding --disable-llvm-verifier "
                     "--data-sections --function-sections --float-abi=hard -no-exceptions -O1 -disable-inlining "
                     "--filetype=asm -x -y\ncompile\n");
    EXPECT_EQ(folder.read("ld"), "");
    EXPECT_EQ(run(all, {}, {}, u"new"_s).status, 0);
    EXPECT_EQ(log(), "version\nwords --data-sections --function-sections --float-abi=hard\ngenerator\ndebug 1\ncpu ''\n"
                     "options -lto-freestanding --disable-llvm-verifier -no-exceptions -O1 -disable-inlining "
                     "--filetype=asm -x -y\ncompile\n");
}

TEST_F(LtoDriverProgram, WrongUsageShowsTheUsageText)
{
    for (const QStringList &arguments : {QStringList{},
                                         {u"a"_s, u"b"_s, u"c"_s},
                                         {u"-g"_s, u"-S"_s, u"a"_s, u"b"_s, u"c"_s},
                                         {u"-g"_s, u"-S"_s, u"-O1"_s, u"-opts"_s}}) {
        const ProgramResult result = runProgram(u"ltollvm"_s, arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.error.startsWith("usage: ltollvm [options] 'LTO.dll' 'fileslistfile' 'ldfileslistfile' "
                                            "'ltobjectfile' 'keep1' .. 'keepN'\n -fdata-sections      put data"));
        EXPECT_TRUE(result.error.endsWith(" -disable-inlining    disable inlining\n"));
    }
    EXPECT_EQ(runProgram(u"ltollvm"_s, {u"-O4"_s, u"b"_s, u"c"_s, u"d"_s}).error, "failed to load -O4\n");
}

TEST_F(LtoDriverProgram, EachFailureIsOneLineAndLeavesTheOutputsAlone)
{
    folder.write("a.bc", "BC\n19a0 main\n");
    folder.write("cut.o", elfObject({"x"}).first(60));
    folder.write("name.a", "!<arch>\n" + archiveHeader("name", 1) + "x");
    folder.write("long.a", "!<arch>\n" + archiveHeader("/7", 1) + "x");
    folder.write("cut.a", "!<arch>\n" + archiveHeader("a.o/", 9) + "x");
    folder.write("thin.a", "!<thin>\n");
    const auto path = [&](const char *name) { return folder.path(name).toUtf8(); };
    struct Row
    {
        const char16_t *input, *library, *fail;
        QByteArray message;
    };
    const Row rows[] = {
        {u"none.o", u"old", u"", "cannot open " + path("none.o")},
        {u"cut.o", u"old", u"", "Error truncated ELF file:  processing " + path("cut.o")},
        {u"name.a", u"old", u"", "invalid archive file name"},
        {u"long.a", u"old", u"", "invalid long names table offset 7"},
        {u"cut.a", u"old", u"", "Error truncated archive file processing " + path("cut.a")},
        {u"thin.a", u"old", u"",
         "Error thin archive (its members are other files; make a regular one) processing " + path("thin.a")},
        {u"a.bc", u"broken", u"", QByteArray("no entry point lto_module_dispose in " FAKE_LTO "broken.so")},
        {u"a.bc", u"absent", u"", QByteArray("failed to load " FAKE_LTO "absent.so")},
        {u"a.bc", u"old", u"create", "Error cannot create LTO module processing " + path("a.bc")},
        {u"a.bc", u"new", u"create",
         "Error cannot create LTO module: the library's own reason processing " + path("a.bc")},
        {u"a.bc", u"new", u"add", "Error cannot add LTO module: the library's own reason processing " + path("a.bc")},
        {u"a.bc", u"old", u"compile", "the LTO library compiled nothing"},
        {u"a.bc", u"old", u"exit",
         QByteArray("ltollvm: the LTO library " FAKE_LTO "old.so ended the process; libraries of LLVM 13 and newer "
                    "refuse -fnoexceptions, -disable-inlining and unknown -opts")},
    };
    folder.write("object", "old");
    folder.write("ld", "old");
    for (const Row &row : rows) {
        const ProgramResult result = run({}, {QString::fromUtf16(row.input)}, {}, QString::fromUtf16(row.library),
                                         {u"FAKE_LTO_FAIL="_s + QString::fromUtf16(row.fail)});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.error, row.message + '\n');
        EXPECT_EQ(folder.read("object"), "old");
        EXPECT_EQ(folder.read("ld"), "old");
    }
    EXPECT_EQ(run({}, {QString()}).error, "cannot open " + folder.root().toUtf8() + "\n");
}

TEST_F(LtoDriverProgram, OutputsThatCannotBeWrittenAreNamed)
{
    ASSERT_TRUE(QDir().mkdir(folder.path("object")));
    EXPECT_EQ(run({}, {}).error, "cannot access " + folder.path("object").toUtf8() + '\n');
    EXPECT_FALSE(QFileInfo::exists(folder.path("ld")));
    ASSERT_TRUE(QDir().rmdir(folder.path("object")));
    ASSERT_TRUE(QDir().mkdir(folder.path("ld")));
    EXPECT_EQ(run({}, {}).error, "cannot access " + folder.path("ld").toUtf8() + '\n');
    EXPECT_EQ(folder.read("object").size(), 6) << "the object stands";
    EXPECT_EQ(runProgram(u"ltollvm"_s, {QStringLiteral(FAKE_LTO "old.so"), folder.path("no list"), u"c"_s, u"d"_s}, {},
                         {u"FAKE_LTO_LOG=/dev/null"_s})
                  .error,
              "cannot access " + folder.path("no list").toUtf8() + '\n');
}

TEST_F(LtoDriverProgram, ListLinesMayHoldQuotesAnywhereAndLongOnesAreSplit)
{
    folder.write("a.bc", "BC\n19a0 main\n");
    const QByteArray path = folder.path("a.bc").toUtf8();
    folder.write("list", path.first(3) + "\"\"" + path.mid(3) + '"'); // no line feed at the end
    const QStringList arguments = {QStringLiteral(FAKE_LTO "old.so"), folder.path("list"), folder.path("ld"),
                                   folder.path("object")};
    const QStringList environment = {u"FAKE_LTO_LOG="_s + folder.path("log")};
    EXPECT_EQ(runProgram(u"ltollvm"_s, arguments, {}, environment).status, 0);
    // A first piece of 32,767 bytes that leads to the file, then the rest as a line of its own.
    QByteArray line = path;
    while (line.size() < 32767)
        line.insert(1, "./");
    line = line.size() == 32767 ? line : line.replace(1, 2, "/"); // odd or even: a second slash fills up
    folder.write("list", line + path + '\n');
    QFile::remove(folder.path("log"));
    const ProgramResult result = runProgram(u"ltollvm"_s, arguments, {}, environment);
    EXPECT_EQ(result.status, 1) << "a path of that length is more than the system takes";
    EXPECT_EQ(result.error, "cannot open " + line.first(32767) + '\n');
    folder.write("list", "\n");
    EXPECT_EQ(runProgram(u"ltollvm"_s, arguments, {}, environment).error, "cannot open \n");
}

TEST_F(LtoDriverProgram, TracesLookUpsWhenAsked)
{
    folder.write("a.bc", "BC\n19a0 main\n400 helper\n");
    folder.write("start.o", elfObject({"helper"}, {"main"}));
    const ProgramResult result = run({}, {u"a.bc"_s, u"start.o"_s}, {}, u"old"_s, {u"LTOLLVM_TRACE=1"_s});
    EXPECT_EQ(result.error, "Found IR strong 'main' in '" + folder.path("a.bc").toUtf8() +
                                "'\nFound EXEC strong 'helper' in '" + folder.path("start.o").toUtf8() + "'\n");
}

// The library that Debian ships with clang 14.
class RealLtoLibrary : public LtoDriverProgram
{
protected:
    void SetUp() override
    {
        const QString clang = QStandardPaths::findExecutable(u"clang-14"_s);
        if (clang.isEmpty())
            GTEST_SKIP() << "clang-14 is missing";
        const QString resources = QString::fromUtf8(runProgram(clang, {u"-print-resource-dir"_s}).out.trimmed());
        library = QDir::cleanPath(resources + u"/../../libLTO.so.14"_s);
        if (!QFileInfo::exists(library))
            GTEST_SKIP() << "libLTO.so.14 is missing";
        const QString source = folder.write("a.c", "static int twice(int x) { return 2 * x; }\n"
                                                   "int table[4] = {1, 2, 3, 4};\n"
                                                   "int run(int x) { return twice(x) + table[x & 3]; }\n"
                                                   "int unused(int x) { return x - 1; }\n");
        ASSERT_EQ(runProgram(clang, {u"--target=thumbv7m-none-eabi"_s, u"-mcpu=cortex-m3"_s, u"-O1"_s, u"-flto"_s,
                                     u"-c"_s, source, u"-o"_s, folder.path("a.bc")})
                      .status,
                  0);
        folder.write("start.o", elfObject({"start"}, {"run"}));
        folder.write("list", folder.path("a.bc").toUtf8() + '\n' + folder.path("start.o").toUtf8() + '\n');
    }
    ProgramResult link(const QStringList &options)
    {
        return runProgram(u"ltollvm"_s, options + QStringList{u"-mcpu=cortex-m3"_s, library, folder.path("list"),
                                                              folder.path("ld"), folder.path("object")});
    }
    QString library;
};

TEST_F(RealLtoLibrary, KeepsWhatElfNeedsInItsOwnSections)
{
    const ProgramResult result = link({u"-O2"_s, u"-ffunction-sections"_s, u"-fdata-sections"_s});
    ASSERT_EQ(result.status, 0) << result.error.toStdString();
    ElfFile file;
    file.load(folder.path("object"));
    const ElfSymbol *run = file.symbolNamed(u"run"_s);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->binding(), STB_GLOBAL);
    EXPECT_EQ(file.sectionOfSymbol(run)->name(), u".text.run"_s);
    EXPECT_FALSE(file.symbolNamed(u"unused"_s));
    EXPECT_FALSE(file.symbolNamed(u"twice"_s));
    EXPECT_EQ(folder.read("ld"), '"' + folder.path("start.o").toUtf8() + "\"\n");
}

TEST_F(RealLtoLibrary, TellsWhoEndedTheProcessAndWhatABrokenModuleIs)
{
    const ProgramResult refused = link({u"-fnoexceptions"_s});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.error.contains("ltollvm: the LTO library " + library.toUtf8() + " ended the process"))
        << refused.error.toStdString();
    folder.write("a.bc", folder.read("a.bc").first(600));
    const ProgramResult broken = link({});
    EXPECT_EQ(broken.status, 1);
    EXPECT_TRUE(broken.error.startsWith("Error cannot create LTO module: ")) << broken.error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(folder.path("object")));
}

} // namespace
