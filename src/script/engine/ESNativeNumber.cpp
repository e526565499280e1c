#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

#include <cmath>
#include <cstdio>
#include <limits>

namespace {

ESValue numberNative(ESContext &context, const ESCall &call)
{
    const ESValue value = call.argc ? context.toNumber(call.argv[0]) : 0.0;
    return call.construct ? context.toObject(value) : value;
}

ESValue toStringNative(ESContext &context, const ESCall &call)
{
    const ESValue number = esReceiver(context, call, context.classes().number, &ESValue::isNumber,
                                      "Number.prototype.toString called on non-Number object");
    const int radix = context.toInt32(call.argument(0));
    if (radix != 0 && (radix < 2 || radix > 36))
        context.raise(ESErrorKind::RangeError, "radix should be 2 through 36");
    return context.toString(number, radix ? radix : 10);
}

ESValue toFixedNative(ESContext &context, const ESCall &call)
{
    const double number = context.toNumber(call.self);
    const double digits = call.argument(0).isUndefined() ? 0 : context.toNumber(call.argument(0));
    if (digits < 0 || digits > 20)
        context.raise(ESErrorKind::RangeError, "fraction digits should 0 through 20");
    if (!std::isfinite(number))
        return context.toString(number);
    char text[std::numeric_limits<double>::max_exponent10 + 40];
    std::snprintf(text, sizeof text, "%40.*f", std::isnan(digits) ? 0 : int(digits), number);
    return context.makeString(QString(QString::fromLatin1(text).trimmed()));
}

ESValue valueOfNative(ESContext &context, const ESCall &call)
{
    return esReceiver(context, call, context.classes().number, &ESValue::isNumber,
                      "Number.prototype.valueOf called on non-Number object");
}

constexpr ESNativeRow rows[] = {
    {"toString", 1, toStringNative},
    {"toFixed", 1, toFixedNative},
    {"valueOf", 0, valueOfNative},
};

using Limits = std::numeric_limits<double>;
constexpr struct
{
    const char *name;
    double value;
} constants[] = {
    {"MAX_VALUE", Limits::max()},
    {"MIN_VALUE", Limits::denorm_min()},
    {"NaN", Limits::quiet_NaN()},
    {"NEGATIVE_INFINITY", -Limits::infinity()},
    {"POSITIVE_INFINITY", Limits::infinity()},
};

} // namespace

void ESNativeNumber::init(ESContext &context)
{
    ESObject *prototype = context.prototypes().number;
    context.setPrimitive(prototype, 0);
    ESObject *constructor = esInstallUnpadded(context, this, "Number", numberNative, 1, prototype);
    for (const auto &row : constants)
        context.defineProperty(constructor, esConstant, esIntern(row.name), row.value);
    context.install(prototype, this, "Number.prototype.", rows, 2);
}
