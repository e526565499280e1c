// The part of DwarfLocationExpressionEvaluator that makes a value of what an expression leaves on the stack.
#include "debug/values/DwarfLocationExpressionEvaluator.h"

#include "base/ByteOrder.h"

namespace {

constexpr quint32 registerSize = 4;
constexpr quint64 registerSet = 0xFFFFFFFF80000000;
constexpr quint64 maximumPieceBits = quint64(1) << 19; // of one piece; no value outside of memory is larger

// Bits in the order of storage: from the least significant of each byte in little-endian memory, from the most
// significant one in big-endian memory.
uchar bitMask(quint64 bit, bool bigEndian)
{
    return uchar(bigEndian ? 0x80 >> bit % 8 : 1 << bit % 8);
}

void copyBits(const QByteArray &from, quint64 fromBit, QByteArray &to, quint64 toBit, quint64 count, bool bigEndian)
{
    const quint64 fromBits = quint64(from.size()) * 8, toBits = quint64(to.size()) * 8;
    for (quint64 i = 0; i < count && fromBit + i < fromBits && toBit + i < toBits; ++i) {
        const quint64 source = fromBit + i, target = toBit + i;
        if (uchar(from[qsizetype(source / 8)]) & bitMask(source, bigEndian))
            to[qsizetype(target / 8)] = char(uchar(to[qsizetype(target / 8)]) | bitMask(target, bigEndian));
    }
}

} // namespace

// `size` bytes of a piece as they lie, or would lie, in memory: of a number and of a register the low ones.
QByteArray DwarfLocationExpressionEvaluator::bytesOf(const DwarfStackValue &piece, quint32 size, bool bigEndian)
{
    QByteArray bytes(qsizetype(size), '\0');
    switch (piece.kind) {
    case DwarfStackValue::Plain:
        for (quint32 done = 0; done < size; done += 8) {
            const quint32 count = std::min(size - done, 8u);
            insertInteger(bytes.data(), done, readSized(quint32(piece.value) + done, count), count, bigEndian);
        }
        break;
    case DwarfStackValue::Value: insertInteger(bytes.data(), 0, piece.value, size, bigEndian); break;
    case DwarfStackValue::Register:
        for (quint32 done = 0; done < size; done += registerSize) { // a large register is several of our numbers
            const quint32 number = quint32(piece.value) + done / registerSize;
            insertInteger(bytes.data(), done, readRegister(number), std::min(size - done, registerSize), bigEndian);
        }
        break;
    case DwarfStackValue::Missing:
    case DwarfStackValue::Pointer: break;
    }
    return bytes;
}

QByteArray DwarfLocationExpressionEvaluator::compose(std::span<const DwarfStackValue> pieces, bool bigEndian,
                                                     quint32 size)
{
    QByteArray bytes(qsizetype(std::min<quint64>(size, maximumPieceBits / 8)), '\0');
    const quint64 allBits = quint64(bytes.size()) * 8;
    quint64 place = 0;
    for (const DwarfStackValue &piece : pieces) {
        if (place >= allBits)
            break;
        const quint64 wanted = piece.bitSize ? piece.bitSize : std::min(piece.pieceSize, maximumPieceBits) * 8;
        const quint64 bits = std::min(wanted, allBits - place);
        // Bits of a number count from its least significant one, in memory they count as they are stored.
        const quint64 offset = piece.bitSize ? std::min(piece.bitOffset, maximumPieceBits) : 0;
        const quint32 count = quint32((offset + wanted + 7) / 8);
        if (count > maximumPieceBits / 8)
            break;
        const bool countsFromEnd = bigEndian && piece.kind != DwarfStackValue::Plain;
        copyBits(bytesOf(piece, count, bigEndian), countsFromEnd ? quint64(count) * 8 - offset - wanted : offset, bytes,
                 place, bits, bigEndian);
        place += wanted;
    }
    return bytes;
}

std::optional<quint64> DwarfLocationExpressionEvaluator::registerSetOf(std::span<const DwarfStackValue> pieces)
{
    constexpr size_t maximumCount = 4;
    constexpr quint64 maximumNumber = 0x7F;
    if (pieces.size() < 2 || pieces.size() > maximumCount)
        return {};
    quint64 numbers = 0;
    for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece) {
        if (piece->kind != DwarfStackValue::Register || piece->pieceSize != registerSize ||
            piece->value > maximumNumber)
            return {};
        numbers = numbers << 8 | piece->value;
    }
    return numbers | registerSet;
}

quint64 DwarfLocationExpressionEvaluator::resultOf(const std::vector<DwarfStackValue> &stack, bool bigEndian,
                                                   bool &isRegister, bool &isValue)
{
    isRegister = isValue = false;
    if (stack.empty())
        return 0;
    if (stack.size() == 1) {
        isValue = stack[0].kind == DwarfStackValue::Value;
        isRegister = stack[0].kind == DwarfStackValue::Register;
        return stack[0].value;
    }
    isRegister = std::ranges::all_of(stack, [](const auto &piece) { return piece.kind == DwarfStackValue::Register; });
    if (isRegister) {
        quint64 numbers = 0;
        for (auto piece = stack.rbegin(); piece != stack.rend(); ++piece)
            numbers = numbers << 8 | piece->value;
        return numbers | registerSet;
    }
    isValue = true;
    quint64 bits = 0;
    for (const DwarfStackValue &piece : stack)
        bits += piece.bitSize ? std::min(piece.bitSize, maximumPieceBits) : std::min<quint64>(piece.pieceSize, 64) * 8;
    const quint32 size = quint32(std::min<quint64>((bits + 7) / 8, maximumPieceBits / 8));
    const QByteArray bytes = compose(stack, bigEndian, size);
    const quint32 used = std::min(size, 8u); // the low bytes of a longer value
    return extractInteger(bytes.constData(), bigEndian ? size - used : 0, used, bigEndian);
}
