#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

#include <QCollator>
#include <cmath>

namespace {

// Of `this` and of an argument, whose characters live as long as the context.
ESString *selfText(ESContext &context, const ESCall &call)
{
    return context.toString(call.self);
}

QStringView argumentView(ESContext &context, const ESCall &call, int i)
{
    return context.view(context.toString(call.argument(i)));
}

ESString *between(ESContext &context, ESString *text, quint32 from, quint32 to)
{
    return context.substring(text, from, to > from ? to - from : 0);
}

ESValue stringNative(ESContext &context, const ESCall &call)
{
    ESString *text = context.toString(call.argument(0));
    return call.construct ? ESValue(context.toObject(text)) : ESValue(text);
}

ESValue fromCharCode(ESContext &context, const ESCall &call)
{
    if (call.argc == 1)
        return context.makeCharacter(context.toUint16(call.argv[0]));
    QString text;
    for (int i = 0; i < call.argc; ++i)
        text += QChar(context.toUint16(call.argv[i]));
    return context.makeString(text);
}

ESValue toStringNative(ESContext &context, const ESCall &call)
{
    return esReceiver(context, call, context.classes().string, &ESValue::isString,
                      "String.prototype.toString called on non-String object");
}

ESValue valueOfNative(ESContext &context, const ESCall &call)
{
    return esReceiver(context, call, context.classes().string, &ESValue::isString,
                      "String.prototype.valueOf called on non-String object");
}

// The position that charAt and charCodeAt ask for, or one behind every text.
quint32 position(ESContext &context, const ESCall &call)
{
    const double index = context.toInteger(call.argument(0));
    return index < 0 ? ~0u : esClamp(index, ~0u);
}

ESValue charAt(ESContext &context, const ESCall &call)
{
    const QStringView text = context.view(selfText(context, call));
    const quint32 index = position(context, call);
    return index < text.size() ? context.makeCharacter(text[index].unicode()) : esNames().empty;
}

ESValue charCodeAt(ESContext &context, const ESCall &call)
{
    const QStringView text = context.view(selfText(context, call));
    const quint32 index = position(context, call);
    return index < text.size() ? text[index].unicode() : std::nan("");
}

ESValue concat(ESContext &context, const ESCall &call)
{
    ESString *text = selfText(context, call);
    for (int i = 0; i < call.argc; ++i)
        text = context.concatenate(text, context.toString(call.argv[i]));
    return text;
}

ESValue indexOf(ESContext &context, const ESCall &call)
{
    const QStringView text = context.view(selfText(context, call));
    const QStringView part = argumentView(context, call, 0);
    return double(text.indexOf(part, esClamp(context.toInteger(call.argument(1)), quint32(text.size()))));
}

ESValue lastIndexOf(ESContext &context, const ESCall &call)
{
    const QStringView text = context.view(selfText(context, call));
    const QStringView part = argumentView(context, call, 0);
    const double from = call.argument(1).isUndefined() ? 0x7FFFFFFF : context.toInteger(call.argument(1));
    if (part.size() > text.size())
        return -1;
    const quint32 last = esClamp(from, quint32(text.size() - part.size()));
    return part.isEmpty() ? last : double(text.lastIndexOf(part, last));
}

ESValue localeCompare(ESContext &context, const ESCall &call)
{
    static const QCollator collator; // that of QString::localeAwareCompare is never freed
    const QStringView text = context.view(selfText(context, call));
    return collator.compare(text, argumentView(context, call, 0));
}

// There are no regular expressions.
ESValue match(ESContext &, const ESCall &)
{
    return {};
}

// Every occurrence, as plain text; an empty one occurs around each character.
ESValue replace(ESContext &context, const ESCall &call)
{
    ESString *text = selfText(context, call);
    const QStringView view = context.view(text);
    const QStringView before = argumentView(context, call, 0);
    ESString *after = context.toString(call.argument(1));
    ESTextBuilder result;
    qsizetype done = 0;
    for (qsizetype at = 0; at <= view.size() && (at = view.indexOf(before, at)) >= 0; at += qMax(before.size(), 1)) {
        result.add(context.substring(text, quint32(done), quint32(at - done)));
        result.add(after);
        done = at + before.size();
    }
    if (done == 0 && !before.isEmpty())
        return text;
    result.add(context.substring(text, quint32(done), quint32(view.size() - done)));
    return result.finish(context);
}

ESValue search(ESContext &context, const ESCall &call)
{
    const QStringView text = context.view(selfText(context, call));
    return double(text.indexOf(argumentView(context, call, 0)));
}

ESValue slice(ESContext &context, const ESCall &call)
{
    ESString *text = selfText(context, call);
    const quint32 length = text->length();
    const quint32 from = esClampFromEnd(context.toInteger(call.argument(0)), length);
    const quint32 to =
        call.argument(1).isUndefined() ? length : esClampFromEnd(context.toInteger(call.argument(1)), length);
    return between(context, text, from, to);
}

// An empty separator parts all characters.
ESValue split(ESContext &context, const ESCall &call)
{
    ESString *text = selfText(context, call);
    const QStringView view = context.view(text);
    const QStringView separator = argumentView(context, call, 0);
    ESObject *parts = context.makeArray();
    quint32 count = 0;
    if (separator.isEmpty()) {
        for (QChar c : view)
            context.put(parts, count++, context.makeCharacter(c.unicode()));
        return parts;
    }
    qsizetype from = 0;
    for (qsizetype at; (at = view.indexOf(separator, from)) >= 0; from = at + separator.size())
        context.put(parts, count++, between(context, text, quint32(from), quint32(at)));
    context.put(parts, count, between(context, text, quint32(from), quint32(view.size())));
    return parts;
}

ESValue substring(ESContext &context, const ESCall &call)
{
    ESString *text = selfText(context, call);
    const quint32 length = text->length();
    const quint32 a = esClamp(context.toInteger(call.argument(0)), length);
    const quint32 b = call.argument(1).isUndefined() ? length : esClamp(context.toInteger(call.argument(1)), length);
    return between(context, text, qMin(a, b), qMax(a, b));
}

template <auto change>
ESValue changed(ESContext &context, const ESCall &call)
{
    return context.makeString(change(context.view(selfText(context, call)).toString()));
}

constexpr auto lowered = [](const QString &text) { return text.toLower(); };
constexpr auto raised = [](const QString &text) { return text.toUpper(); };
constexpr auto simplified = [](const QString &text) { return text.simplified(); };

constexpr ESNativeRow constructorRows[] = {{"fromCharCode", 0, fromCharCode}};

constexpr ESNativeRow rows[] = {
    {"toString", 0, toStringNative},
    {"valueOf", 0, valueOfNative},
    {"charAt", 1, charAt},
    {"charCodeAt", 1, charCodeAt},
    {"concat", 0, concat},
    {"indexOf", 2, indexOf},
    {"lastIndexOf", 2, lastIndexOf},
    {"localeCompare", 1, localeCompare},
    {"match", 1, match},
    {"replace", 2, replace},
    {"search", 1, search},
    {"slice", 2, slice},
    {"split", 2, split},
    {"substring", 2, substring},
    {"toLowerCase", 0, changed<lowered>},
    {"toLocaleLowerCase", 0, changed<lowered>},
    {"toUpperCase", 0, changed<raised>},
    {"toLocaleUpperCase", 0, changed<raised>},
    {"trim", 0, changed<simplified>},
};

} // namespace

ESValue ESNativeString::get(ESContext &context, ESObject *object, ESSymbol *name)
{
    if (const ESValue text = object->primitive();
        name == esNames().length && text.isString() && esIsInstance(object, this))
        return text.string->length();
    return context.ordinaryGet(object, name);
}

void ESNativeString::init(ESContext &context)
{
    ESObject *prototype = context.prototypes().string;
    context.setPrimitive(prototype, esNames().empty);
    ESObject *constructor = context.installConstructor(this, {"String", 1, stringNative}, prototype);
    context.install(constructor, this, "String.", constructorRows, 1);
    context.install(prototype, this, "String.prototype.", rows, 2);
}
