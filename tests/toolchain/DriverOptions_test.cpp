#include "toolchain/DriverOptions.h"

#include "base/HException.h"
#include "toolchain/CLibrary.h"
#include "toolchain/ToolchainFixture.h"

using namespace Qt::StringLiterals;

namespace {

QString optionError(const QString &line)
{
    try {
        DriverOptions::parse(line.split(u' ', Qt::SkipEmptyParts));
    } catch (const HException &error) {
        return error.message();
    }
    return QString();
}

TEST(DriverOptions, ReadsTheLineOfACompilation)
{
    const DriverOptions options =
        DriverOptions::parse({u"-v"_s, u"-we"_s, u"-c"_s, u"-xc++"_s, u"src/a b.cpp"_s, u"-exceptions"_s, u"-rtti"_s,
                              u"-g"_s, u"-Iinclude"_s, u"-DX=1;2"_s, u"-UY"_s, u"-depend"_s, u"Obj/a.d"_s,
                              u"-Rc,.fast"_s, u"-Wc,-Os"_s, u"-Wc,-mcpu=cortex-m3"_s, u"-o"_s, u"Obj/a.o"_s});
    EXPECT_TRUE(options.verbose && options.warningsAsErrors && options.exceptions && options.rtti && options.debug);
    EXPECT_FALSE(options.suppressWarnings);
    EXPECT_EQ(options.action, DriverOptions::Action::Compile);
    EXPECT_EQ(options.language, DriverOptions::Language::Cpp);
    EXPECT_EQ(options.inputs, QStringList{u"src/a b.cpp"_s});
    EXPECT_EQ(options.preprocessor, (QStringList{u"-Iinclude"_s, u"-DX=1;2"_s, u"-UY"_s}));
    EXPECT_EQ(options.compilerOptions, (QStringList{u"-Os"_s, u"-mcpu=cortex-m3"_s}));
    EXPECT_EQ(options.dependencyFile, u"Obj/a.d"_s);
    EXPECT_EQ(options.codeSection, u".fast"_s);
    EXPECT_EQ(options.output, u"Obj/a.o"_s);
}

TEST(DriverOptions, ReadsTheLineOfALink)
{
    const DriverOptions options = DriverOptions::parse({u"-w"_s,
                                                        u"-inputfiles"_s,
                                                        u"a.ind"_s,
                                                        u"-Tmy.ld"_s,
                                                        u"-memorymap"_s,
                                                        u"m.xml"_s,
                                                        u"-memorymapmacros"_s,
                                                        u"A=1;B=2"_s,
                                                        u"-placementsegments"_s,
                                                        u"RAM RWX 0 0x100"_s,
                                                        u"-placement"_s,
                                                        u"p.xml"_s,
                                                        u"-placementmacros"_s,
                                                        u"C=3"_s,
                                                        u"-printf=llpw"_s,
                                                        u"-scanf=dc"_s,
                                                        u"-Fhex"_s,
                                                        u"-l-"_s,
                                                        u"-M"_s,
                                                        u"-dstart=0x10"_s,
                                                        u"-Kvectors"_s,
                                                        u"-Wl,-e,main"_s,
                                                        u"-patch"_s,
                                                        u"sign x"_s,
                                                        u"-o"_s,
                                                        u"a.elf"_s});
    EXPECT_EQ(options.action, DriverOptions::Action::Link);
    EXPECT_EQ(options.inputsFile, u"a.ind"_s);
    EXPECT_EQ(options.linkerScript, u"my.ld"_s);
    EXPECT_EQ(options.memoryMap + options.memoryMapMacros, u"m.xmlA=1;B=2"_s);
    EXPECT_EQ(options.placement + options.placementMacros, u"p.xmlC=3"_s);
    EXPECT_EQ(options.placementSegments, u"RAM RWX 0 0x100"_s);
    EXPECT_EQ(options.printfCode + options.scanfCode, u"llpwdc"_s);
    EXPECT_EQ(options.outputFormat, u"hex"_s);
    EXPECT_TRUE(options.map && options.suppressWarnings);
    EXPECT_FALSE(options.standardLibraries);
    EXPECT_EQ(options.symbolDefinitions, QStringList{u"start=0x10"_s});
    EXPECT_EQ(options.keepSymbols, QStringList{u"vectors"_s});
    EXPECT_EQ(options.linkerOptions, QStringList{u"-e,main"_s});
    EXPECT_EQ(options.patchCommand, u"sign x"_s);
}

// "-depend" takes a file, "-depend=1" defines a symbol "epend".
TEST(DriverOptions, TellsWholeWordsFromPrefixes)
{
    const DriverOptions options = DriverOptions::parse({u"a.o"_s, u"-depend=1"_s, u"-o"_s, u"x"_s});
    EXPECT_EQ(options.symbolDefinitions, QStringList{u"epend=1"_s});
    EXPECT_EQ(options.dependencyFile, QString());
    EXPECT_EQ(DriverOptions::parse({u"-c"_s, u"-I"_s, u"dir"_s, u"a.c"_s}).preprocessor, QStringList{u"-Idir"_s});
}

TEST(DriverOptions, TellsWhatIsWrong)
{
    struct Row
    {
        const char *line, *message;
    };
    const Row rows[] = {
        {"-c a.c -O2", "unknown option '-O2'; -Wc, -Wa, and -Wl, hand options to the tools"},
        {"-c a.c -o", "option '-o' needs FILE"},
        {"-c a.c b.c", "one source at a time, not 'a.c' and 'b.c'"},
        {"-c", "no input files"},
        {"a.o", "no output: -o FILE names it"},
        {"-ar -o x", "no input files"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(optionError(QString::fromLatin1(row.line)), QString::fromLatin1(row.message));
}

TEST(CLibrary, MapsTheCodes)
{
    struct Row
    {
        const char *print, *scan;
        bool isFull;
        const char *symbols;
    };
    const Row rows[] = {
        {"i", "i", false, ""},
        {"l", "lc", false, ""},
        {"lp", "l", false, ""},
        {"lw", "l", true, ""},
        {"ll", "l", true, ""},
        {"l", "ll", true, ""},
        {"d", "l", false, "_printf_float"},
        {"f", "dc", false, "_printf_float _scanf_float"},
        {"dll", "d", true, ""},
        {"", "", false, ""},
    };
    for (const Row &row : rows) {
        const CLibrary library = CLibrary::forCodes(QString::fromLatin1(row.print), QString::fromLatin1(row.scan));
        EXPECT_EQ(library.isFull, row.isFull) << row.print << ' ' << row.scan;
        EXPECT_EQ(library.wantedSymbols().join(u' '), QString::fromLatin1(row.symbols)) << row.print << ' ' << row.scan;
    }
    EXPECT_THROW(CLibrary::forCodes(u"x"_s, u"l"_s), HException);
    EXPECT_THROW(CLibrary::forCodes(u"l"_s, u"lp"_s), HException);
}

} // namespace
