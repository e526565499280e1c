#include "script/engine/ESInterpreter.h"

#include <cmath>
#include <emmintrin.h>

// The dispatch loop. What isn't the common case of an instruction is in ESOperations.cpp.

namespace {

// A value is two words: two plain moves, so that what was written in two pieces a moment ago is read the same way.
inline void copyValue(ESValue &to, const ESValue &from)
{
    const ESType type = from.type;
    const quint64 bits = from.bits;
    to.type = type;
    to.bits = bits;
}

inline void setNumber(ESValue &to, double number)
{
    to.type = esNumber;
    to.number = number;
}

inline void setBoolean(ESValue &to, bool value)
{
    to.type = esBoolean;
    to.number = value ? 1.0 : 0.0;
}

// The integer part; the least 64-bit integer for what has none or doesn't fit. The instruction itself, since C++
// leaves such casts undefined.
inline qint64 truncated(double number)
{
    return _mm_cvttsd_si64(_mm_set_sd(number));
}

// Whether `number` is an integer that fits 32 bits, signed.
inline bool isInt32(double number, qint32 &value)
{
    value = _mm_cvttsd_si32(_mm_set_sd(number));
    return double(value) == number;
}

inline qint32 int32Of(double number)
{
    const qint64 wide = truncated(number);
    return wide != std::numeric_limits<qint64>::min() ? qint32(quint32(quint64(wide))) : ESContext::toInt32(number);
}

inline double remainderOf(double left, double right)
{
    qint32 x, y;
    if (isInt32(left, x) && isInt32(right, y) && x >= 0 && y > 0 && (x != 0 || !std::signbit(left)))
        return x % y;
    return std::fmod(left, right);
}

inline bool isTrue(ESContext &context, const ESValue &value)
{
    if (value.type == esBoolean)
        return value.bits != 0;
    return context.toBoolean(value);
}

} // namespace

void ESInterpreter::link(ESProgram &program)
{
    dispatch(nullptr, nullptr, &program);
}

ESFrame *ESInterpreter::enter(ESContext &context, ESFrame *frame, ESObject *function, ESProgram *program,
                              ESScopeNode *scope, const ESValue &self, ESValue *argv, quint32 count)
{
    if (size_t(context.m_stackEnd - argv) < program->registerCount || frame + 1 == context.m_framesEnd) [[unlikely]]
        stackTooSmall(context);
    if (program->makesArguments) [[unlikely]] {
        makeArguments(context, function, program, argv, count);
        count = program->parameterCount;
    }
    const quint32 variables = program->parameterCount + program->localCount;
    for (quint32 i = std::min(count, program->parameterCount); i < variables; ++i)
        argv[i].type = esUndefined;
    ++frame;
    frame->base = argv;
    frame->program = program;
    frame->function = function;
    copyValue(frame->self, self);
    frame->scope = scope;
    frame->flags = 0;
    frame->pc = program->instructions.data();
    if (program->activationShape) [[unlikely]]
        makeActivation(context, frame);
    context.m_frame = frame;
    return frame;
}

ESValue ESInterpreter::run(ESContext &context)
{
    ESFrame *entry = context.m_frame;
    for (;;) {
        try {
            return dispatch(&context, entry, nullptr);
        } catch (const ESException &exception) {
            if (!unwind(context, entry, exception.value()))
                throw;
        }
    }
}

bool ESInterpreter::unwind(ESContext &context, ESFrame *entry, const ESValue &exception)
{
    if (context.m_handlers.empty() || context.m_handlers.back().frame < entry)
        return false;
    const ESHandler handler = context.m_handlers.back();
    context.m_handlers.pop_back();
    context.m_frame = handler.frame;
    handler.frame->scope = handler.scope;
    handler.frame->base[handler.exceptionRegister] = exception;
    handler.frame->pc = handler.target;
    return true;
}

