#include "debug/dwarf/DwarfAbbreviations.h"

#include <algorithm>

namespace {

constexpr int variableSize = -1, unknownForm = -2;

// The bytes of a form's value, if the form alone tells.
int sizeOfForm(quint32 form, DwarfFormat format)
{
    switch (form) {
    case DW_FORM_flag_present:
    case DW_FORM_implicit_const: return 0;
    case DW_FORM_data1:
    case DW_FORM_ref1:
    case DW_FORM_flag:
    case DW_FORM_strx1:
    case DW_FORM_addrx1: return 1;
    case DW_FORM_data2:
    case DW_FORM_ref2:
    case DW_FORM_strx2:
    case DW_FORM_addrx2: return 2;
    case DW_FORM_strx3:
    case DW_FORM_addrx3: return 3;
    case DW_FORM_addr:
    case DW_FORM_data4:
    case DW_FORM_ref4:
    case DW_FORM_ref_sup4:
    case DW_FORM_strx4:
    case DW_FORM_addrx4: return 4;
    case DW_FORM_data8:
    case DW_FORM_ref8:
    case DW_FORM_ref_sig8:
    case DW_FORM_ref_sup8: return 8;
    case DW_FORM_data16: return 16;
    case DW_FORM_strp:
    case DW_FORM_line_strp:
    case DW_FORM_sec_offset:
    case DW_FORM_strp_sup:
    case DW_FORM_GNU_ref_alt:
    case DW_FORM_GNU_strp_alt: return format.offsetSize;
    case DW_FORM_ref_addr: return format.referenceSize;
    case DW_FORM_string:
    case DW_FORM_block:
    case DW_FORM_block1:
    case DW_FORM_block2:
    case DW_FORM_block4:
    case DW_FORM_exprloc:
    case DW_FORM_sdata:
    case DW_FORM_udata:
    case DW_FORM_ref_udata:
    case DW_FORM_strx:
    case DW_FORM_addrx:
    case DW_FORM_loclistx:
    case DW_FORM_rnglistx:
    case DW_FORM_GNU_addr_index:
    case DW_FORM_GNU_str_index:
    case DW_FORM_indirect: return variableSize;
    default: return unknownForm;
    }
}

bool isSupplementaryForm(quint32 form)
{
    switch (form) {
    case DW_FORM_strp_sup:
    case DW_FORM_ref_sup4:
    case DW_FORM_ref_sup8:
    case DW_FORM_GNU_ref_alt:
    case DW_FORM_GNU_strp_alt: return true;
    }
    return false;
}

} // namespace

void skipDwarfForm(ByteCursor &cursor, quint32 form, DwarfFormat format)
{
    if (form == DW_FORM_indirect) {
        form = quint32(cursor.readUleb128());
        if (form == DW_FORM_indirect)
            return cursor.fail(); // leads nowhere
    }
    switch (form) {
    case DW_FORM_string: cursor.readString(); return;
    case DW_FORM_block1: cursor.skip(cursor.readU8()); return;
    case DW_FORM_block2: cursor.skip(cursor.readU16()); return;
    case DW_FORM_block4: cursor.skip(cursor.readU32()); return;
    case DW_FORM_block:
    case DW_FORM_exprloc: cursor.skip(cursor.readUleb128()); return;
    }
    const int size = sizeOfForm(form, format);
    if (size >= 0)
        cursor.skip(quint32(size));
    else if (size == variableSize)
        cursor.readUleb128();
}

DwarfAbbreviationTable::DwarfAbbreviationTable(ByteCursor cursor, DwarfFormat format) : m_format(format)
{
    const qsizetype start = cursor.offset();
    while (!cursor.atEnd()) {
        DwarfAbbreviation abbreviation = {};
        abbreviation.code = cursor.readUleb128();
        if (abbreviation.code == 0)
            break;
        abbreviation.tag = quint32(cursor.readUleb128());
        abbreviation.hasChildren = cursor.readU8() != 0;
        abbreviation.firstAttribute = quint32(m_attributes.size());
        for (;;) {
            DwarfAttributeSpecification specification = {};
            specification.name = quint32(cursor.readUleb128());
            specification.form = quint32(cursor.readUleb128());
            if (specification.name == 0 || specification.form == 0)
                break;
            if (specification.form == DW_FORM_implicit_const)
                specification.implicitValue = cursor.readSleb128();
            m_attributes.push_back(specification);
        }
        abbreviation.attributeCount = quint32(m_attributes.size()) - abbreviation.firstAttribute;
        if (cursor.failed() || abbreviation.attributeCount > maximumAttributes)
            break;
        addSkips(abbreviation);
        m_abbreviations.push_back(abbreviation);
    }
    m_lengthBytes = cursor.offset() - start;
    if (!std::ranges::is_sorted(m_abbreviations, {}, &DwarfAbbreviation::code))
        std::ranges::stable_sort(m_abbreviations, {}, &DwarfAbbreviation::code);
    std::ranges::sort(m_unknownForms);
    m_unknownForms.erase(std::unique(m_unknownForms.begin(), m_unknownForms.end()), m_unknownForms.end());
}

void DwarfAbbreviationTable::addSkips(DwarfAbbreviation &abbreviation)
{
    abbreviation.firstSkip = quint32(m_skips.size());
    quint32 fixedBytes = 0;
    for (const DwarfAttributeSpecification &specification : attributes(abbreviation)) {
        const int size = sizeOfForm(specification.form, m_format);
        if (specification.name == DW_AT_name && m_skips.size() == abbreviation.firstSkip && !abbreviation.nameForm) {
            abbreviation.nameForm = specification.form;
            abbreviation.nameOffset = fixedBytes;
        }
        m_hasSupplementaryForms = m_hasSupplementaryForms || isSupplementaryForm(specification.form);
        if (size >= 0) {
            fixedBytes += quint32(size);
        } else if (size == variableSize) {
            m_skips.push_back({fixedBytes, specification.form});
            fixedBytes = 0;
        } else {
            m_unknownForms.push_back(specification.form);
        }
    }
    if (fixedBytes)
        m_skips.push_back({fixedBytes, 0});
    abbreviation.skipCount = quint32(m_skips.size()) - abbreviation.firstSkip;
}

qint32 DwarfAbbreviationTable::search(quint64 code) const
{
    const auto found = std::ranges::lower_bound(m_abbreviations, code, {}, &DwarfAbbreviation::code);
    return found != m_abbreviations.end() && found->code == code ? qint32(found - m_abbreviations.begin()) : -1;
}
