#include "script/engine/ESTranslator.h"

#include "script/engine/ESContext.h"

namespace {

using enum ESOpcode;

constexpr quint32 mostRegisters = 60000;
constexpr quint32 spareRegisters = 16; // behind the last: for arguments that a native function misses

} // namespace

std::unique_ptr<ESProgram> esTranslate(ESContext &context, const ESCode &code, bool stepping)
{
    return ESTranslator(context, code, stepping).translate();
}

// ---- Where ways meet

// What LOGAND and LOGOR at `at` come to when the instruction that they jump to tests the value again.
ESTranslator::Jump ESTranslator::thread(quint32 at) const
{
    if (m_stepping)
        return {Jump::Always, operandAt(at + 1)};
    const bool isAnd = ESOpcode(m_bytes[at]) == op_LOGAND;
    for (quint32 target = operandAt(at + 1);; target = operandAt(target + 1)) {
        const auto op = ESOpcode(m_bytes[target]);
        if (op == op_JF || op == op_JT) // pops, on both ways
            return {isAnd ? Jump::IfFalse : Jump::IfTrue, (op == op_JF) == isAnd ? operandAt(target + 1) : target + 3};
        if (op != op_LOGAND && op != op_LOGOR)
            return {Jump::Always, target}; // the value is wanted there
        if ((op == op_LOGAND) != isAnd)
            return {isAnd ? Jump::IfFalse : Jump::IfTrue, target + 3};
    }
}

void ESTranslator::findLeaders()
{
    m_leaders.assign(m_bytes.size() + 1, 0);
    m_depths.assign(m_bytes.size() + 1, -1);
    m_places.assign(m_bytes.size() + 1, -1);
    for (quint32 at = 0; at < m_bytes.size(); at += lengthAt(at)) {
        const auto op = ESOpcode(m_bytes[at]);
        if (op == op_LOGAND || op == op_LOGOR)
            m_leaders[thread(at).target] |= isLeader;
        else if (*esOperands(m_bytes[at]) == 'a')
            m_leaders[operandAt(at + 1)] |= op == op_NEXT ? isLeader | isNextTarget : isLeader;
        if (op == op_GOSUB)
            m_leaders[at + 3] |= isLeader;
    }
}

std::unique_ptr<ESProgram> ESTranslator::translate()
{
    findLeaders();
    bool seesScope = false;
    for (quint32 at = 0; at < m_bytes.size(); at += lengthAt(at)) {
        const auto op = ESOpcode(m_bytes[at]);
        seesScope |= op == op_CLOSURE || op == op_WITH || op == op_CATCH;
    }
    m_program->parameterCount = quint32(m_code.parameters.size());
    m_program->localCount = quint32(m_code.locals.size());
    m_program->makesArguments = m_code.usesArguments;
    if (m_code.needsActivation && seesScope)
        m_program->activationShape = m_context.activationShape(m_code);
    m_firstTemporary = m_mostRegisters = m_program->parameterCount + m_program->localCount;

    for (m_offset = 0; m_offset < m_bytes.size(); m_offset += lengthAt(m_offset)) {
        const quint8 leader = m_leaders[m_offset];
        if (leader) {
            if (!m_dead)
                settleAll();
            if (m_depths[m_offset] < 0)
                m_depths[m_offset] = qint32(depth()) + (leader & isNextTarget ? 1 : 0);
            m_stack.clear();
            for (qint32 i = 0; i < m_depths[m_offset]; ++i)
                pushRegister(registerOf(quint32(i)));
            m_dead = false;
            m_producer = -1;
            m_places[m_offset] = qint32(m_program->instructions.size());
        }
        if (m_dead)
            continue;
        if (m_stepping)
            emit(Kind::Step);
        if (m_offset >= m_skipTo)
            instruction(m_offset);
    }
    for (const Fixup &fixup : m_fixups) {
        ESInstruction &jump = m_program->instructions[fixup.instruction];
        const qint32 distance = m_places[fixup.target] - qint32(fixup.instruction);
        if (!fixup.isShort)
            jump.target = distance;
        else if (distance == qint16(distance))
            jump.b = quint16(distance);
        else
            m_context.fatal("compiler error: patch constant too large");
    }
    if (m_mostRegisters > mostRegisters)
        m_context.fatal("compiler error: expression too large");
    m_program->registerCount = m_mostRegisters + spareRegisters;
    return std::move(m_program);
}

