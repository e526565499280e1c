// The part of DwarfExpressionEvaluator that finds what a name stands for.
#include "debug/values/DwarfExpressionEvaluator.h"

#include "base/ByteOrder.h"
#include "debug/values/VariableScope.h"
#include "elf/ElfFile.h"
#include "expression/ParserException.h"

using namespace Qt::StringLiterals;

namespace {

bool isObject(quint32 tag)
{
    return tag == DW_TAG_formal_parameter || tag == DW_TAG_subprogram || tag == DW_TAG_variable;
}

bool isInFunction(DwarfDebuggingInformationEntry entry)
{
    constexpr int maximumSteps = 100;
    for (int step = 0; entry && step < maximumSteps; ++step) {
        if (entry.tag() == DW_TAG_subprogram || entry.tag() == DW_TAG_lexical_block)
            return true;
        entry = entry.parent();
    }
    return false;
}

} // namespace

// The scopes

DwarfDebuggingInformationEntry DwarfExpressionEvaluator::enclosingFunction()
{
    return hasFrame() ? dwarf().subprogramAt(scopePc()) : Entry();
}

std::optional<VarInfo *> DwarfExpressionEvaluator::lookupAtSourcePosition(const QString &name)
{
    const auto [path, line] = sourcePosition();
    if (path.isEmpty() || !line)
        return {};
    for (const Entry &entry : dwarf().globalVariables(name)) {
        const auto file = entry.attributeResolved(DW_AT_decl_file);
        if (file && entry.number(DW_AT_decl_line) == line && file->unit->fileName(file->value) == path)
            return markerOf(entry);
    }
    return {};
}

std::optional<VarInfo *> DwarfExpressionEvaluator::lookupInFunction(Entry function, const QString &name)
{
    const QByteArray wanted = name.toUtf8();
    const auto blocks = VariableScope::blocksAt(function, scopePc() - dwarf().loadOffset());
    for (auto block = blocks.rbegin(); block != blocks.rend(); ++block) {
        for (Entry child = block->child(); child; child = child.sibling()) {
            if (isObject(child.tag()) && !child.isDeclaration() && child.nameBytes() == wanted)
                return markerOf(child);
        }
    }
    return {};
}

// The object whose method runs.
VarInfo *DwarfExpressionEvaluator::thisOf(Entry function)
{
    for (Entry child = function.child(); child; child = child.sibling()) {
        if (child.tag() == DW_TAG_formal_parameter && child.nameBytes() == "this")
            return markerOf(child);
    }
    return nullptr;
}

VarInfo *DwarfExpressionEvaluator::lookupThroughThis(Entry function, const QString &name)
{
    const Entry enclosing = function.enclosingClass();
    if (!enclosing)
        return nullptr;
    VarInfo *object = thisOf(function);
    if (!object) { // a static method knows the static members
        for (const TypeMember &member : membersOf(enclosing)) {
            if (member.isStatic && member.name == name)
                return staticMember(enclosing, member);
            if (member.name == name)
                throw ParserException(u"this symbol not found"_s);
        }
        return nullptr;
    }
    const Entry classType = plainType(plainType(object->type).target(DW_AT_type));
    VarInfo target = makePlace(VarInfo::Memory, 0, classType, m_types->sizeOf(classType));
    target.isThroughThis = true;
    if (!hasField(classType, name))
        return nullptr;
    target.address = readValue(*object).asUnsigned();
    return findField(target, classType, name);
}

std::optional<VarInfo *> DwarfExpressionEvaluator::lookupInUnit(Entry function, const QString &name)
{
    DwarfCompilationUnit *unit = function.unit();
    if (!unit) {
        const auto units = hasFrame() ? dwarf().unitsAt(scopePc()) : std::vector<DwarfCompilationUnit *>();
        if (units.empty())
            return {};
        unit = units.front();
    }
    QStringList scopes = function.scopes();
    const QByteArray bytes = name.toUtf8();
    const auto named = unit->entriesNamed(bytes);
    for (;; scopes.removeLast()) { // from the innermost outwards
        for (const Entry &entry : named) {
            if (isObject(entry.tag()) && !isInFunction(entry.parent()) && entry.scopes() == scopes)
                return markerOf(entry);
        }
        if (scopes.isEmpty())
            return {};
    }
}

