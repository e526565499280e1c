#include "debug/values/DwarfLocationExpressionEvaluator.h"

#include "debug/dwarf/DwarfFile.h"

#include <bit>

namespace {

// Opcodes by the names of the table of operations.
enum Opcode : quint8 {
#define DWARF_OP(code, name, operands) Op_##name = code,
#include "debug/dwarf/DwarfOperations.def"
#undef DWARF_OP
    Op_lit0 = 0x30,
    Op_lit31 = 0x4f,
    Op_reg0 = 0x50,
    Op_reg31 = 0x6f,
    Op_breg0 = 0x70,
    Op_breg31 = 0x8f,
};

quint64 signExtended(quint64 value, quint32 size)
{
    const quint32 shift = 64 - 8 * size;
    return size == 0 || size > 8 ? value : quint64(qint64(value << shift) >> shift);
}

quint64 truncated(quint64 value, quint32 size)
{
    return size >= 8 ? value : value & ((quint64(1) << 8 * size) - 1);
}

bool isBigEndian(DwarfDebuggingInformationEntry entry)
{
    return entry && entry.unit()->file().bigEndian();
}

// What a base type says about the bits of a stack entry.
struct Encoding
{
    explicit Encoding(DwarfDebuggingInformationEntry type)
        : size(quint32(type.number(DW_AT_byte_size).value_or(0))), code(type.number(DW_AT_encoding))
    {}
    bool isTyped() const { return size && code; }
    bool isFloat() const { return code == DW_ATE_float; }
    bool isSigned() const { return code == DW_ATE_signed || code == DW_ATE_signed_char || code == DW_ATE_signed_fixed; }

    double toDouble(quint64 bits) const
    {
        if (isFloat())
            return size == 4 ? double(std::bit_cast<float>(quint32(bits))) : std::bit_cast<double>(bits);
        return isSigned() ? double(qint64(signExtended(bits, size))) : double(bits);
    }
    // Bits of this type for the number that `bits` are in the type `from`.
    quint64 converted(quint64 bits, const Encoding &from) const
    {
        if (isFloat()) {
            const double number = from.toDouble(bits);
            return size == 4 ? std::bit_cast<quint32>(float(number)) : std::bit_cast<quint64>(number);
        }
        if (from.isFloat()) {
            const double number = from.toDouble(bits);
            if (!(number > -0x1p63 && number < 0x1p63))
                return 0; // of no integer type that a conversion could mean
            bits = quint64(qint64(number));
        } else if (from.isTyped()) {
            bits = from.isSigned() ? signExtended(bits, from.size) : truncated(bits, from.size);
        }
        return isSigned() ? signExtended(bits, size) : size ? truncated(bits, size) : bits;
    }

    quint32 size;
    std::optional<quint64> code;
};

} // namespace

// The state of one expression.
struct DwarfLocationExpressionEvaluator::Run
{
    DwarfDebuggingInformationEntry entry; // its owner
    int &operationsLeft;
    int depth = 0;
    std::vector<DwarfStackValue> stack = {};

    void push(const DwarfStackValue &value)
    {
        if (stack.size() < maximumStack)
            stack.push_back(value);
    }
    void push(quint64 value) { push(DwarfStackValue{.value = value}); }
    DwarfStackValue pop()
    {
        if (stack.empty())
            return {};
        const DwarfStackValue top = stack.back();
        stack.pop_back();
        return top;
    }
    quint64 below(size_t index) const { return index < stack.size() ? stack[stack.size() - 1 - index].value : 0; }
    DwarfDebuggingInformationEntry typeAt(quint64 offset) const
    {
        return entry && offset && offset <= ~quint32(0) ? entry.unit()->entryAt(quint32(offset))
                                                        : DwarfDebuggingInformationEntry();
    }
    // A constant of 1, 2, 4 or 8 bytes; others push nothing.
    void pushConstant(ByteCursor bytes, DwarfDebuggingInformationEntry type)
    {
        const qsizetype size = bytes.remaining();
        if (size == 1 || size == 2 || size == 4 || size == 8)
            push({.value = bytes.readUnsigned(quint32(size)), .kind = DwarfStackValue::Value, .type = type});
    }
};

