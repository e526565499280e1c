#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

using namespace Qt::StringLiterals;

namespace {

ESValue objectNative(ESContext &context, const ESCall &call)
{
    const ESValue value = call.argument(0);
    return value.isUndefined() || value.isNull() ? context.makeObject() : context.toObject(value);
}

ESValue toStringNative(ESContext &context, const ESCall &call)
{
    const char *name = context.toObject(call.self)->esClass()->name();
    return context.makeString(QString(u"[object %1]"_s.arg(QLatin1StringView(name))));
}

ESValue valueOfNative(ESContext &context, const ESCall &call)
{
    return esIsWrapper(context, call.self) ? call.self.object->primitive() : call.self;
}

ESValue hasOwnPropertyNative(ESContext &context, const ESCall &call)
{
    return ESValue(context.toObject(call.self)->find(context.toSymbol(call.argument(0))) != nullptr);
}

ESValue isPrototypeOfNative(ESContext &context, const ESCall &call)
{
    const ESObject *self = context.toObject(call.self);
    const ESValue value = call.argument(0);
    const ESObject *object = value.isObject() ? value.object->prototype() : nullptr;
    while (object && object != self)
        object = object->prototype();
    return ESValue(object != nullptr);
}

ESValue propertyIsEnumerableNative(ESContext &context, const ESCall &call)
{
    const ESObject *self = context.toObject(call.self);
    ESSymbol *name = context.toSymbol(call.argument(0));
    return ESValue(self->find(name) && !(self->flagsOf(name) & esDontEnumerate));
}

constexpr ESNativeRow rows[] = {
    {"toString", 0, toStringNative},
    {"toLocaleString", 0, toStringNative},
    {"valueOf", 0, valueOfNative},
    {"hasOwnProperty", 1, hasOwnPropertyNative},
    {"isPrototypeOf", 1, isPrototypeOfNative},
    {"propertyIsEnumerable", 1, propertyIsEnumerableNative},
};

} // namespace

void ESNativeObject::init(ESContext &context)
{
    ESObject *prototype = context.prototypes().object;
    context.installConstructor(this, {"Object", 1, objectNative}, prototype);
    context.install(prototype, this, "Object.prototype.", rows, 2);
}
