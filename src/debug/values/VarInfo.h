#pragma once

#include "debug/dwarf/DwarfDebuggingInformationEntry.h"
#include "expression/MarkerType.h"

class DwarfExpressionEvaluator;

// A place that can be compared with others and be shown.
class DebugMarkerType : public MarkerType
{
public:
    // "0x20000010", a register's name, nothing for a value that is nowhere. A bit field is followed by the
    // numbers of its first and last bit: "0x20000010 <3-5>".
    virtual QString toString(quint32 extraOffset) const = 0;
    virtual bool lessThan(const DebugMarkerType &other) const = 0;
    // A register by its name, anything else by a decimal number; gives what it is set to.
    virtual quint64 setAddress(const QString &text) = 0;
    virtual QString registerName() const = 0;
    virtual bool registerLess(quint64 a, quint64 b) const { return a < b; }
    virtual const char *spaceName() const { return nullptr; } // behind the address, after a ":"
};

// A typed place in terms of the target: what a variable, a member or an element is. It belongs to an evaluator and
// lives until that gets another frame.
class VarInfo : public DebugMarkerType
{
public:
    enum Kind : quint32 {
        DataMemory,  // the target's data memory
        SpaceMemory, // the memory of the space that `address` names
        MainMemory,  // the target's main memory
        Memory,      // data memory; variables of a program are there
        Register,
        Constant, // what the debugger itself knows
    };

    // Sizes and offsets are bytes. `bitOffset` counts from the most significant bit of a container of `size` bytes.
    VarInfo(DwarfExpressionEvaluator *markerEvaluator, quint32 markerKind, quint64 markerAddress,
            DwarfDebuggingInformationEntry markerType, quint32 markerOffset, quint32 markerSize,
            qint32 markerBitOffset = 0, quint32 markerBitSize = 0, bool isLittleEndian = true, quint32 bytesOfWord = 4)
        : kind(markerKind),
          littleEndian(isLittleEndian),
          wordSize(bytesOfWord),
          address(markerAddress),
          offset(markerOffset),
          size(markerSize),
          bitOffset(markerBitOffset),
          bitSize(markerBitSize),
          type(markerType),
          evaluator(markerEvaluator)
    {}

    QString toString(quint32 extraOffset) const override;
    ExpressionValue value() const override;
    bool equals(const MarkerType &other) const override;
    bool lessThan(const DebugMarkerType &other) const override;
    quint64 setAddress(const QString &text) override;
    QString registerName() const override;

    bool isBitField() const { return bitOffset || bitSize; }
    bool isMemory() const { return kind <= Memory; }

    quint32 kind;
    bool littleEndian;
    quint32 wordSize;
    quint64 address; // in memory, the register's number or the value
    quint32 offset;  // of this place behind `address`, or in the register
    quint32 size;
    qint32 bitOffset;
    quint32 bitSize;
    DwarfDebuggingInformationEntry type;
    DwarfExpressionEvaluator *evaluator;
    QByteArray bytes = {};      // of a constant that no number holds; else null
    bool isThroughThis = false; // a member that was named without its object
};
