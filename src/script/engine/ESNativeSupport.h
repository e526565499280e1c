#pragma once

#include "script/engine/ESContext.h"

// What the files of the native library share.

constexpr quint32 esConstant = esReadOnly | esDontEnumerate | esDontDelete;
constexpr quint32 esHidden = esDontEnumerate | esDontDelete;

// A native constructor that gets exactly the arguments that were given, none padded, and has `length` all the same.
inline ESObject *esInstallUnpadded(ESContext &context, ESClass *esClass, const char *name, ESNative function,
                                   int length, ESObject *prototype)
{
    ESObject *constructor = context.installConstructor(esClass, {name, 0, function}, prototype);
    context.defineProperty(constructor, esConstant, esNames().length, length);
    return constructor;
}

// An object of that class; the class's functions bear it too, but their primitive is their name.
inline bool esIsInstance(const ESValue &value, const ESClass *esClass)
{
    return value.isObject() && value.object->esClass() == esClass && !value.object->isCallable();
}

inline bool esIsWrapper(const ESContext &context, const ESValue &value)
{
    const auto &classes = context.classes();
    return esIsInstance(value, classes.string) || esIsInstance(value, classes.number) ||
           esIsInstance(value, classes.boolean) || esIsInstance(value, classes.date);
}

// The primitive of a receiver that must be of one class: a wrapper of it or, by `isPrimitive`, a plain value.
// `message` is raised as a TypeError for everything else.
inline ESValue esReceiver(ESContext &context, const ESCall &call, const ESClass *esClass,
                          bool (ESValue::*isPrimitive)() const, const char *message)
{
    if ((call.self.*isPrimitive)())
        return call.self;
    if (esIsInstance(call.self, esClass))
        return call.self.object->primitive();
    context.raise(ESErrorKind::TypeError, message);
}

// `number`, whole or infinite, brought into 0 to `most`.
inline quint32 esClamp(double number, quint32 most)
{
    return number <= 0 ? 0 : number >= most ? most : quint32(number);
}

// The same for a position that counts from the end when it is negative.
inline quint32 esClampFromEnd(double number, quint32 most)
{
    return esClamp(number < 0 ? number + most : number, most);
}

// A text put together from many: collects them and copies each character once.
class ESTextBuilder
{
public:
    void add(ESString *part)
    {
        m_length += part->length();
        m_parts.push_back(part);
    }
    ESString *finish(ESContext &context) const
    {
        ESString *text = esNames().empty;
        if (m_length == 0)
            return text;
        char16_t *to = context.makeCharacters(quint32(qMin(m_length, quint64(0xFFFFFFFF))), text);
        for (ESString *part : m_parts) {
            const QStringView view = context.view(part);
            to = std::copy_n(view.utf16(), view.size(), to);
        }
        return text;
    }

private:
    std::vector<ESString *> m_parts;
    quint64 m_length = 0; // in UTF-16 units
};
