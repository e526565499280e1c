#include "debug/values/DwarfTypes.h"

#include "debug/values/DwarfLocationExpressionEvaluator.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int maximumMembers = 1 << 16;          // of one type, those of anonymous members included
constexpr int maximumNameEntries = 10'000;       // of one name: function types may take each other
constexpr qsizetype maximumParameters = 1 << 16; // of one function type, characters of their names

// The children of an entry, for a loop.
class Children
{
public:
    explicit Children(DwarfDebuggingInformationEntry parent) : m_first(parent.child()) {}

    struct Iterator
    {
        DwarfDebuggingInformationEntry entry;
        DwarfDebuggingInformationEntry operator*() const { return entry; }
        Iterator &operator++()
        {
            entry = entry.sibling();
            return *this;
        }
        bool operator!=(const Iterator &other) const { return entry != other.entry; }
    };
    Iterator begin() const { return {m_first}; }
    Iterator end() const { return {}; }

private:
    DwarfDebuggingInformationEntry m_first;
};

bool isSignedForm(const DwarfAttribute &attribute)
{
    return attribute.valueClass == DwarfAttribute::SignedNumber;
}

// A number that stands in the file itself; a block is computed by the running program.
std::optional<quint64> constantOf(DwarfDebuggingInformationEntry entry, quint32 name)
{
    const auto attribute = entry.attributeResolved(name);
    if (!attribute || (attribute->valueClass != DwarfAttribute::Number && !isSignedForm(*attribute)))
        return {};
    return attribute->value;
}

bool isSet(DwarfDebuggingInformationEntry entry, quint32 name)
{
    return constantOf(entry, name).value_or(0) != 0;
}

std::optional<quint64> countOf(DwarfDebuggingInformationEntry subrange)
{
    if (const auto bound = constantOf(subrange, DW_AT_upper_bound))
        return quint32(*bound + 1); // a bound of -1 is an array of nothing, in whatever form it is written
    return constantOf(subrange, DW_AT_count);
}

const char *keywordOf(quint32 tag)
{
    switch (tag) {
    case DW_TAG_class_type: return "class";
    case DW_TAG_enumeration_type: return "enum";
    case DW_TAG_structure_type: return "struct";
    }
    return "union";
}

} // namespace

DwarfDebuggingInformationEntry DwarfTypes::defaultType()
{
    if (!m_defaultType)
        m_defaultType = m_file.makeEntry(DW_TAG_base_type, {DwarfAttribute::ofText(DW_AT_name, "void"),
                                                            DwarfAttribute::ofNumber(DW_AT_byte_size, wordSize),
                                                            DwarfAttribute::ofNumber(DW_AT_encoding, DW_ATE_unsigned)});
    return m_defaultType;
}

DwarfDebuggingInformationEntry DwarfTypes::typeNamed(const QString &name)
{
    for (const QStringView keyword : {u"struct ", u"class ", u"union ", u"enum "}) {
        if (name.startsWith(keyword))
            return m_file.findType(name.sliced(keyword.size()).trimmed());
    }
    return m_file.findType(name);
}

DwarfDebuggingInformationEntry DwarfTypes::stripType(DwarfDebuggingInformationEntry entry)
{
    constexpr int maximumSteps = 10;
    for (int step = 0; entry && step <= maximumSteps; ++step) {
        switch (entry.tag()) {
        case DW_TAG_typedef:
        case DW_TAG_const_type:
        case DW_TAG_volatile_type: entry = entry.target(DW_AT_type); break;
        default: return m_file.definitionOf(entry);
        }
    }
    return defaultType();
}

bool DwarfTypes::isPointer(DwarfDebuggingInformationEntry entry)
{
    return entry.tag() == DW_TAG_pointer_type || entry.tag() == DW_TAG_reference_type;
}

bool DwarfTypes::isUnsignedEnumeration(DwarfDebuggingInformationEntry type)
{
    switch (type.target(DW_AT_type).number(DW_AT_encoding).value_or(0)) {
    case DW_ATE_unsigned:
    case DW_ATE_unsigned_char:
    case DW_ATE_boolean: return true;
    }
    return false;
}

quint32 DwarfTypes::sizeOf(DwarfDebuggingInformationEntry entry, bool *incomplete) const
{
    bool isIncomplete = false;
    const quint32 size = sizeOf(entry, isIncomplete, 0);
    if (incomplete)
        *incomplete = isIncomplete;
    return size;
}

