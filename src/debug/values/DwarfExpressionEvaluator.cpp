#include "debug/values/DwarfExpressionEvaluator.h"

#include "base/ByteOrder.h"
#include "debug/dwarf/Frame.h"
#include "debug/values/PushedBlock.h"
#include "debug/values/TypeDescriptions.h"
#include "expression/ParserException.h"

#include <bit>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void fail(const QString &message)
{
    throw ParserException(message);
}

} // namespace

DwarfExpressionEvaluator::DwarfExpressionEvaluator() : m_noFile(std::make_unique<DwarfFile>())
{
    clearCaches();
}

DwarfExpressionEvaluator::~DwarfExpressionEvaluator() = default;

DwarfFile &DwarfExpressionEvaluator::dwarf() const
{
    return m_file ? m_file->dwarf() : *m_noFile;
}

void DwarfExpressionEvaluator::clearCaches()
{
    m_enumerators.clear();
    m_members.clear();
    m_typesByName.clear();
    m_typeTexts.clear();
    m_types = std::make_unique<DwarfTypes>(dwarf());
    m_synthetic = std::make_unique<SyntheticTypes>(dwarf());
}

void DwarfExpressionEvaluator::setFile(ElfDwarfFile *file)
{
    m_results.clear();
    if (file == m_file)
        return;
    m_file = file;
    setBigEndian(dwarf().bigEndian());
    clearCaches();
}

void DwarfExpressionEvaluator::setFrame(Frame *frame)
{
    auto *elfFrame = dynamic_cast<ElfDwarfFrame *>(frame);
    m_frame = elfFrame;
    setFile(elfFrame ? elfFrame->file() : nullptr);
}

// The machine

quint32 DwarfExpressionEvaluator::scopePc()
{
    return m_overridePc ? *m_overridePc : m_frame ? m_frame->programCounter() : 0;
}

quint32 DwarfExpressionEvaluator::frameValue()
{
    return m_frame ? m_frame->frameValue() : 0;
}

quint32 DwarfExpressionEvaluator::programCounter()
{
    return hasFrame() ? scopePc() : 0;
}

quint32 DwarfExpressionEvaluator::readRegister(quint32 number)
{
    return m_frame ? m_frame->readRegister(number) : 0;
}

quint32 DwarfExpressionEvaluator::canonicalFrameAddress()
{
    return m_frame ? m_frame->canonicalFrameAddress() : 0;
}

quint32 DwarfExpressionEvaluator::mapAddress(quint32 address)
{
    return m_file ? m_file->elf().mapAddress(address) + dwarf().loadOffset() : address;
}

// Places

VarInfo *DwarfExpressionEvaluator::keep(const VarInfo &place)
{
    return m_results.emplace_back(std::make_unique<VarInfo>(place)).get();
}

VarInfo DwarfExpressionEvaluator::makePlace(quint32 kind, quint64 address, Entry type, quint32 size)
{
    return VarInfo(this, kind, address, type, 0, size, 0, 0, !bigEndian(), DwarfTypes::wordSize);
}

VarInfo DwarfExpressionEvaluator::placeOf(MarkerType *marker)
{
    const auto *place = dynamic_cast<const VarInfo *>(marker);
    if (!place)
        fail(u"bad expression type"_s);
    return *place;
}

DwarfDebuggingInformationEntry DwarfExpressionEvaluator::plainType(Entry type)
{
    constexpr int maximumSteps = 100;
    for (int step = 0; step < maximumSteps; ++step) {
        switch (type.tag()) {
        case DW_TAG_typedef:
        case DW_TAG_const_type:
        case DW_TAG_volatile_type:
        case DW_TAG_restrict_type:
        case DW_TAG_atomic_type: type = type.target(DW_AT_type); continue;
        }
        break;
    }
    return dwarf().definitionOf(type);
}

// Pointers and references of all kinds.
bool DwarfExpressionEvaluator::isPointerLike(Entry type)
{
    return DwarfTypes::isPointer(type) || type.tag() == DW_TAG_rvalue_reference_type;
}

ExpressionValue DwarfExpressionEvaluator::markerValue(MarkerType *marker)
{
    return readValue(placeOf(marker));
}

bool DwarfExpressionEvaluator::isPointer(MarkerType *marker)
{
    return isPointerLike(plainType(placeOf(marker).type));
}

