// The inner interpreter: direct-threaded instructions on typed cells.
//
// The top cell of the data stack lives in `kind` and `value`, the others in the stack's array below `sp`. An
// instruction does the common case (integers, nearly always) itself; whatever else its operands may be goes
// to the function with the word's whole meaning, which works on the stack in memory.
#include "forth/machine/FSContext.h"
#include "forth/machine/ForthWords.h"

using namespace Qt::StringLiterals;

namespace {

// The whole meaning of instructions whose fast path takes every valid operand: what is left is the error.
void requireInteger(FSContext &context)
{
    context.popInteger();
}
void requireIntegers(FSContext &context)
{
    context.popInteger();
    context.popInteger();
}
void rejectLoop(FSContext &context)
{
    const Cell index = context.pop();
    cellLess(index, context.pop());
}
[[noreturn]] void loopUnderflow()
{
    throw ForthException(ForthError::Abort, u"loop stack underflow"_s);
}

qint64 wrappedSum(qint64 left, qint64 right)
{
    return qint64(quint64(left) + quint64(right));
}
qint64 wrappedDifference(qint64 left, qint64 right)
{
    return qint64(quint64(left) - quint64(right));
}
qint64 wrappedProduct(qint64 left, qint64 right)
{
    return qint64(quint64(left) * quint64(right));
}
bool isNumberKind(quint64 kind)
{
    return kind == Cell::integerKind || kind > Cell::stringKind;
}

} // namespace

