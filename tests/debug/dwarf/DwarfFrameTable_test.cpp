#include "debug/dwarf/TestDwarf.h"
#include "support/ByteBuilder.h"
#include "support/QtPrinters.h"

using namespace Qt::StringLiterals;

namespace {

// A section with one CIE (code alignment 2, data alignment -4, CFA = r13 + 0) and one FDE at 0x100, 0x40 long.
ByteBuilder frameSection(bool bigEndian, const char *instructions, quint8 version = 1, quint32 start = 0x100)
{
    ByteBuilder cie(bigEndian);
    cie.u32(0xFFFFFFFF).u8(version).text("");
    if (version > 3)
        cie.u8(4).u8(0);
    cie.uleb(2).sleb(-4).u8(14).hex("0c0d00");
    ByteBuilder fde(bigEndian);
    fde.u32(0).u32(start).u32(0x40).hex(instructions);
    ByteBuilder section(bigEndian);
    return section.counted(cie).counted(fde);
}

struct FrameFixture
{
    explicit FrameFixture(const ByteBuilder &bytes, quint32 loadOffset = 0) : section(bytes)
    {
        DwarfSections sections;
        sections.bigEndian = section.bigEndian();
        sections.frames = section.span();
        file.load(sections, loadOffset);
    }
    // "cfa r13+8; 4 offs(-8)"
    QString rowAt(quint32 address)
    {
        if (!file.frames().computeRegisters(address))
            return u"none"_s;
        QStringList texts;
        for (const auto &[reg, rule] : file.frames().rules()) {
            const char *const kinds[] = {"undef", "same", "offs", "reg", "regoffs", "arch"};
            texts +=
                u"%1 %2(%3, %4)"_s.arg(reg).arg(QString::fromLatin1(kinds[rule.kind])).arg(rule.reg).arg(rule.offset);
        }
        return texts.join(u"; "_s);
    }

