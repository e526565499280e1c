#include "base/HException.h"
#include "toolchain/LinkerScript.h"
#include "toolchain/ToolchainFixture.h"

using namespace Qt::StringLiterals;

namespace {

class Placement : public testing::Test
{
protected:
    SectionPlacement read(const QByteArray &document, const QString &macros = {})
    {
        return SectionPlacement(SectionPlacement::readMemoryMap(folder.write("map.xml", smallMap), {}),
                                folder.write("place.xml", document), macros);
    }
    // The one section of a document with these attributes.
    PlacedSection readSection(const QByteArray &attributes, const QString &macros = {})
    {
        return read("<root><MemorySegment name=\"RAM\">\n<ProgramSection " + attributes + "/></MemorySegment></root>",
                    macros)
            .sections()
            .front();
    }
    QString error(const QByteArray &document)
    {
        try {
            read(document);
        } catch (const HException &failure) {
            return QString(failure.message()).replace(folder.root() + u'/', u""_s);
        }
        return u"none"_s;
    }
    QString script(const QByteArray &document)
    {
        return QString::fromUtf8(LinkerScript(read(document), u"Reset_Handler"_s).text());
    }

    TemporaryFolder folder;
};

// Names of the output sections in the order of the script, up to those of debug information.
QStringList outputSections(const QString &script)
{
    QStringList names;
    for (const QString &line : script.split(u'\n'))
        if (line.startsWith(u"  ."_s) && line.contains(u" : "_s) && !line.contains(u"{"_s))
            names += line.trimmed().section(u' ', 0, 0);
    return names;
}

// Placed without being asked for.
const QStringList unwindingTables = {u".ARM.extab"_s, u".ARM.exidx"_s, u".gcc_except_table"_s, u".eh_frame"_s};

TEST_F(Placement, ReadsSegments)
{
    const auto path = folder.write("map.xml", R"xml(<root>
        <define name="KB" value="1024"/>
        <Processor>
          <MemorySegment name="FLASH" start="0x08000000" size="64 * $(KB)" access="ReadOnly">
            <MemorySegment name="UPPER" start="+0x8000" size="32*$(KB)"/>
          </MemorySegment>
        </Processor>
        <MemorySegment name="nothing" start="0x1000"/>
        <ifdef name="BIG"><MemorySegment name="RAM" start="0xFFFF0000" size="$(RAM)"/></ifdef>
      </root>)xml");
    const auto segments = SectionPlacement::readMemoryMap(path, u"BIG=1;RAM=0x10000"_s);
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].size, 65536u);
    EXPECT_TRUE(segments[0].isReadOnly);
    EXPECT_EQ(segments[1].start, 0x08008000u);
    EXPECT_EQ(segments[2].start, 0xFFFF0000u) << "ends with the address space";

    const auto listed = SectionPlacement::readSegmentList(u"FLASH RX 0x08000000 0x00010000;RAM RWX 0x20000000 4096"_s);
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_TRUE(listed[0].isReadOnly && !listed[1].isReadOnly);
    EXPECT_EQ(listed[1].size, 4096u);
    for (const auto &text : {u"FLASH RX 0"_s, u"FLASH RX zz 0x100"_s, u"FLASH RX 0 0x100000000"_s, u"FLASH RX 0 0"_s})
        EXPECT_THROW(SectionPlacement::readSegmentList(text), HException) << text.toStdString();
}

TEST_F(Placement, ReadsAttributes)
{
    const PlacedSection section =
        readSection("name=\".x\" load=\"yes\" keep=\"Yes\" start=\"+0x10\" size=\"$(N:2) * 16\" alignment=\"0x20\" "
                    "inputsections=\"*(.x)\" fill=\"0xA5\" address_symbol=\"a\" end_symbol=\"b\" size_symbol=\"c\"",
                    u"N=3"_s);
    EXPECT_TRUE(section.isLoaded && section.isKept);
    EXPECT_EQ(section.start, 0x20000010u) << "counts from the segment of the memory map";
    EXPECT_EQ(section.size, 48u);
    EXPECT_EQ(section.alignment, 32u);
    EXPECT_EQ(section.fill, u"0xa5a5a5a5"_s);
    EXPECT_EQ(section.startSymbol + section.endSymbol + section.sizeSymbol, u"abc"_s);
    EXPECT_EQ(readSection("name=\".y\"").inputSections, u"*(.y .y.*)"_s);
    EXPECT_TRUE(readSection("name=\".bss\"").inputSections.contains(u"COMMON"_s));
}

