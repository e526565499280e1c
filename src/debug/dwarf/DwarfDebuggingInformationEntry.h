#pragma once

#include "debug/dwarf/DwarfNames.h"

#include <QByteArrayView>
#include <QString>
#include <QStringList>
#include <optional>
#include <span>
#include <vector>

class DwarfCompilationUnit;
class DwarfDebuggingInformationEntry;

// The value of one attribute of an entry. `data` points into a debug section.
struct DwarfAttribute
{
    enum ValueClass : quint8 {
        Number,
        SignedNumber,
        Block,     // `value` bytes at `data`
        Reference, // `value` is an offset: of an entry, or in the section that the attribute means
        String,    // `value` characters at `data`, the NUL not among them
    };

    // The form of references made by ofEntry(): `unit` and `value` are the target's unit and index.
    static constexpr quint32 entryForm = ~quint32(0);

    // Attributes of entries that no section has, see DwarfFile::makeEntry(). The text must outlive the file.
    static DwarfAttribute ofNumber(quint32 name, quint64 value);
    static DwarfAttribute ofText(quint32 name, QByteArrayView text);
    static DwarfAttribute ofEntry(quint32 name, const DwarfDebuggingInformationEntry &target);

    quint32 name = 0;
    quint32 form = 0;
    ValueClass valueClass = Number;
    quint64 value = 0;
    const quint8 *data = nullptr;
    DwarfCompilationUnit *unit = nullptr; // of the entry that has the attribute

    QByteArrayView text() const
    {
        return valueClass == String ? QByteArrayView(data, qsizetype(value)) : QByteArrayView();
    }
    std::span<const quint8> block() const
    {
        return valueClass == Block ? std::span(data, size_t(value)) : std::span<const quint8>();
    }
    // The entry that the attribute refers to, or none.
    DwarfDebuggingInformationEntry entry() const;
};

// Half-open, in addresses of the file (no load offset).
struct DwarfAddressRange
{
    quint32 start = 0;
    quint32 end = 0;

    bool contains(quint32 address) const { return address >= start && address < end; }
    bool operator==(const DwarfAddressRange &) const = default;
};

// One debugging information entry: a small value that names a place in the tree of its unit, valid as long as
// the DwarfFile. Its attributes are read from the section when they are asked for. A default-made entry
// stands for none; asked for anything it gives nothing.
//
// Asking for a child, a sibling or a parent reads the unit's tree if that hasn't been done.
class DwarfDebuggingInformationEntry
{
public:
    DwarfDebuggingInformationEntry() = default;
    DwarfDebuggingInformationEntry(DwarfCompilationUnit *unit, quint32 index) : m_unit(unit), m_index(index) {}

    explicit operator bool() const { return m_unit; }
    bool operator==(const DwarfDebuggingInformationEntry &) const = default;

    quint32 tag() const;
    quint32 offset() const; // from the unit's first byte
    DwarfCompilationUnit *unit() const { return m_unit; }
    quint32 index() const { return m_index; } // among the unit's entries, in the order of their offsets
    DwarfDebuggingInformationEntry parent() const;
    DwarfDebuggingInformationEntry child() const; // the first
    DwarfDebuggingInformationEntry sibling() const;

    // The first attribute of that name on this entry alone.
    std::optional<DwarfAttribute> attribute(quint32 name) const;
    // The same, else that of the entry that DW_AT_specification, else DW_AT_abstract_origin leads to, and so on;
    // with `climb` also that of the enclosing entries.
    std::optional<DwarfAttribute> attributeResolved(quint32 name, bool climb = false) const;
    std::vector<DwarfAttribute> attributes() const; // in the abbreviation's order, implicit constants last

    bool has(quint32 name) const { return attribute(name).has_value(); }
    // The number of an attribute as it is here or at the origins, or none.
    std::optional<quint64> number(quint32 name) const;
    // The entry that attributeResolved(name) refers to.
    DwarfDebuggingInformationEntry target(quint32 name) const;
    // The definition's declaration or the instance's abstract entry, one step; none when it has neither.
    DwarfDebuggingInformationEntry origin() const;

    // DW_AT_name, resolved; empty when there is none.
    QByteArrayView nameBytes() const;
    QString name() const { return QString::fromUtf8(nameBytes()); }
    // name() behind the names of the directly enclosing namespaces, joined by "::".
    QString qualifiedName() const;
    // The names of all namespaces, classes and enumerations around this entry or around its declaration, the outermost
    // first. Those without a name are left out, and inline namespaces where they aren't wanted.
    QStringList scopes(bool withInline = true) const;
    // Whether a program can call it so: by its name behind that of its scopes, inline namespaces or not.
    bool goesBy(const QString &name) const;
    // The class, structure or union around this entry or around its declaration; none outside of classes.
    DwarfDebuggingInformationEntry enclosingClass() const;
    bool isDeclaration() const; // has a DW_AT_declaration of its own that isn't 0

    // DW_AT_low_pc, or 0. The low bit, which marks Thumb code in some assembler's units, is no part of it.
    quint32 lowPc() const;
    // DW_AT_high_pc as an address, or 0 without one.
    quint32 highPc() const;
    // All code of this entry: low to high pc, or DW_AT_ranges. Empty ranges are left out.
    std::vector<DwarfAddressRange> ranges() const;
    // The fixed address in DW_AT_location (DW_OP_addr or DW_OP_addrx and nothing else), or 0.
    quint32 staticAddress() const;

private:
    DwarfCompilationUnit *m_unit = nullptr;
    quint32 m_index = 0;
};

// Tags of types, and of everything that has a name beyond its scope.
inline bool isDwarfTypeKind(quint32 tag)
{
    switch (tag) {
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_typedef:
    case DW_TAG_union_type:
    case DW_TAG_base_type: return true;
    }
    return false;
}
inline bool isDwarfGlobalKind(quint32 tag)
{
    return isDwarfTypeKind(tag) || tag == DW_TAG_subprogram || tag == DW_TAG_variable;
}
inline bool isDwarfClassKind(quint32 tag)
{
    return tag == DW_TAG_class_type || tag == DW_TAG_structure_type || tag == DW_TAG_union_type;
}
