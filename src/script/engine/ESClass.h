#pragma once

#include "script/engine/ESObject.h"

#include <span>

// One call of a native function.
struct ESCall
{
    ESObject *function;
    ESValue self; // `this`; of a method called on a string, number or boolean that value itself, no wrapper
    int argc;     // at least the function's arity
    ESValue *argv;
    bool construct = false; // by `new`: a constructor gives the new object

    ESValue argument(int i) const { return i < argc ? argv[i] : ESValue(); }
};

// A row of a table of natives: ESContext::install makes the function objects of an owner from it.
//
//     const ESNativeRow rows[] = {
//         {"abs", 1, [](ESContext &context, const ESCall &call) -> ESValue { ... }, "<b>Math.abs(x)</b> ..."},
//     };
struct ESNativeRow
{
    const char *name;
    int arity;
    ESNative function = nullptr; // null: the class's call hook gets it, by its id
    const char *help = nullptr;  // becomes the property `help`
};

// The hooks by which a kind of native or host objects takes part. A subclass overrides what it has; a class
// outlives the contexts that it is used in.
class ESClass
{
public:
    explicit ESClass(const char *name) : m_name(name) {}
    virtual ~ESClass() = default;
    ESClass(const ESClass &) = delete;
    ESClass &operator=(const ESClass &) = delete;

    const char *name() const { return m_name; } // as "[object Name]" shows it

    // By default along the prototype chain; undefined when nobody has it.
    virtual ESValue get(ESContext &context, ESObject *object, ESSymbol *name);
    // By default an own property, created with flags 0; a read-only one stays.
    virtual void put(ESContext &context, ESObject *object, ESSymbol *name, ESValue value);
    // The function `call.function` of this class is called; its native id tells which.
    virtual ESValue call(ESContext &context, const ESCall &call);
    // `new` of a native function of this class. Null: an object is made from its `prototype` and the function
    // called upon it.
    virtual ESObject *construct(ESContext &context, const ESCall &call);
    // Adds to the global object what scripts see of this class: by default a plain object under its name.
    virtual void init(ESContext &context);

private:
    const char *m_name;
};
