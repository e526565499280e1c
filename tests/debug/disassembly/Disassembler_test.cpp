#include "base/HException.h"
#include "debug/disassembly/ArmDisassembler.h"
#include "debug/disassembly/RiscVDisassembler.h"
#include "debug/disassembly/SourceInterleaver.h"
#include "elf/ElfFile.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"

using namespace Qt::StringLiterals;

namespace {

std::span<const quint8> spanOf(const QByteArray &bytes)
{
    return {reinterpret_cast<const quint8 *>(bytes.constData()), size_t(bytes.size())};
}

// "length mnemonic operands [>target] [@reference[=]]"
std::string told(const DisassembledInstruction &instruction)
{
    QByteArray text = QByteArray::number(instruction.length) + ' ' + instruction.mnemonic;
    if (!instruction.operands.isEmpty())
        text += ' ' + instruction.operands;
    if (instruction.target)
        text += " >0x" + QByteArray::number(*instruction.target, 16);
    if (instruction.reference)
        text += " @0x" + QByteArray::number(*instruction.reference, 16);
    if (instruction.isLiteralLoad)
        text += '=';
    return text.toStdString();
}

struct InstructionRow
{
    const char *what;
    quint32 address;
    const char *bytes; // of one instruction or of several, of which the last is shown
    const char *text;
};

std::string disassembled(Disassembler &disassembler, const InstructionRow &row, InstructionSet set)
{
    const QByteArray bytes = QByteArray::fromHex(row.bytes);
    std::string text;
    for (quint32 offset = 0; offset < quint32(bytes.size());) {
        const auto instruction = disassembler.disassembleAt(row.address + offset, spanOf(bytes).subspan(offset), set);
        EXPECT_NE(instruction.length, 0u) << row.what;
        if (instruction.length == 0)
            break;
        text = told(instruction);
        offset += instruction.length;
    }
    return text;
}

const InstructionRow thumbRows[] = {
    {"a halfword", 0x8000, "7047", "2 bx lr"},
    {"two halfwords", 0x8000, "00f00302", "4 and r2, r0, #3"},
    {"a call backwards", 0x8004, "fff7fcff", "4 bl 0x8000 >0x8000"},
    {"a conditional branch", 0x8000, "04d0", "2 beq 0x800c >0x800c"},
    {"compare and branch", 0x8000, "20b1", "2 cbz r0, 0x800c >0x800c"},
    {"a literal from an address that isn't a word's", 0x8002, "014b", "2 ldr r3, [pc, #4] @0x8008="},
    {"a wide load backwards", 0x8004, "5ff80800", "4 ldr.w r0, [pc, #-8] @0x8000="},
    {"a halfword from the pool is no word", 0x8000, "bff80800", "4 ldrh.w r0, [pc, #8] @0x800c"},
    {"a float from the pool", 0x8000, "9fed010a", "4 vldr s0, [pc, #4] @0x8008="},
    {"an address", 0x8000, "02a0", "2 adr r0, #8 @0x800c"},
    {"halves of a word", 0x8000, "41f23420c2f20000", "4 movt r0, #8192 @0x20001234"},
    {"the high half of something else", 0x8000, "41f23420c2f20001", "4 movt r1, #8192"},
    {"conditions of a block", 0x8000, "08bf0120", "2 moveq r0, #1"},
    {"a system register of the profile", 0x8000, "eff30880", "4 mrs r0, msp"},
    {"a pair that moves sp", 0x8000, "6de90245", "4 strd r4, r5, [sp, #-8]!"},
    {"one with r12", 0x8000, "6de902c5", "4 strd r12, r5, [sp, #-8]!"},
    {"no instruction of a halfword", 0x8000, "ffb6", "2 .inst.n 0xb6ff"},
    {"no instruction of two", 0x8000, "ffffffff", "4 .inst.w 0xffffffff"},
    {"cut short", 0x8000, "00f0", "2 .short 0xf000"},
    {"one byte", 0x8000, "70", "1 .byte 0x70"},
    {"the last address", 0xFFFFFFFE, "7047", "2 bx lr"},
};

const InstructionRow armRows[] = {
    {"a call of itself", 0x8000, "feffffeb", "4 bl 0x8000 >0x8000"},
    {"a literal", 0x8000, "04309fe5", "4 ldr r3, [pc, #4] @0x800c="},
    {"a byte from the pool", 0x8000, "0430dfe5", "4 ldrb r3, [pc, #4] @0x800c"},
    {"halves of a word", 0x8000, "340201e3000042e3", "4 movt r0, #8192 @0x20001234"},
    {"no instruction", 0x8000, "ffffffff", "4 .inst 0xffffffff"},
    {"cut short", 0x8000, "feffff", "1 .byte 0xff"},
};

const InstructionRow riscVRows[] = {
    {"a compressed one", 0x8000, "8280", "2 ret"},
    {"a call", 0x8000, "ef000001", "4 jal 0x8010 >0x8010"},
    {"a branch backwards", 0x8010, "e30805fe", "4 beqz a0, 0x8000 >0x8000"},
    {"a compressed branch backwards", 0x8010, "65f9", "2 bnez a0, 0x8000 >0x8000"},
    {"a compressed jump", 0x8000, "01a0", "2 j 0x8000 >0x8000"},
    {"an address in two steps", 0x8000, "3705002013050501", "4 addi a0, a0, 16 @0x20000010"},
    {"relative to the program counter", 0x8000, "9712000093820200", "4 mv t0, t0 @0x9000"},
    {"a store through the first step", 0x8000, "b70700200ca3", "2 fsd fa1, 0(a4)"},
    {"a word stored through it", 0x8000, "b707002023a2a700", "4 sw a0, 4(a5) @0x20000004"},
    {"a register that was overwritten", 0x8000, "37050020014513050501", "4 addi a0, a0, 16"},
    {"a far call", 0x8000, "97100000e7800000", "4 jalr ra >0x9000"},
    {"from the global pointer", 0x8000, "83a781ff", "4 lw a5, -8(gp) @0x200007f8"},
    {"a control register by its name", 0x8000, "73100530", "4 csrw mstatus, a0"},
    {"no instruction", 0x8000, "0000", "2 unimp"},
    {"a length that nobody has", 0x8000, "1f0000000000", "6 .insn 0x00000000001f"},
    {"cut short", 0x8000, "ef00", "2 .half 0x00ef"},
    {"one byte", 0x8000, "82", "1 .byte 0x82"},
};

} // namespace

