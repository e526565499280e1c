#include "script/engine/ESTranslator.h"

#include "script/engine/ESContext.h"

// The instructions that groups of bytecodes come to: operators, members, tests, calls.

namespace {

using enum ESOpcode;

} // namespace

// ---- Operators

void ESTranslator::binary(Kind rr, std::optional<Kind> rk, std::optional<Kind> kr)
{
    const Entry right = pop(), left = pop();
    if (rk && right.kind == Entry::Number) {
        emitResult(*rk, toRegister(left, depth()), 0);
        last().number = right.number;
    } else if (kr && left.kind == Entry::Number) {
        emitResult(*kr, toRegister(right, depth() + 1), 0);
        last().number = left.number;
    } else {
        const quint32 leftRegister = toRegister(left, depth());
        emitResult(rr, leftRegister, toRegister(right, depth() + 1));
    }
}

void ESTranslator::getProperty(const Entry &object, const Entry &key, quint32 position, quint32 to)
{
    if (isNamed(key)) {
        ESSymbol *name = constantName(key);
        if (name == esNames().length)
            emit(Kind::GetLength, to, toRegister(object, position));
        else if (object.kind == Entry::This)
            emit(Kind::GetNamedThis, to);
        else
            emit(Kind::GetNamed, to, toRegister(object, position));
        last().cache = cache(name);
        return;
    }
    const quint32 objectRegister = toRegister(object, position), keyRegister = toRegister(key, position + 1);
    emit(Kind::GetIndexed, to, objectRegister);
    last().c = quint16(keyRegister);
}

void ESTranslator::putProperty(quint32 value, const Entry &object, const Entry &key, quint32 position)
{
    if (isNamed(key)) {
        if (object.kind == Entry::This)
            emit(Kind::PutNamedThis, value);
        else
            emit(Kind::PutNamed, value, toRegister(object, position));
        last().cache = cache(constantName(key));
        return;
    }
    const quint32 objectRegister = toRegister(object, position), keyRegister = toRegister(key, position + 1);
    emit(Kind::PutIndexed, value, objectRegister);
    last().c = quint16(keyRegister);
}

// The key of a member that is read and then written: made a name or number once.
ESTranslator::Entry ESTranslator::fixedKey(const Entry &key, quint32 position)
{
    if (constantName(key))
        return indexKey(constantName(key), key);
    if (key.kind == Entry::Number)
        return key;
    const quint32 to = registerOf(position);
    emit(Kind::ToKey, to, toRegister(key, position));
    return {Entry::Register, to};
}

// A name that is the text of a number is looked up as the number.
ESTranslator::Entry ESTranslator::indexKey(ESSymbol *name, const Entry &otherwise)
{
    return name->index() == ESSymbol::noIndex ? otherwise : Entry{Entry::Number, 0, double(name->index())};
}

// value object key -> new value
void ESTranslator::memberBinary(Kind rr, std::optional<Kind> rk)
{
    const Entry keyEntry = pop(), objectEntry = pop(), value = pop();
    const quint32 position = depth();
    registerOf(position + 3);
    const Entry object = fixedObject(objectEntry, position + 1);
    const Entry key = fixedKey(keyEntry, position + 2);
    const quint32 old = registerOf(position + 3), result = registerOf(position);
    getProperty(object, key, position + 1, old);
    if (rk && value.kind == Entry::Number) {
        emit(*rk, result, old);
        last().number = value.number;
    } else {
        const quint32 right = toRegister(value, position);
        emit(rr, result, old);
        last().c = quint16(right);
    }
    putProperty(result, object, key, position + 1);
    pushRegister(result);
}

ESTranslator::Entry ESTranslator::fixedObject(const Entry &object, quint32 position)
{
    return object.kind == Entry::This ? object : Entry{Entry::Register, toRegister(object, position)};
}

bool ESTranslator::isDropped(quint32 next) const
{
    return ESOpcode(m_bytes[next]) == op_DROP && !m_leaders[next];
}

// object key -> new or old value
void ESTranslator::memberStep(bool isPrefix, double amount)
{
    const Entry keyEntry = pop(), objectEntry = pop();
    const quint32 position = depth();
    const quint32 result = registerOf(position), changed = registerOf(position + 2), old = registerOf(position + 3);
    const Entry object = fixedObject(objectEntry, position);
    const Entry key = fixedKey(keyEntry, position + 1);
    getProperty(object, key, position, old);
    const bool wantsOld = !isPrefix && !isDropped(m_offset + 1);
    if (wantsOld)
        emit(Kind::ToNumber, old, old);
    emit(Kind::SubRK, changed, old);
    last().number = amount;
    putProperty(changed, object, key, position);
    if (!isDropped(m_offset + 1))
        emit(Kind::Move, result, wantsOld ? old : changed);
    pushRegister(result);
}

// name -> new or old value
void ESTranslator::nameStep(bool isPrefix, double amount)
{
    ESSymbol *name = constantName(pop());
    const quint32 old = registerOf(depth()), changed = registerOf(depth() + 1);
    emit(Kind::LoadName, old);
    last().cache = cache(name);
    const bool wantsOld = !isPrefix && !isDropped(m_offset + 1);
    if (wantsOld)
        emit(Kind::ToNumber, old, old);
    const quint32 result = wantsOld ? changed : old;
    emit(Kind::SubRK, result, old);
    last().number = amount;
    emit(Kind::StoreName, result);
    last().cache = cache(name);
    pushRegister(old);
}