ESValue ESInterpreter::dispatch(ESContext *contextPointer, ESFrame *entry, ESProgram *toLink)
{
    static const void *const labels[] = {
#define ES_INSTRUCTION(name) &&do_##name,
#include "script/engine/ESInstructions.def"
#undef ES_INSTRUCTION
    };
    const char *const first = static_cast<const char *>(labels[0]);
    if (toLink) {
        for (ESInstruction &instruction : toLink->instructions)
            instruction.handler = qint32(static_cast<const char *>(labels[instruction.handler]) - first);
        return {};
    }

    ESContext &context = *contextPointer;
    ESFrame *frame = context.m_frame;
    const ESInstruction *pc = frame->pc;
    ESValue *base = frame->base;

    // Of the call that is being made.
    ESObject *callee;
    ESValue self, calleeValue;
    ESValue *argv;
    quint32 count;

#define R(index) base[index]
#define GO() goto *(first + pc->handler)
#define NEXT() \
    do {       \
        ++pc;  \
        GO();  \
    } while (0)
#define MAY_FAIL() frame->pc = pc
    GO();

do_Step:
    MAY_FAIL();
    if (!context.step())
        throw ESStopped();
    NEXT();
do_Move:
    copyValue(R(pc->a), R(pc->b));
    NEXT();
do_LoadNumber:
    setNumber(R(pc->a), pc->number);
    NEXT();
do_LoadConstant:
    copyValue(R(pc->a), frame->program->constants[quint32(pc->target)]);
    NEXT();
do_LoadThis:
    copyValue(R(pc->a), frame->self);
    NEXT();
do_LoadGlobal:
    copyValue(R(pc->a), context.m_global->m_slots[pc->target]);
    NEXT();
do_StoreGlobal:
    copyValue(context.m_global->m_slots[pc->target], R(pc->a));
    NEXT();
do_LoadVariable:
    copyValue(R(pc->a), frame->activation->m_slots[pc->target]);
    NEXT();
do_StoreVariable:
    copyValue(frame->activation->m_slots[pc->target], R(pc->a));
    NEXT();
do_LoadName:
    MAY_FAIL();
    copyValue(R(pc->a), loadName(context, *frame, pc->cache, callee));
    NEXT();
do_StoreName:
    MAY_FAIL();
    storeName(context, *frame, pc->cache, R(pc->a));
    NEXT();
do_DeleteName : {
    ESObject *holder = holderOf(context, *frame, pc->symbol);
    setBoolean(R(pc->a), holder != context.m_global && context.deleteProperty(holder, pc->symbol));
    NEXT();
}

// Numbers take the short way; everything else goes through the conversions.
#define ARITHMETIC(name, expression, otherwise)                    \
    do_##name##RR:                                                 \
    {                                                              \
        const ESValue &x = R(pc->b), &y = R(pc->c);                \
        if (x.type == esNumber && y.type == esNumber) [[likely]] { \
            const double left = x.number, right = y.number;        \
            setNumber(R(pc->a), expression);                       \
            NEXT();                                                \
        }                                                          \
        MAY_FAIL();                                                \
        otherwise;                                                 \
        NEXT();                                                    \
    }                                                              \
    do_##name##RK:                                                 \
    {                                                              \
        const ESValue &x = R(pc->b), y = pc->number;               \
        if (x.type == esNumber) [[likely]] {                       \
            const double left = x.number, right = pc->number;      \
            setNumber(R(pc->a), expression);                       \
            NEXT();                                                \
        }                                                          \
        MAY_FAIL();                                                \
        otherwise;                                                 \
        NEXT();                                                    \
    }
#define BY_NUMBERS(expression)                                            \
    const double left = context.toNumber(x), right = context.toNumber(y); \
    setNumber(R(pc->a), expression)
#define NUMERIC(name, expression) ARITHMETIC(name, expression, BY_NUMBERS(expression))
    ARITHMETIC(Add, left + right, copyValue(R(pc->a), add(context, x, y)))
    NUMERIC(Sub, left - right)
    NUMERIC(Mul, left * right)
    NUMERIC(Div, left / right)
    NUMERIC(Mod, remainderOf(left, right))
    NUMERIC(And, int32Of(left) & int32Of(right))
    NUMERIC(Or, int32Of(left) | int32Of(right))
    NUMERIC(Xor, int32Of(left) ^ int32Of(right))
    NUMERIC(Shl, qint32(quint32(int32Of(left)) << (int32Of(right) & 31)))
    NUMERIC(Shr, int32Of(left) >> (int32Of(right) & 31))
    NUMERIC(Ushr, quint32(int32Of(left)) >> (int32Of(right) & 31))
do_SubKR : {
    const ESValue &y = R(pc->b);
    MAY_FAIL();
    setNumber(R(pc->a), pc->number - context.toNumber(y));
    NEXT();
}
do_Less : {
    const ESValue &x = R(pc->b), &y = R(pc->c);
    MAY_FAIL();
    copyValue(R(pc->a), less(context, x, y));
    NEXT();
}
do_LessEqual:
    MAY_FAIL();
    setBoolean(R(pc->a), lessEqual(context, R(pc->b), R(pc->c)));
    NEXT();
do_Equal:
    MAY_FAIL();
    setBoolean(R(pc->a), context.equals(R(pc->b), R(pc->c)));
    NEXT();
do_NotEqual:
    MAY_FAIL();
    setBoolean(R(pc->a), !context.equals(R(pc->b), R(pc->c)));
    NEXT();
do_Identical:
    setBoolean(R(pc->a), context.areIdentical(R(pc->b), R(pc->c)));
    NEXT();
do_LogicalNot:
    setBoolean(R(pc->a), !isTrue(context, R(pc->b)));
    NEXT();
do_BitNot:
    MAY_FAIL();
    setNumber(R(pc->a), ~int32Of(context.toNumber(R(pc->b))));
    NEXT();
do_ToNumber:
    MAY_FAIL();
    setNumber(R(pc->a), context.toNumber(R(pc->b)));
    NEXT();
do_Negate:
    MAY_FAIL();
    setNumber(R(pc->a), -context.toNumber(R(pc->b)));
    NEXT();
do_Typeof:
    copyValue(R(pc->a), typeName(R(pc->b)));
    NEXT();
do_ToKey:
    MAY_FAIL();
    if (R(pc->b).isNumber())
        copyValue(R(pc->a), R(pc->b));
    else
        R(pc->a) = context.toSymbol(R(pc->b));
    NEXT();

do_Jump:
    pc += pc->target;
    GO();
#define JUMP_IF(condition, distance) \
    if (condition) {                 \
        pc += distance;              \
        GO();                        \
    }                                \
    NEXT();
do_JumpTrue:
    JUMP_IF(isTrue(context, R(pc->a)), pc->target)
do_JumpFalse:
    JUMP_IF(!isTrue(context, R(pc->a)), pc->target)
#define COMPARE_AND_JUMP(name, op, slow)                           \
    do_##name##RR:                                                 \
    {                                                              \
        const ESValue &x = R(pc->a), &y = R(pc->b);                \
        if (x.type == esNumber && y.type == esNumber) [[likely]] { \
            JUMP_IF(op(x.number, y.number), pc->target)            \
        }                                                          \
        MAY_FAIL();                                                \
        JUMP_IF(slow(x, y), pc->target)                            \
    }                                                              \
    do_##name##RK:                                                 \
    {                                                              \
        const ESValue &x = R(pc->a), y = pc->number;               \
        if (x.type == esNumber) [[likely]] {                       \
            JUMP_IF(op(x.number, pc->number), qint16(pc->b))       \
        }                                                          \
        MAY_FAIL();                                                \
        JUMP_IF(slow(x, y), qint16(pc->b))                         \
    }
#define COMPARE_AND_JUMP_KR(name, op, slow)                  \
    COMPARE_AND_JUMP(name, op, slow)                         \
    do_##name##KR:                                           \
    {                                                        \
        const ESValue x = pc->number, &y = R(pc->a);         \
        if (y.type == esNumber) [[likely]] {                 \
            JUMP_IF(op(pc->number, y.number), qint16(pc->b)) \
        }                                                    \
        MAY_FAIL();                                          \
        JUMP_IF(slow(x, y), qint16(pc->b))                   \
    }
#define LESS(x, y) (x < y)
#define NOT_LESS(x, y) !(x < y)
#define LESS_EQUAL(x, y) (x <= y)
#define NOT_LESS_EQUAL(x, y) !(x <= y)
#define EQUAL(x, y) (x == y)
#define NOT_EQUAL(x, y) (x != y)
#define SLOW_LESS(x, y) context.toBoolean(less(context, x, y))
#define SLOW_NOT_LESS(x, y) !context.toBoolean(less(context, x, y))
#define SLOW_LESS_EQUAL(x, y) lessEqual(context, x, y)
#define SLOW_NOT_LESS_EQUAL(x, y) !lessEqual(context, x, y)
#define SLOW_EQUAL(x, y) context.equals(x, y)
#define SLOW_NOT_EQUAL(x, y) !context.equals(x, y)
    COMPARE_AND_JUMP_KR(JumpLess, LESS, SLOW_LESS)
    COMPARE_AND_JUMP_KR(JumpNotLess, NOT_LESS, SLOW_NOT_LESS)
    COMPARE_AND_JUMP_KR(JumpLessEqual, LESS_EQUAL, SLOW_LESS_EQUAL)
    COMPARE_AND_JUMP_KR(JumpNotLessEqual, NOT_LESS_EQUAL, SLOW_NOT_LESS_EQUAL)
    COMPARE_AND_JUMP(JumpEqual, EQUAL, SLOW_EQUAL)
    COMPARE_AND_JUMP(JumpNotEqual, NOT_EQUAL, SLOW_NOT_EQUAL)
do_JumpIdentical:
    JUMP_IF(context.areIdentical(R(pc->a), R(pc->b)), pc->target)

    // Properties.
#define CACHED(object, cache) \
    ((object)->m_shape == (cache)->shape && (!(cache)->holder || (cache)->epoch == context.m_prototypeEpoch))
#define CACHED_VALUE(object, cache) ((cache)->holder ? (cache)->holder : (object))->m_slots[(cache)->slot]
do_GetNamed : {
    const ESValue &object = R(pc->b);
    if (object.type == esObject && CACHED(object.object, pc->cache)) [[likely]] {
        copyValue(R(pc->a), CACHED_VALUE(object.object, pc->cache));
        NEXT();
    }
    MAY_FAIL();
    copyValue(R(pc->a), getNamed(context, receiver(context, object), pc->cache));
    NEXT();
}
do_GetNamedThis : {
    const ESValue &object = frame->self;
    if (object.type == esObject && CACHED(object.object, pc->cache)) [[likely]] {
        copyValue(R(pc->a), CACHED_VALUE(object.object, pc->cache));
        NEXT();
    }
    MAY_FAIL();
    copyValue(R(pc->a), getNamed(context, receiver(context, object), pc->cache));
    NEXT();
}
do_GetLength : {
    const ESValue &object = R(pc->b);
    if (object.isString())
        setNumber(R(pc->a), object.string->length());
    else if (object.type == esObject && object.object->m_shape->isArray())
        copyValue(R(pc->a), object.object->m_slots[0]);
    else {
        MAY_FAIL();
        copyValue(R(pc->a), getNamed(context, receiver(context, object), pc->cache));
    }
    NEXT();
}
do_GetIndexed : {
    const ESValue &object = R(pc->b), &key = R(pc->c);
    if (object.type == esObject && key.type == esNumber) [[likely]] {
        const ESElements *elements = object.object->m_elements;
        const auto index = quint32(truncated(key.number));
        if (index < elements->size && double(index) == key.number) [[likely]] {
            const ESValue &value = elements->values[index];
            if (value.type != esAbsent) [[likely]] {
                copyValue(R(pc->a), value);
                NEXT();
            }
        }
    }
    MAY_FAIL();
    copyValue(R(pc->a), getIndexed(context, object, key));
    NEXT();
}
#define PUT_NAMED(target)                                                                   \
    {                                                                                       \
        const ESValue &object = target;                                                     \
        ESPropertyCache *cache = pc->cache;                                                 \
        if (object.type == esObject && object.object->m_shape == cache->shape) [[likely]] { \
            if (!cache->next) {                                                             \
                copyValue(object.object->m_slots[cache->slot], R(pc->a));                   \
                NEXT();                                                                     \
            }                                                                               \
            if (cache->slot < object.object->m_capacity && !object.object->m_isPrototype) { \
                copyValue(object.object->m_slots[cache->slot], R(pc->a));                   \
                object.object->m_shape = cache->next;                                       \
                NEXT();                                                                     \
            }                                                                               \
        }                                                                                   \
        MAY_FAIL();                                                                         \
        putNamed(context, object, cache, R(pc->a));                                         \
        NEXT();                                                                             \
    }
do_PutNamed:
    PUT_NAMED(R(pc->b))
do_PutNamedThis:
    PUT_NAMED(frame->self)
do_InitProperty:
    PUT_NAMED(R(pc->b))
do_PutIndexed : {
    const ESValue &object = R(pc->b), &key = R(pc->c);
    if (object.type == esObject && key.type == esNumber) [[likely]] {
        ESElements *elements = object.object->m_elements;
        const auto index = quint32(truncated(key.number));
        if (index < elements->size && double(index) == key.number) [[likely]] {
            copyValue(elements->values[index], R(pc->a));
            NEXT();
        }
        if (index == elements->size && index < elements->capacity && double(index) == key.number &&
            object.object->m_shape->isArray() && !object.object->m_hasSparse) {
            copyValue(elements->values[index], R(pc->a));
            ++elements->size;
            ESValue &length = object.object->m_slots[0];
            length.number = std::max(length.number, double(index + 1));
            NEXT();
        }
    }
    MAY_FAIL();
    putIndexed(context, object, key, R(pc->a));
    NEXT();
}
do_DeleteProperty:
    MAY_FAIL();
    setBoolean(R(pc->a), deleteIndexed(context, R(pc->b), R(pc->c)));
    NEXT();
do_NewObject:
    R(pc->a) = context.allocateObject(context.m_plainShape, std::min<quint32>(pc->b, 64));
    NEXT();
do_NewArray:
    R(pc->a) = context.makeArray(std::span<const ESValue>(&R(pc->a), quint32(pc->target)));
    NEXT();
do_Closure:
    R(pc->a) = closure(context, context.m_codes[quint32(pc->target)].get(), frame->scope);
    NEXT();
do_Enumerate:
    MAY_FAIL();
    R(pc->a) = enumerate(context, R(pc->b));
    NEXT();
do_NextName:
    MAY_FAIL();
    JUMP_IF(nextName(context, R(pc->b), R(pc->a)), pc->target)

    // Calls. The result comes into the register of the first argument.
do_CallGlobal:
    copyValue(calleeValue, context.m_global->m_slots[pc->target]);
    self = context.m_global;
    count = pc->b;
    goto call;
do_CallRegister:
    copyValue(calleeValue, R(pc->b));
    self = context.m_global;
    count = pc->c;
    goto call;
do_CallNamedThis:
    copyValue(self, frame->self);
    goto callNamed;
do_CallNamed:
    copyValue(self, R(pc->b));
callNamed : {
    ESPropertyCache *cache = pc->cache;
    ESObject *object = self.object;
    if (self.type != esObject) [[unlikely]] {
        MAY_FAIL();
        object = receiver(context, self);
    }
    if (CACHED(object, cache)) [[likely]] {
        copyValue(calleeValue, CACHED_VALUE(object, cache));
    } else {
        MAY_FAIL();
        copyValue(calleeValue, getNamed(context, object, cache));
    }
    count = cache->count;
    goto call;
}
do_CallIndexed:
    MAY_FAIL();
    copyValue(self, R(pc->b));
    calleeValue = getIndexed(context, self, R(pc->c));
    count = pc->d;
    goto call;
do_CallName : {
    MAY_FAIL();
    ESObject *holder;
    calleeValue = loadName(context, *frame, pc->cache, holder);
    self = holder;
    count = pc->cache->count;
    goto call;
}
call:
    argv = &R(pc->a);
    frame->pc = pc;
    if (calleeValue.type != esObject) [[unlikely]]
        context.raise(ESErrorKind::TypeError, "not a function object");
    callee = calleeValue.object;
    {
        ESObjectExtra *extra = callee->m_extra;
        if (!extra || !extra->call) [[unlikely]]
            context.raise(ESErrorKind::TypeError, "not a function object");
        if (!extra->program) [[unlikely]] {
            if (extra->nativeId >= 0) {
                const auto arity = extra->call->parameterCount;
                if (size_t(context.m_stackEnd - argv) < arity)
                    stackTooSmall(context);
                for (; count < arity; ++count)
                    argv[count].type = esUndefined;
                const ESCall made = {callee, self, int(count), argv};
                const ESValue result =
                    extra->native ? extra->native(context, made) : callee->esClass()->call(context, made);
                copyValue(R(pc->a), result);
                NEXT();
            }
            extra->program = programOf(context, *extra->call->code);
        }
        if (self.type != esObject && (self.isString() || self.isNumber() || self.isBoolean())) [[unlikely]]
            self = context.toObject(self);
        frame = enter(context, frame, callee, extra->program, extra->call->scope, self, argv, count);
        base = argv;
        pc = frame->pc;
        GO();
    }
do_New : {
    argv = &R(pc->a);
    count = pc->c;
    MAY_FAIL();
    const ESValue &constructor = R(pc->b);
    if (constructor.type != esObject || !constructor.object->isConstructor()) [[unlikely]]
        context.raise(ESErrorKind::TypeError, "new must be given a constructor object");
    callee = constructor.object;
    ESObjectExtra *extra = callee->m_extra;
    if (extra->nativeId >= 0) {
        R(pc->a) = context.construct(callee, {argv, count});
        NEXT();
    }
    if (!extra->program)
        extra->program = programOf(context, *extra->call->code);
    ESObject *made = instanceFor(context, callee);
    self = made;
    frame = enter(context, frame, callee, extra->program, extra->call->scope, self, argv, count);
    frame->flags = ESFrame::isConstruct;
    frame->constructed = made;
    base = argv;
    pc = frame->pc;
    GO();
}

#define LEAVE()                  \
    do {                         \
        --frame;                 \
        context.m_frame = frame; \
        base = frame->base;      \
        pc = frame->pc;          \
        NEXT();                  \
    } while (0)
do_Return:
    copyValue(self, R(pc->a));
    goto leave;
do_ReturnNumber:
    if (frame->flags == 0) [[likely]] {
        setNumber(base[0], pc->number);
        LEAVE();
    }
    setNumber(self, pc->number);
    goto leave;
do_ReturnUndefined:
    self = {};
leave:
    if (frame->flags == 0) [[likely]] {
        copyValue(base[0], self);
        LEAVE();
    }
    if (frame->flags & ESFrame::isConstruct) {
        ESObjectExtra *extra = frame->function->m_extra;
        extra->instanceSlots = std::max(extra->instanceSlots, frame->constructed->m_shape->slotCount());
        if (self.type != esObject)
            self = frame->constructed;
    }
    if (frame->flags & ESFrame::isEntry) {
        context.m_frame = frame - 1;
        return self;
    }
    copyValue(base[0], self);
    LEAVE();

    // Scopes and exceptions.
do_EnterWith : {
    MAY_FAIL();
    ESObject *object = context.toObject(R(pc->a));
    frame->scope = new (context.m_arena.allocate(sizeof(ESScopeNode))) ESScopeNode{frame->scope, object};
    NEXT();
}
do_LeaveWith:
    frame->scope = frame->scope->next;
    NEXT();
do_EnterCatch : {
    ESObject *object = context.makeObject();
    context.addProperty(object, pc->symbol, esDontDelete, R(pc->a));
    frame->scope = new (context.m_arena.allocate(sizeof(ESScopeNode))) ESScopeNode{frame->scope, object};
    NEXT();
}
do_EnterTry:
    context.m_handlers.push_back({frame, frame->scope, pc + pc->target, pc->a});
    NEXT();
do_LeaveTry:
    context.m_handlers.pop_back();
    NEXT();
do_Throw : {
    MAY_FAIL();
    const ESValue thrown = R(pc->a);
    context.describeThrown(thrown);
    if (!unwind(context, entry, thrown))
        throw ESException(thrown);
    frame = context.m_frame;
    base = frame->base;
    pc = frame->pc;
    GO();
}
do_Gosub:
    setNumber(R(pc->a), double(pc + 1 - frame->program->instructions.data()));
    pc += pc->target;
    GO();
do_EndFinally:
    pc = frame->program->instructions.data() + qint64(R(pc->a).number);
    GO();
}
