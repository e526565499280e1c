#include "debug/values/TestTarget.h"
#include "elf/ElfFile.h"
#include "support/ElfBuilder.h"
#include "support/QtPrinters.h"

namespace {

const char evaluatorText[] = R"(
#define KEEP __attribute__((used))
enum Color { RED, GREEN = 5, BLUE = -2 };
struct Base { int id; };
struct Bits { unsigned a : 3; int b : 9; Color mode : 4; };
struct Motor : Base { int speed; Bits bits; short grid[2][3]; Motor *next; int id2; static int count; int go(int step); int cfa; };
int Motor::count = 4;
KEEP Motor motor = {{7}, 30, {1, -2, GREEN}, {{1, 2, 3}, {4, 5, 6}}, &motor, 9, 3};
KEEP int number = -3; KEEP unsigned char byte = 200; KEEP float real = 1.5f; KEEP double wide = 2.25; KEEP Color color = RED;
KEEP bool flag = true; KEEP long long large = 5; KEEP const char *name = "name";
namespace outer { KEEP int hidden = 1; namespace inner { KEEP int hidden = 2; KEEP int get() { return hidden; } } KEEP int get() { return hidden; } }
namespace { KEEP int unnamed = 8; }
KEEP int Motor::go(int step) { int total = speed + step; { int number = 99; total += number; } return total; }
extern "C" KEEP int main() { return motor.go(2); }
asm(".data\n.global blob\n.type blob, %object\n.size blob, 6\nblob: .byte 1,2,3,4,5,6\n.global lone\n.type lone, %object\n.size lone, 2\nlone: .short 258\n.text");
)";

class EvaluatorTest : public testing::TestWithParam<Compiler>
{
protected:
    void SetUp() override
    {
        const QString path = compiledOnce(GetParam(), evaluatorText);
        if (path.isEmpty())
            GTEST_SKIP() << "arm-none-eabi-g++ isn't installed";
        file = std::make_unique<ElfDwarfFile>(path);
        file->load();
        evaluator = std::make_unique<TestEvaluator>(*file);
    }
    QString value(const char *expression) { return evaluated(*evaluator, QString::fromLatin1(expression)); }
    quint32 addressOf(const char *symbol) { return file->elf().symbolNamed(QString::fromLatin1(symbol))->value(); }
    // Stands in Motor::go behind its prologue, with `this`, step, total and number on the stack as the code has them.
    void stopInMethod(quint32 line)
    {
        QList<quint32> addresses;
        SourceAddressMap &map = file->dwarf().lineMap();
        ASSERT_TRUE(map.addressesOfLine(map.paths().text(map.sources().front()), int(line), addresses));
        evaluator->frame.pc = *std::ranges::max_element(addresses) - 2;
        evaluator->frame.cfa = WritableImage::stackStart + 0x800;
        evaluator->setFrame(&evaluator->frame);
    }

    std::unique_ptr<ElfDwarfFile> file;
    std::unique_ptr<TestEvaluator> evaluator;
};

TEST_P(EvaluatorTest, AssignsAndReadsBack)
{
    const std::pair<const char *, const char *> rows[] = {
        {"number = 12", "12"},
        {"number += 3", "15"},
        {"number++", "16"},
        {"byte = 300", "44"},
        {"real = 2", "2"},
        {"real = wide", "2.25"},
        {"wide = number", "16"},
        {"number = 2.75", "2"},
        {"flag = 0", "false"},
        {"large = 0 - 7", "-7"},
        {"color = 5", "GREEN"},
        {"color = \"BLUE\"", "BLUE"},
        {"color = motor.bits.mode", "GREEN"},
        {"motor.bits.b = 0 - 100", "-100"},
        {"motor.bits.a = 6", "6"},
        {"motor.bits.b", "-100"},
        {"motor.bits.mode = 0", "RED"},
        {"motor.bits.mode = \"GREEN\"", "GREEN"},
        {"motor.grid[1][2] = 1000", "1000"},
        {"motor.next->speed = 31", "31"},
        {"motor.speed", "31"},
        {"*(&number) = 4", "4"},
        {"number", "4"},
        {"RED = 1", "error: can't update a constant"},
        {"main = 1", "error: can't update a constant"},
    };
    for (const auto &[expression, expected] : rows)
        EXPECT_EQ(value(expression), QString::fromLatin1(expected)) << expression;
    EXPECT_EQ(value("motor.next = 0"), u"0"_s);
    EXPECT_EQ(value("motor.next = &motor"), QString::number(addressOf("motor")));
}

