#include "debug/values/DisplayTree.h"

#include "debug/values/DescribedRows.h"
#include "debug/values/PushedBlock.h"
#include "elf/ElfFile.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 maximumText = 1024; // bytes

// An expression to which members and indices can be added.
QString asOperand(const QString &expression)
{
    static const QRegularExpression postfix(u"^[\\w$@:]+(\\.|->|[\\w$:]|\\[\\w+\\])*$"_s);
    return postfix.match(expression).hasMatch() ? expression : u'(' + expression + u')';
}

} // namespace

// Rows

ExpressionValue DisplayTree::summaryOf(Entry type)
{
    const quint32 tag = type.tag();
    return ExpressionValue::ofText(tag == DW_TAG_class_type   ? u"<class>"_s
                                   : tag == DW_TAG_union_type ? u"<union>"_s
                                                              : u"<struct>"_s);
}

bool DisplayTree::takeRow()
{
    if (++m_rows <= m_maximumRows)
        return true;
    m_isTruncated = true;
    return false;
}

QString DisplayTree::typeName(Entry type)
{
    const auto [found, isNew] = m_typeNames.try_emplace({type.unit(), type.index()});
    if (isNew)
        found->second = m_evaluator.types().typeName(type);
    return found->second;
}

DisplayTree::Row DisplayTree::rowAt(const QString &name, const QString &expression, Entry type, const VarInfo &place)
{
    const quint32 cursor = place.kind == VarInfo::Register ? 0 : block().position();
    return {name, expression, typeName(type), place.toString(cursor)};
}

// What stands at the cursor of a place in memory, as a place of its own.
VarInfo DisplayTree::placeAtCursor(const VarInfo &place, Entry type)
{
    VarInfo here = place;
    here.offset += block().position();
    here.type = type;
    here.size = m_evaluator.types().sizeOf(type);
    here.bitOffset = 0;
    here.bitSize = 0;
    return here;
}

void DisplayTree::addValue(const Row &row, const ExpressionValue &value)
{
    m_builder.addValue(row.name, row.expression, value, row.typeName, row.location);
}

void DisplayTree::addError(const Row &row, const QString &message)
{
    m_builder.addError(row.name, row.expression, message, row.typeName, row.location);
}

template <typename Read>
void DisplayTree::addRow(const Row &row, Read read)
{
    ExpressionValue value;
    try {
        value = read();
    } catch (const HException &error) {
        return addError(row, error.message());
    }
    addValue(row, value);
}

VariableListBuilder::Token DisplayTree::beginStruct(const Row &row, const ExpressionValue &value)
{
    ++m_level;
    return m_builder.beginStruct(row.name, row.expression, value, row.typeName, row.location);
}

void DisplayTree::endStruct(VariableListBuilder::Token token)
{
    --m_level;
    m_builder.endStruct(token);
}

VariableListBuilder::Token DisplayTree::beginArray(const Row &row, const ExpressionValue &value)
{
    ++m_level;
    return m_builder.beginArray(row.name, row.expression, value, row.typeName, row.location);
}

void DisplayTree::endArray(VariableListBuilder::Token token)
{
    --m_level;
    m_builder.endArray(token);
}

// The walk

void DisplayTree::show(const QString &name, const QString &expression, const ExpressionValue &value)
{
    m_builder.begin(name);
    const auto *place = dynamic_cast<const VarInfo *>(value.marker());
    if (!place)
        m_builder.addValue(name, expression, value, value.typeName(), {});
    else
        expandVariable(name, expression, VarInfo(*place));
}

void DisplayTree::expandVariable(const QString &name, const QString &expression, const VarInfo &place, int depth)
{
    const QString full = place.isThroughThis && depth == 0 ? u"this->"_s + expression : expression;
    if (place.isBitField()) {
        if (takeRow())
            addValue({name, full, typeName(place.type), place.toString(0)}, m_evaluator.readValue(place));
        return;
    }
    const PushedBlock pushed(m_evaluator, place, m_evaluator.isLazy());
    if (!place.type) {
        if (takeRow())
            addValue({name, full, u"void"_s, place.toString(0)}, m_evaluator.readEntry({}));
        return;
    }
    expand(name, full, place.type, place, depth);
}