TEST(ArmDisassembler, TellsWhatAnInstructionMeans)
{
    ArmDisassembler microcontroller(true, false);
    for (const InstructionRow &row : thumbRows)
        EXPECT_EQ(disassembled(microcontroller, row, InstructionSet::Thumb), row.text) << row.what;
    ArmDisassembler application(false, false);
    const InstructionRow callOfArm = {"", 0x8002, "00f000e8", "4 blx 0x8004 >0x8004"};
    EXPECT_EQ(disassembled(application, callOfArm, InstructionSet::Thumb), callOfArm.text);
    for (const InstructionRow &row : armRows)
        EXPECT_EQ(disassembled(application, row, InstructionSet::Arm), row.text) << row.what;
}

TEST(ArmDisassembler, ReadsBigEndianCode)
{
    ArmDisassembler disassembler(false, true);
    const InstructionRow thumb = {"", 0x8004, "f7fffffc", "4 bl 0x8000 >0x8000"};
    EXPECT_EQ(disassembled(disassembler, thumb, InstructionSet::Thumb), thumb.text);
    const InstructionRow arm = {"", 0x8000, "e59f3004", "4 ldr r3, [pc, #4] @0x800c="};
    EXPECT_EQ(disassembled(disassembler, arm, InstructionSet::Arm), arm.text);
}

// The decoder goes on with a block wherever the next instruction stands.
TEST(ArmDisassembler, LeavesABlockThatIsNotGoneThrough)
{
    ArmDisassembler disassembler(true, false);
    EXPECT_EQ(disassembled(disassembler, {"", 0x8000, "01bf", ""}, InstructionSet::Thumb), "2 itttt eq");
    EXPECT_EQ(disassembled(disassembler, {"", 0x9000, "0120", ""}, InstructionSet::Thumb), "2 movs r0, #1");
}

TEST(RiscVDisassembler, TellsWhatAnInstructionMeans)
{
    RiscVDisassembler disassembler(0x20000800);
    for (const InstructionRow &row : riscVRows)
        EXPECT_EQ(disassembled(disassembler, row, InstructionSet::RiscV), row.text) << row.what;
    RiscVDisassembler unknownPointer(std::nullopt);
    EXPECT_EQ(disassembled(unknownPointer, {"", 0x8000, "83a781ff", ""}, InstructionSet::RiscV), "4 lw a5, -8(gp)");
}

TEST(SourceInterleaver, ShowsTheLinesThatAreDue)
{
    SourceInterleaver source(
        [](const QString &path, int line) { return path == u"/x/gone.c"_s ? QString() : u"  line\t%1 "_s.arg(line); });
    const auto headed = [](const char *head, const QStringList &lines) {
        return QStringList{QString::fromLatin1(head).leftJustified(60, u'-')} + lines;
    };
    EXPECT_EQ(source.linesBefore(u"/x/main.c"_s, 2), headed("--- main.c -- 2 ", {u"line 1"_s, u"line 2"_s}));
    EXPECT_EQ(source.linesBefore(u"/x/main.c"_s, 2), QStringList()) << "the row shown last";
    EXPECT_EQ(source.linesBefore(u"/x/main.c"_s, 3), headed("--- main.c -- 3 ", {u"line 3"_s}));
    const QStringList five = {u"line 16"_s, u"line 17"_s, u"line 18"_s, u"line 19"_s, u"line 20"_s};
    EXPECT_EQ(source.linesBefore(u"/x/main.c"_s, 20), headed("--- main.c -- 20 ", five)) << "a gap";
    EXPECT_EQ(source.linesBefore(u"/x/main.c"_s, 19), QStringList()) << "back: nothing is due";
    EXPECT_EQ(source.linesBefore(u"/x/main.c"_s, 20), headed("--- main.c -- 20 ", {u"line 20"_s}));
    for (int i = 0; i < 11; ++i)
        source.countInstruction();
    EXPECT_EQ(source.linesBefore(u"/x/main.c"_s, 5), headed("--- main.c -- 5 ", {})) << "the header is far away";
    EXPECT_EQ(source.linesBefore(u"/x/gone.c"_s, 1), headed("--- gone.c -- 1 ", {})) << "no text";
    EXPECT_EQ(source.linesBefore(u"/y/main.c"_s, 1), headed("--- main.c -- 1 ", {u"line 1"_s})) << "another file";
    const QString longName(100, u'n');
    EXPECT_EQ(source.linesBefore(u"/x/"_s + longName, 1).first().size(), 60);
}

TEST(Disassembler, RefusesOtherMachines)
{
    ElfBuilder builder;
    builder.machine = EM_386;
    ElfFile file;
    file.parse(ByteImage::fromBytes(builder.build()));
    EXPECT_THROW(Disassembler::of(file), HException);
}