std::optional<VarInfo *> DwarfExpressionEvaluator::lookupQualified(const QString &name)
{
    for (auto entries : {dwarf().publicEntries(name), dwarf().globalVariables(name)}) {
        std::erase_if(entries, [](const Entry &entry) { return entry.isDeclaration(); });
        if (!entries.empty())
            return markerOf(entries.front());
    }
    return {};
}

// What only the linker knows.
VarInfo *DwarfExpressionEvaluator::lookupSymbol(const QString &name)
{
    const ElfSymbol *symbol = m_file ? m_file->elf().symbolNamed(name) : nullptr;
    if (!symbol)
        return nullptr;
    const quint32 address = symbol->value() + dwarf().loadOffset();
    if (symbol->type() != STT_OBJECT)
        return keep(makePlace(VarInfo::Constant, address, m_types->defaultType(), DwarfTypes::wordSize));
    const Entry type = symbol->size() > DwarfTypes::wordSize
                           ? m_synthetic->arrayOf(m_synthetic->base(SyntheticTypes::UnsignedChar), symbol->size())
                           : m_synthetic->intTypeOfSize(symbol->size());
    return keep(makePlace(VarInfo::Memory, address, type, m_types->sizeOf(type)));
}

VarInfo *DwarfExpressionEvaluator::lookup(const QString &name)
{
    if (const auto found = lookupAtSourcePosition(name))
        return *found;
    const Entry function = enclosingFunction();
    if (function) {
        if (const auto found = lookupInFunction(function, name))
            return *found;
        if (VarInfo *member = lookupThroughThis(function, name))
            return member;
    }
    if (const auto found = lookupInUnit(function, name))
        return *found;
    if (const auto found = lookupQualified(name))
        return *found;
    if (VarInfo *symbol = lookupSymbol(name))
        return symbol;
    return static_cast<VarInfo *>(ExpressionParser::lookup(name)); // throws
}

// Names behind each other

VarInfo *DwarfExpressionEvaluator::lookupScoped(const QStringList &names)
{
    const QString name = names.join(u"::"_s);
    if (const auto found = lookupQualified(name))
        return *found;
    const Entry function = enclosingFunction();
    if (names.size() == 2 && function.enclosingClass().name() == names.front()) {
        if (VarInfo *member = lookupThroughThis(function, names.back()))
            return member;
    }
    if (VarInfo *member = lookupInTypes(names))
        return member;
    if (VarInfo *constant = lookupEnumerator(names))
        return constant;
    if (VarInfo *variable = lookupInFunctionNamed(names))
        return variable;
    VarInfo *object = nullptr;
    try {
        object = lookup(names.front());
    } catch (const ParserException &) {
        return static_cast<VarInfo *>(ExpressionParser::lookupScoped(names)); // throws
    }
    return object ? fieldPath(object, names.mid(1)) : nullptr;
}

// A variable within a function that isn't running: only one that is always there has a place.
VarInfo *DwarfExpressionEvaluator::lookupInFunctionNamed(const QStringList &names)
{
    const QByteArray wanted = names.back().toUtf8();
    for (const Entry &function : dwarf().publicEntries(names.first(names.size() - 1).join(u"::"_s))) {
        if (function.tag() != DW_TAG_subprogram)
            continue;
        for (Entry child = function.child(); child; child = child.sibling()) {
            if (child.tag() == DW_TAG_variable && !child.isDeclaration() && child.nameBytes() == wanted)
                return markerOf(child);
        }
    }
    return nullptr;
}

// A static member or an enumerator of a type that the first names stand for.
VarInfo *DwarfExpressionEvaluator::lookupInTypes(const QStringList &names)
{
    for (qsizetype count = 1; count < names.size(); ++count) {
        const Entry type = plainType(typeNamed(names.first(count).join(u"::"_s)));
        if (!type || names.size() - count != 1)
            continue;
        for (Entry child = type.child(); child; child = child.sibling()) {
            if (child.tag() == DW_TAG_enumerator && child.name() == names.back())
                return markerOf(child);
        }
        for (const TypeMember &member : membersOf(type)) {
            if (member.isStatic && member.name == names.back())
                return staticMember(type, member);
        }
    }
    return nullptr;
}