TEST_P(EvaluatorTest, ReadsAndWritesRegisters)
{
    evaluator->frame.registers[3] = 0x12345678;
    EXPECT_EQ(value("@r3"), QString::number(0x12345678));
    EXPECT_EQ(value("@r3 = 0x00050007"), QString::number(0x50007));
    EXPECT_EQ(evaluator->frame.registers[3], 0x50007u);
    EXPECT_EQ(value("((register 4 low 0 16 high 16 16;)@r3).low"), u"7"_s);
    EXPECT_EQ(value("((register 4 low 0 16 high 16 16;)@r3).high"), u"5"_s);
    EXPECT_EQ(value("((register 4 low 0 16 high 16 16;)@r3).high = 9"), u"9"_s);
    EXPECT_EQ(evaluator->frame.registers[3], 0x90007u);
    EXPECT_EQ(evaluator->lookupRegister(u"r3"_s)->toString(0), u"r3"_s);
    EXPECT_EQ(value("&@r3"), u"error: can't take the address of a register/constant"_s);
    EXPECT_EQ(value("sizeof(@r3)"), u"4"_s);
}

TEST_P(EvaluatorTest, FindsNamesFromTheInnermostScopeOutwards)
{
    EXPECT_EQ(value("number"), u"-3"_s);
    EXPECT_EQ(value("unnamed"), u"8"_s);
    EXPECT_EQ(value("outer::inner::hidden"), u"2"_s);
    EXPECT_EQ(value("blob[5]"), u"6"_s); // what only the linker knows
    EXPECT_EQ(value("sizeof(blob)"), u"6"_s);
    EXPECT_EQ(value("lone"), u"258"_s);
    const std::pair<const char *, const char *> functions[] = {{"outer::get", "1"}, {"outer::inner::get", "2"}};
    for (const auto &[function, expected] : functions) {
        for (const auto &entry : file->dwarf().publicEntries(QString::fromLatin1(function)))
            evaluator->setOverridePc(entry.lowPc() + 4);
        EXPECT_EQ(value("hidden"), QString::fromLatin1(expected)) << function;
    }
}

TEST_P(EvaluatorTest, KnowsTheObjectOfAMethod)
{
    ASSERT_NO_FATAL_FAILURE(stopInMethod(13));
    // Where `this` and the variables are, the debug information tells; their values go there.
    const auto *self = dynamic_cast<const VarInfo *>(evaluator->lookup(u"this"_s));
    ASSERT_TRUE(self);
    ASSERT_EQ(self->kind, VarInfo::Memory);
    const quint32 place = quint32(self->address) + self->offset;
    ASSERT_GE(place, WritableImage::stackStart);
    evaluator->memory.pokeUint32(place, addressOf("motor"));
    EXPECT_EQ(value("speed"), u"30"_s);
    EXPECT_EQ(value("id"), u"7"_s);
    EXPECT_EQ(value("Motor::speed"), u"30"_s);
    EXPECT_EQ(value("this->grid[1][0]"), u"4"_s);
    EXPECT_EQ(value("count"), u"4"_s);
    EXPECT_EQ(value("cfa"), u"3"_s);
    EXPECT_EQ(value("speed = 8"), u"8"_s);
    EXPECT_EQ(value("motor.speed"), u"8"_s);
    EXPECT_TRUE(evaluator->lookup(u"speed"_s)->isThroughThis);
    evaluator->memory.pokeUint32(place, 0x70000000);
    EXPECT_TRUE(value("speed").startsWith(u"error: memory at"_s));
    EXPECT_EQ(value("nothing"), u"error: nothing symbol not found"_s);
}

