#pragma once

#include "debug/dwarf/Frame.h"
#include "debug/values/DwarfExpressionEvaluator.h"
#include "debug/values/ElfImageMemory.h"
#include "debug/verbs/CompiledProgram.h"

#include <array>

// A program's image as memory that can be written, with a stack behind it.
class WritableImage : public ElfImageMemory
{
public:
    static constexpr quint32 stackStart = 0x30000000, stackSize = 4096;

    explicit WritableImage(const ElfFile &elf) : ElfImageMemory(elf)
    {
        addPiece(stackStart, QByteArray(stackSize, '\0'));
    }
    void writeMemory(quint32 address, quint32 length, const void *data) override
    {
        if (!isInMemory(address, length))
            throw HException(u"memory can't be written"_s);
        addPiece(address, QByteArray(static_cast<const char *>(data), length));
    }
};

// One frame whose registers are what the test says.
class TestFrame : public ElfDwarfFrame
{
public:
    using ElfDwarfFrame::ElfDwarfFrame;
    quint32 readRegister(quint32 number) override { return number < registers.size() ? registers[number] : 0; }
    quint32 programCounter() override { return pc; }
    quint32 frameValue() override { return 0; }
    quint32 canonicalFrameAddress() override { return cfa; }

    std::array<quint32, 16> registers = {};
    quint32 pc = 0, cfa = 0;
};

// An evaluator over a stopped machine; @r0 to @r15 are its registers.
class TestEvaluator : public DwarfExpressionEvaluator
{
public:
    explicit TestEvaluator(ElfDwarfFile &file) : memory(file.elf()), frame(&file) { setFrame(&frame); }

    TargetMemoryInterface *memoryOf(quint32, quint64) override { return &memory; }
    qint32 registerNumber(const QString &name) override { return name.startsWith(u'r') ? name.mid(1).toInt() : -1; }
    const XMLElement *typeDescriptionRoot() override { return descriptions; }
    void report(const QString &text) override { reports += text; }
    void writeRegisterBlock(quint64 number, quint32 offset, quint32 length, const void *source) override
    {
        QByteArray bytes(4, '\0');
        readRegisterBlock(number, 4, bytes.data());
        bytes.replace(qsizetype(offset), qsizetype(length), static_cast<const char *>(source), qsizetype(length));
        frame.registers[number] = quint32(extractInteger(bytes.constData(), 0, 4, bigEndian()));
    }

    WritableImage memory;
    TestFrame frame;
    const XMLElement *descriptions = nullptr;
    QStringList reports;
};

// The value of an expression as text, "error: " and the message for one that fails.
inline QString evaluated(DwarfExpressionEvaluator &evaluator, const QString &expression)
{
    try {
        const ExpressionValue value = plainValue(evaluator.evaluate(expression));
        return value.kind() == ExpressionValue::Float      ? QString::number(value.asDouble())
               : value.kind() == ExpressionValue::Unsigned ? QString::number(value.asUnsigned())
               : value.kind() == ExpressionValue::String   ? value.text()
               : value.kind() == ExpressionValue::Boolean  ? QString(value.asBool() ? u"true"_s : u"false"_s)
               : value.kind() == ExpressionValue::None     ? u"none"_s
                                                           : QString::number(value.asSigned());
    } catch (const HException &error) {
        return u"error: "_s + error.message();
    }
}

// A program compiled once for all tests; its path is empty when the compiler isn't there.
inline QString compiledOnce(const Compiler &compiler, const char *text)
{
    static std::map<std::pair<std::string, const char *>, std::pair<std::unique_ptr<TemporaryFolder>, QString>>
        programs;
    auto &[folder, path] = programs[{compiler.name, text}];
    if (!folder) {
        folder = std::make_unique<TemporaryFolder>();
        path = build(*folder, compiler, text);
    }
    return path;
}

// Little- and big-endian.
inline const std::vector<Compiler> &bothOrders()
{
    static const std::vector<Compiler> list = {
        {"little-endian", {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-m3"_s, u"-mthumb"_s, u"-g"_s}},
        {"big-endian", {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-r4"_s, u"-mbig-endian"_s, u"-marm"_s, u"-g"_s}},
    };
    return list;
}
