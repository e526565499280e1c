#include "script/engine/ESContext.h"

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

constexpr double twoTo32 = 4294967296.0, twoTo63 = 9223372036854775808.0;

QString wholeNumberText(double number, int radix)
{
    if (radix == 10)
        return std::abs(number) < twoTo63 ? QString::number(qint64(number)) : QString::number(number, 'g', 6);
    QString digits;
    for (double rest = std::abs(number); rest >= 1; rest = std::floor(rest / radix))
        digits.prepend(u"0123456789abcdefghijklmnopqrstuvwxyz"[int(std::fmod(rest, radix))]);
    return number < 0 ? u'-' + digits : digits;
}

double numberOfText(QStringView text)
{
    text = text.trimmed();
    bool ok;
    const double number =
        text.startsWith(u"0x", Qt::CaseInsensitive) ? double(text.mid(2).toULongLong(&ok, 16)) : text.toDouble(&ok);
    return ok ? number : std::numeric_limits<double>::quiet_NaN();
}

} // namespace

bool ESContext::toBoolean(const ESValue &value)
{
    switch (value.type) {
    case esUndefined:
    case esNull: return false;
    case esBoolean:
    case esNumber: return value.number == value.number && value.number != 0;
    case esString:
    case esSymbol: return value.string->length() != 0;
    case esObject: return true;
    case esAbsent: break;
    }
    fatal("bad type in toBoolean");
}

double ESContext::toNumberSlow(const ESValue &value)
{
    switch (value.type) {
    case esUndefined: return std::numeric_limits<double>::quiet_NaN();
    case esNull: return 0;
    case esBoolean:
    case esNumber: return value.number;
    case esString:
    case esSymbol: return numberOfText(view(value.string));
    case esObject: return toNumber(toPrimitive(value, ESHint::Number));
    case esAbsent: break;
    }
    fatal("bad type in toNumber");
}

double ESContext::toInteger(const ESValue &value)
{
    const double number = toNumber(value);
    if (std::isnan(number))
        return 0;
    return std::isinf(number) ? number : std::trunc(number);
}

qint32 ESContext::toInt32(double number)
{
    if (std::abs(number) < 2147483648.0)
        return qint32(number);
    if (!std::isfinite(number))
        return 0;
    const double wrapped = std::fmod(std::trunc(number), twoTo32); // between -2^32 and 2^32
    return qint32(quint32(qint64(wrapped)));
}

ESString *ESContext::toString(const ESValue &value, int radix)
{
    switch (value.type) {
    case esUndefined: return esNames().undefined;
    case esNull: return esNames().null;
    case esBoolean: return value.number ? esNames().true_ : esNames().false_;
    case esString:
    case esSymbol: return value.string;
    case esObject: return toString(toPrimitive(value, ESHint::String), radix);
    case esAbsent: fatal("unknown type in toString");
    case esNumber: break;
    }
    const double number = value.number;
    if (radix == 10 && number >= 0 && number < 1024 && number == qint32(number))
        return esSymbolOf(quint32(number));
    return makeString(numberText(number, radix));
}

QString ESContext::numberText(double number, int radix)
{
    if (std::isnan(number))
        return u"NaN"_s;
    if (number == 0)
        return u"0"_s;
    if (std::isinf(number))
        return number > 0 ? u"Infinity"_s : u"-Infinity"_s;
    return number == std::floor(number) ? wholeNumberText(number, radix) : QString::number(number, 'g', 6);
}

ESSymbol *ESContext::toSymbol(const ESValue &value)
{
    if (value.type == esSymbol)
        return static_cast<ESSymbol *>(value.string);
    if (value.isNumber() && value.number >= 0 && value.number < ESSymbol::noIndex &&
        value.number == quint32(value.number))
        return esSymbolOf(quint32(value.number));
    ESString *string = toString(value);
    if (string->isSymbol())
        return static_cast<ESSymbol *>(string);
    const QStringView text = view(string);
    if (!string->m_symbol)
        string->m_symbol = esIntern(text);
    return string->m_symbol;
}

ESObject *ESContext::toObjectSlow(const ESValue &value)
{
    switch (value.type) {
    case esUndefined: raise(ESErrorKind::TypeError, "can't convert undefined to an object");
    case esNull: raise(ESErrorKind::TypeError, "can't convert null to an object");
    case esBoolean: return makeWrapper(m_prototypes.boolean, m_classes.boolean, value);
    case esNumber: return makeWrapper(m_prototypes.number, m_classes.number, value);
    case esString:
    case esSymbol: return makeWrapper(m_prototypes.string, m_classes.string, value);
    case esObject: return value.object;
    case esAbsent: break;
    }
    fatal("unknown type in toObject");
}

ESValue ESContext::toPrimitive(const ESValue &value, ESHint hint)
{
    if (value.type == esAbsent)
        fatal("bad type in toPrimitive");
    if (!value.isObject())
        return value;
    ESObject *object = value.object;
    if (object == m_global)
        return object->primitive();
    const bool textFirst = hint == ESHint::String || (hint == ESHint::Default && object->esClass() == m_classes.date);
    ESSymbol *const methods[] = {textFirst ? esNames().toString : esNames().valueOf,
                                 textFirst ? esNames().valueOf : esNames().toString};
    for (ESSymbol *method : methods) {
        const ESValue function = get(object, method);
        if (!function.isObject() || !function.object->isCallable())
            continue;
        const ESValue result = call(function.object, object, {});
        if (!result.isObject() && !result.isUndefined())
            return result;
    }
    raise(ESErrorKind::TypeError, "type error: no default value");
}

bool ESContext::equalTexts(ESString *left, ESString *right)
{
    if (left == right)
        return true;
    if (left->length() != right->length() || (left->isSymbol() && right->isSymbol()))
        return false;
    return view(left) == view(right);
}

bool ESContext::areIdentical(const ESValue &left, const ESValue &right)
{
    if (left.isString() && right.isString())
        return equalTexts(left.string, right.string);
    if (left.type != right.type)
        return false;
    switch (left.type) {
    case esBoolean:
    case esNumber: return left.number == right.number;
    case esObject: return left.object == right.object;
    default: return true;
    }
}

bool ESContext::equals(const ESValue &left, const ESValue &right)
{
    const auto isNothing = [](const ESValue &value) { return value.isUndefined() || value.isNull(); };
    if (isNothing(left) || isNothing(right))
        return isNothing(left) && isNothing(right);
    if (left.type == right.type || (left.isString() && right.isString()))
        return areIdentical(left, right);
    if (left.isBoolean())
        return equals(left.number, right);
    if (right.isBoolean())
        return equals(left, right.number);
    if (left.isObject())
        return equals(toPrimitive(left, ESHint::Default), right);
    if (right.isObject())
        return equals(left, toPrimitive(right, ESHint::Default));
    return toNumber(left) == toNumber(right);
}