VarInfo *DwarfExpressionEvaluator::lookupEnumerator(const QStringList &names)
{
    for (const Entry &entry : dwarf().publicEntries(names.back())) {
        if (entry.tag() != DW_TAG_enumerator)
            continue;
        QStringList scopes = entry.scopes();
        if (scopes == names.first(names.size() - 1))
            return markerOf(entry);
        if (DwarfTypes::isEnumeration(entry.parent()) && !entry.parent().name().isEmpty())
            scopes.removeLast(); // one that isn't scoped stands beside its type
        if (scopes == names.first(names.size() - 1))
            return markerOf(entry);
    }
    return nullptr;
}

// Places of entries

VarInfo *DwarfExpressionEvaluator::markerOf(Entry entry)
{
    Entry type = entry.target(DW_AT_type);
    if (entry.tag() == DW_TAG_enumerator && !type)
        type = entry.parent();
    if (const auto location = entry.attributeResolved(DW_AT_location)) {
        const std::span<const quint8> expression = expressionOf(*location);
        if (expression.empty())
            return nullptr;
        beforeLocation(memoryKind());
        return placeOfStack(run(entry, expression), type ? type : m_synthetic->base(SyntheticTypes::UnsignedInt));
    }
    if (entry.has(DW_AT_low_pc) || entry.has(DW_AT_ranges)) {
        const auto ranges = entry.ranges();
        const quint32 start = ranges.empty() ? entry.lowPc() : ranges.front().start;
        const quint32 size = ranges.empty() ? 0 : ranges.front().end - ranges.front().start;
        const bool isFunction = entry.tag() == DW_TAG_subprogram;
        return keep(makePlace(VarInfo::Constant, start + dwarf().loadOffset(), isFunction ? entry : type, size));
    }
    const auto constant = entry.attributeResolved(DW_AT_const_value);
    if (!constant)
        return nullptr;
    VarInfo place = makePlace(VarInfo::Constant, constant->value, type, m_types->sizeOf(type));
    if (constant->valueClass == DwarfAttribute::Block || constant->valueClass == DwarfAttribute::String) {
        place.address = 0;
        place.bytes = QByteArray(reinterpret_cast<const char *>(constant->data), qsizetype(constant->value));
        if (constant->valueClass == DwarfAttribute::String)
            place.bytes += '\0';
    }
    return keep(place);
}

VarInfo *DwarfExpressionEvaluator::placeOfStack(const std::vector<DwarfStackValue> &stack, Entry type)
{
    const quint32 size = m_types->sizeOf(type);
    if (stack.empty())
        return nullptr;
    const DwarfStackValue &first = stack.front();
    if (stack.size() == 1 && !first.bitSize && (!first.pieceSize || first.pieceSize >= size)) {
        switch (first.kind) {
        case DwarfStackValue::Plain: return keep(makePlace(memoryKind(), quint32(first.value), type, size));
        case DwarfStackValue::Value: return keep(makePlace(VarInfo::Constant, first.value, type, size));
        case DwarfStackValue::Register: {
            VarInfo place = makePlace(VarInfo::Register, first.value, type, size);
            if (bigEndian() && size < DwarfTypes::wordSize)
                place.offset = DwarfTypes::wordSize - size; // the low bytes
            return keep(place);
        }
        case DwarfStackValue::Missing:
        case DwarfStackValue::Pointer: return nullptr;
        }
    }
    if (const auto set = registerSetOf(stack))
        return keep(makePlace(VarInfo::Register, *set, type, size));
    if (std::ranges::all_of(stack, [](const auto &piece) { return piece.kind == DwarfStackValue::Missing; }))
        return nullptr;
    VarInfo place = makePlace(VarInfo::Constant, 0, type, size);
    place.bytes = compose(stack, bigEndian(), size);
    return keep(place);
}
