#pragma once

#include "expression/ExpressionValue.h"

// A typed place in a target: a variable, a register, an element. It belongs to the evaluator that made it;
// the values that name it don't own it.
class MarkerType
{
public:
    virtual ~MarkerType() = default;
    virtual ExpressionValue value() const = 0;
    virtual bool equals(const MarkerType &other) const = 0;
};
