#pragma once

#include <QString>

class ScriptEngine;

// An operation of the host that a script language can call.
class MethodWrapper
{
public:
    virtual ~MethodWrapper() = default;
    virtual void invoke(ScriptEngine *engine) = 0;
};

// How the rest of the environment drives a script language: it offers operations by name and exchanges their
// arguments and results through the language's stack.
class ScriptEngine
{
public:
    virtual ~ScriptEngine() = default;
    // The wrapper stays the caller's and must live as long as the engine.
    virtual void registerMethod(const QString &name, MethodWrapper *method) = 0;
    virtual void pushString(const QString &text) = 0;
    virtual void pushInteger(qint64 value) = 0;
    virtual QString popString() = 0;
    virtual qint64 popInteger() = 0;
    virtual void print(const QString &text) = 0;
};
