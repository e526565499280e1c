#pragma once

#include "forth/machine/Cell.h"

#include <deque>
#include <memory>
#include <span>
#include <vector>

class FSContext;
union Slot;
using ForthFunction = void (*)(FSContext &);

enum class Op : quint8 {
#define FORTH_OP(name, operands) name,
#define FORTH_FUSED(name, first, second) name,
#include "forth/machine/ForthOps.def"
#undef FORTH_FUSED
#undef FORTH_OP
    Count
};

// An instruction (the place in the inner interpreter that performs it) or one of its operands.
union Slot {
    const void *label;
    qint64 value;
    const Slot *target;
    Cell *cell;
    PMemory *memory;
    pcode *word;
    ForthFunction function;
};
static_assert(sizeof(Slot) == 8);

int operandCount(Op op);
const void *opLabel(Op op);

// Where the instructions of definitions stand, one behind the other. Nothing moves and nothing goes away, so
// that a definition may run while it is still being written: behind the last instruction stands an Exit.
//
// Instructions that follow each other are fused into one where the table of pairs has it, but never across a
// place that a branch may go to.
class CodeSpace
{
public:
    // Bytes in all that definitions may take.
    explicit CodeSpace(size_t limitBytes) : m_limitBytes(limitBytes) {}

    // A place that branches may go to: the next instruction, or with `startsDefinition` a new definition's.
    const Slot *here(bool startsDefinition = false);
    // Appends an instruction; gives its last operand, the instruction itself when it has none.
    Slot *append(Op op, std::span<const Slot> operands);
    // Throws -24 when the limit would be passed. Words and memories are counted through it too.
    void charge(size_t bytes);

private:
    void makeRoom(size_t slots);

    static constexpr size_t chunkSlots = 2048;
    std::vector<std::unique_ptr<Slot[]>> m_chunks;
    Slot *m_next = nullptr;
    Slot *m_end = nullptr;
    Slot *m_last = nullptr; // the last instruction, when it may be fused with the next
    Op m_lastOp = Op::Stop;
    size_t m_limitBytes;
    size_t m_usedBytes = 0;
};