// ---- Tests and jumps

ESTranslator::Jump ESTranslator::jumpAt(quint32 at) const
{
    switch (ESOpcode(m_bytes[at])) {
    case op_JT: return {Jump::IfTrue, operandAt(at + 1)};
    case op_JF: return {Jump::IfFalse, operandAt(at + 1)};
    case op_LOGAND:
    case op_LOGOR: return thread(at);
    default: return {Jump::Always, 0};
    }
}

// The test of what the instruction before `at` gives, when that needs no register for it.
std::optional<ESTranslator::Test> ESTranslator::testAfter(quint32 at) const
{
    bool negated = false;
    for (; !m_stepping && !m_leaders[at]; ++at) {
        const auto op = ESOpcode(m_bytes[at]);
        if (op == op_LOGNOT) {
            negated = !negated;
            continue;
        }
        const Jump jump = jumpAt(at);
        if (jump.sense == Jump::Always)
            break;
        return Test{at, jump.target, (jump.sense == Jump::IfTrue) != negated};
    }
    return std::nullopt;
}

void ESTranslator::jumpOn(const Test &test)
{
    const Entry tested = pop();
    settleAll();
    m_skipTo = test.at + lengthAt(test.at);
    if (tested.kind == Entry::Number || (tested.kind == Entry::Constant && !constantName(tested))) {
        const bool isTrue = tested.kind == Entry::Number ? tested.number == tested.number && tested.number != 0
                                                         : m_program->constants[tested.index].bits != 0;
        if (isTrue == test.ifTrue) {
            emit(Kind::Jump);
            jumpTo(test.target);
            m_dead = true;
        }
        return;
    }
    emit(test.ifTrue ? Kind::JumpTrue : Kind::JumpFalse, toRegister(tested, depth()));
    jumpTo(test.target);
}

void ESTranslator::compare(ESOpcode op, quint32 at)
{
    const auto test = op == op_JLT ? Test{at, operandAt(at + 1), true} : testAfter(at + 1);
    if (!test) {
        binary(op == op_LT   ? Kind::Less
               : op == op_LE ? Kind::LessEqual
               : op == op_EQ ? Kind::Equal
               : op == op_NE ? Kind::NotEqual
                             : Kind::Identical,
               {}, {});
        return;
    }
    const Entry right = pop(), left = pop();
    settleAll();
    m_skipTo = test->at + lengthAt(test->at);
    struct Row
    {
        Kind rr, rk, kr;
    };
    constexpr Row less[2] = {{Kind::JumpNotLessRR, Kind::JumpNotLessRK, Kind::JumpNotLessKR},
                             {Kind::JumpLessRR, Kind::JumpLessRK, Kind::JumpLessKR}};
    constexpr Row lessEqual[2] = {{Kind::JumpNotLessEqualRR, Kind::JumpNotLessEqualRK, Kind::JumpNotLessEqualKR},
                                  {Kind::JumpLessEqualRR, Kind::JumpLessEqualRK, Kind::JumpLessEqualKR}};
    constexpr Row equal[2] = {{Kind::JumpNotEqualRR, Kind::JumpNotEqualRK, Kind::JumpNotEqualRK},
                              {Kind::JumpEqualRR, Kind::JumpEqualRK, Kind::JumpEqualRK}};
    const bool isEquality = op == op_EQ || op == op_NE;
    const Row &row = isEquality ? equal[(op == op_EQ) == test->ifTrue] : (op == op_LE ? lessEqual : less)[test->ifTrue];
    const bool isShort = m_bytes.size() < 8000; // the jump shares its instruction with the number
    if (isShort && right.kind == Entry::Number) {
        emit(row.rk, toRegister(left, depth()));
        last().number = right.number;
        shortJumpTo(test->target);
    } else if (isShort && left.kind == Entry::Number) {
        emit(row.kr, toRegister(right, depth() + 1));
        last().number = left.number;
        shortJumpTo(test->target);
    } else {
        const quint32 leftRegister = toRegister(left, depth());
        const quint32 rightRegister = toRegister(right, depth() + 1);
        emit(row.rr, leftRegister, rightRegister);
        jumpTo(test->target);
    }
}

// value case -> value, or with a jump nothing
void ESTranslator::compareCase(quint32 at)
{
    const Entry right = pop(), left = pop();
    m_skipTo = at + lengthAt(at);
    settleAll();
    const quint32 leftRegister = toRegister(left, depth());
    const quint32 rightRegister = toRegister(right, depth() + 1);
    emit(Kind::JumpIdentical, leftRegister, rightRegister);
    const Entry under = pop();
    jumpTo(operandAt(at + 1));
    push(under);
}

// ---- Calls

void ESTranslator::call(Kind kind, quint32 count, quint32 callee)
{
    const quint32 first = depth() - count;
    for (quint32 i = first; i < depth(); ++i)
        settle(i);
    emit(kind, registerOf(first), callee);
    m_stack.resize(first);
    pushRegister(registerOf(first));
}
