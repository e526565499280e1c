#pragma once

#include "base/ByteCursor.h"

#include <QList>
#include <QStringList>
#include <vector>

class ElfFile;
class ElfSection;

// The contents of a file's debug sections, inflated where the file has them compressed; empty when absent.
// The bytes belong to the ELF file, which must outlive this.
struct DwarfSections
{
    using Bytes = std::span<const quint8>;

    // Sections are taken under their own name (".debug_info") or, compressed in the older way, as ".zdebug_info".
    // Those of an object file that isn't linked are relocated as if its sections stood at `places`, and several of one
    // name (type units, groups of macros) follow each other. One that can't be read is left empty and `failures` says
    // why.
    static DwarfSections of(const ElfFile &elf);

    // A cursor at an offset of a section; failed when the offset lies outside.
    ByteCursor cursorAt(Bytes section, quint64 offset) const
    {
        ByteCursor cursor(section, bigEndian);
        cursor.seek(offset);
        return cursor;
    }

    // The address of a place in a section, as the debug information has it.
    quint32 addressIn(const ElfSection &section, quint32 offset) const;

    bool bigEndian = false;
    Bytes abbreviations;         // .debug_abbrev
    Bytes addresses;             // .debug_addr
    Bytes addressRanges;         // .debug_aranges
    Bytes frames;                // .debug_frame
    Bytes information;           // .debug_info
    Bytes lines;                 // .debug_line
    Bytes lineStrings;           // .debug_line_str
    Bytes locations;             // .debug_loc
    Bytes locationLists;         // .debug_loclists
    Bytes macroInformation;      // .debug_macinfo
    Bytes macros;                // .debug_macro
    Bytes names;                 // .debug_names
    Bytes publicNames;           // .debug_pubnames
    Bytes publicTypes;           // .debug_pubtypes
    Bytes rangeLists;            // .debug_rnglists
    Bytes ranges;                // .debug_ranges
    Bytes stringOffsets;         // .debug_str_offsets
    Bytes strings;               // .debug_str
    Bytes types;                 // .debug_types
    QList<QByteArray> relocated; // what isn't as the ELF file has it
    std::vector<quint32> places; // of an object file: the address that each of its sections is given, by index
    QStringList failures;
};
