#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <numbers>

namespace {

template <double (*function)(double)>
ESValue unary(ESContext &context, const ESCall &call)
{
    return function(context.toNumber(call.argument(0)));
}

template <double (*function)(double, double)>
ESValue binary(ESContext &context, const ESCall &call)
{
    const double left = context.toNumber(call.argument(0));
    return function(left, context.toNumber(call.argument(1)));
}

// The first argument that is no number is the answer.
template <int sign>
ESValue extreme(ESContext &context, const ESCall &call)
{
    double most = -sign * std::numeric_limits<double>::infinity();
    for (int i = 0; i < call.argc; ++i) {
        const double number = context.toNumber(call.argv[i]);
        if (std::isnan(number))
            return number;
        if (sign * number > sign * most)
            most = number;
    }
    return most;
}

double roundHalfUp(double number)
{
    return number < 0 && number >= -0.5 ? -0.0 : std::floor(number + 0.5);
}

ESValue random(ESContext &, const ESCall &)
{
    return std::rand() * 4.656612873077393e-10; // 2 to the -31
}

constexpr ESNativeRow rows[] = {
    {"abs", 1, unary<std::fabs>},     {"acos", 1, unary<std::acos>},
    {"asin", 1, unary<std::asin>},    {"atan", 1, unary<std::atan>},
    {"atan2", 2, binary<std::atan2>}, {"ceil", 1, unary<std::ceil>},
    {"cos", 1, unary<std::cos>},      {"exp", 1, unary<std::exp>},
    {"floor", 1, unary<std::floor>},  {"log", 1, unary<std::log>},
    {"max", 0, extreme<1>},           {"min", 0, extreme<-1>},
    {"pow", 2, binary<std::pow>},     {"random", 0, random},
    {"round", 1, unary<roundHalfUp>}, {"sin", 1, unary<std::sin>},
    {"sqrt", 1, unary<std::sqrt>},    {"tan", 1, unary<std::tan>},
};

constexpr struct
{
    const char *name;
    double value;
} constants[] = {
    {"E", std::numbers::e},
    {"LN10", std::numbers::ln10},
    {"LN2", std::numbers::ln2},
    {"LOG2E", std::numbers::log2e},
    {"LOG10E", std::numbers::log10e},
    {"PI", std::numbers::pi},
    {"SQRT1_2", std::numbers::sqrt2 / 2},
    {"SQRT2", std::numbers::sqrt2},
};

} // namespace

void ESNativeMath::init(ESContext &context)
{
    ESObject *math = context.makeObject(context.prototypes().object, this);
    for (const auto &row : constants)
        context.defineProperty(math, esConstant, esIntern(row.name), row.value);
    context.install(math, this, "Math.", rows, 1);
    context.defineProperty(context.global(), esDontEnumerate, esIntern("Math"), math);
}