// ---- Instructions and entries

quint32 ESTranslator::emit(Kind kind, quint32 a, quint32 b)
{
    ESInstruction made = {};
    made.handler = qint32(kind);
    made.a = quint16(a);
    made.b = quint16(b);
    m_program->instructions.push_back(made);
    m_program->offsets.push_back(m_offset);
    if (kind != Kind::Step)
        m_producer = -1;
    return quint32(m_program->instructions.size() - 1);
}

void ESTranslator::emitResult(Kind kind, quint32 b, quint32 c)
{
    const quint32 to = registerOf(depth());
    const quint32 made = emit(kind, to, b);
    last().c = quint16(c);
    pushRegister(to);
    m_producer = qint32(made);
}

void ESTranslator::jumpTo(quint32 target)
{
    m_fixups.push_back({quint32(m_program->instructions.size() - 1), target, false});
    m_depths[target] = qint32(depth());
}

void ESTranslator::shortJumpTo(quint32 target)
{
    jumpTo(target);
    m_fixups.back().isShort = true;
}

quint32 ESTranslator::registerOf(quint32 position)
{
    const quint32 index = m_firstTemporary + position;
    m_mostRegisters = std::max(m_mostRegisters, index + 1);
    return index;
}

ESTranslator::Entry ESTranslator::pop()
{
    const Entry entry = m_stack.back();
    m_stack.pop_back();
    return entry;
}

void ESTranslator::pushConstant(const ESValue &value)
{
    if (value.isNumber()) {
        push({Entry::Number, 0, value.number});
        return;
    }
    push({Entry::Constant, quint32(m_program->constants.size())});
    m_program->constants.push_back(value);
}

// In which register the value is, after an instruction to put it into that of `position` if it is in none.
quint32 ESTranslator::toRegister(const Entry &entry, quint32 position)
{
    if (entry.kind == Entry::Register)
        return entry.index;
    const quint32 to = registerOf(position);
    switch (entry.kind) {
    case Entry::Number:
        emit(Kind::LoadNumber, to);
        last().number = entry.number;
        break;
    case Entry::Constant:
        emit(Kind::LoadConstant, to);
        last().target = qint32(entry.index);
        break;
    default: emit(Kind::LoadThis, to);
    }
    return to;
}

quint32 ESTranslator::popRegister()
{
    const Entry entry = pop();
    return toRegister(entry, depth());
}

void ESTranslator::settle(quint32 position)
{
    Entry &entry = m_stack[position];
    const quint32 to = registerOf(position);
    if (entry.kind == Entry::Register && entry.index == to)
        return;
    if (entry.kind == Entry::Register)
        emit(Kind::Move, to, entry.index);
    else
        toRegister(entry, position);
    entry = {Entry::Register, to};
}

void ESTranslator::settleAll()
{
    for (quint32 i = 0; i < depth(); ++i)
        settle(i);
}

// Before a variable changes: what was read from it keeps the value.
void ESTranslator::settleCopiesOf(quint32 index)
{
    for (quint32 i = 0; i < depth(); ++i)
        if (m_stack[i].kind == Entry::Register && m_stack[i].index == index)
            settle(i);
}

