#include "debug/dwarf/TestDwarf.h"
#include "support/ByteBuilder.h"
#include "support/QtPrinters.h"

using namespace Qt::StringLiterals;

namespace {

// A line table whose files are 1 "a.c" in the compilation directory and 2 "b.h" in "inc"; in version 5 also 0,
// which is a.c. minimum_instruction_length 2, line_base -3, line_range 12, opcode_base 13: special opcode
// 0x10 + n adds n to the line.
ByteBuilder lineTable(bool bigEndian, quint16 version, const ByteBuilder &program, bool defaultIsStatement = true)
{
    ByteBuilder header(bigEndian);
    header.u8(2);
    if (version >= 4)
        header.u8(1);
    header.u8(defaultIsStatement).u8(quint8(-3)).u8(12).u8(13).hex("000101010100000001000001");
    if (version < 5) {
        header.text("inc").u8(0);
        header.text("a.c").uleb(0).uleb(0).uleb(0).text("b.h").uleb(1).uleb(0).uleb(0).u8(0);
    } else {
        header.u8(1).uleb(1).uleb(DW_FORM_line_strp).uleb(2).u32(0).u32(5); // "/dir" and "inc"
        header.u8(3).uleb(1).uleb(DW_FORM_string).uleb(2).uleb(DW_FORM_udata).uleb(5).uleb(DW_FORM_data16);
        header.uleb(3);
        for (const auto &[name, directory] : {std::pair("a.c", 0), {"a.c", 0}, {"b.h", 1}})
            header.text(name).uleb(quint64(directory)).u64(0).u64(0);
    }
    ByteBuilder table(bigEndian);
    table.u16(version);
    if (version >= 5)
        table.u8(4).u8(0);
    return ByteBuilder(bigEndian).counted(table.counted(header).bytes(program.data()));
}

ByteBuilder setAddress(bool bigEndian, quint32 address)
{
    return ByteBuilder(bigEndian).u8(0).uleb(5).u8(2).u32(address);
}

// What a unit with that table has: "100 a.c:3; ..." and what was reported.
struct LineFixture
{
    LineFixture(const ByteBuilder &table, bool isExecutable = true, bool hasName = true, quint32 loadOffset = 0)
        : lines(table), bigEndian(table.bigEndian())
    {
        abbreviations.hex("011100").hex("0308").hex("1b08").hex("1017").hex("0000").u8(0);
        information.counted(
            ByteBuilder(bigEndian).u16(4).u32(0).u8(4).u8(1).text(hasName ? "a.c" : "").text("/dir").u32(0));
        lineStrings.text("/dir").text("inc");
        DwarfSections sections;
        sections.bigEndian = bigEndian;
        sections.abbreviations = abbreviations.span();
        sections.information = information.span();
        sections.lines = lines.span();
        sections.lineStrings = lineStrings.span();
        file.load(sections, loadOffset, false, false, isExecutable);
    }
    QString rows()
    {
        QStringList texts;
        for (const SourceLineRow &row : file.lineMap().rows())
            texts += u"%1 %2:%3"_s.arg(row.address, 0, 16).arg(file.lineMap().paths().text(row.file)).arg(row.line);
        return texts.join(u"; "_s);
    }

