#include "driver/LtoSymbols.h"

#include <QHashFunctions>
#include <bit>
#include <cstdio>
#include <cstdlib>

namespace {

quint32 hashOf(QByteArrayView name)
{
    return quint32(qHash(name));
}

} // namespace

// The slot of that name, or the free one where it belongs.
LtoSymbolTable::Slot &LtoSymbolTable::slotOf(QByteArrayView name, quint32 hash)
{
    const size_t mask = m_slots.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        Slot &slot = m_slots[i];
        if (slot.number == 0 || (slot.hash == hash && m_symbols[slot.number - 1].name == name))
            return slot;
    }
}

void LtoSymbolTable::catchUp()
{
    if (m_symbols.size() * 2 > m_slots.size()) {
        std::vector<Slot> old(std::bit_ceil(m_symbols.size() * 4));
        old.swap(m_slots);
        for (const Slot &slot : old) // their names differ: the first free slot is right
            if (slot.number) {
                size_t i = slot.hash & (m_slots.size() - 1);
                while (m_slots[i].number)
                    i = (i + 1) & (m_slots.size() - 1);
                m_slots[i] = slot;
            }
    }
    for (; m_indexed < m_symbols.size(); ++m_indexed) {
        const QByteArrayView name = m_symbols[m_indexed].name;
        const quint32 hash = hashOf(name);
        Slot &slot = slotOf(name, hash);
        if (slot.number == 0)
            slot = {hash, quint32(m_indexed) + 1};
    }
}

bool LtoSymbolTable::contains(QByteArrayView name)
{
    static const bool isTraced = std::getenv("LTOLLVM_TRACE");
    if (m_symbols.empty())
        return false;
    if (m_indexed < m_symbols.size())
        catchUp();
    const quint32 number = slotOf(name, hashOf(name)).number;
    if (number == 0)
        return false;
    if (isTraced) {
        const LtoSymbol &symbol = m_symbols[number - 1];
        std::fprintf(stderr, "Found %s '%.*s' in '%.*s'\n", m_kind, int(symbol.name.size()), symbol.name.data(),
                     int(symbol.file.size()), symbol.file.data());
    }
    return true;
}
