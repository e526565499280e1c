#pragma once

#include "debug/dwarf/DwarfFile.h"

// A member, a base class or a static member of a class, structure or union. Offsets count in bytes from the
// start of the type that was asked for.
struct TypeMember
{
    QString name; // a base class's own name; empty for an anonymous member
    DwarfDebuggingInformationEntry entry, type;
    quint32 size = 0; // bytes, of its type; of a bit field the declared type's
    // None for a static member, a virtual base and a place that only a running program knows.
    std::optional<quint32> offset;
    // A bit field begins at bit offset * 8 + bitOffset; bitOffset is 0 to 7. Bits count from the least significant
    // one in little-endian files and from the most significant one in big-endian files.
    std::optional<quint32> bitOffset;
    quint32 bitSize = 0;
    bool isBase = false, isVirtual = false, isStatic = false;
    std::vector<TypeMember> members; // of an anonymous structure or union

    bool isBitField() const { return bitOffset.has_value(); }
};

struct TypeEnumerator
{
    QString name;
    qint64 value;
    bool isUnsigned = false; // `value` is the bits of an unsigned number
};

// What the types of a program mean: names, sizes and layouts, for a machine with words of 4 bytes.
//
// Nothing here fails: where the debug information says nothing, the answer is 0, empty or the default type.
// Types that go round in a circle, or nest too deeply, end at `maximumDepth`.
class DwarfTypes
{
public:
    static constexpr int maximumDepth = 100;
    static constexpr int maximumAnonymousDepth = 8; // of anonymous members within each other
    static constexpr quint32 wordSize = 4;

    explicit DwarfTypes(DwarfFile &file) : m_file(file) {}

    // A type by the name that a user writes: with its namespaces and classes, or with "struct" and the like before it.
    DwarfDebuggingInformationEntry typeNamed(const QString &name);
    // The type behind typedef, const and volatile (not restrict), found in at most 10 steps; else the default type.
    DwarfDebuggingInformationEntry stripType(DwarfDebuggingInformationEntry entry);
    // The type of whatever has no DW_AT_type: "void", unsigned, a word long.
    DwarfDebuggingInformationEntry defaultType();

    // Bytes. `incomplete` is set for an array without bound, and for a structure that ends with one.
    quint32 sizeOf(DwarfDebuggingInformationEntry entry, bool *incomplete = nullptr) const;
    // "const char*", "struct S", "int[]", "int(char, void *)"; empty for kinds that C has no declaration for.
    QString typeName(DwarfDebuggingInformationEntry entry) const;

    static bool isPointer(DwarfDebuggingInformationEntry entry);
    static bool isArray(DwarfDebuggingInformationEntry entry) { return entry.tag() == DW_TAG_array_type; }
    static bool isEnumeration(DwarfDebuggingInformationEntry entry) { return entry.tag() == DW_TAG_enumeration_type; }
    static bool isBaseType(DwarfDebuggingInformationEntry entry) { return entry.tag() == DW_TAG_base_type; }
    static bool isFloat(DwarfDebuggingInformationEntry entry)
    {
        return isBaseType(entry) && entry.number(DW_AT_encoding) == DW_ATE_float;
    }

    // Whether its enumerators are unsigned numbers, as far as the debug information tells.
    static bool isUnsignedEnumeration(DwarfDebuggingInformationEntry type);

    // The members in the order of their declaration; none for a type that is no class.
    std::vector<TypeMember> members(DwarfDebuggingInformationEntry type) const;
    std::vector<TypeEnumerator> enumerators(DwarfDebuggingInformationEntry type) const;
    // The element counts of an array, outermost first; none for a dimension without bound.
    std::vector<std::optional<quint64>> dimensions(DwarfDebuggingInformationEntry array) const;
    // Where a member or a base class begins in its class, in bytes; none when only the running program knows.
    std::optional<quint32> memberOffset(DwarfDebuggingInformationEntry member) const;

private:
    quint32 sizeOf(DwarfDebuggingInformationEntry entry, bool &incomplete, int depth) const;
    QString typeName(DwarfDebuggingInformationEntry entry, int depth, int &entriesLeft) const;
    static bool isArrayOfQualified(DwarfDebuggingInformationEntry entry, quint32 qualifier);
    void appendMembers(std::vector<TypeMember> &members, DwarfDebuggingInformationEntry type, quint32 start, int depth,
                       int &membersLeft) const;
    TypeMember memberOf(DwarfDebuggingInformationEntry entry, quint32 start, int depth, int &membersLeft) const;
    void placeBitField(TypeMember &member, quint32 start) const;

    DwarfFile &m_file;
    DwarfDebuggingInformationEntry m_defaultType;
};