TEST_P(EvaluatorTest, CastsConvertNumbers)
{
    const std::pair<const char *, const char *> rows[] = {
        {"(char)byte", "-56"},        {"(unsigned char)number", "253"},
        {"(long long)number", "-3"},  {"(float)number", "-3"},
        {"(double)byte", "200"},      {"(int)wide", "2"},
        {"(unsigned int)color", "0"}, {"(Color)5", "GREEN"},
        {"(int)motor.bits.b", "-2"},  {"(bool)7", "true"},
        {"(short)0x12345", "9029"},   {"(double)1.5 + 1", "2.5"},
        {"sizeof((short)1)", "2"},    {"sizeof(Motor)", "36"},
        {"((int[3])motor)[1]", "30"}, {"((Motor*)&motor)->id2", "9"},
        {"*(int*)&motor", "7"},       {"(struct Motor*)0 == 0", "true"},
        {"sizeof(double)", "8"},
    };
    for (const auto &[expression, expected] : rows)
        EXPECT_EQ(value(expression), QString::fromLatin1(expected)) << expression;
}

TEST_P(EvaluatorTest, PointersCountElements)
{
    const quint32 motor = addressOf("motor");
    const quint32 grid = motor + 12;
    EXPECT_EQ(value("motor.next + 1"), QString::number(motor + 36));
    EXPECT_EQ(value("motor.grid + 1"), QString::number(grid + 6));
    EXPECT_EQ(value("motor.grid[0] + 2"), QString::number(grid + 4));
    EXPECT_EQ(value("*(motor.grid[1] + 1)"), u"5"_s);
    EXPECT_EQ(value("motor.next - 4"), QString::number(motor - 4)); // numbers
    EXPECT_EQ(value("&motor.grid[1]"), QString::number(grid + 6));
    EXPECT_EQ(value("name[1]"), QString::number('a'));
    EXPECT_EQ(value("number + 1"), u"-2"_s);
}

TEST_P(EvaluatorTest, PlacesCompareAndAreShown)
{
    const quint32 motor = addressOf("motor");
    const auto place = [&](const char *expression) {
        return VarInfo(*dynamic_cast<VarInfo *>(evaluator->evaluate(QString::fromLatin1(expression)).marker()));
    };
    const VarInfo a = place("motor.bits.a"), b = place("motor.bits.b"), speed = place("motor.speed");
    EXPECT_EQ(speed.toString(0), u"0x"_s + QString::number(motor + 4, 16).rightJustified(8, u'0'));
    EXPECT_EQ(speed.toString(4), u"0x"_s + QString::number(motor + 8, 16).rightJustified(8, u'0'));
    EXPECT_TRUE(a.toString(0).endsWith(evaluator->bigEndian() ? u" <29-31>"_s : u" <0-2>"_s));
    EXPECT_TRUE(place("RED").toString(0).isEmpty());
    EXPECT_TRUE(speed.equals(place("motor.speed")));
    EXPECT_FALSE(a.equals(b));
    EXPECT_NE(a.lessThan(b), b.lessThan(a));
    EXPECT_TRUE(speed.lessThan(b));
    EXPECT_TRUE(speed.lessThan(place("@r1")));
    EXPECT_TRUE(place("@r1").lessThan(place("@r2")));
}

TEST_P(EvaluatorTest, ATypeIsFoundByItsText)
{
    for (const char *name : {"Motor", "Color", "int", "unsigned char", "Bits"}) {
        const auto type = evaluator->typeNamed(QString::fromLatin1(name));
        ASSERT_TRUE(type) << name;
        EXPECT_EQ(evaluator->types().sizeOf(evaluator->typeOfText(evaluator->textOfType(type))),
                  evaluator->types().sizeOf(type));
    }
    EXPECT_TRUE(evaluator->typeOfText(u"Motor**"_s));
    EXPECT_FALSE(evaluator->typeOfText(u"Motor +"_s));
    EXPECT_FALSE(evaluator->typeOfText(u"number"_s));
}

INSTANTIATE_TEST_SUITE_P(Orders, EvaluatorTest, testing::ValuesIn(bothOrders()), [](const auto &compiler) {
    return std::string(compiler.param.name, compiler.param.name[0] == 'l' ? 6 : 3);
});

// Pieces

struct PieceCase
{
    const char *what;
    std::vector<DwarfStackValue> pieces;
    const char *little, *big;
};