quint64 DwarfLocationExpressionEvaluator::evaluate(DwarfDebuggingInformationEntry entry,
                                                   std::span<const quint8> expression, bool pushZero, bool &isRegister,
                                                   bool &isValue)
{
    return resultOf(pushZero ? runFrom(entry, expression, 0) : run(entry, expression), isBigEndian(entry), isRegister,
                    isValue);
}

std::vector<DwarfStackValue> DwarfLocationExpressionEvaluator::run(DwarfDebuggingInformationEntry entry,
                                                                   std::span<const quint8> expression)
{
    int operationsLeft = maximumOperations;
    Run run{.entry = entry, .operationsLeft = operationsLeft};
    runInner(run, expression);
    return std::move(run.stack);
}

std::vector<DwarfStackValue> DwarfLocationExpressionEvaluator::runFrom(DwarfDebuggingInformationEntry entry,
                                                                       std::span<const quint8> expression,
                                                                       quint64 initial)
{
    int operationsLeft = maximumOperations;
    Run run{.entry = entry, .operationsLeft = operationsLeft};
    run.push(initial);
    runInner(run, expression);
    return std::move(run.stack);
}

void DwarfLocationExpressionEvaluator::runInner(Run &run, std::span<const quint8> expression)
{
    if (!run.entry || run.depth > maximumDepth)
        return;
    ByteCursor cursor(expression, isBigEndian(run.entry));
    while (!cursor.atEnd() && run.operationsLeft-- > 0 && step(run, cursor)) {
    }
}

quint64 DwarfLocationExpressionEvaluator::innerResult(Run &outer, DwarfDebuggingInformationEntry entry,
                                                      std::span<const quint8> expression, bool &isRegister)
{
    Run inner{.entry = entry, .operationsLeft = outer.operationsLeft, .depth = outer.depth + 1};
    runInner(inner, expression);
    bool isValue = false;
    return resultOf(inner.stack, isBigEndian(entry), isRegister, isValue);
}

std::span<const quint8> DwarfLocationExpressionEvaluator::expressionOf(const DwarfAttribute &attribute)
{
    switch (attribute.valueClass) {
    case DwarfAttribute::Block: return attribute.block();
    case DwarfAttribute::Number:
    case DwarfAttribute::Reference:
        if (attribute.unit)
            return locationListEntry(*attribute.unit, attribute.value,
                                     programCounter() - attribute.unit->file().loadOffset());
        break;
    case DwarfAttribute::SignedNumber:
    case DwarfAttribute::String: break;
    }
    return {};
}

// What is larger than a register is in this one and the next.
quint64 DwarfLocationExpressionEvaluator::readTypedRegister(quint32 number, DwarfDebuggingInformationEntry type)
{
    const quint64 first = readRegister(number);
    if (type.number(DW_AT_byte_size) != 8)
        return first;
    const quint64 next = readRegister(number + 1);
    return isBigEndian(type) ? first << 32 | next : next << 32 | first;
}

