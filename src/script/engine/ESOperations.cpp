#include "script/engine/ESInterpreter.h"

#include <QSet>

// What the instructions do when the common case doesn't hold.

int ESFrame::line() const
{
    if (!program || !pc)
        return 0;
    return int(program->code->lineAt(program->offsets[size_t(pc - program->instructions.data())]));
}

void ESInterpreter::stackTooSmall(ESContext &context)
{
    context.fatal("virtual machine stack too small");
}

ESProgram *ESInterpreter::programOf(ESContext &context, ESCode &code)
{
    if (!code.program) {
        code.program = esTranslate(context, code, context.m_stepping);
        code.program->code = &code;
        link(*code.program);
    }
    return code.program.get();
}

// ---- Functions

ESObject *ESInterpreter::closure(ESContext &context, ESCode *code, ESScopeNode *scope)
{
    ESObject *function = context.allocateObject(context.m_functionShape, 2);
    ESObjectExtra *extra = context.extraOf(function);
    auto *made = context.m_arena.make<ESClosure>();
    *made = {code->declaredParameters, quint32(code->locals.size()), code, scope};
    extra->call = extra->construct = made;
    if (code->name)
        extra->primitive = code->name;
    ESObject *prototype = context.allocateObject(context.m_plainShape, 1);
    context.addProperty(prototype, esNames().constructor, esDontEnumerate, function);
    function->m_slots[0] = code->declaredParameters;
    function->m_slots[1] = prototype;
    return function;
}

ESObject *ESInterpreter::instanceFor(ESContext &context, ESObject *function)
{
    ESObjectExtra *extra = function->m_extra;
    const ESValue *value =
        function->m_shape == context.m_functionShape ? &function->m_slots[1] : function->find(esNames().prototype);
    ESObject *prototype = value && value->isObject() ? value->object : context.m_prototypes.object;
    if (!extra->instanceShape || extra->instanceShape->prototype() != prototype)
        extra->instanceShape = context.rootShape(prototype, context.m_classes.object);
    return context.allocateObject(extra->instanceShape, std::min(extra->instanceSlots, 64u));
}

// The parameter `arguments` is the last one.
void ESInterpreter::makeArguments(ESContext &context, ESObject *function, ESProgram *program, ESValue *argv,
                                  quint32 count)
{
    ESObject *arguments = context.makeObject();
    context.addProperty(arguments, esNames().length, esDontEnumerate, count);
    context.addProperty(arguments, esNames().callee, esDontEnumerate, function);
    for (quint32 i = 0; i < count; ++i)
        context.put(arguments, i, argv[i]);
    const quint32 place = program->parameterCount - 1;
    for (quint32 i = count; i < place; ++i)
        argv[i] = {};
    argv[place] = arguments;
}

void ESInterpreter::makeActivation(ESContext &context, ESFrame *frame)
{
    const quint32 variables = frame->program->parameterCount + frame->program->localCount;
    frame->activation = context.allocateObject(frame->program->activationShape, variables);
    std::copy_n(frame->base, variables, frame->activation->m_slots);
    frame->scope = new (context.m_arena.allocate(sizeof(ESScopeNode))) ESScopeNode{frame->scope, frame->activation};
}

// ---- Operators

ESValue ESInterpreter::add(ESContext &context, const ESValue &leftValue, const ESValue &rightValue)
{
    const ESValue left = context.toPrimitive(leftValue, ESHint::Default);
    const ESValue right = context.toPrimitive(rightValue, ESHint::Default);
    if (!left.isString() && !right.isString())
        return context.toNumber(left) + context.toNumber(right);
    ESString *leftString = context.toString(left);
    return context.concatenate(leftString, context.toString(right));
}

ESValue ESInterpreter::less(ESContext &context, const ESValue &leftValue, const ESValue &rightValue)
{
    const ESValue left = context.toPrimitive(leftValue, ESHint::Number);
    const ESValue right = context.toPrimitive(rightValue, ESHint::Number);
    if (left.isString() && right.isString())
        return ESValue(context.view(left.string).compare(context.view(right.string)) < 0);
    const double x = context.toNumber(left), y = context.toNumber(right);
    return x != x || y != y ? ESValue() : ESValue(x < y);
}

