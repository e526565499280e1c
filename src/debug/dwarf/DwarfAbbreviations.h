#pragma once

#include "base/ByteCursor.h"
#include "debug/dwarf/DwarfNames.h"

#include <span>
#include <vector>

// What the size of a form depends on besides the form. Addresses are 4 bytes in every unit.
struct DwarfFormat
{
    quint8 offsetSize = 4;    // 8 in the 64-bit format
    quint8 referenceSize = 4; // of DW_FORM_ref_addr: an address in version 2, else an offset

    bool operator==(const DwarfFormat &) const = default;
};

// Moves over the value of one attribute; an unknown form has no bytes. See DwarfAttribute for reading one.
void skipDwarfForm(ByteCursor &cursor, quint32 form, DwarfFormat format);

struct DwarfAttributeSpecification
{
    quint32 name;
    quint32 form;
    qint64 implicitValue; // of DW_FORM_implicit_const
};

struct DwarfAbbreviation
{
    quint64 code;
    quint32 tag;
    bool hasChildren;
    // Where its rows stand in the table.
    quint32 firstAttribute, attributeCount;
    quint32 firstSkip, skipCount;
    // The form of DW_AT_name and its distance from the first attribute, if attributes of fixed size stand before
    // it; else 0.
    quint32 nameForm, nameOffset;
};

// One table of .debug_abbrev (DWARF 5, section 7.5.3): until a code of 0
//
//     code ULEB128, tag ULEB128, children 1 byte, { attribute ULEB128, form ULEB128 [, value SLEB128] }... 0 0
//
// Each abbreviation is also turned into the few steps that move over an entry's attributes: runs of a known
// size are one step, so that entries nobody asks for cost little.
class DwarfAbbreviationTable
{
public:
    // Reads up to the end of the table. An abbreviation with more than `maximumAttributes` ends the table.
    DwarfAbbreviationTable(ByteCursor cursor, DwarfFormat format);

    static constexpr quint32 maximumAttributes = 1024;

    bool isEmpty() const { return m_abbreviations.empty(); }
    qsizetype lengthBytes() const { return m_lengthBytes; } // in the section
    const std::vector<quint32> &unknownForms() const { return m_unknownForms; }
    bool hasSupplementaryForms() const { return m_hasSupplementaryForms; } // whose values are in another file

    // The index of a code for at(), or -1.
    qint32 indexOf(quint64 code) const
    {
        if (code - 1 < m_abbreviations.size() && m_abbreviations[code - 1].code == code)
            return qint32(code - 1); // compilers count codes from 1
        return search(code);
    }
    const DwarfAbbreviation &at(quint32 index) const { return m_abbreviations[index]; }
    std::span<const DwarfAttributeSpecification> attributes(const DwarfAbbreviation &abbreviation) const
    {
        return std::span(m_attributes).subspan(abbreviation.firstAttribute, abbreviation.attributeCount);
    }
    // Moves over all attributes of an entry.
    void skipAttributes(const DwarfAbbreviation &abbreviation, ByteCursor &cursor) const
    {
        for (quint32 i = 0; i < abbreviation.skipCount; ++i) {
            const Skip &skip = m_skips[abbreviation.firstSkip + i];
            if (skip.fixedBytes)
                cursor.skip(skip.fixedBytes);
            if (skip.form)
                skipDwarfForm(cursor, skip.form, m_format);
        }
    }

private:
    struct Skip
    {
        quint32 fixedBytes; // these first,
        quint32 form;       // then one value of this form, if it isn't 0
    };

    void addSkips(DwarfAbbreviation &abbreviation);
    qint32 search(quint64 code) const;

    DwarfFormat m_format;
    std::vector<DwarfAbbreviation> m_abbreviations; // sorted by code, first of equal ones first
    std::vector<DwarfAttributeSpecification> m_attributes;
    std::vector<Skip> m_skips;
    std::vector<quint32> m_unknownForms;
    bool m_hasSupplementaryForms = false;
    qsizetype m_lengthBytes = 0;
};