TEST_F(Placement, TakesTheFirstSegmentThatTheTargetHas)
{
    const SectionPlacement placement =
        read("<root><MemorySegment name=\"CCM;RAM;FLASH\"><ProgramSection name=\".x\"/></MemorySegment></root>");
    EXPECT_EQ(placement.segments()[placement.sections().front().segment].name, u"RAM"_s);
    EXPECT_TRUE(placement.usesSegment(1) && !placement.usesSegment(0));
}

TEST_F(Placement, ImportsAndIncludes)
{
    folder.write("base.xml",
                 "<root><MemorySegment name=\"FLASH\"><ProgramSection name=\".$(P)\"/></MemorySegment></root>");
    folder.write("more.xml", "<envelope><ProgramSection name=\".more\"/>\n<ProgramSection name=\"b ad\"/></envelope>");
    const SectionPlacement placement =
        read("<root><Import filename=\"base.xml\"/><MemorySegment name=\"RAM\">"
             "<for index=\"i\" start=\"0\" end=\"2\" incr=\"1\"><ProgramSection name=\".b$(i)\"/></for>"
             "</MemorySegment></root>",
             u"P=text"_s);
    QStringList names;
    for (const PlacedSection &section : placement.sections())
        names += section.name;
    EXPECT_EQ(names, (QStringList{u".text"_s, u".b0"_s, u".b1"_s}));
    EXPECT_EQ(error("<root><MemorySegment name=\"RAM\"><include filename=\"more.xml\"/></MemorySegment></root>"),
              u"more.xml:2: error: 'b ad' is no section name"_s);
}

struct BadPlacement
{
    const char *what, *text, *message;
};
const BadPlacement badPlacements[] = {
    {"no XML", "<root><MemorySegment></root>", "place.xml:1: error: "},
    {"nothing", "", "place.xml:1: error: the document is empty or cut off"},
    {"cut off", "\n<root><MemorySegment name=\"RAM\"/>", "place.xml:2: error: <root> has no end"},
    {"no section", "<root/>", "place.xml: error: no section is placed"},
    {"unknown segment", "<root>\n<MemorySegment name=\"ROM\"/></root>",
     "place.xml:2: error: the target has no memory segment 'ROM'; it has FLASH, RAM"},
    {"no segment", "<root>\n<x/>\n<ProgramSection name=\".a\"/></root>",
     "place.xml:3: error: section outside of a memory segment"},
    {"missing import", "<root>\n<Import filename=\"none.xml\"/></root>", "place.xml:2: error: cannot open '"},
    {"preprocessor", "<root>\n<if A=\"\" B=\"\"/></root>",
     "place.xml:2: error: XmlPP::processConditionals(): one condition required for <if[not]>"},
};

TEST_F(Placement, TellsWhereADocumentIsBroken)
{
    for (const BadPlacement &row : badPlacements)
        EXPECT_TRUE(error(row.text).startsWith(QString::fromLatin1(row.message)))
            << row.what << ": " << qPrintable(error(row.text));
    EXPECT_THROW(SectionPlacement::readMemoryMap(folder.path("none.xml"), {}), HException);
    EXPECT_THROW(SectionPlacement::readMemoryMap(folder.write("empty.xml", "<root/>"), {}), HException);
    EXPECT_THROW(
        SectionPlacement::readMemoryMap(
            folder.write("m.xml", "<root><MemorySegment name=\"A\" start=\"0xFFFFFFFF\" size=\"2\"/></root>"), {}),
        HException);
}