bool ESInterpreter::lessEqual(ESContext &context, const ESValue &leftValue, const ESValue &rightValue)
{
    const ESValue left = context.toPrimitive(leftValue, ESHint::Number);
    const ESValue right = context.toPrimitive(rightValue, ESHint::Number);
    if (left.isString() && right.isString())
        return context.view(left.string).compare(context.view(right.string)) <= 0;
    const double x = context.toNumber(left), y = context.toNumber(right);
    return x <= y;
}

ESValue ESInterpreter::typeName(const ESValue &value)
{
    static ESSymbol *const names[] = {esIntern("undefined"),
                                      esIntern("object"),
                                      esIntern("boolean"),
                                      esIntern("number"),
                                      esIntern("string"),
                                      esIntern("object"),
                                      nullptr,
                                      esIntern("string")};
    static ESSymbol *const function = esIntern("function");
    return value.isObject() && value.object->isCallable() ? function : names[value.type];
}

// ---- Properties

// Where the look-up of a name in a value begins. A wrapper for a number or string would have no own names but
// `length`, which is not asked here.
ESObject *ESInterpreter::receiver(ESContext &context, const ESValue &value)
{
    switch (value.type) {
    case esString:
    case esSymbol: return context.m_prototypes.string;
    case esNumber: return context.m_prototypes.number;
    case esBoolean: return context.m_prototypes.boolean;
    default: return context.toObject(value);
    }
}

ESValue ESInterpreter::getNamed(ESContext &context, ESObject *object, ESPropertyCache *cache)
{
    const ESShape *shape = object->m_shape;
    if (!shape->isPlainGet() && object != context.m_prototypes.string)
        return object->esClass()->get(context, object, cache->name);
    for (ESObject *holder = object; holder; holder = holder->prototype()) {
        const quint32 slot = holder->m_shape->find(cache->name);
        if (slot == ESShape::notFound)
            continue;
        if (shape->isShared()) {
            cache->shape = object->m_shape;
            cache->holder = holder == object ? nullptr : holder;
            cache->slot = slot;
            cache->epoch = context.m_prototypeEpoch;
            cache->next = nullptr;
        }
        return holder->m_slots[slot];
    }
    return {};
}

void ESInterpreter::putNamed(ESContext &context, const ESValue &target, ESPropertyCache *cache, const ESValue &value)
{
    ESObject *object = context.toObject(target);
    ESShape *shape = object->m_shape;
    ESSymbol *name = cache->name;
    const bool isPlain = shape->isPlainPut() || (shape->isArray() && name != esNames().length);
    if (!isPlain || !shape->isShared() || name->index() != ESSymbol::noIndex)
        return context.put(object, name, value);
    const quint32 slot = shape->find(name);
    if (slot == ESShape::notFound) {
        context.addProperty(object, name, 0, value);
        if (!object->m_shape->isShared())
            return;
        cache->next = object->m_shape;
        cache->slot = shape->slotCount();
    } else {
        if (shape->slot(slot).flags & esReadOnly)
            return;
        object->m_slots[slot] = value;
        cache->next = nullptr;
        cache->slot = slot;
    }
    cache->shape = shape;
}

ESValue ESInterpreter::getIndexed(ESContext &context, const ESValue &target, const ESValue &key)
{
    if (key.isNumber() && key.number >= 0 && key.number < 0x7FFFFFFF && key.number == quint32(key.number)) {
        if (target.isObject())
            return context.get(target.object, quint32(key.number));
        return context.get(receiver(context, target), quint32(key.number));
    }
    ESSymbol *name = context.toSymbol(key);
    if (target.isString() && name == esNames().length)
        return target.string->length();
    return context.get(target.isObject() ? target.object : context.toObject(target), name);
}

void ESInterpreter::putIndexed(ESContext &context, const ESValue &target, const ESValue &key, const ESValue &value)
{
    if (key.isNumber() && key.number >= 0 && key.number < 0x7FFFFFFF && key.number == quint32(key.number))
        return context.put(context.toObject(target), quint32(key.number), value);
    ESSymbol *name = context.toSymbol(key);
    context.put(context.toObject(target), name, value);
}

