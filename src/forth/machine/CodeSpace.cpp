#include "forth/machine/CodeSpace.h"

#include "forth/machine/ForthException.h"

using namespace Qt::StringLiterals;

namespace {

constexpr size_t opCount = size_t(Op::Count);

struct FusedPair
{
    Op fused, first, second;
};
constexpr FusedPair fusedPairs[] = {
#define FORTH_OP(name, operands)
#define FORTH_FUSED(name, first, second) {Op::name, Op::first, Op::second},
#include "forth/machine/ForthOps.def"
#undef FORTH_FUSED
#undef FORTH_OP
};

constexpr auto operandCounts = [] {
    std::array<quint8, opCount> counts{};
#define FORTH_OP(name, operands) counts[size_t(Op::name)] = operands;
#define FORTH_FUSED(name, first, second) \
    counts[size_t(Op::name)] = counts[size_t(Op::first)] + counts[size_t(Op::second)];
#include "forth/machine/ForthOps.def"
#undef FORTH_FUSED
#undef FORTH_OP
    return counts;
}();

// By first and second instruction; Op::Stop where nothing is fused.
constexpr auto fusions = [] {
    std::array<std::array<Op, opCount>, opCount> table{};
    for (const FusedPair &pair : fusedPairs)
        table[size_t(pair.first)][size_t(pair.second)] = pair.fused;
    return table;
}();
static_assert(Op{} == Op::Stop);

} // namespace

int operandCount(Op op)
{
    return operandCounts[size_t(op)];
}

void CodeSpace::charge(size_t bytes)
{
    if (bytes > m_limitBytes - m_usedBytes)
        throw ForthException(ForthError::InvalidArgument, u"dictionary full"_s);
    m_usedBytes += bytes;
}

void CodeSpace::makeRoom(size_t slots)
{
    constexpr size_t jump = 2, exit = 1;
    if (size_t(m_end - m_next) >= slots + jump + exit)
        return;
    charge(chunkSlots * sizeof(Slot));
    m_chunks.push_back(std::make_unique_for_overwrite<Slot[]>(chunkSlots));
    Slot *chunk = m_chunks.back().get();
    chunk->label = opLabel(Op::Exit);
    if (m_next) {
        m_next[1].target = chunk;
        m_next[0].label = opLabel(Op::Branch);
    }
    m_next = chunk;
    m_end = chunk + chunkSlots;
    m_last = nullptr;
}

const Slot *CodeSpace::here(bool startsDefinition)
{
    makeRoom(1);
    if (startsDefinition)
        (m_next++)->label = opLabel(Op::Exit); // the end of the definition before
    m_next->label = opLabel(Op::Exit);
    m_last = nullptr;
    return m_next;
}

Slot *CodeSpace::append(Op op, std::span<const Slot> operands)
{
    constexpr size_t longest = 8;
    makeRoom(longest);
    const Op fused = m_last ? fusions[size_t(m_lastOp)][size_t(op)] : Op::Stop;
    Slot *start = m_next; // what makes it valid is written last: the definition may be running
    Slot *operand = fused == Op::Stop ? m_next + 1 : m_next;
    std::ranges::copy(operands, operand);
    m_next = operand + operands.size();
    m_next->label = opLabel(Op::Exit);
    if (fused == Op::Stop) {
        start->label = opLabel(op);
        m_last = start;
        m_lastOp = op;
    } else {
        m_last->label = opLabel(fused);
        m_lastOp = fused;
    }
    return m_next - 1;
}
