// The part of DwarfExpressionEvaluator that reads and writes values.
#include "debug/values/DwarfExpressionEvaluator.h"
#include "debug/values/PushedBlock.h"

#include "base/ByteOrder.h"
#include "debug/dwarf/Frame.h"
#include "expression/ParserException.h"
#include "target/interface/TargetMemoryInterface.h"

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 maximumBlockAtOnce = 1024; // what is larger is read as it is shown
constexpr quint32 maximumText = 1024;        // bytes of a C string
constexpr quint32 maximumConstant = 1 << 16; // bytes of a value that isn't in memory
constexpr int maximumTypeDepth = 100;

// A set of registers in one number, see DwarfLocationExpressionEvaluator::evaluate().
constexpr quint64 registerSet = 0xFFFFFFFF80000000;
constexpr quint32 registerSize = 4;

quint32 registerAt(quint64 number, quint32 position)
{
    if ((number & registerSet) != registerSet)
        return quint32(number) + position; // one after another
    const quint32 numbers = quint32(number);
    return position < 3 ? numbers >> 8 * position & 0xFF : numbers >> 24 & 0x7F;
}

quint64 narrowed(quint64 value, quint32 bits)
{
    return bits >= 64 ? value : value & ((quint64(1) << bits) - 1);
}

bool isQualifier(quint32 tag)
{
    switch (tag) {
    case DW_TAG_typedef:
    case DW_TAG_const_type:
    case DW_TAG_volatile_type:
    case DW_TAG_restrict_type:
    case DW_TAG_atomic_type: return true;
    }
    return false;
}

quint32 sizeAttribute(DwarfDebuggingInformationEntry type)
{
    return quint32(std::min<quint64>(type.number(DW_AT_byte_size).value_or(0), maximumConstant));
}

} // namespace

// The target

void DwarfExpressionEvaluator::readLocation(quint32 kind, quint32 address, quint32 length, void *dest)
{
    TargetMemoryInterface *memory = memoryOf(kind, address);
    if (!memory)
        throw ParserException(u"there is no target whose memory could be read"_s);
    memory->readMemory(address, length, dest);
}

void DwarfExpressionEvaluator::writeLocation(quint32 kind, quint32 address, quint32 length, const void *source)
{
    TargetMemoryInterface *memory = memoryOf(kind, address);
    if (!memory)
        throw ParserException(u"there is no target whose memory could be written"_s);
    memory->writeMemory(address, length, source);
}

QString DwarfExpressionEvaluator::readCString(quint32 kind, quint32 address, quint32 maximumLength)
{
    constexpr quint32 blockSize = 64; // most texts are short
    TargetMemoryInterface *memory = memoryOf(kind, address);
    if (!memory)
        throw ParserException(u"there is no target whose memory could be read"_s);
    return memory->readCString(address, maximumLength, blockSize, blockSize);
}

void DwarfExpressionEvaluator::readRegisterBlock(quint64 number, quint32 length, void *dest)
{
    char bytes[registerSize];
    for (quint32 done = 0; done < length; done += registerSize) {
        insertInteger(bytes, 0, readRegister(registerAt(number, done / registerSize)), registerSize, bigEndian());
        memcpy(static_cast<char *>(dest) + done, bytes, std::min(registerSize, length - done));
    }
}

void DwarfExpressionEvaluator::writeRegisterBlock(quint64, quint32, quint32, const void *)
{
    throw ParserException(u"there is no target whose registers could be written"_s);
}

quint64 DwarfExpressionEvaluator::readSized(quint32 address, quint32 size)
{
    quint8 bytes[8] = {};
    if (size > sizeof bytes)
        return 0;
    readLocation(memoryKind(), address, size, bytes);
    return extractInteger(bytes, 0, size, bigEndian());
}

// Blocks

void DwarfExpressionEvaluator::pushBlockOf(const VarInfo &place, bool lazy)
{
    const quint64 length = quint64(place.size) + (place.bitOffset < 0);
    if (!place.isMemory() && quint64(place.offset) + length > maximumConstant)
        throw ParserException(u"a value of %1 bytes can't be outside of memory"_s.arg(length));
    if (place.kind == VarInfo::Register) {
        auto block = std::make_unique<MemoryBlock>(place.offset + quint32(length), bigEndian());
        readRegisterBlock(place.address, block->size(), block->data());
        block->skip(place.offset);
        pushBlock(std::move(block));
    } else if (place.kind == VarInfo::Constant) {
        pushBlock(std::make_unique<MemoryBlock>(constantBytes(place), bigEndian()));
    } else if (length > maximumBlockAtOnce || lazy) {
        pushBlock(
            std::make_unique<LazyMemoryBlock>(*this, bigEndian(), place.kind, quint32(place.address) + place.offset));
    } else if (length == 0 && place.kind == VarInfo::Memory) {
        QByteArray text;
        try {
            text = readCString(place.kind, quint32(place.address) + place.offset, maximumText).toLatin1();
        } catch (const HException &) { // nothing need be there: an array of nothing, a function
        }
        pushBlock(std::make_unique<MemoryBlock>(text + '\0', bigEndian()));
    } else {
        auto block = std::make_unique<MemoryBlock>(quint32(length), bigEndian());
        readLocation(place.kind, quint32(place.address) + place.offset, quint32(length), block->data());
        pushBlock(std::move(block));
    }
}

