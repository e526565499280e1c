#include "debug/values/DwarfLocationExpressionEvaluator.h"

#include "debug/dwarf/DwarfFile.h"
#include "support/ByteBuilder.h"

#include <gtest/gtest.h>

namespace {

// One unit whose root has a frame base (DW_OP_call_frame_cfa or DW_OP_reg13) and a base type as its only child.
struct TestUnit
{
    TestUnit(bool bigEndian, quint16 version, const char *frameBase, quint8 encoding = DW_ATE_signed, quint8 size = 4)
        : information(bigEndian), abbreviations(bigEndian), lists(bigEndian)
    {
        abbreviations
            .hex("01 11 01 03 08 11 01 40 0a 00 00") // compile_unit: name string, low_pc addr, block1
            .hex("02 24 00 3e 0b 0b 0b 00 00 00");   // base_type: encoding data1, byte_size data1
        ByteBuilder unit(bigEndian);
        unit.u16(version);
        if (version >= 5)
            unit.u8(1).u8(4).u32(0);
        else
            unit.u32(0).u8(4);
        const QByteArray base = QByteArray::fromHex(frameBase);
        unit.u8(1).text("a.c").u32(0x8000).u8(quint64(base.size())).bytes(base);
        typeOffset = quint8(unit.size() + 4);
        unit.u8(2).u8(encoding).u8(size).u8(0);
        information.counted(unit);
    }

    DwarfDebuggingInformationEntry root()
    {
        DwarfSections sections;
        sections.bigEndian = information.bigEndian();
        sections.information = information.span();
        sections.abbreviations = abbreviations.span();
        sections.locations = sections.locationLists = lists.span();
        file.load(sections);
        return file.units().front().tree();
    }

    ByteBuilder information, abbreviations, lists;
    quint8 typeOffset;
    DwarfFile file;
};

class TestMachine : public DwarfLocationExpressionEvaluator
{
public:
    quint32 programCounter() override { return pc; }
    quint32 readRegister(quint32 number) override { return 0x1000 + number; }
    quint64 entryRegister(quint32 number) override { return 0x2000 + number; }
    quint64 readSized(quint32 address, quint32 size) override { return address + size; }
    quint32 canonicalFrameAddress() override { return 0x20001000; }
    quint32 threadLocalBase() override { return 0x500; }
    quint32 mapAddress(quint32 address) override { return address + 0x100; }