bool DwarfExpressionEvaluator::isArray(MarkerType *marker)
{
    return DwarfTypes::isArray(plainType(placeOf(marker).type));
}

// A part of a place: what stays in memory moves, what is a constant is cut out.
VarInfo DwarfExpressionEvaluator::partOf(VarInfo place, Entry type, quint32 offset, quint32 size)
{
    if (place.kind == VarInfo::Constant) {
        const QByteArray bytes = constantBytes(place);
        const bool isInside = offset <= quint32(bytes.size()) && size <= quint32(bytes.size()) - offset;
        place.bytes = isInside ? bytes.mid(offset, size) : QByteArray(qsizetype(0), '\0');
        place.address = 0;
    } else {
        place.offset += offset;
    }
    place.type = type;
    place.size = size;
    place.bitOffset = 0;
    place.bitSize = 0;
    return place;
}

VarInfo *DwarfExpressionEvaluator::index(MarkerType *marker, qint64 n)
{
    const VarInfo place = placeOf(marker);
    const Entry type = plainType(place.type);
    if (isPointerLike(type)) {
        const Entry target = type.target(DW_AT_type);
        const quint32 size = target ? m_types->sizeOf(target) : DwarfTypes::wordSize;
        VarInfo element = makePlace(VarInfo::Memory, readValue(place).asUnsigned(), target, size);
        element.offset = quint32(size * quint64(n));
        return keep(element);
    }
    if (!DwarfTypes::isArray(type))
        fail(u"not an array type"_s);
    const Entry element = m_synthetic->withoutFirst(type, m_types->dimensions(type));
    const quint32 size = m_types->sizeOf(element);
    return keep(partOf(place, element, quint32(size * quint64(n)), size));
}

VarInfo *DwarfExpressionEvaluator::pointerAdd(MarkerType *marker, qint64 n)
{
    const VarInfo place = placeOf(marker);
    const Entry type = plainType(place.type);
    if (isPointerLike(type)) {
        const quint32 step = std::max(m_types->sizeOf(type.target(DW_AT_type)), 1u); // void counts bytes
        const quint64 value = readValue(place).asUnsigned() + quint64(n) * step;
        return keep(makePlace(VarInfo::Constant, quint32(value), place.type, DwarfTypes::wordSize));
    }
    if (!DwarfTypes::isArray(type))
        fail(u"not a pointer/array type"_s);
    const Entry element = m_synthetic->withoutFirst(type, m_types->dimensions(type));
    if (!element)
        return nullptr;
    const quint64 value = addressIn(place) + quint64(n) * m_types->sizeOf(element);
    return keep(makePlace(VarInfo::Constant, quint32(value), m_synthetic->pointerTo(element), DwarfTypes::wordSize));
}

quint32 DwarfExpressionEvaluator::addressIn(const VarInfo &place) const
{
    if (!place.isMemory())
        fail(u"can't take the address of a register/constant"_s);
    return quint32(place.address) + place.offset;
}

VarInfo *DwarfExpressionEvaluator::addressOf(MarkerType *marker)
{
    const VarInfo place = placeOf(marker);
    const bool isFunction = place.kind == VarInfo::Constant && place.type.tag() == DW_TAG_subprogram;
    const quint32 address = isFunction ? quint32(place.address) : addressIn(place);
    return keep(makePlace(VarInfo::Constant, address, m_synthetic->pointerTo(place.type), DwarfTypes::wordSize));
}

ExpressionValue DwarfExpressionEvaluator::sizeOf(MarkerType *marker)
{
    return ExpressionValue::ofUnsigned(placeOf(marker).size, 4);
}

ExpressionValue DwarfExpressionEvaluator::sizeOfType(const BaseType &type)
{
    const Entry entry = typeToEntry(type);
    return entry ? ExpressionValue::ofUnsigned(m_types->sizeOf(entry), 4) : ExpressionValue();
}

ExpressionValue DwarfExpressionEvaluator::addressOfLine(const QString &file, quint32 line)
{
    SourceAddressMap &map = dwarf().lineMap();
    for (const quint32 source : map.sources()) {
        const QString path = map.paths().text(source);
        if (!path.endsWith(file, Qt::CaseInsensitive))
            continue;
        QList<quint32> addresses;
        if (line > quint32(std::numeric_limits<int>::max()) || !map.addressesOfLine(path, int(line), addresses))
            fail(u"linenumber not found"_s);
        return ExpressionValue::ofUnsigned(*std::ranges::min_element(addresses), 4);
    }
    fail(u"filename not found"_s);
}