void ESTranslator::store(quint32 index, const Entry &value)
{
    const qint32 producer = m_producer;
    settleCopiesOf(index);
    if (value.kind == Entry::Register) {
        if (producer >= 0 && producer == m_producer && m_program->instructions[quint32(producer)].a == value.index &&
            value.index >= m_firstTemporary && !isOnStack(value.index))
            m_program->instructions[quint32(producer)].a = quint16(index);
        else if (value.index != index)
            emit(Kind::Move, index, value.index);
    } else {
        const ESInstructionKind kind = value.kind == Entry::Number     ? Kind::LoadNumber
                                       : value.kind == Entry::Constant ? Kind::LoadConstant
                                                                       : Kind::LoadThis;
        emit(kind, index);
        if (value.kind == Entry::Number)
            last().number = value.number;
        else
            last().target = qint32(value.index);
    }
    m_producer = -1;
}

bool ESTranslator::isOnStack(quint32 index) const
{
    for (const Entry &entry : m_stack)
        if (entry.kind == Entry::Register && entry.index == index)
            return true;
    return false;
}

ESPropertyCache *ESTranslator::cache(ESSymbol *name, quint32 count)
{
    auto *made = m_context.m_arena.make<ESPropertyCache>();
    made->name = name;
    made->count = count;
    return made;
}

ESSymbol *ESTranslator::constantName(const Entry &entry) const
{
    if (entry.kind != Entry::Constant || m_program->constants[entry.index].type != esSymbol)
        return nullptr;
    return static_cast<ESSymbol *>(m_program->constants[entry.index].string);
}

// ---- Variables

void ESTranslator::getVariable(bool isParameter, quint32 index)
{
    const quint32 slot = isParameter ? index : m_program->parameterCount + index;
    if (!m_program->activationShape)
        return pushRegister(slot);
    emitResult(Kind::LoadVariable, 0, 0);
    last().target = qint32(slot);
}

void ESTranslator::putVariable(bool isParameter, quint32 index)
{
    const quint32 slot = isParameter ? index : m_program->parameterCount + index;
    const Entry value = pop();
    if (!m_program->activationShape)
        return store(slot, value);
    emit(Kind::StoreVariable, toRegister(value, depth()));
    last().target = qint32(slot);
}

// ++ and -- in place: subtracting makes a number of whatever was there.
void ESTranslator::step(ESOpcode op, quint32 index)
{
    const bool isGlobal = op == op_INCG || op == op_DECG;
    const bool isParameter = op == op_INCA || op == op_INCM || op == op_DECA || op == op_DECAM;
    const double amount = op <= op_INCLM ? -1 : 1;
    if (isGlobal) {
        emitResult(Kind::LoadGlobal, 0, 0);
        last().target = qint32(index);
    } else {
        getVariable(isParameter, index);
    }
    const quint32 from = popRegister();
    emitResult(Kind::SubRK, from, 0);
    last().number = amount;
    if (isGlobal) {
        emit(Kind::StoreGlobal, popRegister());
        last().target = qint32(index);
    } else {
        putVariable(isParameter, index);
    }
}

// ---- The bytecode

