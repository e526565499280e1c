#pragma once

#include "toolchain/PlacementDocument.h"

#include <vector>

// A range of the target's addresses that sections can be placed in.
struct MemorySegment
{
    QString name;
    quint32 start = 0;
    quint32 size = 0; // bytes; start + size is at most 2^32
    bool isReadOnly = false;
    SourcePlace place;
};

// One `ProgramSection`. Of a section that is copied at start-up there are two: the load image, which names the
// other by `runIn`, and the other, where it runs.
struct PlacedSection
{
    QString name; // ".text"
    size_t segment = 0;
    bool isLoaded = false; // has bytes in the load file
    bool isKept = false;   // also what nothing refers to
    std::optional<quint32> start;
    std::optional<quint32> size; // bytes taken at least and at most
    quint32 alignment = 4;
    QString runIn;
    QString inputSections; // patterns of a linker script: "*(.text .text.*)"
    QString fill;          // byte or 32-bit value, for gaps; of a section that isn't loaded: zeroed at start-up
    QString startSymbol, endSymbol, sizeSymbol;
    SourcePlace place;
};

// The segments of a target and the sections in them, in order, as a memory map and a section placement
// document tell.
class SectionPlacement
{
public:
    // The segments of a memory map document: each `MemorySegment` with a size, in document order. `files` gets what
    // was read. Throws a one-line diagnostic, as all of these do.
    static std::vector<MemorySegment> readMemoryMap(const QString &path, const QString &macros,
                                                    QStringList *files = nullptr);
    // The same from "NAME RWX START SIZE;...", for targets without a memory map.
    static std::vector<MemorySegment> readSegmentList(const QString &text);

    // Reads the document that places sections in these segments.
    SectionPlacement(std::vector<MemorySegment> segments, const QString &path, const QString &macros);

    const std::vector<MemorySegment> &segments() const { return m_segments; }
    const std::vector<PlacedSection> &sections() const { return m_sections; }
    // Segments that the document speaks of, with sections in them or not.
    bool usesSegment(size_t index) const { return m_isUsed[index]; }
    // Of what the document holds and nobody knows; as one-line diagnostics.
    const QStringList &warnings() const { return m_warnings; }
    // What the document was read from.
    const QStringList &files() const { return m_files; }

private:
    void readElement(const PlacementDocument &document, const XMLElement &element, std::optional<size_t> segment);
    size_t segmentFor(const PlacementDocument &document, const XMLElement &element) const;
    void readSection(const PlacementDocument &document, const XMLElement &element, size_t segment);
    void checkRunSections() const;
    void placeUnwindingTables();

    std::vector<MemorySegment> m_segments;
    std::vector<PlacedSection> m_sections;
    std::vector<bool> m_isUsed;
    QStringList m_warnings, m_files;
};