// Of a place of the kind Constant, as the target would store it.
QByteArray DwarfExpressionEvaluator::constantBytes(const VarInfo &place) const
{
    if (!place.bytes.isNull())
        return place.bytes;
    const bool isCode = place.type.tag() == DW_TAG_subprogram; // its size is that of the code
    const quint32 size = isCode ? DwarfTypes::wordSize : std::min(place.size + (place.bitOffset < 0), maximumConstant);
    QByteArray bytes(qsizetype(size), '\0');
    insertInteger(bytes.data(), 0, place.address, size, bigEndian());
    return bytes;
}

// Reading

ExpressionValue DwarfExpressionEvaluator::readValue(const VarInfo &place)
{
    const PushedBlock pushed(*this, place);
    return topValue(place);
}

ExpressionValue DwarfExpressionEvaluator::topValue(const VarInfo &place)
{
    if (!place.isBitField())
        return readEntry(place.type);
    return bitFieldValue(place.type, block().readBitField(0, place.size, place.bitOffset, place.bitSize), place.size,
                         place.bitSize);
}

// A bit field has the kind of its type.
ExpressionValue DwarfExpressionEvaluator::bitFieldValue(Entry type, quint64 bits, quint32 size, quint32 bitSize)
{
    type = plainType(type);
    if (DwarfTypes::isEnumeration(type))
        return enumerationValue(type, bits, size, bitSize);
    switch (type.number(DW_AT_encoding).value_or(0)) {
    case DW_ATE_boolean: return ExpressionValue::ofBool(bits == 1);
    case DW_ATE_signed:
    case DW_ATE_signed_char: return ExpressionValue::ofSigned(qint64(bits), size, bitSize);
    }
    return ExpressionValue::ofUnsigned(bits, size, bitSize);
}

ExpressionValue DwarfExpressionEvaluator::readEntry(Entry type)
{
    if (!type)
        type = m_types->defaultType();
    for (int depth = 0; depth < maximumTypeDepth && isQualifier(type.tag()); ++depth)
        type = type.target(DW_AT_type);
    type = dwarf().definitionOf(type);
    switch (type.tag()) {
    case DW_TAG_enumeration_type: {
        const quint32 size = enumerationSize(type);
        return enumerationValue(type, block().readInteger(size), size, 0);
    }
    case DW_TAG_pointer_type:
    case DW_TAG_reference_type:
    case DW_TAG_rvalue_reference_type:
    case DW_TAG_subroutine_type:
    case DW_TAG_subprogram:
    case DW_TAG_ptr_to_member_type: // of a function, its address or its index of the virtual table
        return ExpressionValue::ofUnsigned(block().readInteger(DwarfTypes::wordSize), DwarfTypes::wordSize);
    case DW_TAG_base_type: return readBase(type);
    }
    return {};
}

ExpressionValue DwarfExpressionEvaluator::readBase(Entry type)
{
    const quint32 size = sizeAttribute(type);
    const auto encoding = type.number(DW_AT_encoding);
    if (!size || !encoding)
        return {};
    switch (*encoding) {
    case DW_ATE_float: return ExpressionValue::ofFloat(readFloat(size), size);
    case DW_ATE_boolean: return ExpressionValue::ofBool(block().readInteger(size) == 1);
    case DW_ATE_address:
    case DW_ATE_unsigned:
    case DW_ATE_unsigned_char:
    case DW_ATE_unsigned_fixed:
    case DW_ATE_UTF: return ExpressionValue::ofUnsigned(block().readInteger(size), size);
    case DW_ATE_signed:
    case DW_ATE_signed_char:
    case DW_ATE_signed_fixed: {
        const quint64 bits = block().readInteger(size);
        const quint32 unused = size < 8 ? 64 - 8 * size : 0; // sizes of 3 bytes and the like
        return ExpressionValue::ofSigned(qint64(bits << unused) >> unused, size);
    }
    }
    return {};
}

quint32 DwarfExpressionEvaluator::enumerationSize(Entry type) const
{
    return type.number(DW_AT_byte_size) ? sizeAttribute(type) : DwarfTypes::wordSize;
}

const DwarfExpressionEvaluator::Enumerators &DwarfExpressionEvaluator::enumeratorsOf(Entry type)
{
    const auto [found, isNew] = m_enumerators.try_emplace(keyOf(type));
    if (isNew) {
        const quint32 bits = 8 * enumerationSize(type);
        for (const TypeEnumerator &enumerator : m_types->enumerators(type)) {
            if (!enumerator.name.isEmpty())
                found->second.push_back({narrowed(quint64(enumerator.value), bits), enumerator.name});
        }
        std::ranges::stable_sort(found->second, {}, &Enumerators::value_type::first);
    }
    return found->second;
}

