// Arithmetic, stack, memory and the floats.
#include "forth/machine/FSContext.h"
#include "forth/machine/ForthWords.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

void binary(FSContext &context, Cell (*operation)(const Cell &, const Cell &))
{
    const Cell right = context.pop(), left = context.pop();
    context.push(operation(left, right));
}

void bits(FSContext &context, BitOperation operation)
{
    const Cell right = context.pop(), left = context.pop();
    context.push(cellBits(operation, left, right));
}

struct Integers
{
    qint64 left, right;
};
Integers popIntegers(FSContext &context)
{
    const qint64 right = context.popInteger();
    return {context.popInteger(), right};
}

struct Quotient
{
    qint64 quotient, remainder;
};
// Rounds towards zero; a quotient of more than 64 bits wraps.
Quotient divide(__int128 dividend, qint64 divisor)
{
    if (divisor == 0)
        throw ForthException(ForthError::DivideByZero);
    return {qint64(quint64(dividend / divisor)), qint64(dividend % divisor)};
}

Quotient popStarSlash(FSContext &context)
{
    const qint64 divisor = context.popInteger();
    const Integers factors = popIntegers(context);
    return divide(__int128(factors.left) * factors.right, divisor);
}

Quotient popQuotient(FSContext &context)
{
    const Integers operands = popIntegers(context);
    return divide(operands.left, operands.right);
}

void mapFloat(FSContext &context, double (*function)(double))
{
    context.push(Cell::ofFloat(function(context.popFloat())));
}

// Two cells in a row, the address popped.
Cell *popTwoCells(FSContext &context, Cell &(PMemory::*access)(qint64))
{
    const Cell address = context.pop();
    PMemory *memory = address.toMemory();
    (memory->*access)(qint64(quint64(address.integer) + 1));
    return &(memory->*access)(address.integer);
}

[[noreturn]] void unimplemented()
{
    throw ForthException(ForthError::Unimplemented);
}

} // namespace

void ForthWords::plus(FSContext &context)
{
    binary(context, cellSum);
}

void ForthWords::minus(FSContext &context)
{
    binary(context, cellDifference);
}

void ForthWords::onePlus(FSContext &context)
{
    context.push(cellSum(context.pop(), Cell::ofInteger(1)));
}

void ForthWords::oneMinus(FSContext &context)
{
    context.push(cellDifference(context.pop(), Cell::ofInteger(1)));
}

void ForthWords::charPlus(FSContext &context)
{
    onePlus(context);
}

void ForthWords::chars(FSContext &) {} // a character takes one cell

void ForthWords::bitAnd(FSContext &context)
{
    bits(context, BitOperation::And);
}

void ForthWords::bitOr(FSContext &context)
{
    bits(context, BitOperation::Or);
}

void ForthWords::bitXor(FSContext &context)
{
    bits(context, BitOperation::Xor);
}

void ForthWords::slash(FSContext &context)
{
    context.pushInteger(popQuotient(context).quotient);
}

void ForthWords::mod(FSContext &context)
{
    context.pushInteger(popQuotient(context).remainder);
}

void ForthWords::slashMod(FSContext &context)
{
    const Quotient result = popQuotient(context);
    context.pushInteger(result.remainder);
    context.pushInteger(result.quotient);
}

void ForthWords::starSlash(FSContext &context)
{
    context.pushInteger(popStarSlash(context).quotient);
}

void ForthWords::starSlashMod(FSContext &context)
{
    const Quotient result = popStarSlash(context);
    context.pushInteger(result.remainder);
    context.pushInteger(result.quotient);
}

void ForthWords::abs(FSContext &context)
{
    const qint64 value = context.popInteger();
    context.pushInteger(value < 0 ? qint64(0 - quint64(value)) : value);
}

void ForthWords::max(FSContext &context)
{
    const Integers operands = popIntegers(context);
    context.pushInteger(std::max(operands.left, operands.right));
}

void ForthWords::min(FSContext &context)
{
    const Integers operands = popIntegers(context);
    context.pushInteger(std::min(operands.left, operands.right));
}

void ForthWords::less(FSContext &context)
{
    const Cell right = context.pop(), left = context.pop();
    context.pushFlag(cellLess(left, right));
}

void ForthWords::greater(FSContext &context)
{
    const Cell right = context.pop(), left = context.pop();
    context.pushFlag(cellLess(right, left));
}