    ByteBuilder lines;
    bool bigEndian;
    ByteBuilder abbreviations{bigEndian}, information{bigEndian}, lineStrings{bigEndian};
    TestDwarfFile file;
};

TEST(DwarfLineTable, ReadsEveryVersionInBothOrders)
{
    for (const bool bigEndian : {false, true}) {
        for (const quint16 version : {2, 3, 4, 5}) {
            ByteBuilder program = setAddress(bigEndian, 0x100);
            program.u8(0x12).hex("0402").u8(0x1C).hex("000101"); // line 3; set_file 2; address + 2, line 3; end
            LineFixture f(lineTable(bigEndian, version, program));
            // The compilation directory is directory 0 in version 5, and there the others count from it.
            EXPECT_EQ(f.rows(),
                      version < 5 ? u"100 /dir/a.c:3; 102 inc/b.h:3"_s : u"100 /dir/a.c:3; 102 /dir/inc/b.h:3"_s);
            DwarfCompilationUnit &unit = f.file.units()[0];
            EXPECT_EQ(unit.fileName(0), version < 5 ? QString() : u"/dir/a.c"_s);
            EXPECT_EQ(unit.fileName(2), version < 5 ? u"inc/b.h"_s : u"/dir/inc/b.h"_s);
            EXPECT_EQ(unit.fileName(3), QString());
            EXPECT_TRUE(f.file.errors.isEmpty());
        }
    }
}

TEST(DwarfLineTable, RunsEachOpcode)
{
    struct Row
    {
        const char *program; // behind set_address 0x100
        const char *rows;
        const char *error = "";
    };
    const Row rows[] = {
        {"01", "100 /dir/a.c:1"},
        {"020a01", "114 /dir/a.c:1"},
        {"030701", "100 /dir/a.c:8"},
        {"037f01", ""}, // line 0
        {"040201", "100 inc/b.h:1"},
        {"040901", ""}, // no such file
        {"0405"
         "0401"
         "01",
         "100 /dir/a.c:1"},
        {"0509070a0b0c0301", "100 /dir/a.c:1"}, // column, basic block, prologue end, epilogue begin, isa
        {"060601", "100 /dir/a.c:1"},
        {"0601", ""}, // no statement
        {"0801", "128 /dir/a.c:1"},
        {"09030001", "103 /dir/a.c:1"},
        {"01"
         "000101"
         "01",
         "100 /dir/a.c:1"}, // the next sequence begins at 0, unset
        {"000803632e6800000000"
         "040301",
         "100 /dir/c.h:1"},               // define_file
        {"0002040701", "100 /dir/a.c:1"}, // discriminator
        {"00039911"
         "2201",
         "100 /dir/a.c:1", "[0x00000053] unknown DW_EXTENDED_OPCODE 153\n"},
        {"0000"
         "01",
         "100 /dir/a.c:1"},
        {"ff01", ""}, // 242 = 20 * 12 + 2: line 0, and again by the copy
        {"01"
         "02",
         "100 /dir/a.c:1"}, // cut short
    };
    for (const Row &row : rows) {
        LineFixture f(lineTable(false, 3, setAddress(false, 0x100).hex(row.program)));
        QString expected = QString::fromLatin1(row.rows);
        if (QByteArray(row.program) == "ff01")
            expected.clear(); // line 0 twice
        EXPECT_EQ(f.rows(), expected) << row.program;
        if (*row.error) {
            EXPECT_EQ(f.file.errors.size(), 1) << row.program;
            EXPECT_TRUE(f.file.errors.value(0).endsWith(u"unknown DW_EXTENDED_OPCODE 153\n"_s))
                << f.file.errors.value(0).toStdString();
        } else {
            EXPECT_TRUE(f.file.errors.isEmpty()) << row.program;
        }
    }
}

TEST(DwarfLineTable, DropsWhatTheLinkerRemoved)
{
    ByteBuilder program = setAddress(false, 0);
    program.u8(0x12).u8(0x1E).hex("000101");
    program.bytes(setAddress(false, 0x100).data()).u8(0x12).hex("000101");
    EXPECT_EQ(LineFixture(lineTable(false, 3, program)).rows(), u"100 /dir/a.c:3"_s);
    EXPECT_EQ(LineFixture(lineTable(false, 3, program), false).rows(), u"0 /dir/a.c:3; 2 /dir/a.c:5; 100 /dir/a.c:3"_s);
    EXPECT_EQ(LineFixture(lineTable(false, 3, program), true, true, 0x1000).rows(), u"1100 /dir/a.c:3"_s);
    EXPECT_EQ(LineFixture(lineTable(false, 3, program), true, false).rows(), QString()) << "a unit without a root";
    EXPECT_EQ(LineFixture(lineTable(false, 3, program, false)).rows(), QString()) << "no statements";
}

TEST(DwarfLineTable, GivesRangesToUnitsWithout)
{
    // Neither .debug_aranges nor the root entry says where the unit's code is; the rows do.
    ByteBuilder program = setAddress(true, 0x100);
    program.u8(0x12).u8(0x1E).hex("000101");
    LineFixture f(lineTable(true, 3, program));
    EXPECT_EQ(f.file.unitsAt(0x100).size(), 1u);
    EXPECT_EQ(f.file.unitsAt(0x102).size(), 1u);
    EXPECT_EQ(f.file.unitsAt(0x103).size(), 0u);
    const auto position = f.file.symbolicLocationAt(0x100).position;
    ASSERT_TRUE(position);
    EXPECT_EQ(position->line, 3);
    EXPECT_EQ(position->end, 0x101u);
    EXPECT_FALSE(f.file.symbolicLocationAt(0x101).position) << "outside of functions only rows themselves are found";
}

TEST(DwarfLineTable, ReportsBadTables)
{
    ByteBuilder table = lineTable(false, 3, setAddress(false, 0x100).u8(0x12));
    QByteArray noRange = table.data();
    noRange[13] = 0;
    LineFixture zero(ByteBuilder(false).bytes(noRange));
    EXPECT_EQ(zero.rows(), QString());
    EXPECT_EQ(zero.file.errors, QStringList(u"line_range 0 in the line table of unit 0x0\n"_s));
    LineFixture tooLong(ByteBuilder(false).u32(0x1000).bytes(table.data().sliced(4)));
    EXPECT_EQ(tooLong.rows(), QString());
    EXPECT_EQ(tooLong.file.errors, QStringList(u"bad line table 0x0 of the unit at 0x0\n"_s));
}

} // namespace