quint32 DwarfTypes::sizeOf(DwarfDebuggingInformationEntry entry, bool &incomplete, int depth) const
{
    if (!entry || depth > maximumDepth)
        return 0;
    entry = m_file.definitionOf(entry);
    const quint32 tag = entry.tag();
    if (const auto size = constantOf(entry, DW_AT_byte_size)) {
        if (tag == DW_TAG_structure_type || tag == DW_TAG_class_type) {
            DwarfDebuggingInformationEntry last;
            for (const auto child : Children(entry)) {
                if (child.tag() == DW_TAG_member)
                    last = child.target(DW_AT_type);
            }
            if (isArray(last)) {
                const auto counts = dimensions(last);
                incomplete |= counts.size() == 1 && !counts[0];
            }
        }
        return quint32(*size);
    }
    switch (tag) {
    case DW_TAG_typedef:
    case DW_TAG_const_type:
    case DW_TAG_volatile_type:
    case DW_TAG_restrict_type:
    case DW_TAG_atomic_type: return sizeOf(entry.target(DW_AT_type), incomplete, depth + 1);
    case DW_TAG_array_type: {
        quint64 size = sizeOf(entry.target(DW_AT_type), incomplete, depth + 1);
        for (const auto count : dimensions(entry)) {
            incomplete |= !count;
            size *= std::min<quint64>(count.value_or(1), ~quint32(0));
            size = std::min<quint64>(size, ~quint32(0));
        }
        return quint32(size);
    }
    case DW_TAG_pointer_type:
    case DW_TAG_reference_type:
    case DW_TAG_rvalue_reference_type: return wordSize;
    case DW_TAG_ptr_to_member_type: // of a function: where it is, and where its object begins
        return entry.target(DW_AT_type).tag() == DW_TAG_subroutine_type ? 2 * wordSize : wordSize;
    }
    return 0;
}

// Compilers give a constant array as a constant type of an array of constant elements.
bool DwarfTypes::isArrayOfQualified(DwarfDebuggingInformationEntry entry, quint32 qualifier)
{
    bool isInArray = false;
    for (int step = 0; step < maximumDepth; ++step, entry = entry.target(DW_AT_type)) {
        const quint32 tag = entry.tag();
        if (isInArray && tag == qualifier)
            return true;
        isInArray = isInArray || isArray(entry);
        if (tag != DW_TAG_const_type && tag != DW_TAG_volatile_type && !isArray(entry))
            break;
    }
    return false;
}

QString DwarfTypes::typeName(DwarfDebuggingInformationEntry entry) const
{
    int entriesLeft = maximumNameEntries;
    return typeName(entry, 0, entriesLeft);
}

QString DwarfTypes::typeName(DwarfDebuggingInformationEntry entry, int depth, int &entriesLeft) const
{
    if (!entry || depth > maximumDepth || --entriesLeft < 0)
        return {};
    const DwarfDebuggingInformationEntry target = entry.target(DW_AT_type);
    const auto targetOr = [&](const char *otherwise) {
        return target ? typeName(target, depth + 1, entriesLeft) : QString::fromLatin1(otherwise);
    };
    switch (entry.tag()) {
    case DW_TAG_array_type: return typeName(target, depth + 1, entriesLeft) + u"[]"_s;
    case DW_TAG_class_type:
    case DW_TAG_enumeration_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type: {
        const QString keyword = QString::fromLatin1(keywordOf(entry.tag()));
        const QString name = m_file.definitionOf(entry).name();
        return name.isEmpty() ? keyword : keyword + u' ' + name;
    }
    case DW_TAG_pointer_type:
    case DW_TAG_reference_type: return targetOr("void ") + u'*';
    case DW_TAG_subroutine_type:
    case DW_TAG_subprogram: {
        QStringList parameters;
        qsizetype length = 0;
        for (const auto child : Children(entry)) {
            if (child.tag() == DW_TAG_formal_parameter)
                length +=
                    parameters.emplace_back(typeName(child.target(DW_AT_type), depth + 1, entriesLeft)).size() + 2;
            if (length > maximumParameters || --entriesLeft < 0)
                break; // types that refer to each other grow without end
        }
        return targetOr("void") + u'(' + parameters.join(u", "_s) + u')';
    }
    case DW_TAG_typedef:
    case DW_TAG_base_type: return entry.name();
    case DW_TAG_const_type:
        return isArrayOfQualified(target, DW_TAG_const_type) ? targetOr("") : u"const "_s + targetOr("void");
    case DW_TAG_volatile_type:
        return isArrayOfQualified(target, DW_TAG_volatile_type) ? targetOr("") : u"volatile "_s + targetOr("void");
    case DW_TAG_ptr_to_member_type:
        return targetOr("void") + u' ' + m_file.definitionOf(entry.target(DW_AT_containing_type)).name() + u"::*"_s;
    }
    return {};
}

std::vector<std::optional<quint64>> DwarfTypes::dimensions(DwarfDebuggingInformationEntry array) const
{
    std::vector<std::optional<quint64>> counts;
    for (const auto child : Children(array)) {
        if (child.tag() == DW_TAG_subrange_type || child.tag() == DW_TAG_enumeration_type)
            counts.push_back(countOf(child));
    }
    return counts;
}