// False ends the expression.
bool DwarfLocationExpressionEvaluator::step(Run &run, ByteCursor &cursor)
{
    const auto jump = [&](qint16 distance) { cursor.seek(quint64(cursor.offset() + distance)); };
    const quint8 code = cursor.readU8();
    if (code >= Op_lit0 && code <= Op_lit31) {
        run.push(code - Op_lit0);
        return true;
    }
    if (code >= Op_reg0 && code <= Op_reg31) {
        run.push({.value = quint64(code - Op_reg0), .kind = DwarfStackValue::Register});
        return true;
    }
    if (code >= Op_breg0 && code <= Op_breg31) {
        const quint64 offset = quint64(cursor.readSleb128());
        run.push(readRegister(code - Op_breg0) + offset);
        return !cursor.failed();
    }
    switch (code) {
    case Op_addr: run.push(mapAddress(cursor.readU32())); break;
    case Op_addrx:
    case Op_GNU_addr_index: run.push(mapAddress(run.entry.unit()->addressAt(cursor.readUleb128()))); break;
    case Op_constx:
    case Op_GNU_const_index: run.push(run.entry.unit()->addressAt(cursor.readUleb128())); break;
    case Op_deref: run.push(readWord(quint32(run.pop().value))); break;
    case Op_const1u: run.push(cursor.readU8()); break;
    case Op_const1s: run.push(quint64(qint8(cursor.readU8()))); break;
    case Op_const2u: run.push(cursor.readU16()); break;
    case Op_const2s: run.push(quint64(qint16(cursor.readU16()))); break;
    case Op_const4u: run.push(cursor.readU32()); break;
    case Op_const4s: run.push(quint64(qint32(cursor.readU32()))); break;
    case Op_const8u:
    case Op_const8s: run.push(cursor.readU64()); break;
    case Op_constu: run.push(cursor.readUleb128()); break;
    case Op_consts: run.push(quint64(cursor.readSleb128())); break;
    case Op_dup: run.push(run.below(0)); break;
    case Op_drop: run.pop(); break;
    case Op_over: run.push(run.below(1)); break;
    case Op_pick: run.push(run.below(cursor.readU8())); break;
    case Op_swap:
    case Op_rot: {
        const DwarfStackValue top = run.pop(), second = run.pop();
        const DwarfStackValue third = code == Op_rot ? run.pop() : DwarfStackValue();
        run.push(top);
        if (code == Op_rot)
            run.push(third);
        run.push(second);
        break;
    }
    case Op_abs: {
        const qint32 number = qint32(run.pop().value);
        run.push(number < 0 ? quint32(0) - quint32(number) : quint32(number));
        break;
    }
    case Op_neg: {
        DwarfStackValue top = run.pop();
        const Encoding encoding(top.type);
        if (encoding.isFloat())
            top.value ^= quint64(1) << (encoding.size == 4 ? 31 : 63); // the sign
        else
            top.value = encoding.isTyped() ? encoding.converted(0 - top.value, encoding) : 0 - top.value;
        if (encoding.isTyped())
            run.push({.value = top.value, .kind = DwarfStackValue::Value, .type = top.type});
        else
            run.push(top.value);
        break;
    }
    case Op_not: run.push(~run.pop().value); break;
    case Op_plus_uconst: {
        const quint64 addend = cursor.readUleb128();
        run.push(run.pop().value + addend);
        break;
    }
    case Op_bra: {
        const qint16 distance = qint16(cursor.readU16());
        if (run.pop().value)
            jump(distance);
        break;
    }
    case Op_skip: jump(qint16(cursor.readU16())); break;
    case Op_regx: run.push({.value = cursor.readUleb128(), .kind = DwarfStackValue::Register}); break;
    case Op_bregx: {
        const quint32 number = quint32(cursor.readUleb128());
        const quint32 offset = quint32(cursor.readSleb128());
        run.push(readRegister(number) + offset);
        break;
    }
    case Op_fbreg: {
        const quint64 offset = quint64(cursor.readSleb128());
        const auto attribute = run.entry.attributeResolved(DW_AT_frame_base, true);
        const auto base = attribute ? expressionOf(*attribute) : std::span<const quint8>();
        if (base.empty())
            break;
        bool isRegister = false;
        // A frame base doesn't name its own.
        const quint64 value = innerResult(run, attribute->unit->tree(), base, isRegister);
        run.push((isRegister ? readRegister(quint32(value)) : value) + offset);
        break;
    }
    case Op_piece: {
        const quint64 size = cursor.readUleb128();
        if (run.stack.empty() || run.stack.back().pieceSize || run.stack.back().bitSize)
            run.push({.kind = DwarfStackValue::Missing});
        run.stack.back().pieceSize = size;
        break;
    }
    case Op_bit_piece: {
        const quint64 size = cursor.readUleb128(), offset = cursor.readUleb128();
        if (run.stack.empty() || run.stack.back().pieceSize || run.stack.back().bitSize)
            run.push({.kind = DwarfStackValue::Missing});
        run.stack.back().bitSize = size;
        run.stack.back().bitOffset = offset;
        break;
    }
    case Op_deref_size: {
        const quint8 size = cursor.readU8();
        run.push(readSized(quint32(run.pop().value), std::min<quint32>(size, 8)));
        break;
    }
    case Op_deref_type:
    case Op_GNU_deref_type: {
        const quint8 size = cursor.readU8();
        const auto type = run.typeAt(cursor.readUleb128());
        const quint32 address = quint32(run.pop().value);
        run.push(
            {.value = readSized(address, std::min<quint32>(size, 8)), .kind = DwarfStackValue::Value, .type = type});
        break;
    }
    case Op_nop: break;
    case Op_call2:
    case Op_call4: {
        const auto callee = run.typeAt(code == Op_call2 ? cursor.readU16() : cursor.readU32());
        const auto attribute = callee.attributeResolved(DW_AT_location);
        if (!attribute || run.depth >= maximumDepth)
            break;
        ++run.depth; // the same stack
        runInner(run, expressionOf(*attribute));
        --run.depth;
        break;
    }
    case Op_call_frame_cfa: run.push(canonicalFrameAddress()); break;
    case Op_form_tls_address:
    case Op_GNU_push_tls_address: run.push(threadLocalBase() + run.pop().value); break;
    case Op_implicit_value: run.pushConstant(cursor.take(cursor.readUleb128()), {}); break;
    case Op_stack_value: run.push({.value = run.pop().value, .kind = DwarfStackValue::Value}); break;
    case Op_implicit_pointer:
    case Op_GNU_implicit_pointer:
        cursor.skip(run.entry.unit()->format().referenceSize);
        cursor.readSleb128();
        run.push({.kind = DwarfStackValue::Pointer});
        break;
    case Op_entry_value:
    case Op_GNU_entry_value: {
        const std::span<const quint8> inner = cursor.readBytes(cursor.readUleb128());
        if (inner.empty())
            break;
        bool isRegister = false;
        const quint64 value = innerResult(run, run.entry, inner, isRegister);
        run.push(isRegister ? entryRegister(quint32(value)) : value);
        break;
    }
    case Op_const_type:
    case Op_GNU_const_type: {
        const auto type = run.typeAt(cursor.readUleb128());
        run.pushConstant(cursor.take(cursor.readU8()), type);
        break;
    }
    case Op_regval_type:
    case Op_GNU_regval_type: {
        const quint32 number = quint32(cursor.readUleb128());
        const auto type = run.typeAt(cursor.readUleb128());
        run.push({.value = readTypedRegister(number, type), .kind = DwarfStackValue::Value, .type = type});
        break;
    }
    case Op_GNU_convert: cursor.readUleb128(); break;
    case Op_convert:
    case Op_reinterpret:
    case Op_GNU_reinterpret: {
        DwarfStackValue top = run.pop();
        const auto type = run.typeAt(cursor.readUleb128());
        if (code == Op_convert)
            top.value = Encoding(type).converted(top.value, Encoding(top.type));
        top.type = type;
        run.push(top);
        break;
    }
    case Op_and:
    case Op_div:
    case Op_minus:
    case Op_mod:
    case Op_mul:
    case Op_or:
    case Op_plus:
    case Op_shl:
    case Op_shr:
    case Op_shra:
    case Op_xor:
    case Op_eq:
    case Op_ge:
    case Op_gt:
    case Op_le:
    case Op_lt:
    case Op_ne: return stepBinary(run, code);
    default: return false;
    }
    return !cursor.failed();
}

