#pragma once

#include "forth/machine/Cell.h"

#include <memory>
#include <vector>

// Owns the strings that cells refer to. When enough new ones have come, collect() drops those without a cell.
class StringHeap
{
public:
    explicit StringHeap(size_t limitBytes) : m_limitBytes(limitBytes) {}

    // True when the owner should mark what lives and sweep before `text` is made.
    bool isDue(const QString &text) const { return m_bytes + bytesOf(text) > m_nextCollection; }
    // Throws -17 when the living strings and this one pass the limit.
    ForthString *make(const QString &text);
    static void mark(const Cell &cell)
    {
        if (cell.kind == Cell::stringKind)
            cell.string->isMarked = true;
    }
    // Drops what isn't marked.
    void sweep();

private:
    static size_t bytesOf(const QString &text) { return sizeof(ForthString) + size_t(text.size()) * sizeof(QChar); }

    static constexpr size_t smallestCollection = 1 << 20;
    std::vector<std::unique_ptr<ForthString>> m_strings;
    size_t m_limitBytes;
    size_t m_bytes = 0;
    size_t m_nextCollection = smallestCollection;
};
