#pragma once

#include "script/engine/ESClass.h"

#include <QStringList>

enum class ESErrorKind;

// The classes of the native library, one .cpp each. `init` fills prototype and constructor; each method is a
// row of that file's table with its function. Their order of set-up is ESContext's constructor.
class ESNativeGlobal : public ESClass
{
public:
    ESNativeGlobal() : ESClass("global") {}
    void init(ESContext &context) override;
};

class ESNativeObject : public ESClass
{
public:
    ESNativeObject() : ESClass("Object") {}
    void init(ESContext &context) override;
};

class ESNativeFunction : public ESClass
{
public:
    ESNativeFunction() : ESClass("Function") {}
    void init(ESContext &context) override;
};

// Elements are what ESObject calls its numbered properties; `length` is the first slot of every array.
class ESNativeArray : public ESClass
{
public:
    ESNativeArray() : ESClass("Array") {}
    void put(ESContext &context, ESObject *object, ESSymbol *name, ESValue value) override;
    void init(ESContext &context) override;
};

class ESNativeString : public ESClass
{
public:
    ESNativeString() : ESClass("String") {}
    ESValue get(ESContext &context, ESObject *object, ESSymbol *name) override; // `length`
    void init(ESContext &context) override;
};

class ESNativeNumber : public ESClass
{
public:
    ESNativeNumber() : ESClass("Number") {}
    void init(ESContext &context) override;
};

class ESNativeBoolean : public ESClass
{
public:
    ESNativeBoolean() : ESClass("Boolean") {}
    void init(ESContext &context) override;
};

class ESNativeMath : public ESClass
{
public:
    ESNativeMath() : ESClass("Math") {}
    void init(ESContext &context) override;
};

class ESNativeDate : public ESClass
{
public:
    ESNativeDate() : ESClass("Date") {}
    void init(ESContext &context) override;
};

class ESNativeError : public ESClass
{
public:
    explicit ESNativeError(ESErrorKind kind);
    void init(ESContext &context) override;

private:
    ESErrorKind m_kind;
};

// The class of the objects that hold the variables of a function whose closures outlive it.
class ESActivation : public ESClass
{
public:
    ESActivation() : ESClass("activation") {}
    void init(ESContext &) override {}
};
