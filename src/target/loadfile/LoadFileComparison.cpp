#include "target/loadfile/LoadFileComparison.h"

#include "target/loadfile/LoadFileSection.h"

#include <cstring>
#include <map>

namespace {

using Bytes = std::span<const quint8>;

// Bytes by address, without overlaps.
class FlatMemory
{
public:
    explicit FlatMemory(const LoadFileSections &sections)
    {
        for (const auto &section : sections.primary())
            if (section->size())
                put(section->startAddress(), section->bytes());
        m_next = m_runs.begin();
        take(0);
    }

    // A cursor over the memory: the bytes that come next and their address.
    bool atEnd() const { return m_bytes.empty(); }
    quint64 address() const { return atEnd() ? ~quint64(0) : m_address; }
    Bytes bytes() const { return m_bytes; }
    void take(quint64 count)
    {
        m_address += count;
        m_bytes = m_bytes.subspan(count);
        if (!m_bytes.empty() || m_next == m_runs.end())
            return;
        m_address = m_next->first;
        m_bytes = m_next->second;
        ++m_next;
    }

private:
    void put(quint64 start, Bytes bytes)
    {
        const quint64 end = start + bytes.size();
        auto run = m_runs.lower_bound(start);
        if (run != m_runs.begin())
            --run;
        while (run != m_runs.end() && run->first < end) {
            const auto [oldStart, old] = *run;
            const quint64 oldEnd = oldStart + old.size();
            if (oldEnd <= start) {
                ++run;
                continue;
            }
            run = m_runs.erase(run);
            if (oldStart < start)
                m_runs.emplace(oldStart, old.first(start - oldStart));
            if (oldEnd > end)
                run = m_runs.emplace(end, old.last(oldEnd - end)).first;
        }
        m_runs.emplace(start, bytes);
    }

    std::map<quint64, Bytes> m_runs;
    std::map<quint64, Bytes>::const_iterator m_next;
    quint64 m_address = 0;
    Bytes m_bytes;
};

class DifferenceList
{
public:
    void add(quint64 address, quint64 size)
    {
        if (!m_list.empty() && m_list.back().address + m_list.back().size == address)
            m_list.back().size += size;
        else
            m_list.push_back({quint32(address), size});
    }
    void addUnequal(quint64 address, Bytes a, Bytes b)
    {
        constexpr size_t blockBytes = 256; // most blocks are equal
        for (size_t start = 0; start < a.size(); start += blockBytes) {
            const size_t end = std::min(start + blockBytes, a.size());
            if (std::memcmp(&a[start], &b[start], end - start) == 0)
                continue;
            for (size_t i = start; i < end; ++i)
                if (a[i] != b[i])
                    add(address + i, 1);
        }
    }
    std::vector<LoadFileDifference> take() { return std::move(m_list); }

private:
    std::vector<LoadFileDifference> m_list;
};

} // namespace

std::vector<LoadFileDifference> compareLoadFiles(const LoadFileSections &a, const LoadFileSections &b)
{
    FlatMemory one(a), other(b);
    DifferenceList differences;
    while (!one.atEnd() || !other.atEnd()) {
        if (one.address() == other.address()) {
            const size_t count = std::min(one.bytes().size(), other.bytes().size());
            differences.addUnequal(one.address(), one.bytes().first(count), other.bytes().first(count));
            one.take(count);
            other.take(count);
            continue;
        }
        FlatMemory &first = one.address() < other.address() ? one : other;
        FlatMemory &second = &first == &one ? other : one;
        const quint64 count = std::min<quint64>(first.bytes().size(), second.address() - first.address());
        differences.add(first.address(), count);
        first.take(count);
    }
    return differences.take();
}