class PieceMachine : public DwarfLocationExpressionEvaluator
{
public:
    quint32 readRegister(quint32 number) override { return 0x11223300 + number; }
    quint64 readSized(quint32 address, quint32 size) override
    {
        quint64 value = 0; // each byte holds the low bits of its address
        for (quint32 i = 0; i < size; ++i)
            value |= quint64(quint8(address + i)) << 8 * (bigEndian ? size - 1 - i : i);
        return value;
    }
    bool bigEndian = false;
};

TEST(LocationPieces, AreComposedAsTheyWouldLieInMemory)
{
    using Value = DwarfStackValue;
    const PieceCase rows[] = {
        {"two registers",
         {{.value = 1, .pieceSize = 4, .kind = Value::Register}, {.value = 2, .pieceSize = 4, .kind = Value::Register}},
         "0133221102332211",
         "1122330111223302"},
        {"the low bytes of a register",
         {{.value = 1, .pieceSize = 2, .kind = Value::Register}, {.value = 0xAB, .pieceSize = 1, .kind = Value::Value}},
         "0133ab",
         "3301ab"},
        {"memory and what is gone",
         {{.value = 0x10, .pieceSize = 3}, {.pieceSize = 2, .kind = Value::Missing}},
         "1011120000",
         "1011120000"},
        {"bits",
         {{.value = 0x5, .bitSize = 3, .kind = Value::Value},
          {.value = 0xF0, .bitSize = 5, .bitOffset = 4, .kind = Value::Value}},
         "7d",
         "af"},
        {"a double register",
         {{.value = 4, .pieceSize = 8, .kind = Value::Register}},
         "0433221105332211",
         "1122330411223305"},
    };
    for (const PieceCase &row : rows) {
        for (const bool bigEndian : {false, true}) {
            PieceMachine machine;
            machine.bigEndian = bigEndian;
            const QByteArray expected = QByteArray::fromHex(bigEndian ? row.big : row.little);
            EXPECT_EQ(machine.compose(row.pieces, bigEndian, quint32(expected.size())).toHex(), expected.toHex())
                << row.what << bigEndian;
        }
    }
    EXPECT_EQ(PieceMachine().compose(rows[0].pieces, false, 6).size(), 6);
    const std::vector<Value> absurd(1000, Value{.pieceSize = ~quint64(0)});
    EXPECT_LE(PieceMachine().compose(absurd, false, ~0u).size(), 1 << 16);
}

// The image

TEST(ElfImageMemory, HasTheBytesOfSegmentsAndZerosBehindThem)
{
    ElfBuilder builder;
    builder.type = ET_EXEC;
    builder.sections = {{".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0x20000000, "abcdefgh"}};
    builder.segments = {{PT_LOAD, 0, 0x20000000, 0x8000, 4, 8}, {PT_LOAD, 4, 0xFFFFFFFC, 0xFFFFFFFC, 4, 4}};
    ElfFile elf;
    elf.parse(ByteImage::fromBytes(builder.build()));
    ElfImageMemory memory(elf);
    QByteArray bytes(8, 'x');
    memory.readMemory(0x20000000, 8, bytes.data());
    EXPECT_EQ(bytes, QByteArray("abcd\0\0\0\0", 8));
    memory.readMemory(0xFFFFFFFC, 4, bytes.data());
    EXPECT_EQ(bytes.first(4), "efgh");
    EXPECT_FALSE(memory.isInMemory(0xFFFFFFFC, 5));
    EXPECT_THROW(memory.readMemory(0xFFFFFFFC, 5, bytes.data()), HException);
    EXPECT_THROW(memory.readMemory(0x20000004, 5, bytes.data()), HException);
    EXPECT_THROW(memory.readMemory(0x8000, 1, bytes.data()), HException); // where it is loaded from
    EXPECT_THROW(memory.writeMemory(0x20000000, 1, "x"), HException);
    EXPECT_EQ(memory.readCString(0xFFFFFFFC, 100, 64, 64), u"efgh"_s);

    memory.addPiece(0x20000002, "XY");
    memory.addPiece(0x20000006, "0123");
    memory.addPiece(0xFFFFFFFF, "zz");
    memory.readMemory(0x20000000, 8, bytes.data());
    EXPECT_EQ(bytes, QByteArray("abXY\0\00001", 8));
    EXPECT_EQ(memory.peekByte(0xFFFFFFFF), 'z');
    EXPECT_TRUE(memory.isInMemory(0x20000000, 10));
}

} // namespace
