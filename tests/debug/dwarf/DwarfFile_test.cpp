#include "debug/dwarf/TestDwarf.h"
#include "support/ByteBuilder.h"
#include "support/QtPrinters.h"

using namespace Qt::StringLiterals;

namespace {

// Sections put together by a test, and the file over them.
struct DwarfFixture
{
    explicit DwarfFixture(bool order) : bigEndian(order) {}

    ByteBuilder section() const { return ByteBuilder(bigEndian); }
    // A unit of .debug_info with its header.
    void addUnit(quint16 version, const ByteBuilder &entries, quint32 abbreviationOffset = 0, quint8 unitType = 1)
    {
        ByteBuilder unit(bigEndian);
        unit.u16(version);
        if (version >= 5)
            unit.u8(unitType).u8(4).u32(abbreviationOffset);
        else
            unit.u32(abbreviationOffset).u8(4);
        information.counted(unit.bytes(entries.data()));
    }
    TestDwarfFile &load(bool ignoreAranges = false, bool isExecutable = true, quint32 loadOffset = 0)
    {
        DwarfSections sections;
        sections.bigEndian = bigEndian;
        sections.abbreviations = abbreviations.span();
        sections.addresses = addresses.span();
        sections.addressRanges = addressRanges.span();
        sections.information = information.span();
        sections.lines = lines.span();
        sections.lineStrings = lineStrings.span();
        sections.ranges = ranges.span();
        sections.rangeLists = rangeLists.span();
        sections.stringOffsets = stringOffsets.span();
        sections.strings = strings.span();
        sections.types = types.span();
        file.load(sections, loadOffset, ignoreAranges, false, isExecutable);
        return file;
    }
    // An abbreviation: code, tag, children, then pairs.
    void abbreviation(quint32 code, quint32 tag, bool hasChildren,
                      std::initializer_list<std::pair<quint32, quint32>> attributes)
    {
        abbreviations.uleb(code).uleb(tag).u8(hasChildren);
        for (const auto &[name, form] : attributes) {
            abbreviations.uleb(name).uleb(form);
            if (form == DW_FORM_implicit_const)
                abbreviations.sleb(-7);
        }
        abbreviations.u16(0);
    }

