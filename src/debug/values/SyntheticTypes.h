#pragma once

#include "debug/dwarf/DwarfFile.h"
#include "expression/BaseType.h"

#include <array>
#include <list>
#include <map>

// Types that no debug information has: the base types of C, what is needed where DWARF gives no type, and the
// pointers and arrays that expressions make. Each is made once and lives as long as the file.
class SyntheticTypes
{
public:
    enum Base {
        Char,
        UnsignedChar,
        Short,
        UnsignedShort,
        Int,
        UnsignedInt,
        Long,
        UnsignedLong,
        LongLong,
        UnsignedLongLong,
        Void,
        Double,
        Float,
        baseCount
    };

    explicit SyntheticTypes(DwarfFile &file) : m_file(file) {}

    DwarfDebuggingInformationEntry base(Base type);
    DwarfDebuggingInformationEntry simple(const SimpleType &type);
    // An unsigned integer of 1, 2, 4 or 8 bytes, else "unsigned int".
    DwarfDebuggingInformationEntry intTypeOfSize(quint32 size);
    DwarfDebuggingInformationEntry pointerTo(DwarfDebuggingInformationEntry target); // of none: to nothing
    DwarfDebuggingInformationEntry arrayOf(DwarfDebuggingInformationEntry element, quint64 count);
    // What an array of those dimensions has as its elements when the first one is taken away.
    DwarfDebuggingInformationEntry withoutFirst(DwarfDebuggingInformationEntry array,
                                                std::span<const std::optional<quint64>> dimensions);
    DwarfDebuggingInformationEntry registerLayout(const RegisterType &type);

private:
    using Entry = DwarfDebuggingInformationEntry;
    using Key = std::tuple<DwarfCompilationUnit *, quint32, quint64>;
    Entry makeArray(Entry element, std::span<const std::optional<quint64>> dimensions);
    QByteArrayView keep(const QString &text);

    DwarfFile &m_file;
    std::array<Entry, baseCount> m_base = {};
    std::map<Key, Entry> m_pointers, m_arrays, m_rests;
    std::list<QByteArray> m_texts; // of entries
};