VarInfo *DwarfExpressionEvaluator::lookupRegister(const QString &name)
{
    const qint32 number = registerNumber(name);
    if (number < 0)
        return static_cast<VarInfo *>(ExpressionParser::lookupRegister(name));
    const Entry type = m_synthetic->base(SyntheticTypes::UnsignedInt);
    return keep(makePlace(VarInfo::Register, quint64(number), type, m_types->sizeOf(type)));
}

// Casts

bool DwarfExpressionEvaluator::isScalar(Entry type) const
{
    return DwarfTypes::isBaseType(type) || DwarfTypes::isEnumeration(type) || isPointerLike(type);
}

// A number as a constant of a scalar type.
VarInfo *DwarfExpressionEvaluator::convert(const ExpressionValue &number, Entry type)
{
    const Entry plain = plainType(type);
    const quint32 size = m_types->sizeOf(type);
    VarInfo place = makePlace(VarInfo::Constant, 0, type, size);
    const bool isFloat = number.kind() == ExpressionValue::Float;
    const double real = isFloat ? number.asDouble() : 0;
    if (DwarfTypes::isFloat(plain)) {
        const double value = isFloat ? real : number.asDouble();
        place.address = size == 4 ? std::bit_cast<quint32>(float(value)) : std::bit_cast<quint64>(value);
        if (size != 4 && size != 8) { // of other sizes the block knows the bits
            pushBlock(std::make_unique<MemoryBlock>(std::min(size, 16u), bigEndian()));
            writeFloat(value, size);
            place.bytes = static_cast<MemoryBlock &>(block()).bytes();
            popBlock();
        }
    } else if (plain.number(DW_AT_encoding) == DW_ATE_boolean) {
        place.address = isFloat ? real != 0 : number.asUnsigned() != 0;
    } else {
        place.address = number.kind() == ExpressionValue::Unsigned ? number.asUnsigned() : quint64(number.asSigned());
        if (isFloat && real >= 0x1p63)
            place.address = real < 0x1p64 ? quint64(real) : ~quint64(0);
    }
    return keep(place);
}

VarInfo *DwarfExpressionEvaluator::cast(const BaseType &written, const ExpressionValue &value)
{
    const Entry type = typeToEntry(written);
    const Entry plain = plainType(type);
    if (!value.marker()) {
        if (isScalar(plain) && (value.isNumeric() || value.kind() == ExpressionValue::Boolean))
            return convert(value, type);
        const bool isArrayType = dynamic_cast<const ArrayType *>(&written);
        return keep(makePlace(isArrayType ? VarInfo::Memory : VarInfo::Constant, value.asUnsigned(), type,
                              m_types->sizeOf(type)));
    }
    VarInfo place = placeOf(value.marker());
    const Entry from = plainType(place.type);
    const quint32 size = m_types->sizeOf(type);
    if (DwarfTypes::isArray(from) && isPointerLike(plain))
        return keep(makePlace(VarInfo::Constant, addressIn(place), type, size));
    if (isScalar(from) && isScalar(plain)) {
        const bool isSame =
            size == place.size && !place.isBitField() && DwarfTypes::isFloat(from) == DwarfTypes::isFloat(plain);
        if (!isSame || dynamic_cast<const SimpleType *>(&written))
            return convert(readNumber(place), type);
    }
    place.type = type;
    place.size = size;
    place.bitOffset = 0;
    place.bitSize = 0;
    return keep(place);
}

// Written types

