#pragma once

#include "script/engine/ESContext.h"
#include "script/engine/ESProgram.h"

// A function that runs. Its registers lie on the context's stack from `base` on, the arguments first.
struct ESFrame
{
    enum Flag : quint32 { isEntry = 1, isConstruct = 2 };

    const ESInstruction *pc = nullptr; // where it calls, or what may fail
    ESValue *base = nullptr;
    ESProgram *program = nullptr; // null: native
    ESObject *function = nullptr; // null: a program
    ESValue self;
    ESScopeNode *scope = nullptr;
    ESObject *activation = nullptr;  // if the program has one
    ESObject *constructed = nullptr; // with isConstruct: what `new` made
    quint32 flags = 0;               // isEntry: returning from it leaves the interpreter
    quint32 nativeCount = 0;         // of a native one: its arguments

    ESValue *top() const { return base + (program ? program->registerCount : nativeCount); }
    int line() const;
};

// Where an exception goes on.
struct ESHandler
{
    ESFrame *frame;
    ESScopeNode *scope;
    const ESInstruction *target;
    quint32 exceptionRegister;
};

// Runs decoded programs.
class ESInterpreter
{
public:
    // Runs the innermost frame, which is marked isEntry, until it returns.
    static ESValue run(ESContext &context);
    // Puts the frame of a script function, or of a program (function null), on top.
    static ESFrame *enter(ESContext &context, ESFrame *frame, ESObject *function, ESProgram *program,
                          ESScopeNode *scope, const ESValue &self, ESValue *argv, quint32 count);
    static ESProgram *programOf(ESContext &context, ESCode &code);
    static ESObject *closure(ESContext &context, ESCode *code, ESScopeNode *scope);
    // The object that `new` hands to a script function.
    static ESObject *instanceFor(ESContext &context, ESObject *function);

private:
    static void link(ESProgram &program);
    static ESValue dispatch(ESContext *context, ESFrame *entry, ESProgram *toLink);
    static bool unwind(ESContext &context, ESFrame *entry, const ESValue &exception);

    static ESValue add(ESContext &context, const ESValue &left, const ESValue &right);
    static ESValue less(ESContext &context, const ESValue &left, const ESValue &right);
    static bool lessEqual(ESContext &context, const ESValue &left, const ESValue &right);
    static ESValue typeName(const ESValue &value);
    static ESObject *receiver(ESContext &context, const ESValue &value);
    static ESValue getNamed(ESContext &context, ESObject *object, ESPropertyCache *cache);
    static void putNamed(ESContext &context, const ESValue &target, ESPropertyCache *cache, const ESValue &value);
    static ESValue getIndexed(ESContext &context, const ESValue &object, const ESValue &key);
    static void putIndexed(ESContext &context, const ESValue &object, const ESValue &key, const ESValue &value);
    static bool deleteIndexed(ESContext &context, const ESValue &object, const ESValue &key);
    static ESValue enumerate(ESContext &context, const ESValue &value);
    static bool nextName(ESContext &context, const ESValue &enumerator, ESValue &name);
    static ESObject *holderOf(ESContext &context, const ESFrame &frame, ESSymbol *name);
    static ESValue *cachedName(const ESFrame &frame, const ESPropertyCache &cache, ESObject *&holder);
    static void fillName(const ESContext &context, const ESFrame &frame, ESPropertyCache &cache);
    static ESValue loadName(ESContext &context, const ESFrame &frame, ESPropertyCache *cache, ESObject *&holder);
    static void storeName(ESContext &context, const ESFrame &frame, ESPropertyCache *cache, const ESValue &value);
    static void makeArguments(ESContext &context, ESObject *function, ESProgram *program, ESValue *argv, quint32 count);
    static void makeActivation(ESContext &context, ESFrame *frame);
    [[noreturn]] static void stackTooSmall(ESContext &context);
};
