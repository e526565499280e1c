#include "debug/values/SyntheticTypes.h"

#include "debug/values/DwarfTypes.h"

namespace {

struct BaseRow
{
    const char *name;
    quint32 encoding, size; // bytes
};
constexpr quint32 wordSize = DwarfTypes::wordSize;
constexpr BaseRow baseRows[SyntheticTypes::baseCount] = {
    {"char", DW_ATE_signed_char, 1},     {"unsigned char", DW_ATE_unsigned_char, 1},
    {"short", DW_ATE_signed, 2},         {"unsigned short", DW_ATE_unsigned, 2},
    {"int", DW_ATE_signed, wordSize},    {"unsigned int", DW_ATE_unsigned, wordSize},
    {"long", DW_ATE_signed, 4},          {"uint32_t", DW_ATE_unsigned, 4},
    {"long long", DW_ATE_signed, 8},     {"uint32_t long", DW_ATE_unsigned, 8},
    {"void", DW_ATE_unsigned, wordSize}, {"double", DW_ATE_float, 8},
    {"float", DW_ATE_float, 4},
};

} // namespace

DwarfDebuggingInformationEntry SyntheticTypes::base(Base type)
{
    Entry &entry = m_base[type];
    const BaseRow &row = baseRows[type];
    if (!entry)
        entry = m_file.makeEntry(DW_TAG_base_type, {DwarfAttribute::ofText(DW_AT_name, row.name),
                                                    DwarfAttribute::ofNumber(DW_AT_byte_size, row.size),
                                                    DwarfAttribute::ofNumber(DW_AT_encoding, row.encoding)});
    return entry;
}

DwarfDebuggingInformationEntry SyntheticTypes::simple(const SimpleType &type)
{
    switch (type.code) {
    case SimpleType::Char: return base(type.isUnsigned ? UnsignedChar : Char);
    case SimpleType::Short: return base(type.isUnsigned ? UnsignedShort : Short);
    case SimpleType::Int: return base(type.isUnsigned ? UnsignedInt : Int);
    case SimpleType::Long: return base(type.isUnsigned ? UnsignedLong : Long);
    case SimpleType::LongLong: return base(type.isUnsigned ? UnsignedLongLong : LongLong);
    case SimpleType::Float: return base(Float);
    case SimpleType::Double: break;
    }
    return base(Double);
}

DwarfDebuggingInformationEntry SyntheticTypes::intTypeOfSize(quint32 size)
{
    switch (size) {
    case 1: return base(UnsignedChar);
    case 2: return base(UnsignedShort);
    case 4: return base(UnsignedLong);
    case 8: return base(UnsignedLongLong);
    }
    return base(UnsignedInt);
}

DwarfDebuggingInformationEntry SyntheticTypes::pointerTo(DwarfDebuggingInformationEntry target)
{
    Entry &entry = m_pointers[{target.unit(), target.index(), 0}];
    if (!entry) {
        std::vector<DwarfAttribute> attributes;
        if (target)
            attributes.push_back(DwarfAttribute::ofEntry(DW_AT_type, target));
        entry = m_file.makeEntry(DW_TAG_pointer_type, std::move(attributes));
    }
    return entry;
}

DwarfDebuggingInformationEntry SyntheticTypes::makeArray(Entry element,
                                                         std::span<const std::optional<quint64>> dimensions)
{
    std::vector<Entry> subranges;
    for (const auto &count : dimensions) {
        std::vector<DwarfAttribute> attributes;
        if (count)
            attributes.push_back(DwarfAttribute::ofNumber(DW_AT_upper_bound, *count - 1));
        subranges.push_back(m_file.makeEntry(DW_TAG_subrange_type, std::move(attributes)));
    }
    return m_file.makeEntry(DW_TAG_array_type, {DwarfAttribute::ofEntry(DW_AT_type, element)}, subranges);
}

DwarfDebuggingInformationEntry SyntheticTypes::arrayOf(DwarfDebuggingInformationEntry element, quint64 count)
{
    Entry &entry = m_arrays[{element.unit(), element.index(), count}];
    const std::optional<quint64> dimension = count;
    if (!entry)
        entry = makeArray(element, {&dimension, 1});
    return entry;
}

DwarfDebuggingInformationEntry SyntheticTypes::withoutFirst(DwarfDebuggingInformationEntry array,
                                                            std::span<const std::optional<quint64>> dimensions)
{
    const Entry element = array.target(DW_AT_type);
    if (dimensions.size() < 2)
        return element;
    Entry &entry = m_rests[{array.unit(), array.index(), 0}];
    if (!entry)
        entry = makeArray(element, dimensions.subspan(1));
    return entry;
}

QByteArrayView SyntheticTypes::keep(const QString &text)
{
    return m_texts.emplace_back(text.toUtf8());
}

DwarfDebuggingInformationEntry SyntheticTypes::registerLayout(const RegisterType &type)
{
    if (type.fields.empty())
        return intTypeOfSize(type.size);
    const quint32 size = type.size ? type.size : wordSize;
    std::vector<Entry> members;
    for (const RegisterType::Field &field : type.fields) {
        const qint64 fromTop = qint64(size) * 8 - field.bitOffset - field.bitSize;
        members.push_back(m_file.makeEntry(DW_TAG_member, {DwarfAttribute::ofText(DW_AT_name, keep(field.name)),
                                                           DwarfAttribute::ofEntry(DW_AT_type, base(UnsignedInt)),
                                                           DwarfAttribute::ofNumber(DW_AT_data_member_location, 0),
                                                           DwarfAttribute::ofNumber(DW_AT_byte_size, size),
                                                           DwarfAttribute::ofNumber(DW_AT_bit_offset, quint64(fromTop)),
                                                           DwarfAttribute::ofNumber(DW_AT_bit_size, field.bitSize)}));
    }
    return m_file.makeEntry(DW_TAG_structure_type, {DwarfAttribute::ofNumber(DW_AT_byte_size, size)}, members);
}