    bool bigEndian;
    ByteBuilder abbreviations{bigEndian}, addresses{bigEndian}, addressRanges{bigEndian}, information{bigEndian},
        lines{bigEndian}, lineStrings{bigEndian}, ranges{bigEndian}, rangeLists{bigEndian}, stringOffsets{bigEndian},
        strings{bigEndian}, types{bigEndian};
    TestDwarfFile file;
};

TEST(DwarfFile, ReadsEachForm)
{
    struct Row
    {
        quint32 form;
        const char *little, *big; // the bytes in the two orders
        DwarfAttribute::ValueClass valueClass;
        quint64 value;
        const char *bytes = ""; // of blocks and strings
    };
    using enum DwarfAttribute::ValueClass;
    const Row rows[] = {
        {DW_FORM_addr, "04030201", "01020304", Number, 0x01020304},
        {DW_FORM_data1, "ff", "ff", Number, 0xFF},
        {DW_FORM_data2, "0201", "0102", Number, 0x0102},
        {DW_FORM_data4, "04030201", "01020304", Number, 0x01020304},
        {DW_FORM_data8, "0807060504030201", "0102030405060708", Number, 0x0102030405060708},
        {DW_FORM_flag_present, "", "", Number, 1},
        {DW_FORM_sdata, "7f", "7f", SignedNumber, ~quint64(0)},
        {DW_FORM_udata, "8001", "8001", Number, 128},
        {DW_FORM_implicit_const, "", "", SignedNumber, quint64(-7)},
        {DW_FORM_block1, "024142", "024142", Block, 2, "4142"},
        {DW_FORM_block2, "020041ff", "000241ff", Block, 2, "41ff"},
        {DW_FORM_block4, "0100000041", "0000000141", Block, 1, "41"},
        {DW_FORM_exprloc, "03112233", "03112233", Block, 3, "112233"},
        {DW_FORM_data16, "00112233445566778899aabbccddeeff", "00112233445566778899aabbccddeeff", Block, 16,
         "00112233445566778899aabbccddeeff"},
        {DW_FORM_ref1, "0b", "0b", Reference, 11},
        {DW_FORM_ref_udata, "8101", "8101", Reference, 129},
        {DW_FORM_sec_offset, "04030201", "01020304", Reference, 0x01020304},
        {DW_FORM_ref_sig8, "0807060504030201", "0102030405060708", Number, 0x0102030405060708},
        {DW_FORM_string, "616200", "616200", String, 2, "6162"},
        {DW_FORM_strp, "03000000", "00000003", String, 3, "646566"},
        {DW_FORM_strp, "00010000", "00000100", String, 0}, // outside
        {DW_FORM_line_strp, "00000000", "00000000", String, 1, "4c"},
        {DW_FORM_strx, "01", "01", String, 3, "646566"},
        {DW_FORM_strx1, "00", "00", String, 2, "6162"},
        {DW_FORM_strx3, "010000", "000001", String, 3, "646566"},
        {DW_FORM_strx4, "00000040", "40000000", String, 0}, // outside
        {DW_FORM_addrx, "01", "01", Number, 0x2000},
        {DW_FORM_addrx2, "0000", "0000", Number, 0x1000},
        {DW_FORM_addrx4, "ffffffff", "ffffffff", Number, 0},
        {DW_FORM_rnglistx, "00", "00", Reference, 16},
        {DW_FORM_strp_sup, "01000000", "00000001", String, 0},
        {DW_FORM_indirect, "0b05", "0b05", Number, 5},
        {0x7E, "", "", Number, 0}, // unknown: no bytes
    };
    for (const bool bigEndian : {false, true}) {
        for (const Row &row : rows) {
            DwarfFixture f(bigEndian);
            f.strings.text("ab").text("def");
            f.lineStrings.text("L");
            f.stringOffsets.u32(12).u16(5).u16(0).u32(0).u32(3);
            f.addresses.u32(12).u16(5).u8(4).u8(0).u32(0x1000).u32(0x2000);
            f.rangeLists.u32(13).u16(5).u8(4).u8(0).u32(1).u32(4).u8(0);
            f.abbreviation(1, DW_TAG_compile_unit, false,
                           {{DW_AT_name, DW_FORM_string}, {0x2001, row.form}, {0x2002, DW_FORM_data1}});
            f.addUnit(5, f.section().u8(1).text("u").hex(bigEndian ? row.big : row.little).u8(0x77));
            DwarfFile &file = f.load();
            const auto root = file.units().at(0).rootEntry();
            const auto attribute = root.attribute(0x2001);
            ASSERT_TRUE(attribute) << row.form;
            EXPECT_EQ(attribute->valueClass, row.valueClass) << row.form;
            EXPECT_EQ(attribute->value, row.value) << row.form;
            if (attribute->valueClass == Block || attribute->valueClass == String) {
                const QByteArray bytes(reinterpret_cast<const char *>(attribute->data), qsizetype(attribute->value));
                EXPECT_EQ(bytes.toHex(), QByteArray(row.bytes)) << row.form;
            }
            EXPECT_EQ(root.number(0x2002), 0x77) << "what follows form " << row.form;
            EXPECT_EQ(file.units()[0].entryCount(), 1u) << row.form;
            const bool isSupplementary = row.form == DW_FORM_strp_sup;
            EXPECT_EQ(f.file.errors.join(QString()),
                      row.form == 0x7E ? u"126 unhandled DW_FORM\n"_s
                      : isSupplementary
                          ? u"DW_FORM_strp_sup and the like refer to a supplementary file, which isn't read\n"_s
                          : QString());
        }
    }
}

// unit "u" { namespace ns { class C (decl run); int type }, subprogram definition of run, variable at 0x20000000 }
void buildProgram(DwarfFixture &f, quint16 version = 4)
{
    f.abbreviation(1, DW_TAG_compile_unit, true,
                   {{DW_AT_name, DW_FORM_string},
                    {DW_AT_low_pc, DW_FORM_addr},
                    {DW_AT_high_pc, DW_FORM_data4},
                    {DW_AT_stmt_list, DW_FORM_sec_offset}});
    f.abbreviation(2, DW_TAG_namespace, true, {{DW_AT_name, DW_FORM_string}});
    f.abbreviation(3, DW_TAG_class_type, true, {{DW_AT_name, DW_FORM_string}});
    f.abbreviation(4, DW_TAG_subprogram, false,
                   {{DW_AT_name, DW_FORM_string},
                    {DW_AT_external, DW_FORM_flag_present},
                    {DW_AT_declaration, DW_FORM_flag_present},
                    {DW_AT_type, DW_FORM_ref1}});
    f.abbreviation(5, DW_TAG_base_type, false, {{DW_AT_name, DW_FORM_string}});
    f.abbreviation(6, DW_TAG_subprogram, false,
                   {{DW_AT_specification, DW_FORM_ref1}, {DW_AT_low_pc, DW_FORM_addr}, {DW_AT_high_pc, DW_FORM_data2}});
    f.abbreviation(7, DW_TAG_subprogram, false,
                   {{DW_AT_name, DW_FORM_string}, {DW_AT_low_pc, DW_FORM_addr}, {DW_AT_high_pc, DW_FORM_addr}});
    f.abbreviation(
        8, DW_TAG_variable, false,
        {{DW_AT_name, DW_FORM_string}, {DW_AT_external, DW_FORM_flag_present}, {DW_AT_location, DW_FORM_block1}});
    ByteBuilder entries = f.section();
    const quint32 base = version >= 5 ? 12 : 11;
    entries.u8(1).text("u").u32(0x1000).u32(0x100).u32(0);
    entries.u8(2).text("ns");
    entries.u8(3).text("C");
    const quint32 declaration = base + quint32(entries.size());
    const quint32 type = declaration + 7;
    entries.u8(4).text("run").u8(type).u8(0);
    entries.u8(5).text("int").u8(0);
    entries.u8(6).u8(declaration).u32(0x1010).u16(0x20);
    entries.u8(7).text("asm").u32(0x1041).u32(0x1051); // Thumb: marked by bit 0
    entries.u8(8).text("v").u8(5).u8(3).u32(0x20000000);
    f.addUnit(version, entries.u8(0));
}

TEST(DwarfFile, BuildsTreesAndFindsByAddress)
{
    for (const bool bigEndian : {false, true}) {
        for (const quint16 version : {2, 3, 4, 5}) {
            DwarfFixture f(bigEndian);
            buildProgram(f, version);
            TestDwarfFile &file = f.load(false, true, 0x100000);
            DwarfCompilationUnit &unit = file.units().at(0);
            EXPECT_EQ(unit.entryCount(), 8u);
            const auto space = unit.rootEntry().child();
            EXPECT_EQ(space.tag(), DW_TAG_namespace);
            EXPECT_EQ(space.parent(), unit.rootEntry());
            const auto declaration = space.child().child();
            EXPECT_EQ(declaration.name(), u"run"_s);
            EXPECT_EQ(declaration.target(DW_AT_type).name(), u"int"_s);
            EXPECT_EQ(space.child().sibling().qualifiedName(), u"ns::int"_s);
            EXPECT_FALSE(space.child().sibling().sibling());
            EXPECT_EQ(unit.entryAt(declaration.offset()), declaration);
            EXPECT_FALSE(unit.entryAt(declaration.offset() + 1));
            EXPECT_EQ(file.entryAtGlobalOffset(declaration.offset()), declaration);

            const auto run = file.subprogramAt(0x101010);
            EXPECT_EQ(run.origin(), declaration);
            EXPECT_EQ(run.name(), u"run"_s) << "from its declaration";
            EXPECT_EQ(file.subprogramAt(0x10102F), run);
            EXPECT_FALSE(file.subprogramAt(0x101030)) << "the high pc is outside";
            EXPECT_FALSE(file.subprogramAt(0x1010));
            EXPECT_EQ(file.subprogramAt(0x101040).name(), u"asm"_s);
            EXPECT_FALSE(file.subprogramAt(0x101050));
            EXPECT_EQ(file.variableAt(0x20100000).name(), u"v"_s);
            const SymbolicLocation location = file.symbolicLocationAt(0x101012);
            EXPECT_EQ(location.function, u"C::run"_s) << "defined outside of its class";
            EXPECT_EQ(location.type, u"int"_s);
            EXPECT_EQ(file.symbolicLocationAt(0x101040).type, u"void"_s);
        }
    }
}

TEST(DwarfFile, FindsByName)
{
    DwarfFixture f(false);
    buildProgram(f);
    TestDwarfFile &file = f.load();
    EXPECT_EQ(file.findType(u"ns::C"_s).tag(), DW_TAG_class_type);
    EXPECT_EQ(file.findType(u"C"_s), file.findType(u"ns::C"_s)) << "by its bare name";
    EXPECT_FALSE(file.findType(u"other::C"_s));
    EXPECT_FALSE(file.findType(u"v"_s));
    EXPECT_EQ(file.publicEntries(u"v"_s).size(), 1u);
    EXPECT_EQ(file.publicEntries(u"run"_s).size(), 2u) << "declaration and definition";
    EXPECT_TRUE(file.publicEntries(u"asm"_s).empty()) << "not external";
    EXPECT_EQ(file.globalVariables(u"v"_s).size(), 1u);
    QStringList names, types;
    for (const DwarfPublicName &name : file.publicNames())
        names += name.name;
    for (const DwarfPublicName &name : file.publicTypes())
        types += name.name;
    EXPECT_EQ(names, (QStringList{u"run"_s, u"run"_s, u"v"_s}));
    EXPECT_EQ(types, (QStringList{u"ns::C"_s, u"ns::int"_s}));
    DwarfCompilationUnit &unit = file.units()[0];
    EXPECT_TRUE(unit.hasNamespace("ns"));
    EXPECT_TRUE(unit.hasNamePrefix("in"));
    EXPECT_FALSE(unit.hasNamePrefix("inx"));
    EXPECT_EQ(unit.typeNamed("int").tag(), DW_TAG_base_type);
    EXPECT_FALSE(unit.typeNamed("run"));
}

TEST(DwarfFile, TakesRangesFromWhereTheyAre)
{
    // .debug_aranges names the unit: its own ranges don't count.
    DwarfFixture f(true);
    buildProgram(f);
    f.addressRanges.counted(
        f.section().u16(2).u32(0).u8(4).u8(0).u32(0).u32(0).u32(8).u32(0x1000).u32(0x20).u32(0).u32(0));
    EXPECT_TRUE(f.load().subprogramAt(0x1010));
    EXPECT_FALSE(f.file.subprogramAt(0x1020));
    DwarfFixture ignoring(true);
    buildProgram(ignoring);
    ignoring.addressRanges = f.addressRanges;
    EXPECT_TRUE(ignoring.load(true).subprogramAt(0x1020));

    // Lists: base selection, pairs that are empty, the end at a pair of zeros.
    DwarfFixture lists(false);
    lists.abbreviation(
        1, DW_TAG_compile_unit, true,
        {{DW_AT_name, DW_FORM_string}, {DW_AT_ranges, DW_FORM_sec_offset}, {DW_AT_low_pc, DW_FORM_addr}});
    lists.addUnit(4, lists.section().u8(1).text("a").u32(8).u32(0x500));
    lists.addUnit(5, lists.section().u8(1).text("b").u32(12).u32(0x500));
    lists.ranges.u64(0).u32(0).u32(0x10).u32(0x20).u32(0x20).u32(~0u).u32(0x1000).u32(4).u32(8).u64(0).u32(1).u32(2);
    lists.addresses.u64(0).u32(0x4000).u32(0x4010);
    lists.rangeLists.bytes(QByteArray(12, '\0'));
    lists.rangeLists.u8(4).uleb(0).uleb(0x10);                 // offset_pair from the low pc
    lists.rangeLists.u8(5).u32(0x2000).u8(4).uleb(1).uleb(3);  // base_address
    lists.rangeLists.u8(1).uleb(1).u8(4).uleb(0).uleb(1);      // base_addressx
    lists.rangeLists.u8(2).uleb(0).uleb(1);                    // startx_endx
    lists.rangeLists.u8(3).uleb(0).uleb(5);                    // startx_length
    lists.rangeLists.u8(6).u32(0x6000).u32(0x6001);            // start_end
    lists.rangeLists.u8(7).u32(0x7000).uleb(0x80).u8(0).u8(7); // start_length, end_of_list
    TestDwarfFile &file = lists.load();
    EXPECT_EQ(file.units()[0].ranges(), (std::vector<DwarfAddressRange>{{0x500, 0x510}, {0x1004, 0x1008}}));
    EXPECT_EQ(file.units()[1].ranges(), (std::vector<DwarfAddressRange>{{0x500, 0x510},
                                                                        {0x2001, 0x2003},
                                                                        {0x4010, 0x4011},
                                                                        {0x4000, 0x4010},
                                                                        {0x4000, 0x4005},
                                                                        {0x6000, 0x6001},
                                                                        {0x7000, 0x7080}}));
    EXPECT_TRUE(file.errors.isEmpty());
}

TEST(DwarfFile, FollowsSignaturesIntoTypeUnits)
{
    for (const bool isVersion5 : {false, true}) {
        DwarfFixture f(false);
        f.abbreviation(1, DW_TAG_compile_unit, true, {{DW_AT_name, DW_FORM_string}});
        f.abbreviation(2, DW_TAG_variable, false, {{DW_AT_name, DW_FORM_string}, {DW_AT_type, DW_FORM_ref_sig8}});
        f.abbreviation(3, DW_TAG_structure_type, false,
                       {{DW_AT_declaration, DW_FORM_flag_present}, {DW_AT_signature, DW_FORM_ref_sig8}});
        f.abbreviation(4, DW_TAG_type_unit, true, {{DW_AT_language, DW_FORM_data1}});
        f.abbreviation(5, DW_TAG_namespace, true, {{DW_AT_name, DW_FORM_string}});
        f.abbreviation(6, DW_TAG_structure_type, false,
                       {{DW_AT_name, DW_FORM_string}, {DW_AT_byte_size, DW_FORM_data1}});
        f.addUnit(isVersion5 ? 5 : 4, f.section().u8(1).text("u").u8(2).text("v").u64(0xABCD).u8(3).u64(0xABCD).u8(0));
        const quint32 headerSize = isVersion5 ? 24 : 23;
        ByteBuilder unit = f.section();
        unit.u16(isVersion5 ? 5 : 4);
        if (isVersion5)
            unit.u8(2).u8(4).u32(0);
        else
            unit.u32(0).u8(4);
        unit.u64(0xABCD).u32(headerSize + 2 + 4).u8(4).u8(4).u8(5).text("ns").u8(6).text("S").u8(12).u8(0).u8(0);
        (isVersion5 ? f.information : f.types).counted(unit);
        TestDwarfFile &file = f.load();
        ASSERT_EQ(file.typeUnits().size(), 1u);
        const auto variable = file.units()[0].rootEntry().child();
        const auto type = variable.target(DW_AT_type);
        EXPECT_EQ(type.tag(), DW_TAG_structure_type);
        EXPECT_EQ(type, file.typeUnits()[0]->tree());
        EXPECT_EQ(type.qualifiedName(), u"ns::S"_s);
        EXPECT_EQ(file.definitionOf(variable.sibling()), type);
        EXPECT_EQ(file.findType(u"ns::S"_s), type);
        EXPECT_FALSE(file.typeUnitOf(1));
    }
}

TEST(DwarfFile, ReportsAndGoesOn)
{
    DwarfFixture unknown(false);
    unknown.abbreviation(1, DW_TAG_compile_unit, true, {{DW_AT_name, DW_FORM_string}});
    unknown.abbreviation(2, DW_TAG_lexical_block, true, {});
    unknown.addUnit(4, unknown.section().u8(1).text("u").u8(2).u8(9).u8(2).u8(0).u8(0));
    unknown.addUnit(4, unknown.section().u8(1).text("u"), 0x1000);
    unknown.addUnit(4, unknown.section().u8(1).text(""));
    unknown.addUnit(4, unknown.section().u8(2).u8(0));
    unknown.information.u32(0x100).u16(4);
    TestDwarfFile &file = unknown.load();
    ASSERT_EQ(file.units().size(), 4u);
    EXPECT_EQ(file.units()[0].entryCount(), 3u) << "the level ends, what encloses it goes on";
    EXPECT_FALSE(file.units()[1].rootEntry()) << "no abbreviations there";
    EXPECT_FALSE(file.units()[2].rootEntry()) << "no name";
    EXPECT_FALSE(file.units()[3].rootEntry()) << "no compile unit";
    EXPECT_EQ(file.units()[3].tree().tag(), DW_TAG_lexical_block) << "but what is there can be read";
    EXPECT_EQ(file.errors, (QStringList{u"the unit at 0x3b runs past the end of its section\n"_s,
                                        u"Could find abbreviation 0x9 offset 0xf\n"_s}));

    DwarfFixture split(false);
    split.abbreviation(1, DW_TAG_skeleton_unit, false, {{DW_AT_dwo_name, DW_FORM_string}});
    split.addUnit(5, split.section().u64(0x1234).u8(1).text("main.dwo"), 0, DW_UT_skeleton);
    split.load().lineMap();
    EXPECT_EQ(split.file.errors.join(QString()),
              u"split DWARF: the unit at 0x0 has its debug information in \"main.dwo\", which isn't read\n"_s);

    DwarfFixture empty(false);
    EXPECT_FALSE(empty.load().subprogramAt(0));
    EXPECT_FALSE(empty.file.symbolicLocationAt(0).position);
    EXPECT_FALSE(empty.file.findType(u"x"_s));
}

TEST(DwarfFile, BoundsOriginsThatRunInCircles)
{
    DwarfFixture f(false);
    f.abbreviation(1, DW_TAG_compile_unit, true, {{DW_AT_name, DW_FORM_string}});
    f.abbreviation(2, DW_TAG_subprogram, false, {{DW_AT_specification, DW_FORM_ref1}});
    f.addUnit(4, f.section().u8(1).text("u").u8(2).u8(16).u8(2).u8(14).u8(0));
    const auto entry = f.load().units()[0].rootEntry().child();
    EXPECT_EQ(entry.origin().origin(), entry);
    EXPECT_TRUE(entry.name().isEmpty());
    EXPECT_FALSE(entry.enclosingClass());
    EXPECT_TRUE(f.file.publicEntries(u"x"_s).empty());
}

TEST(DwarfFile, MakesEntriesOfItsOwn)
{
    DwarfFile file;
    const auto word = file.makeEntry(
        DW_TAG_base_type, {DwarfAttribute::ofText(DW_AT_name, "int"), DwarfAttribute::ofNumber(DW_AT_byte_size, 4)});
    const auto bound = file.makeEntry(DW_TAG_subrange_type, {DwarfAttribute::ofNumber(DW_AT_upper_bound, 9)});
    const auto other = file.makeEntry(DW_TAG_subrange_type, {});
    const auto array = file.makeEntry(DW_TAG_array_type, {DwarfAttribute::ofEntry(DW_AT_type, word)}, {bound, other});
    EXPECT_EQ(array.target(DW_AT_type).name(), u"int"_s);
    EXPECT_EQ(array.child().number(DW_AT_upper_bound), 9);
    EXPECT_EQ(array.child().sibling(), other);
    EXPECT_EQ(other.parent(), array);
    EXPECT_FALSE(word.parent() || word.child() || other.sibling() || word.has(DW_AT_type));
}

TEST(DwarfFile, SurvivesEveryPrefixAndManyBitFlips)
{
    for (const quint16 version : {4, 5}) {
        DwarfFixture whole(true);
        buildProgram(whole, version);
        whole.lines.hex("0000003a000200000018010101fb0e0d000101010100000001000001"
                        "00612e6300000000"
                        "0000050200001010"
                        "16"
                        "4b"
                        "0210"
                        "000101");
        for (qsizetype bit = 0; bit < whole.information.size() * 8; bit += 5) {
            for (ByteBuilder DwarfFixture::*section :
                 {&DwarfFixture::information, &DwarfFixture::abbreviations, &DwarfFixture::lines}) {
                DwarfFixture f(true);
                f.information = whole.information;
                f.abbreviations = whole.abbreviations;
                f.lines = whole.lines;
                QByteArray bytes = (whole.*section).data();
                bytes[bit / 8 % bytes.size()] = char(bytes[bit / 8 % bytes.size()] ^ (1 << bit % 8));
                f.*section = ByteBuilder(true).bytes(bit % 3 ? bytes : bytes.first(bit / 8 % bytes.size()));
                exerciseDwarf(f.load());
            }
        }
    }
}

} // namespace
