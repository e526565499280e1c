#include "debug/dwarf/DwarfDebuggingInformationEntry.h"

#include "debug/dwarf/DwarfFile.h"

namespace {

// How far origins and namespaces are followed; real files need two or three steps.
constexpr int maximumSteps = 100;

bool isAddressForm(quint32 form)
{
    switch (form) {
    case DW_FORM_addr:
    case DW_FORM_addrx:
    case DW_FORM_addrx1:
    case DW_FORM_addrx2:
    case DW_FORM_addrx3:
    case DW_FORM_addrx4:
    case DW_FORM_GNU_addr_index: return true;
    }
    return false;
}

} // namespace

DwarfAttribute DwarfAttribute::ofNumber(quint32 name, quint64 value)
{
    return {.name = name, .form = DW_FORM_udata, .value = value};
}

DwarfAttribute DwarfAttribute::ofText(quint32 name, QByteArrayView text)
{
    return {.name = name,
            .form = DW_FORM_string,
            .valueClass = String,
            .value = quint64(text.size()),
            .data = reinterpret_cast<const quint8 *>(text.data())};
}

DwarfAttribute DwarfAttribute::ofEntry(quint32 name, const DwarfDebuggingInformationEntry &target)
{
    return {.name = name, .form = entryForm, .valueClass = Reference, .value = target.index(), .unit = target.unit()};
}

DwarfDebuggingInformationEntry DwarfAttribute::entry() const
{
    if (!unit)
        return {};
    switch (form) {
    case entryForm: return {unit, quint32(value)};
    case DW_FORM_ref_addr: return unit->file().entryAtGlobalOffset(quint32(std::min<quint64>(value, ~quint32(0))));
    case DW_FORM_ref_sig8: {
        DwarfCompilationUnit *typeUnit = unit->file().typeUnitOf(value);
        return typeUnit ? typeUnit->tree() : DwarfDebuggingInformationEntry();
    }
    case DW_FORM_GNU_ref_alt:
    case DW_FORM_ref_sup4:
    case DW_FORM_ref_sup8: return {}; // in a supplementary file
    }
    return valueClass == Reference && value < unit->length() ? unit->entryAt(quint32(value))
                                                             : DwarfDebuggingInformationEntry();
}

quint32 DwarfDebuggingInformationEntry::tag() const
{
    return m_unit ? m_unit->tagOf(m_index) : 0;
}

quint32 DwarfDebuggingInformationEntry::offset() const
{
    return m_unit ? m_unit->record(m_index).offset : 0;
}

DwarfDebuggingInformationEntry DwarfDebuggingInformationEntry::parent() const
{
    return m_unit ? m_unit->entryOrNone(m_unit->linkedRecord(m_index).parent) : DwarfDebuggingInformationEntry();
}

DwarfDebuggingInformationEntry DwarfDebuggingInformationEntry::child() const
{
    return m_unit ? m_unit->entryOrNone(m_unit->childOf(m_index)) : DwarfDebuggingInformationEntry();
}

DwarfDebuggingInformationEntry DwarfDebuggingInformationEntry::sibling() const
{
    return m_unit ? m_unit->entryOrNone(m_unit->linkedRecord(m_index).sibling) : DwarfDebuggingInformationEntry();
}

std::optional<DwarfAttribute> DwarfDebuggingInformationEntry::attribute(quint32 name) const
{
    return m_unit ? m_unit->attributeOf(m_index, name) : std::nullopt;
}

std::vector<DwarfAttribute> DwarfDebuggingInformationEntry::attributes() const
{
    return m_unit ? m_unit->attributesOf(m_index) : std::vector<DwarfAttribute>();
}

DwarfDebuggingInformationEntry DwarfDebuggingInformationEntry::origin() const
{
    auto reference = attribute(DW_AT_specification);
    if (!reference)
        reference = attribute(DW_AT_abstract_origin);
    return reference ? reference->entry() : DwarfDebuggingInformationEntry();
}

std::optional<DwarfAttribute> DwarfDebuggingInformationEntry::attributeResolved(quint32 name, bool climb) const
{
    int steps = 0;
    for (DwarfDebuggingInformationEntry scope = *this; scope;
         scope = climb ? scope.parent() : DwarfDebuggingInformationEntry()) {
        for (DwarfDebuggingInformationEntry entry = scope; entry && steps < maximumSteps;
             entry = entry.origin(), ++steps) {
            if (auto found = entry.attribute(name))
                return found;
        }
    }
    return {};
}