    ByteBuilder section;
    TestDwarfFile file;
};

TEST(DwarfFrameTable, GivesTheRowOfAnAddress)
{
    for (const bool bigEndian : {false, true}) {
        for (const quint8 version : {1, 3, 4}) {
            // push {r4, lr}; advance 2*1; def_cfa_offset 8; offset r4 2; offset lr 1; advance_loc1 2*8; def_cfa_offset
            // 16
            FrameFixture f(frameSection(bigEndian, "410e0884028e0102080e10", version));
            EXPECT_EQ(f.rowAt(0xFF), u"none"_s);
            EXPECT_EQ(f.rowAt(0x100), u"-1 regoffs(13, 0)"_s);
            EXPECT_EQ(f.rowAt(0x101), u"-1 regoffs(13, 0)"_s);
            EXPECT_EQ(f.rowAt(0x102), u"-1 regoffs(13, 8); 4 offs(0, -8); 14 offs(0, -4)"_s);
            EXPECT_EQ(f.rowAt(0x111), u"-1 regoffs(13, 8); 4 offs(0, -8); 14 offs(0, -4)"_s);
            EXPECT_EQ(f.rowAt(0x13F), u"-1 regoffs(13, 16); 4 offs(0, -8); 14 offs(0, -4)"_s);
            EXPECT_EQ(f.rowAt(0x140), u"none"_s) << "the end isn't covered";
            EXPECT_EQ(f.file.frames().stackUsage(0x100), 16);
            EXPECT_EQ(f.file.frames().stackUsage(0x140), -1);
            EXPECT_EQ(f.file.frames().returnRegister(), 14);
        }
    }
}

TEST(DwarfFrameTable, RunsEachInstruction)
{
    struct Row
    {
        const char *instructions;
        const char *rules;
        const char *error = "";
    };
    const Row rows[] = {
        {"0504030700", "-1 regoffs(13, 0); 0 undef(0, 0); 4 offs(0, -12)"},
        {"0804", "-1 regoffs(13, 0); 4 same(0, 0)"},
        {"090409", "-1 regoffs(13, 0); 4 reg(9, 0)"},
        {"0704c4", "-1 regoffs(13, 0); 4 same(0, 0)"}, // the CIE never set it
        {"07040604", "-1 regoffs(13, 0); 4 same(0, 0)"},
        {"0a070407050b0706", "-1 regoffs(13, 0); 6 undef(0, 0)"},
        {"0b0704", "-1 regoffs(13, 0); 4 undef(0, 0)"}, // nothing to restore
        {"0c0720", "-1 regoffs(7, 32)"},
        {"0e0c0d07", "-1 regoffs(7, 12)"},
        {"11047f", "-1 regoffs(13, 0); 4 offs(0, 4)"},
        {"12077e", "-1 regoffs(7, 8)"},
        {"137e", "-1 regoffs(13, 8)"},       // scaled
        {"0e02", "-1 regoffs(13, 2)"},       // not scaled
        {"1404020704", "-1 regoffs(4, -8)"}, // stops
        {"15047f0704", "-1 regoffs(4, 4)"},
        {"0f020102", "-1 regoffs(13, 0)", "DW_CFA_def_cfa_expression(length)\n"},
        {"1004010007", "-1 regoffs(13, 0)", "DW_CFA_def_expression(4, 1)\n"},
        {"1604010007", "-1 regoffs(13, 0)", "DW_CFA_val_expression(4, 1)\n"},
        {"3f0704", "-1 regoffs(13, 0)", "Unhandled DW_CFA opcode 0x3f\n"},
        {"0007", "-1 regoffs(13, 0); 0 undef(0, 0)"}, // cut short: the operand reads as 0
    };
    for (const Row &row : rows) {
        FrameFixture f(frameSection(false, row.instructions));
        EXPECT_EQ(f.rowAt(0x120), QString::fromLatin1(row.rules)) << row.instructions;
        EXPECT_EQ(f.file.errors.join(QString()), QString::fromLatin1(row.error)) << row.instructions;
    }
    // In stack-use mode an instruction that stops doesn't end the run.
    FrameFixture f(frameSection(false, "0e08160401000e20"
                                       "0e04"));
    EXPECT_EQ(f.file.frames().stackUsage(0x100), 32);
}

TEST(DwarfFrameTable, FindsDescriptions)
{
    EXPECT_EQ(FrameFixture(frameSection(false, "0e08", 1, 0)).rowAt(0), u"none"_s) << "a removed function";
    FrameFixture last(frameSection(true, "0e08", 1, 0xFFFFFFC0));
    EXPECT_EQ(last.rowAt(0xFFFFFFFF), u"-1 regoffs(13, 8)"_s);
    FrameFixture moved(frameSection(false, "0e08"), 0x1000);
    EXPECT_EQ(moved.rowAt(0x1100), u"-1 regoffs(13, 8)"_s);
    EXPECT_EQ(moved.rowAt(0x100), u"none"_s);
    EXPECT_TRUE(moved.file.traces.contains(u"computeRegisters(0x1100)\n"_s));
    EXPECT_TRUE(moved.file.traces.contains(u"DW_CFA_def_cfa_offset(8)\n"_s));

    // Of two descriptions of one address the first in the section counts, also when it begins earlier.
    ByteBuilder section = frameSection(false, "0e08");
    section.counted(ByteBuilder(false).u32(0).u32(0x110).u32(8).hex("0e10"));
    section.counted(ByteBuilder(false).u32(0).u32(0x200).u32(8).hex("0e18"));
    FrameFixture several(section);
    EXPECT_EQ(several.rowAt(0x112), u"-1 regoffs(13, 8)"_s);
    EXPECT_EQ(several.rowAt(0x204), u"-1 regoffs(13, 24)"_s);
    EXPECT_EQ(several.rowAt(0x150), u"none"_s);
}

TEST(DwarfFrameTable, DumpsEveryEntry)
{
    EXPECT_EQ(FrameFixture(frameSection(false, "8402", 4)).file.frames().dump(),
              QByteArray("\nlength: 14 cie_id: 0xFFFFFFFF CIE\nversion: 4\naugmentation : \naddress size: 4\n"
                         "pointer size: 0\ncode_alignment_factor: 0x2\ndata_alignment_factor: 0xFFFFFFFC\n"
                         "return_address_register: 14\n\nDW_CFA_def_cfa(13, 0)\n"
                         "\nlength: 14 cie_id: 0x0 FDE initial_location: 0x100 address_range: 0x40\n"
                         "DW_CFA_offset(4, 2, -8)\n"));
}

TEST(DwarfFrameTable, BoundsWhatBytesCanMake)
{
    ByteBuilder instructions(false);
    for (quint32 reg = 0; reg < 4000; ++reg)
        instructions.u8(0x07).uleb(reg).u8(0x0A); // undefined, remember_state
    FrameFixture f(frameSection(false, instructions.data().toHex().constData()));
    EXPECT_TRUE(f.file.frames().computeRegisters(0x100));
    EXPECT_EQ(f.file.frames().rules().size(), DwarfFrameTable::maximumRules);
}

TEST(DwarfFrameTable, SurvivesEveryPrefixAndBitFlip)
{
    const ByteBuilder whole = frameSection(false, "410e0884028e01090506020c0a07020b0e10");
    for (qsizetype bit = 0; bit < whole.size() * 8; ++bit) {
        QByteArray damaged = whole.data();
        damaged[bit / 8] = char(damaged[bit / 8] ^ (1 << bit % 8));
        for (const qsizetype length : {whole.size(), bit / 8}) {
            FrameFixture f(ByteBuilder(false).bytes(damaged.first(length)));
            for (quint32 address = 0xFC; address < 0x144; address += 8)
                f.file.frames().stackUsage(address);
            f.file.frames().dump();
        }
    }
}

} // namespace
