#include "expression/Arithmetic.h"

#include "expression/MarkerType.h"
#include "expression/ParserException.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

using enum BinaryOperator;

[[noreturn]] void fail(const QString &message)
{
    throw ParserException(message);
}

bool isComparison(BinaryOperator operation)
{
    return operation >= Eq && operation <= Ge;
}

// True when `order` (below, at or above 0) is what the comparison asks for.
bool holds(BinaryOperator comparison, int order)
{
    switch (comparison) {
    case Eq: return order == 0;
    case Ne: return order != 0;
    case Lt: return order < 0;
    case Le: return order <= 0;
    case Gt: return order > 0;
    default: return order >= 0;
    }
}

template <typename Number>
int orderOf(Number left, Number right)
{
    return left < right ? -1 : left > right;
}

ExpressionValue compareValues(BinaryOperator comparison, const ExpressionValue &left, const ExpressionValue &right)
{
    int order = 0;
    switch (left.kind()) {
    case ExpressionValue::Boolean: order = orderOf(left.asBool(), right.asBool()); break;
    case ExpressionValue::Signed: order = orderOf(left.asSigned(), right.asSigned()); break;
    case ExpressionValue::Unsigned: order = orderOf(left.asUnsigned(), right.asUnsigned()); break;
    case ExpressionValue::String: order = left.text().compare(right.text()); break;
    default: fail(u"unsupported comparison operation"_s);
    }
    return ExpressionValue::ofBool(holds(comparison, order));
}

double floatResult(BinaryOperator operation, double left, double right)
{
    switch (operation) {
    case Plus: return left + right;
    case Minus: return left - right;
    case Multiply: return left * right;
    default:
        if (right == 0)
            fail(u"divide by zero"_s);
        return left / right;
    }
}

// Both operands in 64 bits; they differ by sign only where division and shifts do.
quint64 integerResult(BinaryOperator operation, quint64 left, quint64 right, bool isSigned)
{
    switch (operation) {
    case Plus: return left + right;
    case Minus: return left - right;
    case Multiply: return left * right;
    case Divide:
    case Mod: {
        if (right == 0)
            fail(u"divide by zero"_s);
        const bool divides = operation == Divide;
        if (!isSigned)
            return divides ? left / right : left % right;
        if (right == ~quint64(0)) // the least number divided by -1 would trap
            return divides ? 0 - left : 0;
        return quint64(divides ? qint64(left) / qint64(right) : qint64(left) % qint64(right));
    }
    case BitAnd: return left & right;
    case BitOr: return left | right;
    case BitXor: return left ^ right;
    case LogicalAnd: return left && right;
    case LogicalOr: return left || right;
    case Lshift: return left << (right & 63);
    default: return isSigned ? quint64(qint64(left) >> (right & 63)) : left >> (right & 63);
    }
}

} // namespace

ExpressionValue plainValue(const ExpressionValue &value)
{
    return value.marker() ? value.marker()->value() : value;
}

ExpressionValue compute(BinaryOperator operation, const ExpressionValue &left, const ExpressionValue &right)
{
    if (left.marker() || right.marker()) {
        const ExpressionValue plainLeft = plainValue(left), plainRight = plainValue(right);
        if (plainLeft.marker() || plainRight.marker())
            fail(u"unsupported binary numeric operation"_s);
        return compute(operation, plainLeft, plainRight);
    }
    if (isComparison(operation))
        return compareValues(operation, left, right);
    if (operation == Lshift || operation == Rshift) {
        if (right.kind() != ExpressionValue::Signed)
            fail(u"integer shift value expected"_s);
        if (!left.isInteger())
            fail(u"can only shift numeric values"_s);
    }
    const bool isNumber = left.isNumeric() || left.kind() == ExpressionValue::Boolean;
    const bool takesFloat = operation == Plus || operation == Minus || operation == Multiply || operation == Divide;
    if (isNumber && takesFloat && (left.kind() == ExpressionValue::Float || right.kind() == ExpressionValue::Float))
        return ExpressionValue::ofFloat(floatResult(operation, left.asDouble(), right.asDouble()), left.size());
    switch (left.kind()) {
    case ExpressionValue::Boolean:
        return ExpressionValue::ofBool(integerResult(operation, left.asBool(), right.asBool(), false) != 0);
    case ExpressionValue::Signed: {
        const quint64 result = integerResult(operation, quint64(left.asSigned()), quint64(right.asSigned()), true);
        return ExpressionValue::ofSigned(qint64(result), left.size());
    }
    case ExpressionValue::Unsigned:
        return ExpressionValue::ofUnsigned(integerResult(operation, left.asUnsigned(), right.asUnsigned(), false),
                                           left.size());
    default: fail(u"unsupported binary numeric operation"_s);
    }
}

ExpressionValue compute(UnaryOperator operation, const ExpressionValue &operand)
{
    const ExpressionValue value = plainValue(operand);
    const bool isFloat = value.kind() == ExpressionValue::Float;
    const bool isUnsigned = value.kind() == ExpressionValue::Unsigned;
    const bool isNumber = value.isNumeric() || value.kind() == ExpressionValue::Boolean;
    const auto signedResult = [&](quint64 number) { return ExpressionValue::ofSigned(qint64(number), value.size()); };
    if (isNumber) {
        switch (operation) {
        case UnaryOperator::LogicalNot:
            return ExpressionValue::ofBool(isFloat ? value.asDouble() == 0 : value.asUnsigned() == 0);
        case UnaryOperator::BitNot:
            if (isUnsigned)
                return ExpressionValue::ofUnsigned(~value.asUnsigned(), value.size());
            if (value.kind() == ExpressionValue::Signed)
                return signedResult(~quint64(value.asSigned()));
            break;
        case UnaryOperator::Negate:
            if (isFloat)
                return ExpressionValue::ofFloat(-value.asDouble(), value.size());
            if (isUnsigned)
                return ExpressionValue::ofUnsigned(0 - value.asUnsigned(), value.size());
            return signedResult(0 - quint64(value.asSigned()));
        case UnaryOperator::Abs:
            if (isFloat)
                return ExpressionValue::ofFloat(std::abs(value.asDouble()), value.size());
            return signedResult(value.asSigned() < 0 ? 0 - quint64(value.asSigned()) : quint64(value.asSigned()));
        }
    }
    fail(u"unsupported unary num operation"_s);
}