std::optional<quint64> DwarfDebuggingInformationEntry::number(quint32 name) const
{
    const auto found = attributeResolved(name);
    return found ? std::optional(found->value) : std::nullopt;
}

DwarfDebuggingInformationEntry DwarfDebuggingInformationEntry::target(quint32 name) const
{
    const auto found = attributeResolved(name);
    return found ? found->entry() : DwarfDebuggingInformationEntry();
}

QByteArrayView DwarfDebuggingInformationEntry::nameBytes() const
{
    const auto found = attributeResolved(DW_AT_name);
    return found ? found->text() : QByteArrayView();
}

QString DwarfDebuggingInformationEntry::qualifiedName() const
{
    QStringList steps(name());
    for (DwarfDebuggingInformationEntry scope = parent();
         scope.tag() == DW_TAG_namespace && steps.size() < maximumSteps; scope = scope.parent())
        steps.prepend(scope.name());
    return steps.join(QStringLiteral("::"));
}

QStringList DwarfDebuggingInformationEntry::scopes(bool withInline) const
{
    QStringList names;
    DwarfDebuggingInformationEntry entry = *this;
    for (int step = 0; step < maximumSteps; ++step) {
        const DwarfDebuggingInformationEntry declaration = entry.origin();
        entry = (declaration ? declaration : entry).parent();
        const quint32 tag = entry.tag();
        if (tag != DW_TAG_namespace && !isDwarfClassKind(tag) && tag != DW_TAG_enumeration_type)
            break;
        if (!entry.nameBytes().isEmpty() && (withInline || !entry.has(DW_AT_export_symbols)))
            names.prepend(entry.name());
    }
    return names;
}

bool DwarfDebuggingInformationEntry::goesBy(const QString &asked) const
{
    const auto isAsked = [&](const QStringList &scopes) { return (scopes + QStringList(name())).join(u"::") == asked; };
    return isAsked(scopes()) || isAsked(scopes(false));
}

DwarfDebuggingInformationEntry DwarfDebuggingInformationEntry::enclosingClass() const
{
    DwarfDebuggingInformationEntry entry = *this;
    for (int steps = 0; entry && steps < maximumSteps; ++steps) {
        for (DwarfDebuggingInformationEntry scope = entry.parent(); scope; scope = scope.parent()) {
            if (isDwarfClassKind(scope.tag()))
                return scope;
        }
        entry = entry.origin();
    }
    return {};
}

bool DwarfDebuggingInformationEntry::isDeclaration() const
{
    const auto declaration = attribute(DW_AT_declaration);
    return declaration && declaration->value != 0;
}

quint32 DwarfDebuggingInformationEntry::lowPc() const
{
    return quint32(number(DW_AT_low_pc).value_or(0)) & ~quint32(1);
}

quint32 DwarfDebuggingInformationEntry::highPc() const
{
    const auto high = attributeResolved(DW_AT_high_pc);
    if (!high)
        return 0;
    if (!isAddressForm(high->form))
        return lowPc() + quint32(high->value);
    // A marked low pc means a marked end.
    return quint32(high->value) - (quint32(number(DW_AT_low_pc).value_or(0)) & 1 & quint32(high->value));
}

std::vector<DwarfAddressRange> DwarfDebuggingInformationEntry::ranges() const
{
    if (const auto list = attribute(DW_AT_ranges); list && !attribute(DW_AT_high_pc))
        return m_unit->rangesAt(list->value);
    const DwarfAddressRange range = {lowPc(), highPc()};
    return range.start < range.end ? std::vector{range} : std::vector<DwarfAddressRange>();
}

quint32 DwarfDebuggingInformationEntry::staticAddress() const
{
    constexpr quint8 opAddr = 0x03, opAddrx = 0xA1, opGnuAddrIndex = 0xFB;
    const auto location = attribute(DW_AT_location);
    if (!location || location->block().empty())
        return 0;
    ByteCursor cursor(location->block(), m_unit->file().bigEndian());
    const quint8 operation = cursor.readU8();
    quint32 address = 0;
    if (operation == opAddr)
        address = cursor.readU32();
    else if (operation == opAddrx || operation == opGnuAddrIndex)
        address = m_unit->addressAt(cursor.readUleb128());
    return cursor.remaining() == 0 && !cursor.failed() ? address : 0;
}