bool ESInterpreter::deleteIndexed(ESContext &context, const ESValue &target, const ESValue &key)
{
    ESSymbol *name = context.toSymbol(key);
    return context.deleteProperty(context.toObject(target), name);
}

// An array of the names, own ones first and each once, with the place of the next in `index`.
ESValue ESInterpreter::enumerate(ESContext &context, const ESValue &value)
{
    std::vector<ESValue> names;
    QSet<ESSymbol *> seen;
    ESObject *object = context.toObject(value);
    for (ESObject *holder = object; holder; holder = holder->prototype())
        holder->forEachProperty([&](ESSymbol *name, quint32 flags, const ESValue &) {
            if (!(flags & esDontEnumerate) && (holder == object || !seen.contains(name)))
                names.push_back(name);
            if (object->prototype())
                seen.insert(name);
        });
    ESObject *enumerator = context.makeArray(names);
    context.addProperty(enumerator, esNames().index, 0, 0);
    return enumerator;
}

bool ESInterpreter::nextName(ESContext &context, const ESValue &value, ESValue &name)
{
    if (!value.isObject())
        context.fatal("tos isn't a property object");
    ESObject *enumerator = value.object;
    const double index = context.toNumber(context.get(enumerator, esNames().index));
    if (!(index < context.toNumber(context.get(enumerator, esNames().length))))
        return false;
    context.put(enumerator, esNames().index, index + 1);
    name = getIndexed(context, enumerator, index);
    return true;
}

// ---- Names

// The first object on the scope chain that has the name, else the global one.
ESObject *ESInterpreter::holderOf(ESContext &context, const ESFrame &frame, ESSymbol *name)
{
    for (const ESScopeNode *node = frame.scope; node; node = node->next)
        if (context.hasProperty(node->object, name))
            return node->object;
    return context.m_global;
}

// Where the name was found last time if the scope chain still looks the same.
ESValue *ESInterpreter::cachedName(const ESFrame &frame, const ESPropertyCache &cache, ESObject *&holder)
{
    if (!cache.shape)
        return nullptr;
    const ESScopeNode *node = frame.scope;
    for (quint32 i = 0; i < cache.depth; ++i, node = node->next)
        if (!node || node->object->m_shape != cache.outer[i])
            return nullptr;
    if (cache.holder) { // the global object
        if (node || cache.holder->m_shape->slot(cache.slot).name != cache.name)
            return nullptr;
        holder = cache.holder;
    } else {
        if (!node || node->object->m_shape != cache.shape)
            return nullptr;
        holder = node->object;
    }
    return &holder->m_slots[cache.slot];
}

// Only activations are remembered: the names of a `with` object come and go with its prototypes.
void ESInterpreter::fillName(const ESContext &context, const ESFrame &frame, ESPropertyCache &cache)
{
    cache.shape = nullptr;
    cache.holder = nullptr;
    cache.depth = 0;
    for (const ESScopeNode *node = frame.scope; node; node = node->next) {
        ESShape *shape = node->object->m_shape;
        if (shape->esClass() != context.m_classes.activation || !shape->isShared())
            return;
        cache.slot = shape->find(cache.name);
        if (cache.slot != ESShape::notFound) {
            cache.shape = shape;
            return;
        }
        if (cache.depth == std::size(cache.outer))
            return;
        cache.outer[cache.depth++] = shape;
    }
    cache.slot = context.m_global->m_shape->find(cache.name);
    if (cache.slot != ESShape::notFound) {
        cache.shape = context.m_global->m_shape;
        cache.holder = context.m_global;
    }
}

ESValue ESInterpreter::loadName(ESContext &context, const ESFrame &frame, ESPropertyCache *cache, ESObject *&holder)
{
    if (const ESValue *value = cachedName(frame, *cache, holder))
        return *value;
    fillName(context, frame, *cache);
    holder = holderOf(context, frame, cache->name);
    return context.get(holder, cache->name);
}

void ESInterpreter::storeName(ESContext &context, const ESFrame &frame, ESPropertyCache *cache, const ESValue &value)
{
    ESObject *holder;
    if (ESValue *place = cachedName(frame, *cache, holder); place && holder != context.m_global) {
        *place = value;
        return;
    }
    fillName(context, frame, *cache);
    context.put(holderOf(context, frame, cache->name), cache->name, value);
}