namespace {

// Of the comparisons.
template <typename Number>
bool isTrue(quint8 code, Number a, Number b)
{
    switch (code) {
    case Op_eq: return a == b;
    case Op_ne: return a != b;
    case Op_ge: return a >= b;
    case Op_gt: return a > b;
    case Op_le: return a <= b;
    }
    return a < b;
}

} // namespace

// Operations on the two topmost entries. Those with a base type are computed in it.
bool DwarfLocationExpressionEvaluator::stepBinary(Run &run, quint8 code)
{
    if (code == Op_plus && run.stack.empty())
        return true;
    const DwarfStackValue top = run.pop(), second = run.pop();
    if (const Encoding encoding(top.type); encoding.isTyped())
        return encoding.isFloat() ? stepFloats(run, code, second, top) : stepIntegers(run, code, second, top);
    const quint64 a = second.value, b = top.value;
    const quint32 shift = b & 31;
    switch (code) {
    case Op_plus: run.push(a + b); break;
    case Op_minus: run.push(quint32(a - b)); break;
    case Op_mul: run.push(a * b); break;
    case Op_and: run.push(a & b); break;
    case Op_or: run.push(a | b); break;
    case Op_xor: run.push(a ^ b); break;
    case Op_div:
        if (quint32(b) == 0)
            return false;
        run.push(quint32(qint64(qint32(a)) / qint32(b)));
        break;
    case Op_mod:
        if (quint32(b) == 0)
            return false;
        run.push(quint32(a) % quint32(b));
        break;
    case Op_shl: run.push(quint32(a) << shift); break;
    case Op_shr: run.push(quint32(a) >> shift); break;
    case Op_shra: run.push(quint32(qint32(a) >> shift)); break;
    default: run.push(isTrue(code, qint64(a), qint64(b)));
    }
    return true;
}

