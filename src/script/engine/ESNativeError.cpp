#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

namespace {

constexpr const char *names[esErrorKinds] = {"Error",          "EvalError",   "RangeError",
                                             "ReferenceError", "SyntaxError", "TypeError"};

// One for all six: the function called tells the class and, by its `prototype`, what the object is.
ESValue errorNative(ESContext &context, const ESCall &call)
{
    const ESValue prototype = context.get(call.function, esNames().prototype);
    ESObject *error = context.makeObject(prototype.object, call.function->esClass());
    if (!call.argument(0).isUndefined())
        context.put(error, esNames().message, call.argument(0));
    return error;
}

} // namespace

ESNativeError::ESNativeError(ESErrorKind kind) : ESClass(names[int(kind)]), m_kind(kind) {}

void ESNativeError::init(ESContext &context)
{
    ESObject *&base = context.prototypes().error;
    const bool isBase = m_kind == ESErrorKind::Error;
    ESObject *prototype = isBase ? base : context.makeObject(base, context.classes().object);
    context.defineProperty(prototype, esHidden, esNames().name, esIntern(name()));
    if (isBase)
        context.defineProperty(prototype, esHidden, esNames().message, esNames().empty);
    ESObject *constructor = context.installConstructor(this, {name(), 1, errorNative}, prototype);
    context.setPrimitive(constructor, esIntern(names[0]));
    context.setErrorConstructor(m_kind, constructor);
}