DwarfDebuggingInformationEntry DwarfExpressionEvaluator::typeToEntry(const BaseType &type)
{
    if (const auto *simple = dynamic_cast<const SimpleType *>(&type))
        return m_synthetic->simple(*simple);
    if (const auto *user = dynamic_cast<const UserType *>(&type))
        return typeNamed(user->name);
    if (const auto *pointer = dynamic_cast<const PointerType *>(&type))
        return m_synthetic->pointerTo(typeToEntry(*pointer->target));
    if (const auto *layout = dynamic_cast<const RegisterType *>(&type))
        return m_synthetic->registerLayout(*layout);
    if (const auto *array = dynamic_cast<const ArrayType *>(&type)) {
        ExpressionValue count = array->count->evaluate();
        if (count.marker())
            count = markerValue(count.marker());
        if (!count.isInteger())
            fail(u"bad index type"_s);
        return m_synthetic->arrayOf(typeToEntry(*array->element), count.asUnsigned());
    }
    return {};
}

bool DwarfExpressionEvaluator::isTypeName(const QString &name)
{
    return bool(typeNamed(name));
}

bool DwarfExpressionEvaluator::isTemplateName(const QString &name)
{
    return dwarf().isTemplateName(name);
}

namespace {

constexpr QStringView entryTypePrefix = u"$type"; // then unit and entry in hexadecimal: $type1f_2a0

} // namespace

DwarfDebuggingInformationEntry DwarfExpressionEvaluator::typeNamed(const QString &name)
{
    constexpr int maximumNames = 10000;
    if (const auto known = m_typesByName.constFind(name); known != m_typesByName.cend())
        return *known;
    if (m_typesByName.size() >= maximumNames)
        m_typesByName.clear();
    Entry found;
    if (name.startsWith(entryTypePrefix)) {
        const auto parts = QStringView(name).sliced(entryTypePrefix.size()).split(u'_');
        if (parts.size() == 2)
            found = dwarf().entryAtGlobalOffset(parts[0].toUInt(nullptr, 16) + parts[1].toUInt(nullptr, 16));
    } else {
        found = m_types->typeNamed(name);
    }
    m_typesByName.insert(name, found);
    return found;
}

DwarfDebuggingInformationEntry DwarfExpressionEvaluator::typeOfText(const QString &text)
{
    try {
        const std::unique_ptr<BaseType> type = parseTypeText(text);
        return type ? typeToEntry(*type) : Entry();
    } catch (const ParserException &) {
        return {};
    }
}

QString DwarfExpressionEvaluator::textOfType(Entry type)
{
    const auto [found, isNew] = m_typeTexts.try_emplace(keyOf(type));
    if (!isNew)
        return found->second;
    QString &text = found->second;
    const auto isMeant = [&] { return typeOfText(text) == type; };
    switch (type.tag()) {
    case DW_TAG_pointer_type:
        if (const Entry target = type.target(DW_AT_type)) {
            text = textOfType(target) + u'*'; // a made pointer isn't the same entry and means the same
            return text;
        }
        break;
    case DW_TAG_base_type:
    case DW_TAG_typedef:
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type:
    case DW_TAG_enumeration_type:
        text = type.qualifiedName();
        if (isMeant())
            return text;
        break;
    }
    if (type.unit() && type.unit()->cursor().remaining())
        text = entryTypePrefix.toString() + QString::number(type.unit()->offset(), 16) + u'_' +
               QString::number(type.offset(), 16);
    else
        text = m_types->typeName(type);
    return text;
}

// Descriptions

Expression *DwarfExpressionEvaluator::parseCached(const QString &text)
{
    constexpr size_t maximumExpressions = 10000;
    if (text.isEmpty())
        return nullptr;
    if (const auto known = m_expressions.find(text); known != m_expressions.end())
        return known->second.get();
    if (m_expressions.size() >= maximumExpressions)
        fail(u"too many expressions of type descriptions"_s);
    std::unique_ptr<Expression> &tree = m_expressions[text];
    try {
        tree = parse(text);
    } catch (const ParserException &error) {
        report(u"parsing "_s + text + u" caused exception "_s + error.message());
    }
    return tree.get();
}

ExpressionValue DwarfExpressionEvaluator::evaluateBound(Expression &expression, quint64 head, quint64 current)
{
    expression.bind(u"CURRENT"_s, current);
    expression.bind(u"HEAD"_s, head);
    return expression.evaluate();
}

const XMLElement *DwarfExpressionEvaluator::findDescription(const QString &name, QStringList &arguments)
{
    return findTypeDescription(typeDescriptionRoot(), name, arguments);
}

QString DwarfExpressionEvaluator::substitute(const TypeBindings &bindings, const QString &text)
{
    return bindings.substituted(*this, text);
}
