#include "forth/machine/Cell.h"

#include "forth/machine/ForthException.h"
#include "forth/machine/pcode.h"

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void required(const char *what)
{
    throw ForthException(ForthError::TypeMismatch, QString::fromLatin1(what));
}

[[noreturn]] void badCombination()
{
    throw ForthException(ForthError::InvalidArgument, u"invalid operand combination"_s);
}

qint64 wrap(quint64 value)
{
    return qint64(value);
}

} // namespace

CellTag Cell::tag() const
{
    switch (kind) {
    case integerKind: return CellTag::Integer;
    case emptyKind: return CellTag::Empty;
    case codeKind: return CellTag::CodeAddress;
    case floatKind: return CellTag::Float;
    case stringKind: return CellTag::String;
    }
    return CellTag::DataAddress;
}

qint64 Cell::toInteger() const
{
    if (!isInteger())
        required("unrelocated literal required");
    return integer;
}

double Cell::toFloat() const
{
    if (kind != floatKind)
        required("float required");
    return number;
}

const QString &Cell::toString() const
{
    if (kind != stringKind)
        required("string required");
    return string->text;
}

pcode *Cell::toCode() const
{
    if (kind != codeKind)
        required("not a code address");
    return word;
}

PMemory *Cell::toMemory() const
{
    if (!isAddress())
        required("not a data address");
    return memory();
}

QString Cell::printable() const
{
    switch (tag()) {
    case CellTag::Empty: break;
    case CellTag::Integer: return QString::number(integer);
    case CellTag::Float: return QString::number(number, 'g');
    case CellTag::String: return string->text;
    case CellTag::CodeAddress: return u"#<CODE-ADDRESS %1>"_s.arg(word->displayName());
    case CellTag::DataAddress: {
        const QString offset = integer == 0 ? QString() : (integer > 0 ? u"+"_s : QString()) + QString::number(integer);
        return u"#<DATA-ADDRESS "_s + memory()->displayName() + offset + u'>';
    }
    }
    return {};
}

Cell cellSum(const Cell &left, const Cell &right)
{
    const qint64 sum = wrap(quint64(left.integer) + quint64(right.integer));
    if (left.isInteger() && right.isInteger())
        return Cell::ofInteger(sum);
    if (left.isAddress() && right.isInteger())
        return Cell::ofAddress(left.memory(), sum);
    if (left.isInteger() && right.isAddress())
        return Cell::ofAddress(right.memory(), sum);
    badCombination();
}

Cell cellDifference(const Cell &left, const Cell &right)
{
    const qint64 difference = wrap(quint64(left.integer) - quint64(right.integer));
    if (left.isInteger() && right.isInteger())
        return Cell::ofInteger(difference);
    if (left.isAddress() && right.isInteger())
        return Cell::ofAddress(left.memory(), difference);
    if (left.isAddress() && left.kind == right.kind)
        return Cell::ofInteger(difference);
    badCombination();
}

Cell cellBits(BitOperation operation, const Cell &left, const Cell &right)
{
    const bool leftIsNumber = left.isInteger() || left.isAddress(),
               rightIsNumber = right.isInteger() || right.isAddress();
    if (!leftIsNumber || !rightIsNumber || (left.isAddress() && right.isAddress()))
        badCombination();
    Cell result = left.isAddress() ? left : right;
    switch (operation) {
    case BitOperation::And: result.integer = left.integer & right.integer; break;
    case BitOperation::Or: result.integer = left.integer | right.integer; break;
    case BitOperation::Xor: result.integer = left.integer ^ right.integer; break;
    }
    return result;
}

bool cellsEqual(const Cell &left, const Cell &right)
{
    return left.kind == right.kind && (left.isInteger() || left.isAddress()) && left.integer == right.integer;
}

bool cellLess(const Cell &left, const Cell &right)
{
    if (left.kind != right.kind || !(left.isInteger() || left.isAddress()))
        badCombination();
    return left.integer < right.integer;
}
