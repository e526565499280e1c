#pragma once

#include "base/ByteCursor.h"

#include <QStringList>

class ElfFile;

// The contents of a file's debug sections, inflated where the file has them compressed; empty when absent.
// The bytes belong to the ELF file, which must outlive this.
struct DwarfSections
{
    using Bytes = std::span<const quint8>;

    // Sections are taken under their own name (".debug_info") or, compressed in the older way, as ".zdebug_info".
    // One that can't be read is left empty and `failures` says why.
    static DwarfSections of(const ElfFile &elf);

    // A cursor at an offset of a section; failed when the offset lies outside.
    ByteCursor cursorAt(Bytes section, quint64 offset) const
    {
        ByteCursor cursor(section, bigEndian);
        cursor.seek(offset);
        return cursor;
    }

    bool bigEndian = false;
    Bytes abbreviations;    // .debug_abbrev
    Bytes addresses;        // .debug_addr
    Bytes addressRanges;    // .debug_aranges
    Bytes frames;           // .debug_frame
    Bytes information;      // .debug_info
    Bytes lines;            // .debug_line
    Bytes lineStrings;      // .debug_line_str
    Bytes locations;        // .debug_loc
    Bytes locationLists;    // .debug_loclists
    Bytes macroInformation; // .debug_macinfo
    Bytes macros;           // .debug_macro
    Bytes names;            // .debug_names
    Bytes publicNames;      // .debug_pubnames
    Bytes publicTypes;      // .debug_pubtypes
    Bytes rangeLists;       // .debug_rnglists
    Bytes ranges;           // .debug_ranges
    Bytes stringOffsets;    // .debug_str_offsets
    Bytes strings;          // .debug_str
    Bytes types;            // .debug_types
    QStringList failures;
};
