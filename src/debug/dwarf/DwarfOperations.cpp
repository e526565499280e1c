#include "debug/dwarf/DwarfOperations.h"

#include <QString>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr int maximumDepth = 8; // of expressions in expressions

struct Operation
{
    const char *name = nullptr;
    const char *operands = "";
};

constexpr std::array<Operation, 256> makeOperations()
{
    std::array<Operation, 256> operations{};
#define DWARF_OP(code, name, operands) operations[code] = {"DW_OP_" #name, operands};
#include "debug/dwarf/DwarfOperations.def"
#undef DWARF_OP
    return operations;
}
constexpr std::array<Operation, 256> operations = makeOperations();

// Families of 32 operations whose number is in the name.
struct Family
{
    quint8 first;
    const char *name;
    bool hasOffset;
};
constexpr Family families[] = {{0x30, "DW_OP_lit", false}, {0x50, "DW_OP_reg", false}, {0x70, "DW_OP_breg", true}};

// ": " and bytes, or for a block as long as an integer "_4: " and the number.
QByteArray blockText(ByteCursor block)
{
    const qsizetype length = block.remaining();
    if (length == 1 || length == 2 || length == 4 || length == 8)
        return '_' + QByteArray::number(length) + ": " + QByteArray::number(block.readUnsigned(quint32(length)));
    QByteArray text = ":";
    while (!block.atEnd())
        text += " 0x" + QByteArray::number(block.readU8(), 16).rightJustified(2, '0');
    return text;
}

QByteArray expressionText(ByteCursor expression, DwarfFormat format, int depth);

QByteArray operandText(ByteCursor &cursor, char kind, DwarfFormat format, int depth)
{
    switch (kind) {
    case 'a': return "0x" + QByteArray::number(cursor.readU32(), 16).rightJustified(8, '0');
    case 'b': return QByteArray::number(cursor.readU8());
    case 'h': return QByteArray::number(cursor.readU16());
    case 'w': return QByteArray::number(cursor.readU32());
    case 'q': return QByteArray::number(cursor.readU64());
    case 'B': return QByteArray::number(qint8(cursor.readU8()));
    case 'H': return QByteArray::number(qint16(cursor.readU16()));
    case 'W': return QByteArray::number(qint32(cursor.readU32()));
    case 'Q': return QByteArray::number(qint64(cursor.readU64()));
    case 'u': return QByteArray::number(cursor.readUleb128());
    case 's': return QByteArray::number(cursor.readSleb128());
    case 'p': return "0x" + QByteArray::number(cursor.readUnsigned(format.referenceSize), 16);
    case 'e': {
        const ByteCursor inner = cursor.take(cursor.readUleb128());
        return '(' + (depth < maximumDepth ? expressionText(inner, format, depth + 1) : "..."_ba) + ')';
    }
    }
    return {};
}

// The next operation. Leaves the cursor at its end when nothing behind can be told.
QByteArray operationText(ByteCursor &cursor, DwarfFormat format, int depth)
{
    const quint8 code = cursor.readU8();
    for (const Family &family : families) {
        if (code < family.first || code >= family.first + 32)
            continue;
        const QByteArray name = family.name + QByteArray::number(code - family.first);
        return family.hasOffset ? name + ": " + QByteArray::number(cursor.readSleb128()) : name;
    }
    const Operation &operation = operations[code];
    if (!operation.name) {
        cursor.skip(quint64(cursor.remaining()));
        return "0x" + QByteArray::number(code, 16).rightJustified(2, '0');
    }
    QByteArray text = operation.name;
    for (const char *kind = operation.operands; *kind; ++kind) {
        if (*kind == 'x' || *kind == 't') {
            text += blockText(cursor.take(*kind == 't' ? cursor.readU8() : cursor.readUleb128()));
        } else {
            text += kind == operation.operands ? ": " : " ";
            text += operandText(cursor, *kind, format, depth);
        }
    }
    return text;
}

QByteArray expressionText(ByteCursor expression, DwarfFormat format, int depth)
{
    QByteArray text;
    while (!expression.atEnd()) {
        if (!text.isEmpty())
            text += ", ";
        text += operationText(expression, format, depth);
    }
    return expression.failed() ? text + "..." : text;
}

} // namespace

QByteArray dwarfExpressionText(ByteCursor expression, DwarfFormat format)
{
    return expressionText(expression, format, 0);
}
