#pragma once

#include "expression/ExpressionValue.h"

enum class BinaryOperator {
#define BINARY_OPERATOR(name, text, token, assignment) name,
#include "expression/Operators.def"
};
enum class UnaryOperator { LogicalNot, BitNot, Negate, Abs };

// Computing with values. The left operand's kind decides how the right one is read and what comes out; a
// marker counts as the value at its place. Integers wrap at 64 bits. What a kind can't do throws a
// ParserException, as does a division by zero.
ExpressionValue compute(BinaryOperator operation, const ExpressionValue &left, const ExpressionValue &right);
ExpressionValue compute(UnaryOperator operation, const ExpressionValue &operand);

// The value itself, or what stands at the place that it marks.
ExpressionValue plainValue(const ExpressionValue &value);
