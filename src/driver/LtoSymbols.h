#pragma once

#include <QByteArrayView>
#include <vector>

// A symbol and the input that has it. The bytes belong to the inputs, which live as long as the driver.
struct LtoSymbol
{
    QByteArrayView name;
    QByteArrayView file; // the input's path, or the member's name for an archive member
};

// The symbols of one kind in the order in which they were found. A name is found by an index that is made, and
// caught up, by look-ups; when it occurs more than once, its first record is the one that a look-up is about.
class LtoSymbolTable
{
public:
    // What a trace calls this kind: "IR strong".
    explicit LtoSymbolTable(const char *kind) : m_kind(kind) {}

    void append(const LtoSymbol &symbol) { m_symbols.push_back(symbol); }
    // Writes "Found KIND 'NAME' in 'FILE'" to standard error when look-ups are traced.
    bool contains(QByteArrayView name);

    bool isEmpty() const { return m_symbols.empty(); }
    size_t size() const { return m_symbols.size(); }
    const LtoSymbol &at(size_t index) const { return m_symbols[index]; }

private:
    // Open addressing with linear probing, at most half full; the number of the symbol plus 1, 0 for a free slot.
    struct Slot
    {
        quint32 hash = 0;
        quint32 number = 0;
    };

    void catchUp();
    Slot &slotOf(QByteArrayView name, quint32 hash);

    const char *m_kind;
    std::vector<LtoSymbol> m_symbols;
    std::vector<Slot> m_slots; // a power of two
    size_t m_indexed = 0;      // so many symbols are in m_slots
};
