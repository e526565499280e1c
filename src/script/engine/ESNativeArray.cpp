#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

namespace {

// No context has the memory for more elements: what is longer is nearly all holes, and walking it would only
// keep the user waiting.
constexpr quint32 mostElements = 1u << 26;
constexpr quint32 endOfIndices = 0x7FFFFFFF; // from here on a number is a name like any other

bool isArray(const ESValue &value)
{
    return value.isObject() && value.object->isArray();
}

quint32 lengthOf(ESContext &context, ESObject *object)
{
    return object->isArray() ? context.arrayLength(object) : context.toUint32(context.get(object, esNames().length));
}

// For those that walk all elements.
quint32 walkableLengthOf(ESContext &context, ESObject *object)
{
    const quint32 length = lengthOf(context, object);
    if (length > mostElements)
        context.raise(ESErrorKind::RangeError, "array is too long");
    return length;
}

void storeLength(ESContext &context, ESObject *object, double length)
{
    context.put(object, esNames().length, length);
}

// The elements in one piece, when the array has all of them there.
std::span<ESValue> denseElements(ESContext &context, ESObject *object, quint32 length)
{
    const std::span<ESValue> elements = context.elements(object);
    return object->isArray() && elements.size() == length ? elements : std::span<ESValue>();
}

void storeOrDelete(ESContext &context, ESObject *object, quint32 index, ESValue value)
{
    if (value.isUndefined())
        context.deleteProperty(object, index);
    else
        context.put(object, index, value);
}

ESValue arrayNative(ESContext &context, const ESCall &call)
{
    if (call.argc != 1 || !call.argv[0].isNumber())
        return context.makeArray(std::span(call.argv, size_t(call.argc)));
    const quint32 length = context.toUint32(call.argv[0]);
    if (length != call.argv[0].number)
        context.raise(ESErrorKind::RangeError, "bad length in array constructor");
    return context.makeArray(length);
}

ESValue toStringNative(ESContext &context, const ESCall &call)
{
    if (!isArray(call.self))
        context.raise(ESErrorKind::TypeError, "Array.prototype.toString requires an array");
    ESObject *self = call.self.object;
    const quint32 length = walkableLengthOf(context, self);
    ESString *comma = context.makeCharacter(u',');
    ESTextBuilder text;
    for (quint32 i = 0; i < length; ++i) {
        if (i > 0)
            text.add(comma);
        if (const ESValue value = context.get(self, i); !value.isNull())
            text.add(context.toString(value));
    }
    return text.finish(context);
}

// undefined and null give nothing, no separator either.
ESValue join(ESContext &context, const ESCall &call)
{
    ESObject *self = context.toObject(call.self);
    const quint32 length = walkableLengthOf(context, self);
    ESString *separator =
        call.argument(0).isUndefined() ? context.makeCharacter(u',') : context.toString(call.argument(0));
    ESTextBuilder text;
    bool isFirst = true;
    for (quint32 i = 0; i < length; ++i) {
        const ESValue value = context.get(self, i);
        if (value.isUndefined() || value.isNull())
            continue;
        if (!isFirst)
            text.add(separator);
        text.add(context.toString(value));
        isFirst = false;
    }
    return text.finish(context);
}

// Arrays give their elements, without the undefined ones; everything else is an element.
ESValue concat(ESContext &context, const ESCall &call)
{
    ESObject *result = context.makeArray();
    quint32 count = 0;
    const auto append = [&](const ESValue &value) {
        if (!isArray(value)) {
            context.put(result, count++, value);
            return;
        }
        const quint32 length = walkableLengthOf(context, value.object);
        for (quint32 i = 0; i < length; ++i)
            if (const ESValue element = context.get(value.object, i); !element.isUndefined())
                context.put(result, count++, element);
    };
    append(call.self);
    for (int i = 0; i < call.argc; ++i)
        append(call.argv[i]);
    return result;
}

ESValue pop(ESContext &context, const ESCall &call)
{
    ESObject *self = context.toObject(call.self);
    const quint32 length = lengthOf(context, self);
    ESValue last;
    if (length > endOfIndices) {
        ESSymbol *name = esSymbolOf(length - 1);
        last = context.get(self, name);
        context.deleteProperty(self, name);
    } else if (length > 0) {
        last = context.get(self, length - 1);
        context.deleteProperty(self, length - 1);
    }
    storeLength(context, self, length ? length - 1 : 0);
    return last;
}

ESValue push(ESContext &context, const ESCall &call)
{
    ESObject *self = context.toObject(call.self);
    double length = lengthOf(context, self);
    for (int i = 0; i < call.argc; ++i, ++length) {
        if (length < endOfIndices)
            context.put(self, quint32(length), call.argv[i]);
        else
            context.put(self, context.toSymbol(length), call.argv[i]);
    }
    if (call.argc)
        storeLength(context, self, length);
    return length;
}

ESValue reverse(ESContext &context, const ESCall &call)
{
    ESObject *self = context.toObject(call.self);
    const quint32 length = walkableLengthOf(context, self);
    for (quint32 i = 0; i < length / 2; ++i) {
        const ESValue low = context.get(self, i), high = context.get(self, length - 1 - i);
        storeOrDelete(context, self, i, high);
        storeOrDelete(context, self, length - 1 - i, low);
    }
    return self;
}

ESValue shift(ESContext &context, const ESCall &call)
{
    ESObject *self = context.toObject(call.self);
    const quint32 length = lengthOf(context, self);
    if (length == 0) {
        storeLength(context, self, 0);
        return {};
    }
    const ESValue first = context.get(self, 0u);
    if (!denseElements(context, self, length).empty()) {
        context.dropFirstElement(self);
    } else {
        walkableLengthOf(context, self);
        for (quint32 i = 1; i < length; ++i) {
            if (context.hasProperty(self, esSymbolOf(i)))
                context.put(self, i - 1, context.get(self, i));
            else
                context.deleteProperty(self, i - 1);
        }
        context.deleteProperty(self, length - 1);
    }
    storeLength(context, self, length - 1);
    return first;
}

ESValue slice(ESContext &context, const ESCall &call)
{
    ESObject *self = context.toObject(call.self);
    const quint32 length = lengthOf(context, self);
    const quint32 from = esClampFromEnd(context.toInt32(call.argument(0)), length);
    const quint32 to =
        call.argument(1).isUndefined() ? length : esClampFromEnd(context.toInt32(call.argument(1)), length);
    const quint32 count = to > from ? to - from : 0;
    if (count > mostElements)
        context.raise(ESErrorKind::RangeError, "array is too long");
    ESObject *result = context.makeArray();
    for (quint32 i = 0; i < count; ++i)
        if (const ESValue value = context.get(self, from + i);
            !value.isUndefined() || context.hasProperty(self, esSymbolOf(from + i)))
            context.put(result, i, value);
    storeLength(context, result, count);
    return result;
}

// ---- sort

// Shell's method over n places, with the gaps (n + 3) / 5, then (gap + 1) / 3 each. Each place takes part from
// the back; `belongsAfter(key, j)` tells whether the key goes behind what is at j.
template <typename Read, typename Write, typename BelongsAfter>
void shellSort(quint32 n, Read read, Write write, BelongsAfter belongsAfter)
{
    for (quint32 gap = (n + 3) / 5; gap > 0; gap = (gap + 1) / 3) {
        for (quint32 i = n - gap; i-- > 0;) {
            const auto key = read(i);
            quint32 j = i;
            for (; j + gap < n; j += gap) {
                const auto other = read(j + gap);
                if (!belongsAfter(key, other))
                    break;
                write(j, other);
            }
            write(j, key);
        }
    }
}

// Without a function, and with nothing among the elements whose conversion a script could watch: each is
// converted once.
struct SortedText
{
    QStringView text;
    ESValue value;
};

bool sortTexts(ESContext &context, ESObject *self, quint32 length)
{
    const std::span<ESValue> elements = denseElements(context, self, length);
    if (elements.empty() || !std::ranges::all_of(elements, [](const ESValue &value) {
            return !value.isObject() && !value.isUndefined() && value.type != esAbsent;
        }))
        return false;
    std::vector<SortedText> rows;
    rows.reserve(length);
    for (const ESValue &value : elements)
        rows.push_back({context.view(context.toString(value)), value});
    shellSort(
        length, [&](quint32 i) { return rows[i]; }, [&](quint32 i, const SortedText &row) { rows[i] = row; },
        [](const SortedText &key, const SortedText &other) { return key.text > other.text; });
    std::ranges::transform(rows, elements.begin(), &SortedText::value);
    return true;
}

// In place, so that the function sees the array as it is then.
ESValue sort(ESContext &context, const ESCall &call)
{
    ESObject *self = context.toObject(call.self);
    const ESValue compare = call.argument(0);
    const bool hasFunction = !compare.isUndefined();
    if (hasFunction && !(compare.isObject() && compare.object->isCallable()))
        context.raise(ESErrorKind::Error, "Array.prototype.sort argument is not a function");
    const quint32 length = walkableLengthOf(context, self);
    if (!hasFunction && sortTexts(context, self, length))
        return self;
    const auto belongsAfter = [&](const ESValue &key, const ESValue &other) {
        if (key.isUndefined() || other.isUndefined())
            return key.isUndefined() && !other.isUndefined();
        if (hasFunction) {
            const ESValue arguments[] = {key, other};
            return context.toNumber(context.call(compare.object, {}, arguments)) > 0;
        }
        const QStringView text = context.view(context.toString(key));
        return text > context.view(context.toString(other));
    };
    shellSort(
        length, [&](quint32 i) { return context.get(self, i); },
        [&](quint32 i, const ESValue &value) { storeOrDelete(context, self, i, value); }, belongsAfter);
    return self;
}

constexpr ESNativeRow rows[] = {
    {"toString", 0, toStringNative},
    {"toLocaleString", 0, toStringNative},
    {"concat", 0, concat},
    {"join", 1, join},
    {"pop", 0, pop},
    {"push", 0, push},
    {"reverse", 0, reverse},
    {"shift", 0, shift},
    {"slice", 2, slice},
    {"sort", 1, sort},
};

} // namespace

void ESNativeArray::put(ESContext &context, ESObject *object, ESSymbol *name, ESValue value)
{
    if (name == esNames().length && object->isArray())
        context.setArrayLength(object, context.toUint32(value));
    else
        context.ordinaryPut(object, name, value);
}

void ESNativeArray::init(ESContext &context)
{
    ESObject *prototype = context.prototypes().array;
    context.installConstructor(this, {"Array", 0, arrayNative}, prototype);
    context.install(prototype, this, "Array.prototype.", rows, 2);
}