ExpressionValue DwarfExpressionEvaluator::enumerationValue(Entry type, quint64 number, quint32 size, quint32 bitSize)
{
    const Enumerators &enumerators = enumeratorsOf(type);
    const auto found =
        bitSize
            ? std::ranges::find_if(enumerators, [&](const auto &row) { return narrowed(row.first, bitSize) == number; })
            : std::ranges::lower_bound(enumerators, number, {}, &Enumerators::value_type::first);
    if (found != enumerators.end() && (bitSize || found->first == number))
        return ExpressionValue::ofText(found->second, size, number);
    return ExpressionValue::ofUnsigned(number, size, bitSize);
}

// The number of a scalar, that of an enumerator too.
ExpressionValue DwarfExpressionEvaluator::readNumber(const VarInfo &place)
{
    const Entry type = plainType(place.type);
    if (!DwarfTypes::isEnumeration(type))
        return readValue(place);
    const PushedBlock pushed(*this, place);
    const quint32 bits = place.isBitField() ? place.bitSize : 8 * enumerationSize(type);
    const quint64 number = place.isBitField() ? block().readBitField(0, place.size, place.bitOffset, place.bitSize)
                                              : block().readInteger(enumerationSize(type));
    const auto values = m_types->enumerators(type);
    const auto isNegative = [](const TypeEnumerator &row) { return row.value < 0 && !row.isUnsigned; };
    const bool isSigned = std::ranges::any_of(values, isNegative);
    const quint32 unused = bits < 64 ? 64 - bits : 0;
    return isSigned ? ExpressionValue::ofSigned(qint64(number << unused) >> unused)
                    : ExpressionValue::ofUnsigned(number, 8);
}

// Writing

// The number that a value is for an integer or an enumeration, which takes the name of an enumerator too.
quint64 DwarfExpressionEvaluator::integerFor(Entry type, const ExpressionValue &value)
{
    if (value.kind() == ExpressionValue::Float)
        return quint64(value.asSigned()); // its bits are no number
    if (value.kind() == ExpressionValue::String) {
        for (const auto &[number, name] : enumeratorsOf(plainType(type))) {
            if (name == value.text())
                return number;
        }
    }
    return value.asUnsigned();
}

void DwarfExpressionEvaluator::writeEntry(Entry type, const ExpressionValue &value)
{
    for (int depth = 0; depth < maximumTypeDepth && isQualifier(type.tag()); ++depth)
        type = type.target(DW_AT_type);
    type = dwarf().definitionOf(type);
    switch (type.tag()) {
    case DW_TAG_base_type:
        if (DwarfTypes::isFloat(type))
            writeFloat(value.asDouble(), sizeAttribute(type));
        else
            block().writeInteger(integerFor(type, value), sizeAttribute(type));
        break;
    case DW_TAG_pointer_type:
    case DW_TAG_reference_type:
    case DW_TAG_rvalue_reference_type:
        if (value.isInteger())
            block().writeInteger(value.asUnsigned(), DwarfTypes::wordSize);
        else if (const auto *place = dynamic_cast<const VarInfo *>(value.marker()))
            block().writeInteger(place->address, DwarfTypes::wordSize);
        break;
    case DW_TAG_enumeration_type: block().writeInteger(integerFor(type, value), enumerationSize(type)); break;
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
        if (m_isRaw)
            block().writeInteger(value.asUnsigned(), sizeAttribute(type));
        break;
    }
}

ExpressionValue DwarfExpressionEvaluator::assign(MarkerType *marker, const ExpressionValue &value)
{
    const VarInfo place = placeOf(marker);
    if (place.kind == VarInfo::Constant)
        throw ParserException(u"can't update a constant"_s);
    const PushedBlock pushed(*this, place); // with the bytes as they are
    if (place.isBitField())
        block().writeBitField(integerFor(place.type, value), 0, place.size, place.bitOffset, place.bitSize);
    else
        writeEntry(place.type, value);
    writeBack(place);
    return topValue(place);
}

// Stores the block on top where the place is, and leaves the cursor at the place's start.
void DwarfExpressionEvaluator::writeBack(const VarInfo &place)
{
    block().rewind();
    const auto *bytes = dynamic_cast<const MemoryBlock *>(&block());
    if (place.kind == VarInfo::Register) {
        block().skip(place.offset);
        if (bytes)
            writeRegisterBlock(place.address, place.offset, bytes->size() - place.offset,
                               bytes->bytes().constData() + place.offset);
    } else if (bytes) {
        writeLocation(place.kind, quint32(place.address) + place.offset, bytes->size(), bytes->bytes().constData());
    }
}