// Without a context: gives the places of the instructions, in the order of Op.
const void *const *FSContext::runInstructions(FSContext *context, const Slot *ip)
{
    static const void *const labels[] = {
#define FORTH_OP(name, operands) &&op_##name,
#define FORTH_FUSED(name, first, second) &&op_##name,
#include "forth/machine/ForthOps.def"
#undef FORTH_FUSED
#undef FORTH_OP
    };
    if (!context)
        return labels;

    constexpr quint64 integer = Cell::integerKind, empty = Cell::emptyKind;
    Cell *const full = context->dataStack.full() - 1; // sp of a full stack
    Cell *sp;
    quint64 kind;
    qint64 value;
    const Slot **call;
    LoopRecord *loop;
    ForthFunction function;

#define LOAD()                       \
    do {                             \
        sp = context->dataStack.top; \
        call = context->m_call;      \
        loop = context->m_loop;      \
        DROP();                      \
    } while (0)
#define SAVE()                       \
    do {                             \
        ++sp;                        \
        sp->kind = kind;             \
        sp->integer = value;         \
        context->dataStack.top = sp; \
        context->m_call = call;      \
        context->m_loop = loop;      \
    } while (0)
#define NEXT() goto *(ip++)->label
#define DROP() (kind = sp->kind, value = sp->integer, --sp)
#define PUSH(newKind, newValue)              \
    do {                                     \
        if (Q_UNLIKELY(sp == full))          \
            goto overflow;                   \
        const quint64 pushedKind = newKind;  \
        const qint64 pushedValue = newValue; \
        ++sp;                                \
        sp->kind = kind;                     \
        sp->integer = value;                 \
        kind = pushedKind;                   \
        value = pushedValue;                 \
    } while (0)
#define SLOW(meaning)       \
    do {                    \
        function = meaning; \
        goto callFunction;  \
    } while (0)
#define NEED(count)                                                        \
    if (Q_UNLIKELY(((count) == 1 ? kind : sp[2 - (count)].kind) == empty)) \
    goto underflow
#define INTERRUPTED() Q_UNLIKELY(context->m_interrupts.load(std::memory_order_relaxed) != 0)

    LOAD();
    NEXT();

callFunction:
    SAVE();
    function(*context);
    LOAD();
    NEXT();
underflow:
    SAVE();
    throw ForthException(ForthError::StackUnderflow);
overflow:
    SAVE();
    throw ForthException(ForthError::StackOverflow);
interrupt:
    SAVE();
    context->pollInterrupt();
    LOAD();
    NEXT();
tooDeep:
    SAVE();
    context->pollInterrupt();
    context->throwTooDeep();
noLoop:
    SAVE();
    loopUnderflow();

    // Calls

op_Stop:
    SAVE();
    return nullptr;
op_Exit:
    ip = *--call;
    NEXT();
op_Call:
    if (Q_UNLIKELY(call == context->m_callLimit) || INTERRUPTED())
        goto tooDeep;
    *call++ = ip + 1;
    ip = static_cast<const PCFA *>(ip->word)->body;
    NEXT();
op_CallFunction:
    function = (ip++)->function;
    goto callFunction;
op_CallNode:
    SAVE();
    (ip++)->word->execute(context);
    LOAD();
    NEXT();
op_PostponeRun:
    SAVE();
    if (!ip->word->isImmediate()) {
        (ip++)->word->compile(*context);
        LOAD();
        NEXT();
    }
    if (call == context->m_callLimit)
        context->throwTooDeep();
    LOAD();
    *call++ = ip + 1;
    ip = ip->word->form();
    NEXT();
op_Execute:
    if (Q_UNLIKELY(kind != Cell::codeKind))
        SLOW([](FSContext &machine) { machine.popCode(); });
    if (Q_UNLIKELY(call == context->m_callLimit))
        goto tooDeep;
    *call++ = ip;
    ip = reinterpret_cast<pcode *>(value)->form();
    DROP();
    NEXT();
op_Catch:
    if (Q_UNLIKELY(kind != Cell::codeKind))
        SLOW([](FSContext &machine) { machine.popCode(); });
    if (Q_UNLIKELY(context->m_callLimit - call < 2))
        goto tooDeep;
    *call++ = ip;
    ip = reinterpret_cast<pcode *>(value)->form();
    DROP();
    SAVE();
    context->pushHandler();
    LOAD();
    *call++ = fixedCode(Op::CatchEnd);
    NEXT();
op_CatchEnd:
    context->m_handlers.pop_back();
    PUSH(integer, 0);
    NEXT();
op_Throw:
    if (Q_UNLIKELY(kind != integer))
        SLOW(requireInteger);
    {
        const qint64 code = value;
        DROP();
        SAVE();
        if (!context->canCatch(code))
            throw ForthException(code);
        context->unwind(code);
        LOAD();
        ip = *--call;
    }
    NEXT();

    // Literals

op_Literal:
    PUSH(integer, (ip++)->value);
    NEXT();
op_PushCell:
    PUSH(ip->cell->kind, ip->cell->integer);
    ++ip;
    NEXT();
op_StoreCell:
    NEED(1);
    ip->cell->kind = kind;
    ip->cell->integer = value;
    ++ip;
    DROP();
    NEXT();
op_Address:
    PUSH(quint64(ip[0].memory), ip[1].value);
    ip += 2;
    NEXT();

    // Branches

op_Branch:
    ip = ip->target;
    NEXT();
op_ZBranch:
    NEED(1);
    ip = kind == integer && value == 0 ? ip->target : ip + 1;
    DROP();
    NEXT();
op_Again:
    ip = ip->target;
    if (INTERRUPTED())
        goto interrupt;
    NEXT();
op_Until:
    NEED(1);
    ip = kind == integer && value == 0 ? ip->target : ip + 1;
    DROP();
    if (INTERRUPTED())
        goto interrupt;
    NEXT();
op_OfBranch:
    NEED(2);
    if (cellsEqual({kind, {.integer = value}}, *sp)) {
        --sp;
        DROP();
        ++ip;
    } else {
        DROP();
        ip = ip->target;
    }
    NEXT();

    // Loops

op_QuestionDo:
    if (kind == sp->kind && isNumberKind(kind) && value == sp->integer) {
        --sp;
        DROP();
        ip = ip->target;
        NEXT();
    }
    ++ip;
op_Do:
    NEED(2);
    if (Q_UNLIKELY(kind != sp->kind || !isNumberKind(kind)))
        SLOW(rejectLoop);
    if (Q_UNLIKELY(loop == context->m_loopLimit)) {
        SAVE();
        throw ForthException(ForthError::LoopStackOverflow);
    }
    ++loop;
    *loop = {kind, value, sp->integer};
    --sp;
    DROP();
    NEXT();
op_Loop : {
    const qint64 next = wrappedSum(loop->index, 1);
    if (Q_LIKELY(next < loop->limit)) {
        loop->index = next;
        ip = ip->target;
        if (INTERRUPTED())
            goto interrupt;
        NEXT();
    }
    if (loop == context->m_loops.get())
        goto noLoop;
    --loop;
    ++ip;
    NEXT();
}
op_PlusLoop : {
    if (Q_UNLIKELY(kind != integer))
        SLOW(requireInteger);
    const qint64 step = value;
    DROP();
    if (loop == context->m_loops.get())
        goto noLoop;
    loop->index = wrappedSum(loop->index, step);
    if (step < 0 ? loop->index > loop->limit : loop->index < loop->limit) {
        ip = ip->target;
        if (INTERRUPTED())
            goto interrupt;
        NEXT();
    }
    --loop;
    ++ip;
    NEXT();
}
op_Leave:
    ip = ip->target;
op_Unloop:
    if (loop == context->m_loops.get())
        goto noLoop;
    --loop;
    NEXT();
op_I:
    if (Q_UNLIKELY(loop == context->m_loops.get()))
        goto noLoop;
    PUSH(loop->kind, loop->index);
    NEXT();
op_J:
    if (Q_UNLIKELY(loop - context->m_loops.get() < 2))
        goto noLoop;
    PUSH(loop[-1].kind, loop[-1].index);
    NEXT();

    // Locals

op_LocalsEnter:
    SAVE();
    context->enterLocals((ip++)->value);
    LOAD();
    NEXT();
op_LocalsLeave:
    context->m_localTop = context->m_localBase - 1;
    context->m_localBase = context->m_localTop - context->m_localTop->integer;
    NEXT();
op_LocalFetch : {
    const qint64 index = (ip++)->value;
    if (Q_UNLIKELY(index >= context->m_localTop - context->m_localBase))
        goto noLocal;
    const Cell *cell = context->m_localBase + index;
    PUSH(cell->kind, cell->integer);
    NEXT();
}
op_LocalStore : {
    NEED(1);
    const qint64 index = (ip++)->value;
    if (Q_UNLIKELY(index >= context->m_localTop - context->m_localBase))
        goto noLocal;
    context->m_localBase[index] = {kind, {.integer = value}};
    DROP();
    NEXT();
}
noLocal:
    SAVE();
    throw ForthException(ForthError::Abort, u"local variable execution not supported"_s);

    // Stack

op_Dup:
    NEED(1);
    PUSH(kind, value);
    NEXT();
op_Drop:
    NEED(1);
    DROP();
    NEXT();
op_Swap : {
    NEED(2);
    const Cell second = *sp;
    *sp = {kind, {.integer = value}};
    kind = second.kind;
    value = second.integer;
    NEXT();
}
op_Over:
    NEED(2);
    PUSH(sp->kind, sp->integer);
    NEXT();
op_Rot : {
    NEED(3);
    const Cell third = sp[-1];
    sp[-1] = sp[0];
    sp[0] = {kind, {.integer = value}};
    kind = third.kind;
    value = third.integer;
    NEXT();
}
op_MinusRot : {
    NEED(3);
    const Cell second = sp[0];
    sp[0] = sp[-1];
    sp[-1] = {kind, {.integer = value}};
    kind = second.kind;
    value = second.integer;
    NEXT();
}
op_Nip:
    NEED(2);
    --sp;
    NEXT();
op_Tuck : {
    NEED(2);
    if (Q_UNLIKELY(sp == full))
        goto overflow;
    const Cell second = *sp;
    sp[0] = {kind, {.integer = value}};
    sp[1] = second;
    ++sp;
    NEXT();
}
op_QuestionDup:
    NEED(1);
    if (kind != integer || value != 0)
        PUSH(kind, value);
    NEXT();
op_TwoDup : {
    NEED(2);
    if (Q_UNLIKELY(full - sp < 2))
        goto overflow;
    const Cell second = *sp;
    sp[1] = {kind, {.integer = value}};
    sp[2] = second;
    sp += 2;
    NEXT();
}
op_TwoDrop:
    NEED(2);
    --sp;
    DROP();
    NEXT();
op_ToR : {
    NEED(1);
    CellStack &stack = context->returnStack;
    if (Q_UNLIKELY(stack.top == stack.full()))
        goto overflow;
    *++stack.top = {kind, {.integer = value}};
    DROP();
    NEXT();
}
op_RFrom : {
    CellStack &stack = context->returnStack;
    if (Q_UNLIKELY(stack.top == stack.bottom()))
        goto underflow;
    PUSH(stack.top->kind, stack.top->integer);
    --stack.top;
    NEXT();
}
op_RFetch : {
    CellStack &stack = context->returnStack;
    if (Q_UNLIKELY(stack.top == stack.bottom()))
        goto underflow;
    PUSH(stack.top->kind, stack.top->integer);
    NEXT();
}

// Arithmetic

#define BINARY(name, expression, meaning)                                    \
    op_##name : if (Q_UNLIKELY((kind | sp->kind) != integer)) SLOW(meaning); \
    {                                                                        \
        const qint64 left = sp->integer, right = value;                      \
        value = expression;                                                  \
    }                                                                        \
    --sp;                                                                    \
    NEXT();
#define UNARY(name, expression, meaning)                        \
    op_##name : if (Q_UNLIKELY(kind != integer)) SLOW(meaning); \
    value = expression;                                         \
    NEXT();
#define COMPARISON(name, operation, meaning) BINARY(name, -qint64(left operation right), meaning)

    BINARY(Plus, wrappedSum(left, right), ForthWords::plus)
    BINARY(Minus, wrappedDifference(left, right), ForthWords::minus)
    BINARY(Star, wrappedProduct(left, right), requireIntegers)
    BINARY(And, left & right, ForthWords::bitAnd)
    BINARY(Or, left | right, ForthWords::bitOr)
    BINARY(Xor, left ^ right, ForthWords::bitXor)
    BINARY(LShift, quint64(right) < 64 ? qint64(quint64(left) << right) : 0, requireIntegers)
    BINARY(RShift, quint64(right) < 64 ? qint64(quint64(left) >> right) : 0, requireIntegers)
    COMPARISON(Less, <, ForthWords::less)
    COMPARISON(Greater, >, ForthWords::greater)
    COMPARISON(GreaterEqual, >=, ForthWords::greaterEqual)
    COMPARISON(Equals, ==, ForthWords::equals)
    COMPARISON(NotEquals, !=, ForthWords::notEquals)
    UNARY(OnePlus, wrappedSum(value, 1), ForthWords::onePlus)
    UNARY(OneMinus, wrappedDifference(value, 1), ForthWords::oneMinus)
    UNARY(TwoStar, wrappedSum(value, value), requireInteger)
    UNARY(TwoSlash, value >> 1, requireInteger)
    UNARY(Negate, wrappedDifference(0, value), requireInteger)
    UNARY(Invert, ~value, requireInteger)
    UNARY(ZeroEquals, -qint64(value == 0), requireInteger)
    UNARY(ZeroNotEquals, -qint64(value != 0), requireInteger)
    UNARY(ZeroLess, -qint64(value < 0), requireInteger)
    UNARY(ZeroGreater, -qint64(value > 0), requireInteger)
    UNARY(ZeroGreaterEqual, -qint64(value >= 0), requireInteger)

    // 0 has no quotient and -1 may overflow.
op_Slash:
    if (Q_UNLIKELY((kind | sp->kind) != integer || quint64(value) + 1 < 2))
        SLOW(ForthWords::slash);
    value = sp->integer / value;
    --sp;
    NEXT();
op_Mod:
    if (Q_UNLIKELY((kind | sp->kind) != integer || quint64(value) + 1 < 2))
        SLOW(ForthWords::mod);
    value = sp->integer % value;
    --sp;
    NEXT();

    // Memory

#define IS_INSIDE(memory, index) Q_LIKELY(quint64(index) < quint64((memory)->used))
op_Fetch:
    if (Q_LIKELY(kind > Cell::stringKind)) {
        const PMemory *memory = reinterpret_cast<PMemory *>(kind);
        if (IS_INSIDE(memory, value)) {
            const Cell &cell = memory->cells[value];
            kind = cell.kind;
            value = cell.integer;
            NEXT();
        }
    }
    SLOW(ForthWords::fetch);
op_Store:
    if (Q_LIKELY(kind > Cell::stringKind && sp->kind != empty)) {
        const PMemory *memory = reinterpret_cast<PMemory *>(kind);
        if (IS_INSIDE(memory, value)) {
            memory->cells[value] = *sp;
            --sp;
            DROP();
            NEXT();
        }
    }
    SLOW(ForthWords::store);
op_PlusStore:
    if (Q_LIKELY(kind > Cell::stringKind && sp->kind == integer)) {
        const PMemory *memory = reinterpret_cast<PMemory *>(kind);
        if (IS_INSIDE(memory, value) && memory->cells[value].kind == integer) {
            Cell &cell = memory->cells[value];
            cell.integer = wrappedSum(cell.integer, sp->integer);
            --sp;
            DROP();
            NEXT();
        }
    }
    SLOW(ForthWords::plusStore);

    // Pairs. Where the fast case doesn't hold, the first instruction is done and the second one entered.

#define FUSED_LITERAL(name, second, expression)       \
    op_##name : if (Q_LIKELY(kind == integer))        \
    {                                                 \
        const qint64 left = value, right = ip->value; \
        value = expression;                           \
        ++ip;                                         \
        NEXT();                                       \
    }                                                 \
    PUSH(integer, (ip++)->value);                     \
    goto op_##second;
    FUSED_LITERAL(LiteralPlus, Plus, wrappedSum(left, right))
    FUSED_LITERAL(LiteralMinus, Minus, wrappedDifference(left, right))
    FUSED_LITERAL(LiteralStar, Star, wrappedProduct(left, right))
    FUSED_LITERAL(LiteralAnd, And, left & right)
    FUSED_LITERAL(LiteralLess, Less, -qint64(left < right))
    FUSED_LITERAL(LiteralGreater, Greater, -qint64(left > right))
    FUSED_LITERAL(LiteralEquals, Equals, -qint64(left == right))

#define FUSED_DUP_LITERAL(name, second, expression)   \
    op_##name : NEED(1);                              \
    PUSH(kind, value);                                \
    if (Q_LIKELY(kind == integer)) {                  \
        const qint64 left = value, right = ip->value; \
        value = expression;                           \
        ++ip;                                         \
        NEXT();                                       \
    }                                                 \
    PUSH(integer, (ip++)->value);                     \
    goto op_##second;
    FUSED_DUP_LITERAL(DupLiteralLess, Less, -qint64(left < right))
    FUSED_DUP_LITERAL(DupLiteralGreater, Greater, -qint64(left > right))
    FUSED_DUP_LITERAL(DupLiteralEquals, Equals, -qint64(left == right))
op_DupLiteral:
    NEED(1);
    PUSH(kind, value);
    PUSH(integer, (ip++)->value);
    NEXT();

#define FUSED_DUP_LITERAL_BRANCH(name, operation, unfused)      \
    op_##name : if (Q_LIKELY(kind == integer))                  \
    {                                                           \
        ip = value operation ip->value ? ip + 2 : ip[1].target; \
        NEXT();                                                 \
    }                                                           \
    NEED(1);                                                    \
    PUSH(kind, value);                                          \
    PUSH(integer, (ip++)->value);                               \
    goto op_##unfused;
    FUSED_DUP_LITERAL_BRANCH(DupLiteralLessZBranch, <, LessZBranch)
    FUSED_DUP_LITERAL_BRANCH(DupLiteralGreaterZBranch, >, GreaterZBranch)
    FUSED_DUP_LITERAL_BRANCH(DupLiteralEqualsZBranch, ==, EqualsZBranch)

    // A comparison and what branches when it is false. `poll` tests for an interrupt: these go backwards.
#define NO_POLL() false
#define FUSED_BRANCH(name, operation, meaning, branch, poll)    \
    op_##name : if (Q_LIKELY((kind | sp->kind) == integer))     \
    {                                                           \
        ip = sp->integer operation value ? ip + 1 : ip->target; \
        --sp;                                                   \
        DROP();                                                 \
        if (poll())                                             \
            goto interrupt;                                     \
        NEXT();                                                 \
    }                                                           \
    SAVE();                                                     \
    meaning(*context);                                          \
    LOAD();                                                     \
    goto op_##branch;
    FUSED_BRANCH(LessZBranch, <, ForthWords::less, ZBranch, NO_POLL)
    FUSED_BRANCH(GreaterZBranch, >, ForthWords::greater, ZBranch, NO_POLL)
    FUSED_BRANCH(GreaterEqualZBranch, >=, ForthWords::greaterEqual, ZBranch, NO_POLL)
    FUSED_BRANCH(EqualsZBranch, ==, ForthWords::equals, ZBranch, NO_POLL)
    FUSED_BRANCH(NotEqualsZBranch, !=, ForthWords::notEquals, ZBranch, NO_POLL)
    FUSED_BRANCH(LessUntil, <, ForthWords::less, Until, INTERRUPTED)
    FUSED_BRANCH(GreaterUntil, >, ForthWords::greater, Until, INTERRUPTED)
    FUSED_BRANCH(EqualsUntil, ==, ForthWords::equals, Until, INTERRUPTED)

#define FUSED_LITERAL_BRANCH(name, operation, unfused, poll)    \
    op_##name : if (Q_LIKELY(kind == integer))                  \
    {                                                           \
        ip = value operation ip->value ? ip + 2 : ip[1].target; \
        DROP();                                                 \
        if (poll())                                             \
            goto interrupt;                                     \
        NEXT();                                                 \
    }                                                           \
    PUSH(integer, (ip++)->value);                               \
    goto op_##unfused;
    FUSED_LITERAL_BRANCH(LiteralLessZBranch, <, LessZBranch, NO_POLL)
    FUSED_LITERAL_BRANCH(LiteralGreaterZBranch, >, GreaterZBranch, NO_POLL)
    FUSED_LITERAL_BRANCH(LiteralEqualsZBranch, ==, EqualsZBranch, NO_POLL)
    FUSED_LITERAL_BRANCH(LiteralLessUntil, <, LessUntil, INTERRUPTED)
    FUSED_LITERAL_BRANCH(LiteralGreaterUntil, >, GreaterUntil, INTERRUPTED)
    FUSED_LITERAL_BRANCH(LiteralEqualsUntil, ==, EqualsUntil, INTERRUPTED)

#define FUSED_ZERO_BRANCH(name, branch, poll)                          \
    op_##name : if (Q_UNLIKELY(kind != integer)) SLOW(requireInteger); \
    ip = value == 0 ? ip + 1 : ip->target;                             \
    DROP();                                                            \
    if (poll())                                                        \
        goto interrupt;                                                \
    NEXT();
    FUSED_ZERO_BRANCH(ZeroEqualsZBranch, ZBranch, NO_POLL)
    FUSED_ZERO_BRANCH(ZeroEqualsUntil, Until, INTERRUPTED)

op_DupPlus:
    NEED(1);
    if (Q_UNLIKELY(kind != integer))
        SLOW([](FSContext &machine) {
            machine.push(machine.dataStack.pick(0));
            ForthWords::plus(machine);
        });
    value = wrappedSum(value, value);
    NEXT();
op_DupStar:
    if (Q_UNLIKELY(kind != integer))
        SLOW(requireInteger);
    value = wrappedProduct(value, value);
    NEXT();
op_OverPlus:
    if (Q_LIKELY((kind | sp->kind) == integer)) {
        value = wrappedSum(value, sp->integer);
        NEXT();
    }
    NEED(2);
    PUSH(sp->kind, sp->integer);
    goto op_Plus;
op_SwapMinus:
    if (Q_LIKELY((kind | sp->kind) == integer)) {
        value = wrappedDifference(value, sp->integer);
        --sp;
        NEXT();
    }
    NEED(2);
    std::swap(kind, sp->kind);
    std::swap(value, sp->integer);
    goto op_Minus;
op_IPlus:
    if (Q_LIKELY((kind | loop->kind) == integer && loop != context->m_loops.get())) {
        value = wrappedSum(value, loop->index);
        NEXT();
    }
    if (loop == context->m_loops.get())
        goto noLoop;
    PUSH(loop->kind, loop->index);
    goto op_Plus;
op_AddressI:
    PUSH(quint64(ip[0].memory), ip[1].value);
    ip += 2;
    goto op_I;
op_AddressIPlus:
    if (Q_LIKELY(loop->kind == integer && loop != context->m_loops.get())) {
        PUSH(quint64(ip[0].memory), wrappedSum(ip[1].value, loop->index));
        ip += 2;
        NEXT();
    }
    PUSH(quint64(ip[0].memory), ip[1].value);
    ip += 2;
    goto op_IPlus;
op_AddressIPlusFetch:
    if (Q_LIKELY(loop->kind == integer && loop != context->m_loops.get())) {
        const PMemory *memory = ip[0].memory;
        const qint64 index = wrappedSum(ip[1].value, loop->index);
        if (IS_INSIDE(memory, index)) {
            PUSH(memory->cells[index].kind, memory->cells[index].integer);
            ip += 2;
            NEXT();
        }
    }
    PUSH(quint64(ip[0].memory), ip[1].value);
    ip += 2;
    if (loop == context->m_loops.get())
        goto noLoop;
    PUSH(loop->kind, loop->index);
    SAVE();
    ForthWords::plus(*context);
    LOAD();
    goto op_Fetch;
op_AddressPlus:
    if (Q_LIKELY(kind == integer)) {
        kind = quint64(ip[0].memory);
        value = wrappedSum(value, ip[1].value);
        ip += 2;
        NEXT();
    }
    PUSH(quint64(ip[0].memory), ip[1].value);
    ip += 2;
    goto op_Plus;
op_AddressFetch:
    PUSH(quint64(ip[0].memory), ip[1].value);
    ip += 2;
    goto op_Fetch;
op_AddressStore : {
    const PMemory *memory = ip[0].memory;
    const qint64 index = ip[1].value;
    if (IS_INSIDE(memory, index) && kind != empty) {
        memory->cells[index] = {kind, {.integer = value}};
        ip += 2;
        DROP();
        NEXT();
    }
    PUSH(quint64(memory), index);
    ip += 2;
    goto op_Store;
}
op_AddressPlusStore : {
    const PMemory *memory = ip[0].memory;
    const qint64 index = ip[1].value;
    if (IS_INSIDE(memory, index) && (kind | memory->cells[index].kind) == integer) {
        Cell &cell = memory->cells[index];
        cell.integer = wrappedSum(cell.integer, value);
        ip += 2;
        DROP();
        NEXT();
    }
    PUSH(quint64(memory), index);
    ip += 2;
    goto op_PlusStore;
}
}