void DisplayTree::expand(const QString &name, const QString &expression, Entry type, const VarInfo &place, int depth)
{
    if (depth > maximumDepth || !takeRow())
        return;
    const Description description = descriptionOf(type, place);
    if (description.element) {
        const quint32 start = block().position();
        DescribedRows rows(*this, type, description.arguments, depth);
        const bool isApplied = rows.apply(*description.element, name, expression, placeAtCursor(place, type));
        block().setPosition(start);
        if (isApplied) {
            block().skip(m_evaluator.types().sizeOf(type));
            return;
        }
    }
    expandByTag(name, expression, type, place, depth);
}

void DisplayTree::expandByTag(const QString &name, const QString &expression, Entry type, const VarInfo &place,
                              int depth)
{
    switch (type.tag()) {
    case DW_TAG_array_type: return expandArray(name, expression, type, place, depth);
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type: return expandStruct(name, expression, type, place, u"."_s, depth);
    case DW_TAG_pointer_type:
    case DW_TAG_reference_type:
    case DW_TAG_rvalue_reference_type: return expandPointer(name, expression, type, place, depth);
    case DW_TAG_typedef:
    case DW_TAG_const_type:
    case DW_TAG_volatile_type:
    case DW_TAG_restrict_type:
    case DW_TAG_atomic_type: {
        const Entry target = type.target(DW_AT_type);
        if (target)
            return expand(name, expression, target, place, depth + 1);
        break;
    }
    case DW_TAG_subroutine_type:
    case DW_TAG_subprogram: {
        const Row row = rowAt(name, expression, type, place);
        return addRow(row, [&] { return ExpressionValue::ofText(functionNames(place)); });
    }
    case DW_TAG_base_type:
        if (type.number(DW_AT_encoding) == DW_ATE_complex_float)
            return expandComplex(rowAt(name, expression, type, place), type, place);
        break;
    }
    addRow(rowAt(name, expression, type, place), [&] { return m_evaluator.readEntry(type); });
}

void DisplayTree::expandComplex(const Row &row, Entry type, const VarInfo &place)
{
    const quint32 half = m_evaluator.types().sizeOf(type) / 2;
    const QString part = half == 8 ? u"double"_s : u"float"_s;
    const auto token = beginStruct(row, ExpressionValue::ofText(u"<complex>"_s));
    for (const QString &function : {u"creal"_s, u"cimag"_s}) {
        const QString name = function + u'(' + row.expression + u')';
        addRow({name, name, part, rowAt(name, name, type, place).location},
               [&] { return ExpressionValue::ofFloat(m_evaluator.readFloat(half), half); });
    }
    endStruct(token);
}

// "handler;Reset_Handler"
QString DisplayTree::functionNames(const VarInfo &place)
{
    if (!m_evaluator.file())
        return {};
    ElfFile &elf = m_evaluator.file()->elf();
    const quint32 offset = m_evaluator.file()->dwarf().loadOffset();
    quint32 address = place.isMemory() ? quint32(place.address) + place.offset + block().position()
                                       : quint32(block().readInteger(DwarfTypes::wordSize));
    if (elf.isArm())
        address &= ~quint32(1); // tells the instruction set
    QStringList names;
    QList<ElfSymbol *> symbols;
    elf.symbolsAt(address - offset, nullptr, symbols);
    for (const ElfSymbol *symbol : symbols) {
        if (symbol->isFunction() && !names.contains(symbol->name()))
            names += symbol->name();
    }
    return names.join(u';');
}

// Structures

void DisplayTree::expandStruct(const QString &name, const QString &expression, Entry type, const VarInfo &place,
                               const QString &separator, int depth)
{
    if (depth > maximumDepth)
        return;
    const quint32 start = block().position();
    const bool isPointer = separator == u"->";
    Row row = rowAt(name, expression, type, place);
    if (isPointer)
        row.typeName += u'*';
    if (m_evaluator.isRaw()) {
        const quint32 size = m_evaluator.types().sizeOf(type);
        addRow(row, [&] { return ExpressionValue::ofUnsigned(block().readInteger(size), size); });
    } else if (name.isEmpty()) {
        expandMembers(expression, type, place, separator, depth);
    } else {
        const ExpressionValue value =
            isPointer ? ExpressionValue::ofUnsigned(place.address + place.offset + start, DwarfTypes::wordSize)
                      : summaryOf(type);
        const auto token = beginStruct(row, value);
        if (m_level <= m_maximumLevel)
            expandMembers(depth == 0 || isPointer ? asOperand(expression) : expression, type, place, separator, depth);
        endStruct(token);
    }
    block().setPosition(start);
    block().skip(m_evaluator.types().sizeOf(type));
}

