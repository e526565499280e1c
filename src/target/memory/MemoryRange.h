#pragma once

#include <QByteArray>
#include <vector>

class QTextStream;

// What may be done with the addresses of a range.
enum MemoryAccess : quint32 {
    accessReadWrite = 0,
    accessReadOnly = 1,
    accessWriteOnly = 2,
    accessNone = 3,
};

// A range of target addresses, both ends included.
struct MemoryRange
{
    // Ends in the wrong order are swapped.
    MemoryRange(quint32 firstAddress, quint32 lastAddress, quint32 rangeAccess = accessReadWrite,
                QByteArray rangeName = {})
        : start(std::min(firstAddress, lastAddress)),
          end(std::max(firstAddress, lastAddress)),
          access(rangeAccess),
          name(std::move(rangeName))
    {}

    quint64 length() const { return quint64(end) + 1 - start; } // 64 bits: the whole address space is a range too
    bool contains(quint32 address) const { return start <= address && address <= end; }
    bool contains(quint32 first, quint32 last) const { return start <= first && last <= end; }
    bool intersects(quint32 first, quint32 last) const { return start <= last && first <= end; }

    quint32 start;
    quint32 end;
    quint32 access;  // MemoryAccess
    QByteArray name; // null when the range has none
};

// The addresses that a target has, or that a file or an erase touched: ranges in the order in which they were
// added, which may overlap. Pointers to ranges hold until the list changes.
class MemoryRangeList
{
public:
    // The first range that wholly contains the addresses from `start` to `end`, or null.
    const MemoryRange *findContaining(quint32 start, quint32 end) const;
    const MemoryRange *findAddress(quint32 address) const { return findContaining(address, address); }
    // True when every range of `other` lies wholly in some range of this list.
    bool containsAll(const MemoryRangeList &other) const;
    bool intersects(const MemoryRangeList &other) const;
    bool intersectsRange(quint32 start, quint32 end) const;
    // True when the addresses from `start` to `end` (in either order) lie in one range, or in ranges that
    // follow each other in the list and in memory and have equal access.
    bool covers(quint32 start, quint32 end) const;
    // With `span` the bytes from the first range's start to the last range's end, else the sum of all
    // lengths. 0 when empty.
    quint64 totalSize(bool span) const;

    void add(quint32 start, quint32 end, quint32 access = accessReadWrite, const QByteArray &name = {})
    {
        m_ranges.emplace_back(start, end, access, name);
    }
    // Gives the position of the range behind the removed one, which is `position` again.
    size_t remove(size_t position);
    void clear() { m_ranges.clear(); }

    // A line a range: "0x00000000 - 0x00000FFF : readonly".
    void print(QTextStream &stream) const;

    bool isEmpty() const { return m_ranges.empty(); }
    size_t size() const { return m_ranges.size(); }
    const MemoryRange &at(size_t position) const { return m_ranges.at(position); }
    auto begin() const { return m_ranges.begin(); }
    auto end() const { return m_ranges.end(); }

private:
    std::vector<MemoryRange> m_ranges;
};
