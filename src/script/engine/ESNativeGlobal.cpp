#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

#include <cmath>
#include <limits>

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// The first of the parts that spaces separate; empty if there is none.
QString firstWord(ESContext &context, const ESValue &value)
{
    return context.toQString(value).split(u' ', Qt::SkipEmptyParts).value(0);
}

// An error in the text stays in the text: its value is undefined.
ESValue evalNative(ESContext &context, const ESCall &call)
{
    const ESValue argument = call.argument(0);
    const ESValue text = esIsWrapper(context, argument) ? argument.object->primitive() : argument;
    if (!text.isString())
        return text;
    const ESCompletion completion = context.evaluate(QString(), context.toQString(text));
    return completion.kind == ESCompletion::Normal ? completion.value : ESValue();
}

// The whole word has to be a number of that radix, within 32 bits.
ESValue parseIntNative(ESContext &context, const ESCall &call)
{
    const QString word = firstWord(context, call.argument(0));
    int radix = 10;
    if (!call.argument(1).isUndefined())
        radix = context.toInt32(call.argument(1));
    else if (word.startsWith(u"0x"))
        radix = 16;
    else if (word.startsWith(u'0'))
        radix = 8;
    if (radix != 0 && (radix < 2 || radix > 36))
        return notANumber;
    bool ok;
    const int number = word.toInt(&ok, radix);
    return ok ? number : notANumber;
}

ESValue parseFloatNative(ESContext &context, const ESCall &call)
{
    bool ok;
    const float number = firstWord(context, call.argument(0)).toFloat(&ok);
    return ok ? double(number) : notANumber;
}

ESValue isNaNNative(ESContext &context, const ESCall &call)
{
    return ESValue(std::isnan(context.toNumber(call.argument(0))));
}

ESValue isFiniteNative(ESContext &context, const ESCall &call)
{
    return ESValue(std::isfinite(context.toNumber(call.argument(0))));
}

ESValue loadNative(ESContext &context, const ESCall &call)
{
    return ESValue(context.load(context.toQString(call.argument(0))));
}

constexpr ESNativeRow rows[] = {
    {"eval", 1, evalNative},   {"parseInt", 2, parseIntNative}, {"parseFloat", 1, parseFloatNative},
    {"isNaN", 1, isNaNNative}, {"isFinite", 1, isFiniteNative}, {"load", 1, loadNative},
};

} // namespace

void ESNativeGlobal::init(ESContext &context)
{
    ESObject *global = context.global();
    context.defineProperty(global, esDontEnumerate, esIntern("NaN"), notANumber);
    context.defineProperty(global, esDontEnumerate, esIntern("Infinity"), std::numeric_limits<double>::infinity());
    context.defineProperty(global, esDontEnumerate, esNames().undefined, ESValue());
    context.install(global, this, "", rows, 1);
}