TEST_F(Placement, TellsWhatIsWrongWithASection)
{
    struct Row
    {
        const char *attributes, *message;
    };
    const Row rows[] = {
        {"", "section without a name"},
        {"name=\".a\" alignment=\"3\"", "alignment 3 is no power of two"},
        {"name=\".a\" alignment=\"0\"", "alignment 0 is no power of two"},
        {"name=\".a\" start=\"0x1000\"", "section '.a' starts outside of segment 'RAM'"},
        {"name=\".a\" size=\"some\"", "size 'some' is no number of 32 bits"},
        {"name=\".a\" size=\"0x100000000\"", "size '0x100000000' is no number of 32 bits"},
        {"name=\".a\" size=\"$(SIZE)\"", "macro 'SIZE' is not defined"},
        {"name=\".a\" inputsections=\"*(.a\"", "inputsections '*(.a' is no list of patterns like \"*(.text .text.*)\""},
        {"name=\".a\" inputsections=\"*(.a)} x {\"",
         "inputsections '*(.a)} x {' is no list of patterns like \"*(.text .text.*)\""},
        {"name=\".a\" end_symbol=\"a b\"", "end_symbol 'a b' is no symbol name"},
        {"name=\".a\" fill=\"1\"", "a section that isn't loaded can only be filled with 0"},
        {"name=\".a\" load=\"Yes\" runin=\".b\"", "section '.a' runs in '.b', which isn't placed"},
        {"name=\".a\" runin=\".c\"/><ProgramSection name=\".c\"", "section '.a' must be loaded and '.c' must not"},
        {"name=\".a\" runoffset=\"4\"", "'runoffset' can't be placed; 'runin' names the section that this one runs in"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(error("<root><MemorySegment name=\"RAM\">\n<ProgramSection " + QByteArray(row.attributes) +
                        "/></MemorySegment></root>"),
                  u"place.xml:2: error: "_s + QString::fromLatin1(row.message));
    EXPECT_EQ(error("<root><MemorySegment name=\"RAM\"><ProgramSection name=\".a\"/>\n"
                    "<ProgramSection name=\".a\"/></MemorySegment></root>"),
              u"place.xml:2: error: section '.a' is placed a second time"_s);
}

TEST_F(Placement, WarnsOfWhatNobodyKnows)
{
    const QStringList warnings = read("<root>\n<Thing/>\n<MemorySegment name=\"RAM\">\n"
                                      "<ProgramSection name=\".a\" lod=\"Yes\"/>\n<Section/></MemorySegment></root>")
                                     .warnings();
    ASSERT_EQ(warnings.size(), 3);
    EXPECT_TRUE(warnings[0].endsWith(u"place.xml:2: warning: 'Thing' means nothing here"_s));
    EXPECT_TRUE(warnings[1].endsWith(u"place.xml:4: warning: attribute 'lod' means nothing here"_s));
    EXPECT_TRUE(warnings[2].endsWith(u"place.xml:5: warning: 'Section' means nothing here"_s));
}

TEST_F(Placement, WritesAScript)
{
    const QString text = script(smallPlacement);
    const char *const lines[] = {
        "ENTRY(Reset_Handler)",
        "  FLASH (rx) : ORIGIN = 0x08000000, LENGTH = 0x00004000\n",
        "  .vectors : ALIGN(4)\n  {\n    KEEP(*(.vectors .vectors.*))\n  } > FLASH AT> FLASH\n",
        "  } > RAM AT> FLASH\n",
        "  .bss (NOLOAD) : ALIGN(4)",
        "  __text_load_start__ = LOADADDR(.text);\n",
        "  __data_run_start__ = ADDR(.data);\n",
        "    . = MAX(., __stack_begin__ + 0x00000100);\n",
        "  __RAM_segment_end__ = 0x20001000;\n",
    };
    for (const char *line : lines)
        EXPECT_TRUE(text.contains(QString::fromLatin1(line))) << line;
    EXPECT_EQ(outputSections(text), QStringList({u".vectors"_s, u".text"_s}) + unwindingTables +
                                        QStringList({u".rodata"_s, u".data"_s, u".bss"_s, u".stack"_s}));
}

// The order of each segment holds, wherever the other place of a section is.
TEST_F(Placement, OrdersSectionsByBothPlaces)
{
    struct Row
    {
        const char *what, *flash, *ram;
        QStringList order;
    };
    const Row rows[] = {
        {"a load image between others",
         ".a .d>.d_run .b",
         ".x .d_run .y",
         {u".a"_s, u".x"_s, u".d"_s, u".y"_s, u".b"_s}},
        {"RAM first", ".d>.r .e>.s .z", ".w .r .s", {u".w"_s, u".d"_s, u".e"_s, u".z"_s}},
        {"nothing comes between the two of the thread's block",
         ".tdata>.t .sum",
         ".t .tbss .bss",
         {u".tdata"_s, u".tbss"_s, u".sum"_s, u".bss"_s}},
        {"opposite orders", ".d>.r .e>.s", ".s .r", {}},
    };
    for (const Row &row : rows) {
        QByteArray document = "<root>";
        for (const bool isFlash : {true, false}) {
            document += QByteArray("<MemorySegment name=\"") + (isFlash ? "FLASH" : "RAM") + "\">";
            for (const QByteArray &place : QByteArray(isFlash ? row.flash : row.ram).split(' ')) {
                const QList<QByteArray> names = place.split('>');
                document += "<ProgramSection name=\"" + names[0] + "\" load=\"" + (isFlash ? "Yes" : "No") + '"' +
                            (names.size() > 1 ? " runin=\"" + names[1] + '"' : QByteArray()) + "/>";
            }
            document += "</MemorySegment>";
        }
        document += "</root>";
        if (row.order.isEmpty()) {
            EXPECT_THROW(script(document), HException) << row.what;
            continue;
        }
        QStringList order = outputSections(script(document));
        order.removeIf([](const QString &name) { return unwindingTables.contains(name); });
        EXPECT_EQ(order, row.order) << row.what;
    }
}

// What a pattern names comes ahead of all the rest that another takes, though its segment is the map's last.
TEST_F(Placement, GivesAnInputToTheFirstSectionOfTheDocument)
{
    const QStringList order =
        outputSections(script("<root><MemorySegment name=\"RAM\"><ProgramSection name=\".fast\" load=\"No\" "
                              "inputsections=\"*timer.o(.bss)\"/></MemorySegment><MemorySegment name=\"FLASH\">"
                              "<ProgramSection name=\".bss\" load=\"No\"/></MemorySegment></root>"));
    EXPECT_LT(order.indexOf(u".fast"_s), order.indexOf(u".bss"_s));
    EXPECT_GE(order.indexOf(u".fast"_s), 0);
}

TEST_F(Placement, FillsTheTablesOfStartUpCode)
{
    const QString text =
        script("<root><MemorySegment name=\"FLASH\"><ProgramSection name=\".copy_table\" load=\"Yes\"/>"
               "<ProgramSection name=\".zero_table\" load=\"Yes\"/>"
               "<ProgramSection name=\".d\" load=\"Yes\" runin=\".r\"/></MemorySegment>"
               "<MemorySegment name=\"RAM\"><ProgramSection name=\".r\"/>"
               "<ProgramSection name=\".z\" fill=\"0\"/><ProgramSection name=\".n\"/>"
               "</MemorySegment></root>");
    EXPECT_TRUE(text.contains(u"    LONG(__d_load_start__) LONG(__d_start__) LONG((__d_size__ + 3) / 4 * 4)\n"_s));
    EXPECT_EQ(text.count(u"LONG("_s), 5) << "only what is filled with 0 is in the table";
    EXPECT_TRUE(text.contains(u"    LONG(__z_start__) LONG((__z_size__ + 3) / 4 * 4)\n"_s));
}

} // namespace