// Floats have no bits to shift or to mask, so that such an operation ends the expression.
bool DwarfLocationExpressionEvaluator::stepFloats(Run &run, quint8 code, const DwarfStackValue &second,
                                                  const DwarfStackValue &top)
{
    const Encoding encoding(top.type);
    const double a = encoding.toDouble(second.value), b = encoding.toDouble(top.value);
    const auto push = [&](double number) {
        const quint64 bits =
            encoding.size == 4 ? std::bit_cast<quint32>(float(number)) : std::bit_cast<quint64>(number);
        run.push({.value = bits, .kind = DwarfStackValue::Value, .type = top.type});
    };
    switch (code) {
    case Op_plus: push(a + b); break;
    case Op_minus: push(a - b); break;
    case Op_mul: push(a * b); break;
    case Op_div: push(a / b); break;
    case Op_eq:
    case Op_ne:
    case Op_ge:
    case Op_gt:
    case Op_le:
    case Op_lt: run.push(isTrue(code, a, b)); break;
    default: return false;
    }
    return true;
}

bool DwarfLocationExpressionEvaluator::stepIntegers(Run &run, quint8 code, const DwarfStackValue &second,
                                                    const DwarfStackValue &top)
{
    const Encoding encoding(top.type);
    const quint32 size = encoding.size;
    const bool isSigned = encoding.isSigned();
    if (isSigned && (size > 8 || !std::has_single_bit(size)))
        return true; // no integer
    const quint64 a = isSigned ? signExtended(second.value, size) : truncated(second.value, size);
    const quint64 b = isSigned ? signExtended(top.value, size) : truncated(top.value, size);
    const auto push = [&](quint64 number) {
        const quint64 bits = isSigned ? signExtended(number, size) : truncated(number, size);
        run.push({.value = bits, .kind = DwarfStackValue::Value, .type = top.type});
    };
    switch (code) {
    case Op_plus: // a sum may be wider than its type
        run.push(
            {.value = isSigned ? a + b : second.value + top.value, .kind = DwarfStackValue::Value, .type = top.type});
        break;
    case Op_minus: push(a - b); break;
    case Op_mul: push(a * b); break;
    case Op_and: push(a & b); break;
    case Op_or: push(a | b); break;
    case Op_xor: push(a ^ b); break;
    case Op_div:
        if (b == 0)
            return false;
        push(!isSigned ? a / b : b == ~quint64(0) ? 0 - a : quint64(qint64(a) / qint64(b)));
        break;
    case Op_mod:
        if (b == 0)
            return false;
        push(!isSigned ? a % b : b == ~quint64(0) ? 0 : quint64(qint64(a) % qint64(b)));
        break;
    case Op_shl: push(b < 64 ? a << b : 0); break;
    case Op_shr: push(b < 64 ? truncated(a, size) >> b : 0); break;
    case Op_shra: push(quint64(qint64(signExtended(a, size)) >> std::min<quint64>(b, 63))); break;
    default: run.push(isSigned ? isTrue(code, qint64(a), qint64(b)) : isTrue(code, a, b));
    }
    return true;
}
