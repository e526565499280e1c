#include "target/memory/MemoryRange.h"

#include <QTextStream>

const MemoryRange *MemoryRangeList::findContaining(quint32 start, quint32 end) const
{
    const auto found =
        std::ranges::find_if(m_ranges, [&](const MemoryRange &range) { return range.contains(start, end); });
    return found == m_ranges.end() ? nullptr : &*found;
}

bool MemoryRangeList::containsAll(const MemoryRangeList &other) const
{
    return std::ranges::all_of(other, [&](const MemoryRange &range) { return findContaining(range.start, range.end); });
}

bool MemoryRangeList::intersects(const MemoryRangeList &other) const
{
    return std::ranges::any_of(other,
                               [&](const MemoryRange &range) { return intersectsRange(range.start, range.end); });
}

bool MemoryRangeList::intersectsRange(quint32 start, quint32 end) const
{
    return std::ranges::any_of(m_ranges, [&](const MemoryRange &range) { return range.intersects(start, end); });
}

bool MemoryRangeList::covers(quint32 start, quint32 end) const
{
    if (start > end)
        std::swap(start, end);
    auto range = std::ranges::find_if(m_ranges, [&](const MemoryRange &each) { return each.contains(start); });
    if (range == m_ranges.end())
        return false;
    // A range that holds some but not all of the addresses ends below `end`, so the next address can't wrap.
    for (const quint32 access = range->access; !range->contains(end);) {
        const quint32 next = range->end + 1;
        if (++range == m_ranges.end() || range->access != access || !range->contains(next))
            return false;
    }
    return true;
}

quint64 MemoryRangeList::totalSize(bool span) const
{
    if (isEmpty())
        return 0;
    if (span) // wraps to a small number when the last range lies below the first, as 32-bit addresses do
        return quint32(m_ranges.back().end - m_ranges.front().start) + quint64(1);
    quint64 size = 0;
    for (const MemoryRange &range : m_ranges)
        size += range.length();
    return size;
}

size_t MemoryRangeList::remove(size_t position)
{
    m_ranges.erase(m_ranges.begin() + qptrdiff(position));
    return position;
}

void MemoryRangeList::print(QTextStream &stream) const
{
    static constexpr const char *accessNames[] = {"readwrite", "readonly", "writeonly"};
    for (const MemoryRange &range : m_ranges) {
        const char *access = range.access < std::size(accessNames) ? accessNames[range.access] : "";
        stream << QString::asprintf("0x%08X - 0x%08X : %s\n", range.start, range.end, access);
    }
}
