#pragma once

#include "debug/dwarf/DwarfDebuggingInformationEntry.h"

#include "base/ByteCursor.h"

class DwarfFile;

// The name tables of .debug_names (DWARF 5, section 6.1.1.4), which compilers write and linkers join: each tells of the
// units that it lists.
//
//     unit_length, version 2 (5), padding 2, counts of 4 bytes each: compile units, local type units, foreign type
//     units, buckets, names; sizes of 4 bytes each: abbreviation table, augmentation text (padded to 4 bytes);
//     offsets of compile units, offsets of local type units, signatures 8, buckets 4, hashes 4,
//     offsets of names in .debug_str, offsets of entries in the pool, abbreviation table, entry pool
//
// Offsets are 4 bytes, 8 in the 64-bit format. The tables name the definitions of types completely, which is what they
// are used for; of variables, declarations and enumerators they lack some.
class DwarfNameTables
{
public:
    // Reads the headers. What is damaged is reported and makes the tables unusable.
    explicit DwarfNameTables(DwarfFile &file);

    // Whether they tell of all units of the file.
    bool areUsable() const { return m_areUsable; }
    // The entries of types and enumerations with that bare name in the order of their units; those of one unit in the
    // order of their offsets. When an entry isn't what the table says, the tables become unusable.
    std::vector<DwarfDebuggingInformationEntry> typesNamed(QByteArrayView name);

private:
    struct Abbreviation
    {
        quint64 code;
        quint32 tag;
        std::vector<std::pair<quint32, quint32>> attributes; // DW_IDX_... and form
    };
    struct Table
    {
        quint32 offset; // in the section
        quint8 offsetSize;
        quint32 bucketCount, nameCount;
        std::vector<DwarfCompilationUnit *> units;
        ByteCursor buckets, hashes, names, entries, pool; // each from its own first byte
        std::vector<Abbreviation> abbreviations;
    };

    bool readTable(ByteCursor &section, Table &table);
    static bool readAbbreviations(ByteCursor cursor, Table &table);
    bool find(const Table &table, QByteArrayView name, quint32 hash,
              std::vector<DwarfDebuggingInformationEntry> &found) const;
    bool readEntries(const Table &table, quint64 offset, QByteArrayView name,
                     std::vector<DwarfDebuggingInformationEntry> &found) const;

    DwarfFile *m_file;
    std::vector<Table> m_tables;
    bool m_areUsable = false;
};
