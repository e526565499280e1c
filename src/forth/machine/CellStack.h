#pragma once

#include "forth/machine/Cell.h"
#include "forth/machine/ForthException.h"

// The data stack and the return stack: 512 cells. Underflow throws -3, overflow -4.
//
// Below the bottom stand empty cells: the inner interpreter works on the array itself, keeps the top cell in
// registers and sees from an operand's kind that it has reached the bottom.
class CellStack
{
public:
    static constexpr int capacity = 512;

    int depth() const { return int(top - bottom()); }
    void push(const Cell &cell)
    {
        if (depth() == capacity)
            throw ForthException(ForthError::StackOverflow);
        *++top = cell;
    }
    Cell pop()
    {
        require(1);
        return *top--;
    }
    void require(int count) const
    {
        if (depth() < count)
            throw ForthException(ForthError::StackUnderflow);
    }
    // Index 0 is the top; one outside the depth throws -24.
    const Cell &pick(qint64 index) const
    {
        if (quint64(index) >= quint64(depth()))
            throw ForthException(ForthError::InvalidArgument);
        return top[-index];
    }
    void setDepth(int depth) { top = bottom() + depth; }
    const Cell *bottom() const { return &m_cells[guard]; }
    Cell *bottom() { return &m_cells[guard]; }
    Cell *full() { return bottom() + capacity; } // the top of a full stack

    // Every cell that has been on the stack may still come back when an exception restores the depth.
    const auto &everyCell() const { return m_cells; }

    Cell *top = bottom(); // points at the top cell

private:
    static constexpr int guard = 3;
    std::array<Cell, guard + capacity + 1> m_cells;
};