std::vector<TypeEnumerator> DwarfTypes::enumerators(DwarfDebuggingInformationEntry type) const
{
    std::vector<TypeEnumerator> found;
    const bool isUnsigned = isUnsignedEnumeration(type);
    for (const auto child : Children(type)) {
        if (child.tag() == DW_TAG_enumerator)
            found.push_back({child.name(), qint64(constantOf(child, DW_AT_const_value).value_or(0)), isUnsigned});
    }
    return found;
}

// Members

std::optional<quint32> DwarfTypes::memberOffset(DwarfDebuggingInformationEntry member) const
{
    const auto location = member.attributeResolved(DW_AT_data_member_location);
    if (!location)
        return 0; // of a union
    if (location->valueClass != DwarfAttribute::Block)
        return quint32(location->value);

    // An expression that looks into memory finds its way through the object at hand.
    class NoMachine : public DwarfLocationExpressionEvaluator
    {
    public:
        quint64 readSized(quint32, quint32) override
        {
            hasRead = true;
            return 0;
        }
        quint32 readRegister(quint32) override
        {
            hasRead = true;
            return 0;
        }
        bool hasRead = false;
    } machine;
    bool isRegister, isValue;
    const quint64 offset = machine.evaluate(member, location->block(), true, isRegister, isValue);
    return machine.hasRead ? std::nullopt : std::optional(quint32(offset));
}

std::vector<TypeMember> DwarfTypes::members(DwarfDebuggingInformationEntry type) const
{
    std::vector<TypeMember> found;
    type = m_file.definitionOf(type);
    int membersLeft = maximumMembers;
    if (isDwarfClassKind(type.tag()))
        appendMembers(found, type, 0, 0, membersLeft);
    return found;
}

void DwarfTypes::appendMembers(std::vector<TypeMember> &members, DwarfDebuggingInformationEntry type, quint32 start,
                               int depth, int &membersLeft) const
{
    for (const auto child : Children(type)) {
        const quint32 tag = child.tag();
        if (tag != DW_TAG_member && tag != DW_TAG_inheritance && tag != DW_TAG_variable)
            continue;
        if (membersLeft-- <= 0)
            break;
        members.push_back(memberOf(child, start, depth, membersLeft));
    }
}

TypeMember DwarfTypes::memberOf(DwarfDebuggingInformationEntry entry, quint32 start, int depth, int &membersLeft) const
{
    TypeMember member;
    member.entry = entry;
    member.type = m_file.definitionOf(entry.target(DW_AT_type));
    member.size = sizeOf(member.type);
    member.isBase = entry.tag() == DW_TAG_inheritance;
    member.name = member.isBase ? member.type.name() : entry.name();
    member.isVirtual = member.isBase && isSet(entry, DW_AT_virtuality);
    // Static members are variables from version 5 on, before that members that are known outside.
    member.isStatic = entry.tag() == DW_TAG_variable ||
                      (!member.isBase && (isSet(entry, DW_AT_external) || isSet(entry, DW_AT_declaration)));
    if (member.isVirtual || member.isStatic)
        return member;
    if (const auto size = constantOf(entry, DW_AT_bit_size)) {
        member.bitSize = quint32(*size);
        placeBitField(member, start);
        return member;
    }
    if (const auto offset = memberOffset(entry))
        member.offset = start + *offset;
    if (!member.isBase && member.name.isEmpty() && member.offset && isDwarfClassKind(member.type.tag()) &&
        depth < maximumAnonymousDepth)
        appendMembers(member.members, member.type, *member.offset, depth + 1, membersLeft);
    return member;
}

// DW_AT_data_bit_offset counts from the start of the class in the order of storage. The older DW_AT_bit_offset
// counts from the most significant bit of a storage unit of DW_AT_byte_size, else of the declared type, that begins
// at DW_AT_data_member_location; in a little-endian file a negative one lies behind the unit (DWARF 3, 5.6.6).
void DwarfTypes::placeBitField(TypeMember &member, quint32 start) const
{
    qint64 bit = 0; // the field's first in the order of storage
    if (const auto inClass = constantOf(member.entry, DW_AT_data_bit_offset)) {
        bit = qint64(*inClass);
    } else {
        const auto offset = memberOffset(member.entry);
        if (!offset)
            return;
        bit = qint64(*offset) * 8;
        if (const auto inUnit = constantOf(member.entry, DW_AT_bit_offset)) {
            const quint32 unitSize = quint32(constantOf(member.entry, DW_AT_byte_size).value_or(member.size));
            bit += m_file.bigEndian() ? qint64(*inUnit) : qint64(unitSize) * 8 - qint64(*inUnit) - member.bitSize;
        }
    }
    bit += qint64(start) * 8;
    if (bit < 0 || bit >= qint64(8) << 32)
        return;
    member.offset = quint32(bit / 8);
    member.bitOffset = quint32(bit % 8);
}