void DisplayTree::expandMembers(const QString &expression, Entry type, const VarInfo &place, const QString &separator,
                                int depth)
{
    const quint32 start = block().position();
    type = m_evaluator.plainType(type);
    for (const TypeMember &member : m_evaluator.membersOf(type)) {
        if (m_isTruncated)
            return;
        if (member.isBase) {
            expandBase(expression, type, member, place, start, depth);
            continue;
        }
        if (member.isStatic) {
            expandStatic(type, member, depth);
            continue;
        }
        if (!member.offset || m_evaluator.isHidden(member.name))
            continue;
        block().setPosition(start + *member.offset);
        QString memberName = member.name;
        memberName.replace(u'.', u'$');
        const QString memberExpression = expression + separator + memberName;
        if (member.isBitField())
            expandBitField({memberName, memberExpression, typeName(member.type), {}}, type, member, place, start);
        else if (member.name.isEmpty() && isDwarfClassKind(member.type.tag()))
            expandStruct(memberName, expression, member.type, place, separator, depth + 1);
        else if (!member.name.isEmpty())
            expand(memberName, memberExpression, member.type, place, depth + 1);
    }
    block().setPosition(start);
    if (m_builder.showVirtualFunctions(expression))
        expandFunctions(expression, type, place, separator, depth);
}

void DisplayTree::expandBase(const QString &expression, Entry type, const TypeMember &member, const VarInfo &place,
                             quint32 start, int depth)
{
    const Entry base = m_evaluator.plainType(member.type);
    if (!base || base == type || !takeRow())
        return;
    const QString baseExpression = expression + u"::"_s + member.name;
    auto offset = member.offset;
    try {
        if (!offset && place.isMemory())
            offset = m_evaluator.dynamicOffset(member, quint32(place.address) + place.offset + start);
        if (!offset)
            return;
        block().setPosition(start + *offset);
        expandStruct({}, baseExpression, base, place, u"."_s, depth + 1);
    } catch (const HException &error) { // of a virtual base, whose place is told by a table in memory
        addError({member.name, baseExpression, typeName(base), {}}, error.message());
    }
}

void DisplayTree::expandStatic(Entry type, const TypeMember &member, int depth)
{
    if (m_evaluator.plainType(member.type) == type || m_evaluator.isHidden(member.name))
        return; // an object of the class in the class would show it again
    const size_t mark = m_evaluator.resultCount();
    const QString expression = type.qualifiedName() + u"::"_s + member.name;
    try {
        if (const VarInfo *variable = m_evaluator.staticMember(type, member))
            expandVariable(member.name, expression, VarInfo(*variable), depth + 1);
    } catch (const ParserException &) { // the program has no such variable
    } catch (const HException &error) {
        addError({member.name, expression, typeName(member.type), {}}, error.message());
    }
    m_evaluator.dropResults(mark);
}

// The functions of a class, each by the symbols at its address.
void DisplayTree::expandFunctions(const QString &expression, Entry type, const VarInfo &place, const QString &separator,
                                  int depth)
{
    for (Entry child = type.child(); child; child = child.sibling()) {
        if (child.tag() != DW_TAG_subprogram || child.has(DW_AT_artificial))
            continue;
        const QString name = child.name(), text = expression + separator + name;
        try {
            const quint32 address = addressOfFunction(type, child, place);
            if (!address)
                continue; // there is no code of it
            const Entry function = m_evaluator.file()->dwarf().subprogramAt(address & ~quint32(1));
            const VarInfo code = m_evaluator.makePlace(VarInfo::Memory, address, function ? function : child, 0);
            const PushedBlock pushed(m_evaluator, code, true);
            expand(name, text, code.type, code, depth + 1);
        } catch (const HException &error) {
            addError({name, text, typeName(child), {}}, error.message());
        }
    }
}

// Of a virtual function as the object's table has it, of any other its own; 0 for one without code.
quint32 DisplayTree::addressOfFunction(Entry type, Entry function, const VarInfo &place)
{
    DwarfFile &dwarf = m_evaluator.file()->dwarf();
    const auto element = function.attributeResolved(DW_AT_vtable_elem_location);
    if (function.number(DW_AT_virtuality).value_or(0) && element && place.isMemory()) {
        const auto stack = m_evaluator.runFrom(function, element->block(), 0);
        const quint32 index = stack.empty() ? quint32(element->value) : quint32(stack.back().value);
        const quint32 table = m_evaluator.readWord(quint32(place.address) + place.offset + block().position());
        return m_evaluator.readWord(table + index * DwarfTypes::wordSize);
    }
    const auto linkageName = [](Entry entry) {
        const auto name = entry.attributeResolved(DW_AT_linkage_name);
        return name ? name->text() : QByteArrayView();
    };
    for (const Entry &other : dwarf.publicEntries(type.qualifiedName() + u"::"_s + function.name())) {
        if (other.tag() == DW_TAG_subprogram && other.lowPc() && linkageName(other) == linkageName(function))
            return other.lowPc() + dwarf.loadOffset();
    }
    return 0;
}