    quint32 pc = 0;
};

QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

std::span<const quint8> bytesOf(const QByteArray &bytes)
{
    return {reinterpret_cast<const quint8 *>(bytes.constData()), size_t(bytes.size())};
}

struct ExpressionCase
{
    const char *what, *little, *big; // big: null when it is the same
    quint64 result;
    char kind = 'a';       // address, register, value
    quint64 bigResult = 0; // in big-endian files, where it differs
};

const ExpressionCase expressionCases[] = {
    {"nothing", "", nullptr, 0},
    {"addr is mapped", "03 10 20 00 00", "03 00 00 20 10", 0x2110},
    {"const1u", "08 ff", nullptr, 255},
    {"const1s", "09 ff", nullptr, ~quint64(0)},
    {"const2s", "0b fe ff", "0b ff fe", quint64(-2)},
    {"const4s", "0d 00 00 00 80", "0d 80 00 00 00", 0xFFFFFFFF80000000},
    {"const8u", "0e 01 00 00 00 00 00 00 80", "0e 80 00 00 00 00 00 00 01", 0x8000000000000001},
    {"deref", "08 10 06", nullptr, 0x14},
    {"deref_size", "08 10 94 02", nullptr, 0x12},
    {"swap, minus", "33 38 16 1c 9f", nullptr, 5, 'v'},
    {"minus is 32 bits wide", "33 38 1c 9f", nullptr, 0xFFFFFFFB, 'v'},
    {"minus of one entry", "33 1c 9f", nullptr, 0xFFFFFFFD, 'v'},
    {"rot: 1 2 3 becomes 3 1 2", "31 32 33 17 13 13", nullptr, 3},
    {"pick below the bottom, dropped pair", "37 15 05 22", nullptr, 7},
    {"over", "34 39 14 9f 13 13 9f", nullptr, 4, 'v'},
    {"division by 0 ends it", "31 30 1b 35", nullptr, 0},
    {"signed div", "09 f8 33 1b 9f", nullptr, 0xFFFFFFFE, 'v'},
    {"unsigned mod", "09 ff 3a 1d", nullptr, 0xFFFFFFFF % 10},
    {"shra", "09 f0 32 26", nullptr, 0xFFFFFFFC},
    {"shift by the low 5 bits", "31 08 21 24", nullptr, 2},
    {"abs", "09 80 19", nullptr, 128},
    {"signed comparison", "09 ff 31 2d", nullptr, 1},
    {"a loop from 5 to 0", "35 31 1c 12 28 fa ff", "35 31 1c 12 28 ff fa", 0},
    {"skip", "31 2f 01 00 32 9f", "31 2f 00 01 32 9f", 1, 'v'},
    {"reg", "53", nullptr, 3, 'r'},
    {"regx", "90 80 02", nullptr, 256, 'r'},
    {"breg", "71 7c", nullptr, 0xFFD},
    {"bregx", "92 05 04", nullptr, 0x1009},
    {"fbreg by the CFA", "91 6c", nullptr, 0x20000FEC},
    {"entry value of a register", "a3 01 50 9f", nullptr, 0x2000, 'v'},
    {"GNU entry value of an expression", "f3 02 70 01 9f", nullptr, 0x1001, 'v'},
    {"empty entry value", "31 a3 00", nullptr, 1},
    {"thread-local", "34 e0", nullptr, 0x504},
    {"two registers", "50 93 04 51 93 04", nullptr, 0xFFFFFFFF80000100, 'r'},
    {"a register and a value", "50 93 04 32 9f 93 04", nullptr, 0x200001000, 'v', 0x100000000002},
    {"a piece that is gone", "50 93 04 93 04", nullptr, 0x1000, 'v', 0x100000000000},
    {"a piece in memory", "08 20 93 04 31 9f 93 04", nullptr, 0x100000024, 'v', 0x2400000001},
    {"implicit value", "9e 02 34 12", "9e 02 12 34", 0x1234, 'v'},
    {"implicit value of a length that is no integer's", "9e 03 01 02 03", nullptr, 0},
    {"implicit pointer", "a0 01 00 00 00 04", nullptr, 0},
    {"unknown operation", "35 ff 36", nullptr, 5},
    {"an operand that is cut short", "0e 01 02", nullptr, 0},
    {"jump out of it", "35 2f ff 7f", "35 2f 7f ff", 5},
    {"endless", "2f fd ff", "2f ff fd", 0},
};

TEST(DwarfLocationExpressionEvaluator, RunsEveryOperation)
{
    for (const bool bigEndian : {false, true}) {
        TestUnit unit(bigEndian, 5, "9c");
        const auto root = unit.root();
        ASSERT_TRUE(root);
        for (const ExpressionCase &row : expressionCases) {
            bool isRegister = true, isValue = true;
            const QByteArray program = hex(bigEndian && row.big ? row.big : row.little);
            const quint64 result = TestMachine().evaluate(root, bytesOf(program), false, isRegister, isValue);
            EXPECT_EQ(result, bigEndian && row.bigResult ? row.bigResult : row.result) << row.what;
            EXPECT_EQ(isRegister ? 'r' : isValue ? 'v' : 'a', row.kind) << row.what;
        }
    }
}

TEST(DwarfLocationExpressionEvaluator, StartsMembersAtZero)
{
    TestUnit unit(false, 4, "9c");
    bool isRegister, isValue;
    const auto root = unit.root();
    EXPECT_EQ(TestMachine().evaluate(root, bytesOf(hex("2308")), true, isRegister, isValue), 8u);
    EXPECT_FALSE(isRegister || isValue);
}

TEST(DwarfLocationExpressionEvaluator, ReadsTheRegisterThatIsTheFrameBase)
{
    TestUnit unit(true, 4, "5d");
    bool isRegister, isValue;
    EXPECT_EQ(TestMachine().evaluate(unit.root(), bytesOf(hex("9108")), false, isRegister, isValue), 0x1015u);
}

TEST(DwarfLocationExpressionEvaluator, CalculatesInTheOperandsType)
{
    const auto run = [](quint8 encoding, quint8 size, const char *format) {
        TestUnit unit(false, 5, "9c", encoding, size);
        const auto root = unit.root();
        const QByteArray program = hex(QByteArray(format).replace("TT", QByteArray::number(unit.typeOffset, 16)));
        const auto stack = TestMachine().run(root, bytesOf(program));
        return stack.empty() ? ~quint64(0) : stack.back().value;
    };
    EXPECT_EQ(run(DW_ATE_float, 4, "a4 TT 04 00002041 a4 TT 04 0000003f 22"), 0x41280000u); // 10.0f + 0.5f
    EXPECT_EQ(run(DW_ATE_signed, 1, "a4 TT 01 ff a4 TT 01 02 22"), 1u);
    EXPECT_EQ(run(DW_ATE_unsigned, 2, "a4 TT 02 ffff a4 TT 02 0100 22"), 0x10000u);
    EXPECT_EQ(run(DW_ATE_signed_char, 1, "0a ff01 a8 TT"), ~quint64(0));
    EXPECT_EQ(run(DW_ATE_float, 4, "33 a8 TT"), 0x40400000u);
    EXPECT_EQ(run(DW_ATE_float, 4, "a4 TT 04 0000e0c0 a8 00"), quint64(-7)); // back to the generic type
    EXPECT_EQ(run(DW_ATE_signed_char, 1, "0a ff01 f7 TT"), 0x1FFu);          // the older operation changes nothing
    EXPECT_EQ(run(DW_ATE_float, 4, "a4 TT 04 00002041 a4 TT 04 0000003f 1c"), 0x41180000u); // 10.0f - 0.5f
    EXPECT_EQ(run(DW_ATE_float, 8, "a4 TT 08 0000000000000840 1f a4 TT 08 000000000000e03f 1e"),
              0xBFF8000000000000u);                                                // -3.0 * 0.5
    EXPECT_EQ(run(DW_ATE_float, 4, "a4 TT 04 0000803f a4 TT 04 00000040 2d"), 1u); // 1.0f < 2.0f
    EXPECT_EQ(run(DW_ATE_signed, 8, "a4 TT 08 0500000000000000 a4 TT 08 0000000001000000 1c"),
              quint64(5 - (1LL << 32)));
    EXPECT_EQ(run(DW_ATE_signed, 2, "a4 TT 02 f8ff a4 TT 02 0300 1b"), quint64(-2));
    EXPECT_EQ(run(DW_ATE_signed, 8, "a4 TT 08 0000000000000080 a4 TT 08 ffffffffffffffff 1b"), quint64(1) << 63);
    EXPECT_EQ(run(DW_ATE_unsigned, 2, "a4 TT 02 0080 a4 TT 02 0400 24"), 0u); // shifted out
    EXPECT_EQ(run(DW_ATE_signed, 2, "a4 TT 02 0080 a4 TT 02 0400 26"), quint64(-0x800));
    EXPECT_EQ(run(DW_ATE_unsigned, 8, "a4 TT 08 ffffffffffffffff a4 TT 08 0100000000000000 2b"), 1u);
    EXPECT_EQ(run(DW_ATE_signed, 4, "31 a4 TT 04 00000000 1d"), ~quint64(0));     // by 0: nothing is left
    EXPECT_EQ(run(DW_ATE_signed, 8, "a5 06 TT"), quint64(0x1007) << 32 | 0x1006); // two registers
}

TEST(DwarfLocationExpressionEvaluator, EndsExpressionsThatNest)
{
    TestUnit unit(false, 5, "9c");
    ByteBuilder nested(false);
    for (int depth = 0; depth < 1000; ++depth) {
        ByteBuilder outer(false);
        outer.u8(0xa3).uleb(quint64(nested.size())).bytes(nested.data());
        nested = outer;
    }
    EXPECT_LE(TestMachine().run(unit.root(), nested.span()).size(), 1u);
}

TEST(LocationList, ReadsEveryEntryOfVersion5)
{
    for (const bool bigEndian : {false, true}) {
        TestUnit unit(bigEndian, 5, "9c");
        unit.lists.u8(4).uleb(0x10).uleb(0x20).uleb(1).u8(0x50); // from the unit's low pc
        unit.lists.u8(9).uleb(1).uleb(2);                        // views
        unit.lists.u8(6).u32(0x9000).u8(4).uleb(0x10).uleb(0x20).uleb(1).u8(0x51);
        unit.lists.u8(7).u32(0xa000).u32(0xa004).uleb(1).u8(0x52);
        unit.lists.u8(8).u32(0xb000).uleb(8).uleb(1).u8(0x53);
        unit.lists.u8(5).uleb(1).u8(0x54).u8(0);
        auto &dwarf = *unit.root().unit();
        const auto at = [&](quint32 address) {
            const auto found = locationListEntry(dwarf, 0, address);
            return found.size() == 1 ? found[0] : 0;
        };
        EXPECT_EQ(at(0x8010), 0x50);
        EXPECT_EQ(at(0x801f), 0x50);
        EXPECT_EQ(at(0x8020), 0x54); // the default
        EXPECT_EQ(at(0x9010), 0x51);
        EXPECT_EQ(at(0xa003), 0x52);
        EXPECT_EQ(at(0xb007), 0x53);
        EXPECT_EQ(at(0xb008), 0x54);
        EXPECT_TRUE(locationListEntry(dwarf, 1000, 0x8010).empty());
    }
}

TEST(LocationList, ReadsPairsOfTheOlderVersions)
{
    TestUnit unit(false, 4, "9c");
    unit.lists.u32(0).u32(4).u16(1).u8(0x50).u32(~0u).u32(0x100).u32(4).u32(8).u16(1).u8(0x51).u32(0).u32(0);
    unit.lists.u32(0x20).u32(0x30).u16(1).u8(0x52);
    auto &dwarf = *unit.root().unit();
    ASSERT_EQ(locationListEntry(dwarf, 0, 0x8003).size(), 1u);
    EXPECT_EQ(locationListEntry(dwarf, 0, 0x8003)[0], 0x50);
    EXPECT_EQ(locationListEntry(dwarf, 0, 0x104)[0], 0x51);
    EXPECT_TRUE(locationListEntry(dwarf, 0, 0x8004).empty());
    EXPECT_TRUE(locationListEntry(dwarf, 0, 0x120).empty()); // behind the end of the list
}

} // namespace
