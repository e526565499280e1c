#pragma once

#include <QByteArray>
#include <optional>
#include <vector>

class ElfSymbol;
class ElfFile;
struct DwarfSections;

// Names for addresses: one symbol for each address that has some, functions before objects before labels, global ones
// before local ones. Addresses in object files are those that their sections are given (DwarfSections::places).
class CodeSymbols
{
public:
    struct Place
    {
        quint32 address;
        const ElfSymbol *symbol;
        quint32 section; // its index
        quint8 rank;     // the lower is preferred
        bool isThumb;
        mutable QByteArray name; // once asked for
    };

    CodeSymbols(const ElfFile &file, const DwarfSections &sections);

    const std::vector<Place> &places() const { return m_places; } // by address
    static const QByteArray &nameOf(const Place &place);          // demangled, in UTF-8
    // The place at or before an address of a section, or null.
    const Place *placeBefore(quint32 address, quint32 section) const;
    // "name" or "name+0x10"; empty without a symbol.
    QByteArray nameAt(quint32 address) const;
    // The same for a number that may be an address: the start of a symbol (a Thumb function's with its low bit), or a
    // place inside of one.
    QByteArray nameOfValue(quint32 value) const;

private:
    const Place *at(quint32 address) const; // at or before
    static QByteArray nameWithOffset(const Place &place, quint32 address);

    std::vector<Place> m_places;
};
