#pragma once

#include "expression/ExpressionValue.h"

class XMLElement;

// Receives the rows of a display tree (DisplayTree) in their order and says how pointers and arrays are to be
// shown. Every row has a name, the expression that stands for it by itself, a value, the type's text and the
// text of its location.
class VariableListBuilder
{
public:
    enum Mode {
        Plain,    // one row
        Follow,   // a pointer: what is behind it
        Elements, // an array's elements, or `count` of them behind a pointer
        Text,     // the C text
    };
    using Token = quint64; // handed from a begin to its end

    virtual ~VariableListBuilder() = default;

    virtual void begin(const QString & /*name*/) {}
    // Plain, Follow, Elements or Text.
    virtual Mode pointerMode(const QString & /*expression*/, const QString & /*typeName*/, quint64 /*pointer*/,
                             quint32 * /*count*/)
    {
        return Plain;
    }
    // Plain, Elements or Text; `count` may be lowered.
    virtual Mode arrayMode(const QString & /*expression*/, const QString & /*typeName*/, quint32 * /*count*/)
    {
        return Elements;
    }
    virtual void addValue(const QString &name, const QString &expression, const ExpressionValue &value,
                          const QString &typeName, const QString &location) = 0;
    virtual Token beginStruct(const QString &name, const QString &expression, const ExpressionValue &value,
                              const QString &typeName, const QString &location) = 0;
    virtual void endStruct(Token token) = 0;
    virtual Token beginArray(const QString &name, const QString &expression, const ExpressionValue &value,
                             const QString &typeName, const QString &location) = 0;
    virtual void endArray(Token token) = 0;
    // A row that can't be read.
    virtual void addError(const QString &name, const QString &expression, const QString &message,
                          const QString &typeName, const QString &location)
    {
        addValue(name, expression, ExpressionValue::ofText(u'<' + message + u'>'), typeName, location);
    }
    // A description for this very value; without one the evaluator's are searched.
    virtual const XMLElement *typeDescription(const ExpressionValue & /*place*/) { return nullptr; }
    virtual bool showVirtualFunctions(const QString & /*expression*/) { return false; }
};