void DisplayTree::expandBitField(const Row &row, Entry type, const TypeMember &member, const VarInfo &place,
                                 quint32 start)
{
    if (!takeRow())
        return;
    const auto bits = m_evaluator.bitPlaceOf(member, m_evaluator.types().sizeOf(type));
    VarInfo field = place;
    field.size = bits.size;
    field.bitOffset = bits.bitOffset;
    field.bitSize = member.bitSize;
    Row located = row;
    located.location = field.toString(place.kind == VarInfo::Register ? 0 : start + bits.offset);
    block().setPosition(start + bits.offset);
    addRow(located, [&] {
        const quint64 value = block().readBitField(0, bits.size, bits.bitOffset, member.bitSize);
        return m_evaluator.bitFieldValue(member.type, value, bits.size, member.bitSize);
    });
}

// Arrays

// Up to `count` bytes at the cursor, which stays; of an array without bound the text that is there.
QByteArray DisplayTree::textBytes(quint32 count)
{
    QByteArray bytes(qsizetype(count ? std::min(count, maximumText) : maximumText), '\0');
    const quint32 start = block().position();
    if (count)
        block().readBytes(quint32(bytes.size()), bytes.data());
    else
        bytes.truncate(qsizetype(block().readString(maximumText, bytes.data())));
    block().setPosition(start);
    return bytes;
}

void DisplayTree::expandArray(const QString &name, const QString &expression, Entry type, const VarInfo &place,
                              int depth)
{
    DwarfTypes &types = m_evaluator.types();
    const Entry element = type.target(DW_AT_type);
    const quint32 elementSize = types.sizeOf(element);
    std::vector<quint32> dimensions;
    quint64 product = 1;
    for (const auto &dimension : types.dimensions(type)) {
        dimensions.push_back(quint32(std::min<quint64>(dimension.value_or(0), ~quint32(0))));
        product = std::min<quint64>(product * dimensions.back(), ~quint32(0));
    }
    const quint32 whole = dimensions.empty() ? 0 : quint32(product);
    quint32 count = whole;
    const Row row = rowAt(name, expression, type, place);
    const auto mode = m_builder.arrayMode(expression, row.typeName, &count);
    count = std::min(count, whole);
    const quint32 start = block().position();
    const auto text = [&](bool quote) { return ExpressionValue::ofCText(textBytes(whole), true, quote); };
    const auto summary = [&] { return elementSize == 1 ? text(true) : ExpressionValue::ofText(u"<array>"_s); };
    const bool hasTexts = mode != VariableListBuilder::Elements && elementSize == 1 && dimensions.size() > 1;
    if (hasTexts && isBelowLimit()) { // several: one row each
        const auto token = beginArray(row, ExpressionValue::ofText(u"<array>"_s));
        const QString operand = depth == 0 ? asOperand(expression) : expression;
        const Entry inner = m_evaluator.synthetic().withoutFirst(type, types.dimensions(type));
        const quint32 innerSize = types.sizeOf(inner);
        for (quint32 i = 0; i < dimensions.front() && !m_isTruncated; ++i) {
            const QString index = u'[' + QString::number(i) + u']';
            block().setPosition(start + i * innerSize);
            expand(index, operand + index, inner, place, depth + 1);
        }
        endArray(token);
    } else if (mode == VariableListBuilder::Text) {
        Row textRow = row;
        textRow.typeName = u"char *"_s;
        addRow(textRow, [&] { return text(false); });
    } else if (mode != VariableListBuilder::Elements || !isBelowLimit()) {
        addRow(row, summary);
    } else {
        ExpressionValue value;
        try {
            value = summary();
        } catch (const HException &error) {
            return addError(row, error.message());
        }
        const auto token = beginArray(row, value);
        const QString operand = depth == 0 ? asOperand(expression) : expression;
        for (quint32 i = 0; i < count && !m_isTruncated; ++i) {
            QString index;
            quint32 rest = i;
            for (auto dimension = dimensions.rbegin(); dimension != dimensions.rend(); ++dimension) {
                index.prepend(u'[' + QString::number(rest % *dimension) + u']');
                rest /= *dimension;
            }
            block().setPosition(start + i * elementSize);
            expand(index, operand + index, element, place, depth + 1);
        }
        endArray(token);
    }
    block().setPosition(start);
    block().skip(quint32(std::min<quint64>(quint64(whole) * elementSize, ~quint32(0))));
}