void ESTranslator::instruction(quint32 at)
{
    const auto op = ESOpcode(m_bytes[at]);
    const quint32 operand = *esOperands(m_bytes[at]) ? m_wide << 16 | operandAt(at + 1) : 0;
    const quint32 count = esOperands(m_bytes[at])[0] && esOperands(m_bytes[at])[1] ? operandAt(at + 3) : 0;
    ESSymbol *name = *esOperands(m_bytes[at]) == 'n' ? m_code.symbols[operand] : nullptr;
    m_wide = op == op_WIDE ? operand : 0;
    const auto unary = [&](Kind kind) { emitResult(kind, popRegister(), 0); };
    switch (op) {
    case op_WIDE: break;
    case op_NUM: pushConstant(m_code.constants[operand]); break;
    case op_NUM_0:
    case op_NUM_1:
    case op_NUM_2:
    case op_NUM_3:
    case op_NUM_4: pushConstant(int(op) - int(op_NUM_0)); break;
    case op_NUM_M1: pushConstant(-1); break;
    case op_NULL: pushConstant(ESValue::null()); break;
    case op_TRUE: pushConstant(ESValue(true)); break;
    case op_FALSE: pushConstant(ESValue(false)); break;
    case op_UNDEFINED: pushConstant({}); break;
    case op_THIS: push({Entry::This}); break;
    case op_STR: pushConstant(name); break;
    case op_DROP: pop(); break;
    case op_DUP: push(Entry(m_stack.back())); break;
    case op_VOID:
        pop();
        pushConstant({});
        break;
    case op_TYPEOF: unary(Kind::Typeof); break;
    case op_ENUM: unary(Kind::Enumerate); break;
    case op_NEXT: {
        const quint32 from = popRegister();
        settleAll();
        emit(Kind::NextName, registerOf(depth()), from);
        jumpTo(operand);
        m_depths[operand] = qint32(depth()) + 1;
        break;
    }
    case op_CLOSURE:
        emitResult(Kind::Closure, 0, 0);
        last().target = qint32(operand);
        break;
    case op_MKARRAY:
        call(Kind::NewArray, operand, 0);
        last().target = qint32(operand);
        break;
    case op_NEWOBJ:
        emitResult(Kind::NewObject, 0, 0);
        m_stack.back().object = qint32(m_program->instructions.size() - 1);
        m_producer = -1;
        break;
    case op_INITF: {
        const Entry value = pop(), object = m_stack.back();
        if (object.object >= 0)
            ++m_program->instructions[quint32(object.object)].b;
        const quint32 from = toRegister(value, depth());
        emit(Kind::InitProperty, from, object.index);
        last().cache = cache(name);
        break;
    }
    case op_WITH: emit(Kind::EnterWith, popRegister()); break;
    case op_ENDWITH: emit(Kind::LeaveWith); break;
    case op_CATCH:
        emit(Kind::EnterCatch, popRegister());
        last().symbol = name;
        break;
    case op_CALLG:
        call(Kind::CallGlobal, count, count);
        last().target = qint32(operand);
        break;
    case op_CALLA:
    case op_CALLAM:
    case op_CALLL:
    case op_CALLLM: {
        getVariable(op == op_CALLA || op == op_CALLAM, operand);
        const quint32 callee = popRegister();
        call(Kind::CallRegister, count, callee);
        last().c = quint16(count);
        break;
    }
    case op_CALLW:
        call(Kind::CallName, count, 0);
        last().cache = cache(name, count);
        break;
    case op_CALLF: {
        const Entry object = pop();
        if (name->index() != ESSymbol::noIndex) {
            const quint32 objectRegister = toRegister(object, depth());
            const quint32 key = toRegister({Entry::Number, 0, double(name->index())}, depth() + 1);
            call(Kind::CallIndexed, count, objectRegister);
            last().c = quint16(key);
            last().d = quint16(count);
        } else if (object.kind == Entry::This) {
            call(Kind::CallNamedThis, count, 0);
            last().cache = cache(name, count);
        } else {
            call(Kind::CallNamed, count, toRegister(object, depth()));
            last().cache = cache(name, count);
        }
        break;
    }
    case op_CALLX: {
        const Entry key = pop(), object = pop();
        const quint32 objectRegister = toRegister(object, depth()), keyRegister = toRegister(key, depth() + 1);
        call(Kind::CallIndexed, operand, objectRegister);
        last().c = quint16(keyRegister);
        last().d = quint16(operand);
        break;
    }
    case op_NEW:
    case op_NEWA: {
        const quint32 constructor = popRegister();
        call(Kind::New, operand, constructor);
        last().c = quint16(operand);
        break;
    }
    case op_GETW:
        emitResult(Kind::LoadName, 0, 0);
        last().cache = cache(name);
        break;
    case op_PUTW:
        emit(Kind::StoreName, popRegister());
        last().cache = cache(name);
        break;
    case op_DELETEW:
        emitResult(Kind::DeleteName, 0, 0);
        last().symbol = name;
        break;
    case op_GETG:
        emitResult(Kind::LoadGlobal, 0, 0);
        last().target = qint32(operand);
        break;
    case op_PUTG:
        emit(Kind::StoreGlobal, popRegister());
        last().target = qint32(operand);
        break;
    case op_GETA:
    case op_GETAM: getVariable(true, operand); break;
    case op_GETL:
    case op_GETLM: getVariable(false, operand); break;
    case op_PUTA:
    case op_PUTAM:
    case op_PUTL:
    case op_PUTLM: {
        const bool isParameter = op == op_PUTA || op == op_PUTAM;
        if (depth() > 0) // else what the caller stored already: the arguments
            putVariable(isParameter, operand);
        break;
    }
    case op_INCG:
    case op_INCA:
    case op_INCL:
    case op_INCM:
    case op_INCLM:
    case op_DECG:
    case op_DECA:
    case op_DECL:
    case op_DECAM:
    case op_DECLM: step(op, operand); break;
    case op_GETF:
    case op_GETX: {
        Entry key = op == op_GETX ? pop() : Entry{};
        const Entry object = pop();
        if (op == op_GETF) {
            key = {Entry::Constant, quint32(m_program->constants.size())};
            m_program->constants.push_back(name);
        }
        if (constantName(key))
            key = indexKey(constantName(key), key);
        const quint32 to = registerOf(depth());
        getProperty(object, key, depth(), to);
        pushRegister(to);
        m_producer = qint32(m_program->instructions.size() - 1);
        break;
    }
    case op_PUTF:
    case op_PUTX: {
        Entry key = op == op_PUTX ? pop() : Entry{};
        const Entry object = pop(), value = pop();
        if (op == op_PUTF) {
            key = {Entry::Constant, quint32(m_program->constants.size())};
            m_program->constants.push_back(name);
        }
        if (constantName(key))
            key = indexKey(constantName(key), key);
        const quint32 from = toRegister(value, depth());
        putProperty(from, object, key, depth() + 1);
        break;
    }
    case op_ADD: binary(Kind::AddRR, Kind::AddRK, {}); break;
    case op_SUB: binary(Kind::SubRR, Kind::SubRK, Kind::SubKR); break;
    case op_MUL: binary(Kind::MulRR, Kind::MulRK, Kind::MulRK); break;
    case op_DIV: binary(Kind::DivRR, Kind::DivRK, {}); break;
    case op_MOD: binary(Kind::ModRR, Kind::ModRK, {}); break;
    case op_BITAND: binary(Kind::AndRR, Kind::AndRK, Kind::AndRK); break;
    case op_BITOR: binary(Kind::OrRR, Kind::OrRK, Kind::OrRK); break;
    case op_BITXOR: binary(Kind::XorRR, Kind::XorRK, Kind::XorRK); break;
    case op_SHL: binary(Kind::ShlRR, Kind::ShlRK, {}); break;
    case op_SHR: binary(Kind::ShrRR, Kind::ShrRK, {}); break;
    case op_USHR: binary(Kind::UshrRR, Kind::UshrRK, {}); break;
    case op_ADDX: memberBinary(Kind::AddRR, Kind::AddRK); break;
    case op_SUBX: memberBinary(Kind::SubRR, Kind::SubRK); break;
    case op_MULX: memberBinary(Kind::MulRR, Kind::MulRK); break;
    case op_DIVX: memberBinary(Kind::DivRR, Kind::DivRK); break;
    case op_MODX: memberBinary(Kind::ModRR, Kind::ModRK); break;
    case op_BITANDX: memberBinary(Kind::AndRR, Kind::AndRK); break;
    case op_BITORX: memberBinary(Kind::OrRR, Kind::OrRK); break;
    case op_BITXORX: memberBinary(Kind::XorRR, Kind::XorRK); break;
    case op_SHLX: memberBinary(Kind::ShlRR, Kind::ShlRK); break;
    case op_SHRX: memberBinary(Kind::ShrRR, Kind::ShrRK); break;
    case op_USHRX: memberBinary(Kind::UshrRR, Kind::UshrRK); break;
    case op_PREINCX: nameStep(true, -1); break;
    case op_POSTINCX: nameStep(false, -1); break;
    case op_PREDECX: nameStep(true, 1); break;
    case op_POSTDECX: nameStep(false, 1); break;
    case op_PREINCF: memberStep(true, -1); break;
    case op_POSTINCF: memberStep(false, -1); break;
    case op_PREDECF: memberStep(true, 1); break;
    case op_POSTDECF: memberStep(false, 1); break;
    case op_DELETEX: binary(Kind::DeleteProperty, {}, {}); break;
    case op_LT:
    case op_LE:
    case op_EQ:
    case op_NE:
    case op_JLT: compare(op, at); break;
    case op_IDENTITY:
        if (ESOpcode(m_bytes[at + 1]) == op_JT_DROP && !m_leaders[at + 1] && !m_stepping)
            compareCase(at + 1);
        else
            compare(op, at);
        break;
    case op_LOGNOT:
        if (const auto test = testAfter(at))
            jumpOn(*test);
        else
            unary(Kind::LogicalNot);
        break;
    case op_BITNOT: unary(Kind::BitNot); break;
    case op_POS:
        if (m_stack.back().kind != Entry::Number)
            unary(Kind::ToNumber);
        break;
    case op_NEG:
        if (m_stack.back().kind == Entry::Number)
            m_stack.back().number = -m_stack.back().number;
        else
            unary(Kind::Negate);
        break;
    case op_LOGAND:
    case op_LOGOR: {
        const Jump jump = jumpAt(at);
        if (jump.sense != Jump::Always) {
            jumpOn({at, jump.target, jump.sense == Jump::IfTrue});
            break;
        }
        settleAll();
        emit(op == op_LOGAND ? Kind::JumpFalse : Kind::JumpTrue, registerOf(depth() - 1));
        jumpTo(jump.target);
        pop();
        break;
    }
    case op_J:
        settleAll();
        emit(Kind::Jump);
        jumpTo(operand);
        m_dead = true;
        break;
    case op_JT:
    case op_JF: jumpOn({at, operand, op == op_JT}); break;
    case op_JT_DROP: {
        const Entry tested = pop();
        settleAll();
        emit(Kind::JumpTrue, toRegister(tested, depth()));
        const Entry under = pop();
        jumpTo(operand);
        push(under);
        break;
    }
    case op_RET: {
        const Entry value = pop();
        if (value.kind == Entry::Number) {
            emit(Kind::ReturnNumber);
            last().number = value.number;
        } else {
            emit(Kind::Return, toRegister(value, depth()));
        }
        m_dead = true;
        break;
    }
    case op_RETU:
        emit(Kind::ReturnUndefined);
        m_dead = true;
        break;
    case op_TRY:
        settleAll();
        emit(Kind::EnterTry, registerOf(depth()));
        jumpTo(operand);
        m_depths[operand] = qint32(depth()) + 1;
        break;
    case op_ENDTRY: emit(Kind::LeaveTry); break;
    case op_THROW:
        emit(Kind::Throw, popRegister());
        m_dead = true;
        break;
    case op_GOSUB:
        settleAll();
        emit(Kind::Gosub, registerOf(depth()));
        jumpTo(operand);
        m_depths[operand] = qint32(depth()) + 1;
        m_depths[at + 3] = qint32(depth());
        m_dead = true;
        break;
    case op_ENDFINALLY:
        emit(Kind::EndFinally, popRegister());
        m_dead = true;
        break;
    }
}
