#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

namespace {

ESValue functionNative(ESContext &context, const ESCall &call)
{
    QStringList texts;
    for (int i = 0; i < call.argc; ++i)
        texts += context.toQString(call.argv[i]);
    const QString body = texts.isEmpty() ? QString() : texts.takeLast();
    return context.compileFunction(texts.join(u','), body);
}

constexpr ESNativeRow rows[] = {
    {"toString", 0, [](ESContext &, const ESCall &) -> ESValue { return esIntern("<<function>>"); }},
};

} // namespace

void ESNativeFunction::init(ESContext &context)
{
    ESObject *prototype = context.prototypes().function;
    context.defineProperty(prototype, esConstant, esNames().length, 0);
    esInstallUnpadded(context, this, "Function", functionNative, 1, prototype);
    context.install(prototype, this, "Function.prototype.", rows, 1);
}
