#pragma once

#include "debug/dwarf/DwarfDebuggingInformationEntry.h"

class DwarfFile;

// Where the entries with a bare name stand ("run" for Motor::run): all of global kinds, enumerators and
// enumerations, declarations included, but no variables inside functions. Made in one pass over the units that
// keeps no entries.
// Instances of class templates stand under the template's name too.
//
// The index holds hashes; who looks a name up asks the entries what they are called.
class DwarfNameIndex
{
public:
    explicit DwarfNameIndex(DwarfFile &file);

    // The entries with that bare name in the order of their units; those of one unit in the order of their offsets.
    std::vector<DwarfDebuggingInformationEntry> entriesNamed(QByteArrayView name);
    // Whether there is a class named `name` and "<".
    bool hasTemplate(QByteArrayView name);
    size_t size() const { return m_entries.size(); }

private:
    struct Entry
    {
        quint32 hash;
        quint32 offset; // from its unit's first byte
    };
    static constexpr quint32 noEntry = ~quint32(0);

    void addUnit(DwarfCompilationUnit &unit);
    void makeBuckets();
    template <typename Accept>
    std::vector<DwarfDebuggingInformationEntry> find(QByteArrayView name, Accept accept);
    DwarfCompilationUnit &unit(quint32 index) const; // those of .debug_types count behind those of .debug_info

    DwarfFile *m_file;
    std::vector<Entry> m_entries;      // in the order of their units
    std::vector<quint32> m_unitStarts; // the first entry of each unit
    int m_scans = 0;                   // look-ups so far that went over all entries
    // Made when look-ups are many: the first entry of each bucket, by the hash's high bits, and of each entry the next.
    std::vector<quint32> m_buckets, m_next;
    quint32 m_shift = 0; // of a hash to its bucket
};