// Pointers

void DisplayTree::expandPointer(const QString &name, const QString &expression, Entry type, const VarInfo &place,
                                int depth)
{
    const Entry target = type.target(DW_AT_type);
    Row row = rowAt(name, expression, type, place);
    row.typeName = target ? typeName(target) + u'*' : u"void *"_s;
    ExpressionValue value;
    try {
        value = m_evaluator.readEntry(type);
    } catch (const HException &error) {
        return addError(row, error.message());
    }
    const quint32 pointer = quint32(value.asUnsigned());
    quint32 count = 0;
    const auto mode = m_builder.pointerMode(expression, typeName(target), pointer, &count);
    const bool canFollow = target && pointer && m_evaluator.isValidAddress(pointer) && isBelowLimit();
    if (mode == VariableListBuilder::Text && pointer) {
        try {
            const QByteArray text = m_evaluator.readCString(VarInfo::Memory, pointer, maximumText).toLatin1();
            row.typeName = u"char *"_s;
            return addValue(row, ExpressionValue::ofCText(text, true, false));
        } catch (const HException &) { // there is no text: the pointer is what can be told
        }
    }
    if (mode == VariableListBuilder::Follow && canFollow)
        followPointer(row, target, pointer, depth);
    else if (mode == VariableListBuilder::Elements && canFollow)
        listBehindPointer(row, target, pointer, count, depth);
    else
        addValue(row, value);
}

void DisplayTree::followPointer(const Row &row, Entry target, quint32 pointer, int depth)
{
    const Entry plain = m_evaluator.plainType(target);
    VarInfo behind = m_evaluator.makePlace(VarInfo::Memory, pointer, target, m_evaluator.types().sizeOf(target));
    const PushedBlock pushed(m_evaluator, behind, true);
    if (isDwarfClassKind(plain.tag()) && !descriptionOf(plain, behind).element)
        return expandStruct(row.name, row.expression, plain, behind, u"->"_s, depth + 1);
    const auto token = beginStruct(row, ExpressionValue::ofUnsigned(pointer, DwarfTypes::wordSize));
    if (m_level <= m_maximumLevel)
        expand(u"*"_s, u"*("_s + row.expression + u')', target, behind, depth + 1);
    endStruct(token);
}

void DisplayTree::listBehindPointer(const Row &row, Entry target, quint32 pointer, quint32 count, int depth)
{
    const quint32 size = m_evaluator.types().sizeOf(target);
    const VarInfo behind = m_evaluator.makePlace(VarInfo::Memory, pointer, target, count * size);
    const PushedBlock pushed(m_evaluator, behind, true);
    Row arrayRow = row;
    arrayRow.typeName = u"%1[%2]"_s.arg(typeName(target)).arg(count);
    const auto token = beginArray(arrayRow, ExpressionValue::ofUnsigned(pointer, DwarfTypes::wordSize));
    const QString operand = asOperand(row.expression);
    for (quint32 i = 0; i < count && !m_isTruncated; ++i) {
        const QString index = u'[' + QString::number(i) + u']';
        block().setPosition(i * size);
        expand(index, operand + index, target, behind, depth + 1);
    }
    endArray(token);
}

// Descriptions

DisplayTree::Description DisplayTree::descriptionOf(Entry type, const VarInfo &place)
{
    if (DwarfTypes::isArray(type) || !place.isMemory())
        return {};
    const VarInfo here = placeAtCursor(place, type);
    if (const XMLElement *own = m_builder.typeDescription(ExpressionValue::ofMarker(const_cast<VarInfo *>(&here))))
        return {own, {}};
    const auto [found, isNew] = m_descriptions.try_emplace({type.unit(), type.index()});
    if (isNew) {
        Description &description = found->second;
        for (const QString &name : {type.qualifiedName(), typeName(type)}) {
            if (!description.element && !name.isEmpty())
                description.element = m_evaluator.findDescription(name, description.arguments);
        }
    }
    return found->second;
}