void ForthWords::greaterEqual(FSContext &context)
{
    const Cell right = context.pop(), left = context.pop();
    context.pushFlag(!cellLess(left, right));
}

void ForthWords::equals(FSContext &context)
{
    const Cell right = context.pop(), left = context.pop();
    context.pushFlag(cellsEqual(left, right));
}

void ForthWords::notEquals(FSContext &context)
{
    const Cell right = context.pop(), left = context.pop();
    context.pushFlag(!cellsEqual(left, right));
}

void ForthWords::uGreaterThan(FSContext &context)
{
    const Integers operands = popIntegers(context);
    context.pushFlag(quint64(operands.left) > quint64(operands.right));
}

void ForthWords::uLessThan(FSContext &)
{
    unimplemented();
}

// The differences wrap and are compared as signed numbers.
void ForthWords::within(FSContext &context)
{
    const Integers limits = popIntegers(context);
    const quint64 value = quint64(context.popInteger()), low = quint64(limits.left), high = quint64(limits.right);
    context.pushFlag(qint64(value - low) < qint64(high - low));
}

void ForthWords::floor(FSContext &context)
{
    mapFloat(context, std::floor);
}

void ForthWords::fsin(FSContext &context)
{
    mapFloat(context, std::sin);
}

void ForthWords::fcos(FSContext &context)
{
    mapFloat(context, std::cos);
}

void ForthWords::ftan(FSContext &context)
{
    mapFloat(context, std::tan);
}

// Stacks

void ForthWords::depth(FSContext &context)
{
    context.pushInteger(context.dataStack.depth());
}

void ForthWords::pick(FSContext &context)
{
    const qint64 index = context.popInteger();
    context.push(context.dataStack.pick(index));
}

void ForthWords::roll(FSContext &)
{
    unimplemented();
}

void ForthWords::twoOver(FSContext &context)
{
    context.dataStack.require(4);
    context.push(context.dataStack.pick(3));
    context.push(context.dataStack.pick(3));
}

void ForthWords::twoSwap(FSContext &context)
{
    context.dataStack.require(4);
    Cell *top = context.dataStack.top;
    std::swap(top[0], top[-2]);
    std::swap(top[-1], top[-3]);
}

void ForthWords::twoToR(FSContext &context)
{
    const Cell second = context.pop(), first = context.pop();
    context.returnStack.push(first);
    context.returnStack.push(second);
}

void ForthWords::twoRFrom(FSContext &context)
{
    const Cell second = context.returnStack.pop(), first = context.returnStack.pop();
    context.push(first);
    context.push(second);
}

void ForthWords::twoRFetch(FSContext &context)
{
    context.returnStack.require(2);
    context.push(context.returnStack.pick(1));
    context.push(context.returnStack.pick(0));
}

// Memory

void ForthWords::fetch(FSContext &context)
{
    const Cell address = context.pop();
    context.push(address.toMemory()->fetchable(address.integer));
}

void ForthWords::store(FSContext &context)
{
    const Cell address = context.pop(), value = context.pop();
    address.toMemory()->storable(address.integer) = value;
}

void ForthWords::plusStore(FSContext &context)
{
    const Cell address = context.pop(), value = context.pop();
    Cell &cell = address.toMemory()->storable(address.integer);
    cell = cellSum(cell, value);
}

void ForthWords::twoFetch(FSContext &context)
{
    const Cell *cells = popTwoCells(context, &PMemory::fetchable);
    context.push(cells[1]);
    context.push(cells[0]);
}

void ForthWords::twoStore(FSContext &context)
{
    Cell *cells = popTwoCells(context, &PMemory::storable);
    cells[0] = context.pop();
    cells[1] = context.pop();
}

void ForthWords::here(FSContext &context)
{
    PMemory *memory = context.memoryForHere();
    context.push(Cell::ofAddress(memory, memory->used));
}

void ForthWords::allot(FSContext &context)
{
    context.allot(context.memoryForHere(), context.popInteger());
}

void ForthWords::comma(FSContext &context)
{
    PMemory *memory = context.memoryForHere();
    const Cell value = context.pop();
    context.allot(memory, 1);
    memory->cells[memory->used - 1] = value;
}

void ForthWords::move(FSContext &)
{
    unimplemented();
}

void ForthWords::unused(FSContext &)
{
    unimplemented();
}

void ForthWords::toBody(FSContext &context)
{
    context.push(Cell::ofAddress(context.popCode()->pfa(), 0));
}
