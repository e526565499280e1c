#pragma once

#include "base/HException.h"
#include "script/engine/ESValue.h"

// What a script threw and didn't catch.
class ESException
{
public:
    explicit ESException(ESValue value) : m_value(value) {}
    ESValue value() const { return m_value; }

private:
    ESValue m_value;
};

// The engine can't go on with this evaluation; scripts can't catch it. The context stays usable.
class ESFatalError : public HException
{
public:
    using HException::HException;

    QString place; // "FILE:LINE", a line feed and that line; empty when no script ran
};

// The context's step() wants the run to end: up to the evaluation nobody else catches it.
class ESStopped
{};
