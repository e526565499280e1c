#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

namespace {

ESValue receiver(ESContext &context, const ESCall &call)
{
    return esReceiver(context, call, context.classes().boolean, &ESValue::isBoolean,
                      "Boolean.prototype.toString called on non-Boolean object");
}

ESValue booleanNative(ESContext &context, const ESCall &call)
{
    const ESValue value(context.toBoolean(call.argument(0)));
    return call.construct ? context.toObject(value) : value;
}

ESValue toStringNative(ESContext &context, const ESCall &call)
{
    return context.toString(receiver(context, call));
}

constexpr ESNativeRow rows[] = {{"toString", 0, toStringNative}, {"valueOf", 0, receiver}};

} // namespace

void ESNativeBoolean::init(ESContext &context)
{
    ESObject *prototype = context.prototypes().boolean;
    context.setPrimitive(prototype, ESValue(false));
    context.defineProperty(prototype, esConstant, esNames().length, 1);
    context.installConstructor(this, {"Boolean", 1, booleanNative}, prototype);
    context.install(prototype, this, "Boolean.prototype.", rows, 1);
}
