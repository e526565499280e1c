// The part of DwarfExpressionEvaluator that finds members of classes.
#include "debug/values/DwarfExpressionEvaluator.h"

#include "expression/ParserException.h"

using namespace Qt::StringLiterals;

namespace {

constexpr size_t maximumBases = 1000; // of one class, those of its bases included

// A base class goes by its name, an instance of a template by that of the template too. What compilers name with a
// "." can be written with a "$".
bool isNamed(const TypeMember &member, const QString &name)
{
    if (member.isBase)
        return member.name == name || member.name.startsWith(name + u'<');
    return member.name == name || (name.contains(u'$') && QString(member.name).replace(u'.', u'$') == name);
}

// Where a class's own members have that name; those of anonymous members count as its own.
const TypeMember *findMember(const std::vector<TypeMember> &members, const QString &name)
{
    for (const TypeMember &member : members) {
        if (!member.name.isEmpty() && isNamed(member, name))
            return &member;
        if (const TypeMember *inner = findMember(member.members, name))
            return inner;
    }
    return nullptr;
}

} // namespace

const std::vector<TypeMember> &DwarfExpressionEvaluator::membersOf(Entry type)
{
    const auto [found, isNew] = m_members.try_emplace(keyOf(type));
    if (isNew)
        found->second = m_types->members(type);
    return found->second;
}

// A field in whole bytes that hold it: the declared unit where it is within the class, as compilers access it, else
// as few as there can be.
DwarfExpressionEvaluator::BitPlace DwarfExpressionEvaluator::bitPlaceOf(const TypeMember &member,
                                                                        quint32 classSize) const
{
    const quint64 bit = quint64(*member.offset) * 8 + *member.bitOffset; // in the order of storage
    quint32 size = member.size, offset = size ? *member.offset / size * size : 0;
    const auto holdsField = [&] { return bit + member.bitSize <= (quint64(offset) + size) * 8; };
    if (size == 0 || size > 8 || !holdsField() || quint64(offset) + size > classSize) {
        offset = *member.offset;
        size = std::min((*member.bitOffset + std::min(member.bitSize, 64u) + 7) / 8, 8u);
    }
    const qint64 first = qint64(bit) - qint64(offset) * 8;
    const qint64 fromTop = bigEndian() ? first : qint64(size) * 8 - first - member.bitSize;
    return {offset, size, qint32(fromTop)};
}

std::optional<quint32> DwarfExpressionEvaluator::dynamicOffset(const TypeMember &member, quint32 address)
{
    const auto location = member.entry.attributeResolved(DW_AT_data_member_location);
    if (!location || location->valueClass != DwarfAttribute::Block)
        return {};
    const std::vector<DwarfStackValue> stack = runFrom(member.entry, location->block(), address);
    return stack.empty() ? std::nullopt : std::optional(quint32(stack.back().value) - address);
}

VarInfo *DwarfExpressionEvaluator::memberPlace(const VarInfo &object, Entry classType, const TypeMember &member)
{
    if (member.isStatic)
        return staticMember(classType, member);
    if (member.isBitField()) {
        if (!member.offset)
            return nullptr;
        const BitPlace bits = bitPlaceOf(member, m_types->sizeOf(classType));
        VarInfo place = partOf(object, member.type, bits.offset, bits.size + (bits.bitOffset < 0));
        place.size = bits.size;
        place.bitOffset = bits.bitOffset;
        place.bitSize = member.bitSize;
        return keep(place);
    }
    const auto offset = member.offset       ? member.offset
                        : object.isMemory() ? dynamicOffset(member, addressIn(object))
                                            : std::nullopt;
    return offset ? keep(partOf(object, member.type, *offset, member.size)) : nullptr;
}

// A static member is a variable of its own.
VarInfo *DwarfExpressionEvaluator::staticMember(Entry classType, const TypeMember &member)
{
    const auto isSameClass = [&](Entry other) {
        return other == classType || (other && other.qualifiedName() == classType.qualifiedName());
    };
    for (const Entry &variable : dwarf().globalVariables(member.name)) {
        if (isSameClass(dwarf().definitionOf(variable.enclosingClass())))
            return markerOf(variable);
    }
    if (VarInfo *constant = markerOf(member.entry))
        return constant;
    throw ParserException(classType.qualifiedName() + u"::"_s + member.name + u" symbol not found"_s);
}

bool DwarfExpressionEvaluator::hasField(Entry classType, const QString &name)
{
    std::vector<Entry> classes = {classType};
    for (size_t i = 0; i < classes.size(); ++i) {
        const std::vector<TypeMember> &members = membersOf(classes[i]);
        if (findMember(members, name))
            return true;
        for (const TypeMember &member : members) {
            if (member.isBase && classes.size() < maximumBases)
                classes.push_back(plainType(member.type));
        }
    }
    return false;
}

// A member of the class hides those of its bases, and those of a base hide those of its own bases. Null when there
// is none.
VarInfo *DwarfExpressionEvaluator::findField(const VarInfo &object, Entry classType, const QString &name)
{
    std::vector<std::pair<VarInfo, Entry>> objects = {{object, classType}};
    for (size_t i = 0; i < objects.size(); ++i) {
        const auto [part, type] = objects[i];
        const std::vector<TypeMember> &members = membersOf(type);
        if (const TypeMember *member = findMember(members, name))
            return memberPlace(part, type, *member);
        for (const TypeMember &member : members) {
            if (!member.isBase || objects.size() >= maximumBases || !hasField(plainType(member.type), name))
                continue;
            if (const VarInfo *base = memberPlace(part, type, member))
                objects.push_back({*base, plainType(member.type)});
        }
    }
    return nullptr;
}

VarInfo *DwarfExpressionEvaluator::field(MarkerType *marker, const QString &name)
{
    constexpr int maximumSteps = 2; // a reference to a pointer
    VarInfo object = placeOf(marker);
    Entry type = plainType(object.type);
    for (int step = 0; step < maximumSteps && isPointerLike(type); ++step) {
        const quint64 address = readValue(object).asUnsigned();
        type = plainType(type.target(DW_AT_type));
        object = makePlace(VarInfo::Memory, address, type, m_types->sizeOf(type));
    }
    if (!isDwarfClassKind(type.tag()))
        throw ParserException(m_types->typeName(type) + u" not a structure type"_s);
    if (!hasField(type, name))
        throw ParserException(u"unknown field "_s + name + u" in type "_s + m_types->typeName(type));
    return findField(object, type, name);
}

VarInfo *DwarfExpressionEvaluator::fieldPath(MarkerType *marker, const QStringList &names)
{
    VarInfo place = placeOf(marker);
    for (const QString &name : names) {
        const VarInfo *next = nullptr;
        Entry type = plainType(place.type);
        if (isPointerLike(type))
            type = plainType(type.target(DW_AT_type));
        if (hasField(type, name))
            next = field(&place, name);
        if (!next)
            throw ParserException(u"unknown field "_s + name);
        place = *next;
    }
    return keep(place);
}
