#pragma once

#include "toolchain/SectionPlacement.h"

#include <QByteArray>

// A linker script, as GNU ld and ld.lld take it, that puts sections where a placement says.
//
// For each section NAME (without the dot before it) there are the symbols
//
//     __NAME_load_start__  __NAME_load_end__               where its bytes are loaded
//     __NAME_start__  __NAME_end__  __NAME_size__          where it runs
//
// and for each segment __NAME_segment_start__, _end__, _size__, _used_end__ and _used_size__. Characters that a
// symbol of a C program can't have become "_" in a second set of the symbols.
//
// The sections ".copy_table" and ".zero_table", where they are placed, hold what start-up code has to do: rows of
// {load address, run address, bytes} for sections that run elsewhere, {address, bytes} for sections that are
// filled with 0, all 32 bits wide. Bytes are rounded up to a multiple of 4.
class LinkerScript
{
public:
    // `entry` is the entry point's symbol.
    LinkerScript(const SectionPlacement &placement, const QString &entry) : m_placement(placement), m_entry(entry) {}

    // Throws a one-line diagnostic when no order of the sections fits both where they are loaded and where they run.
    QByteArray text() const;

private:
    std::vector<const PlacedSection *> orderedSections() const;
    void joinThreadBlock(std::vector<const PlacedSection *> &ordered) const;
    const PlacedSection *runSectionOf(const PlacedSection &section) const;
    bool hasCopiedSections(size_t segment) const; // that run in it and are loaded elsewhere
    bool hasThreadBlock() const;                  // .tdata and .tbss are placed
    bool isRunPlace(const PlacedSection &section) const;
    QString regions() const;
    QString section(const PlacedSection &load) const;
    QString content(const PlacedSection &load, const PlacedSection &run) const;
    QString tableRows(bool copied) const;
    QString sectionSymbols(const PlacedSection &load, const PlacedSection &run) const;
    QString linkerSections() const;
    QString segmentSymbols(size_t segment) const;
    QString overlapChecks() const;

    const SectionPlacement &m_placement;
    QString m_entry;
};
