#pragma once

#include <QString>

class pcode;
class PMemory;

// A text that cells share. The machine owns all of them and drops those that no cell refers to.
struct ForthString
{
    QString text;
    bool isMarked = false;
};

enum class CellTag { Empty = 0, DataAddress = 1, CodeAddress = 2, Integer = 3, Float = 4, String = 6 };

// What stands on a stack and in a memory: a typed value of 16 bytes, copied freely.
//
// `kind` is 0 for an integer, so that one OR tests two cells at once, and the memory object itself for a
// data address, whose index is then `integer`. An empty cell stands below the bottom of a stack and nowhere
// else: who finds one has emptied the stack.
struct Cell
{
    static constexpr quint64 integerKind = 0, emptyKind = 1, codeKind = 2, floatKind = 4, stringKind = 6;

    static Cell ofInteger(qint64 value) { return {integerKind, {.integer = value}}; }
    static Cell ofFlag(bool value) { return ofInteger(value ? -1 : 0); }
    static Cell ofFloat(double value) { return {floatKind, {.number = value}}; }
    static Cell ofString(ForthString *value) { return {stringKind, {.string = value}}; }
    static Cell ofCode(pcode *value) { return {codeKind, {.word = value}}; }
    static Cell ofAddress(PMemory *memory, qint64 index) { return {quint64(memory), {.integer = index}}; }

    bool isInteger() const { return kind == integerKind; }
    bool isAddress() const { return kind > stringKind; }
    bool isZero() const { return isInteger() && integer == 0; }
    CellTag tag() const;

    // The value, or ForthException -12 naming what was required.
    qint64 toInteger() const;
    double toFloat() const;
    const QString &toString() const;
    pcode *toCode() const;
    PMemory *toMemory() const; // of a data address; the index is `integer`

    // What `.` prints.
    QString printable() const;

    quint64 kind = emptyKind;
    union {
        qint64 integer = 0;
        double number;
        ForthString *string;
        pcode *word;
    };

    PMemory *memory() const { return reinterpret_cast<PMemory *>(kind); }
};
static_assert(sizeof(Cell) == 16);

// Arithmetic on any two cells; combinations without a meaning throw -24 "invalid operand combination".
Cell cellSum(const Cell &left, const Cell &right);
Cell cellDifference(const Cell &left, const Cell &right);
enum class BitOperation { And, Or, Xor };
Cell cellBits(BitOperation operation, const Cell &left, const Cell &right);
bool cellsEqual(const Cell &left, const Cell &right);
bool cellLess(const Cell &left, const Cell &right);
