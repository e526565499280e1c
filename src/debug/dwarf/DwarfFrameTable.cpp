#include "debug/dwarf/DwarfFrameTable.h"

#include "debug/dwarf/DwarfFile.h"

#include <algorithm>

namespace {

enum CallFrameInstruction : quint8 { // DWARF 5, section 7.24
    CfaAdvanceLoc = 0x40,            // these three: high two bits, an operand in the low six
    CfaOffset = 0x80,
    CfaRestore = 0xC0,
    CfaNop = 0x00,
    CfaSetLoc = 0x01,
    CfaAdvanceLoc1 = 0x02,
    CfaAdvanceLoc2 = 0x03,
    CfaAdvanceLoc4 = 0x04,
    CfaOffsetExtended = 0x05,
    CfaRestoreExtended = 0x06,
    CfaUndefined = 0x07,
    CfaSameValue = 0x08,
    CfaRegister = 0x09,
    CfaRememberState = 0x0A,
    CfaRestoreState = 0x0B,
    CfaDefCfa = 0x0C,
    CfaDefCfaRegister = 0x0D,
    CfaDefCfaOffset = 0x0E,
    CfaDefCfaExpression = 0x0F,
    CfaExpression = 0x10,
    CfaOffsetExtendedSf = 0x11,
    CfaDefCfaSf = 0x12,
    CfaDefCfaOffsetSf = 0x13,
    CfaValOffset = 0x14,
    CfaValOffsetSf = 0x15,
    CfaValExpression = 0x16,
};

} // namespace

void DwarfFrameTable::setSection(ByteCursor section, quint32 loadOffset)
{
    m_section = section;
    m_loadOffset = loadOffset;
    m_hasIndex = false;
    m_descriptions.clear();
}

// An instruction as the trace and the listing show it.
template <typename... Operands>
void DwarfFrameTable::tell(const char *format, Operands... operands)
{
    if constexpr (sizeof...(operands) == 0) {
        tell("%s", format);
    } else {
        m_file->reportTrace(format, operands...);
        if (m_listing)
            m_listing->append(QString::asprintf(format, operands...).toLatin1());
    }
}

DwarfFrameTable::Entry DwarfFrameTable::readEntry(ByteCursor &section)
{
    Entry entry = {};
    entry.offset = quint32(section.offset());
    quint64 length = section.readU32();
    entry.offsetSize = 4;
    if (length == 0xFFFFFFFF) {
        length = section.readU64();
        entry.offsetSize = 8;
    }
    entry.content = section.take(length);
    entry.cieOffset = entry.content.readUnsigned(entry.offsetSize);
    entry.isCie = entry.cieOffset == (entry.offsetSize == 8 ? ~quint64(0) : 0xFFFFFFFF);
    return entry;
}

DwarfFrameTable::CommonInformation DwarfFrameTable::readCommonInformation(ByteCursor content)
{
    CommonInformation cie;
    cie.version = content.readU8();
    cie.augmentation = content.readString();
    if (cie.version > 3) {
        cie.addressSize = content.readU8();
        cie.segmentSize = content.readU8();
    }
    cie.codeAlignment = quint32(content.readUleb128());
    cie.dataAlignment = qint32(content.readSleb128());
    cie.returnRegister = content.readU8();
    cie.instructions = content;
    return cie;
}

void DwarfFrameTable::makeIndex()
{
    m_hasIndex = true;
    ByteCursor section = m_section;
    while (!section.atEnd()) {
        Entry entry = readEntry(section);
        if (entry.isCie || entry.content.failed() || entry.cieOffset >= quint64(m_section.remaining()))
            continue;
        const quint32 start = entry.content.readU32();
        const quint32 length = entry.content.readU32();
        if (entry.content.failed() || start == 0 || length == 0)
            continue; // at 0: a removed function
        m_descriptions.push_back({start, start + std::min(length - 1, ~start), entry.offset, 0});
    }
    std::ranges::stable_sort(m_descriptions, {}, &Description::start);
    quint32 highest = 0;
    for (Description &description : m_descriptions)
        description.highest = highest = std::max(highest, description.last);
}

// Of several descriptions of one address the first in the section counts.
const DwarfFrameTable::Description *DwarfFrameTable::descriptionOf(quint32 target)
{
    if (!m_hasIndex)
        makeIndex();
    const Description *found = nullptr;
    auto next = std::ranges::upper_bound(m_descriptions, target, {}, &Description::start);
    while (next != m_descriptions.begin() && (--next)->highest >= target) {
        if (next->last >= target && (!found || next->offset < found->offset))
            found = &*next;
    }
    return found;
}

bool DwarfFrameTable::computeRegisters(quint32 address, bool trackMaximum)
{
    if (m_section.remaining() == 0)
        return false;
    m_file->reportTrace("computeRegisters(0x%x)\n", address);
    m_target = address - m_loadOffset;
    m_rules.clear();
    m_initialRules.clear();
    m_savedRules.clear();
    if (trackMaximum)
        m_maximumOffset = 0;
    const Description *description = descriptionOf(m_target);
    if (!description)
        return false;
    ByteCursor section = m_section;
    section.seek(description->offset);
    Entry entry = readEntry(section);
    entry.content.skip(8);
    section.seek(entry.cieOffset);
    const Entry cieEntry = readEntry(section);
    m_cie = readCommonInformation(cieEntry.content);
    m_location = description->start;
    for (ByteCursor &cursor = m_cie.instructions; !cursor.atEnd();) {
        if (!step(cursor))
            break;
    }
    m_initialRules = m_rules;
    while (!entry.content.atEnd()) {
        const bool goesOn = step(entry.content);
        if (trackMaximum)
            m_maximumOffset = std::max(m_maximumOffset, m_rules[cfaKey].offset);
        else if (!goesOn)
            break;
    }
    return true;
}

qint32 DwarfFrameTable::stackUsage(quint32 address)
{
    return computeRegisters(address, true) ? m_maximumOffset : -1;
}

// False: the row for the target is complete.
bool DwarfFrameTable::advance(quint32 next)
{
    m_file->reportTrace("address range 0x%X-0x%X\n", m_location, next);
    if (next > m_target && m_target >= m_location) {
        m_file->reportTrace("address 0x%X hit in range(0x%X-0x%X\n", m_target, m_location, next);
        return false;
    }
    m_location = next;
    return true;
}

void DwarfFrameTable::setRule(qint64 key, const RegisterRule &rule)
{
    if (m_rules.size() < maximumRules || m_rules.contains(qint32(key)))
        m_rules[qint32(key)] = rule;
}

void DwarfFrameTable::restoreRule(qint64 key)
{
    const auto initial = m_initialRules.find(qint32(key));
    setRule(key, initial == m_initialRules.end() ? RegisterRule() : initial->second);
}

// One instruction. False when the run is to stop.
bool DwarfFrameTable::step(ByteCursor &cursor)
{
    using Kind = RegisterRule::Kind;
    const quint8 opcode = cursor.readU8();
    const auto readRegister = [&] { return qint32(cursor.readUleb128()); };
    const auto scaled = [&](qint64 factor) { return qint32(quint32(factor) * quint32(m_cie.dataAlignment)); };
    const auto cfa = [&] {
        const auto rule = m_rules.find(cfaKey);
        return rule == m_rules.end() ? RegisterRule{Kind::Value, 0, 0} : rule->second;
    };
    const auto advanceBy = [&](const char *text, quint32 delta) {
        tell(text, delta * m_cie.codeAlignment);
        return advance(m_location + delta * m_cie.codeAlignment);
    };
    const auto offsetRule = [&](const char *text, qint32 reg, qint64 factor) {
        tell(text, reg, qint32(factor), scaled(factor));
        setRule(reg, {Kind::Offset, 0, scaled(factor)});
        return true;
    };

    switch (opcode & 0xC0) {
    case CfaAdvanceLoc: return advanceBy("DW_CFA_advance_loc(%u)\n", opcode & 0x3F);
    case CfaOffset: return offsetRule("DW_CFA_offset(%d, %d, %d)\n", opcode & 0x3F, qint64(cursor.readUleb128()));
    case CfaRestore:
        tell("DW_CFA_restore(%d)\n", opcode & 0x3F);
        restoreRule(opcode & 0x3F);
        return true;
    }
    switch (opcode) {
    case CfaNop: tell("DW_CFA_nop\n"); return true;
    case CfaSetLoc: {
        const quint32 location = cursor.readU32();
        tell("DW_CFA_set_loc(0x%X)\n", location);
        return advance(location);
    }
    case CfaAdvanceLoc1: return advanceBy("DW_CFA_advance_loc1(%u)\n", cursor.readU8());
    case CfaAdvanceLoc2: return advanceBy("DW_CFA_advance_loc2(%u)\n", cursor.readU16());
    case CfaAdvanceLoc4: return advanceBy("DW_CFA_advance_loc4(%u)\n", cursor.readU32());
    case CfaOffsetExtended: {
        const qint32 reg = readRegister();
        return offsetRule("DW_CFA_offset_extended(%d, %d, %d)\n", reg, qint64(cursor.readUleb128()));
    }
    case CfaOffsetExtendedSf: {
        const qint32 reg = readRegister();
        return offsetRule("DW_CFA_offset_extended_sf(%d, %d, %d)\n", reg, cursor.readSleb128());
    }
    case CfaRestoreExtended: {
        const qint32 reg = readRegister();
        tell("DW_CFA_restore_extended(%d)\n", reg);
        restoreRule(reg);
        return true;
    }
    case CfaUndefined: {
        const qint32 reg = readRegister();
        tell("DW_CFA_undefined(%d)\n", reg);
        setRule(reg, {Kind::Undefined, 0, 0});
        return true;
    }
    case CfaSameValue: {
        const qint32 reg = readRegister();
        tell("DW_CFA_same_value(%d)\n", reg);
        setRule(reg, {Kind::SameValue, 0, 0});
        return true;
    }
    case CfaRegister: {
        const qint32 reg = readRegister();
        const qint32 source = readRegister();
        tell("DW_CFA_register(%d, %d)\n", reg, source);
        setRule(reg, {Kind::Register, source, 0});
        return true;
    }
    case CfaRememberState:
        tell("DW_CFA_remember_state\n");
        if (m_savedRules.size() < maximumSavedStates)
            m_savedRules.push_back(m_rules);
        return true;
    case CfaRestoreState:
        tell("DW_CFA_restore_state\n");
        if (!m_savedRules.empty()) {
            m_rules = std::move(m_savedRules.back());
            m_savedRules.pop_back();
        }
        return true;
    case CfaDefCfa: {
        const qint32 reg = readRegister();
        const qint32 offset = qint32(cursor.readUleb128());
        tell("DW_CFA_def_cfa(%d, %d)\n", reg, offset);
        setRule(cfaKey, {Kind::Value, reg, offset});
        return true;
    }
    case CfaDefCfaSf: {
        const qint32 reg = readRegister();
        const qint64 factor = cursor.readSleb128();
        tell("DW_CFA_def_cfa_sf(%d, %d, %d)\n", reg, qint32(factor), scaled(factor));
        setRule(cfaKey, {Kind::Value, reg, scaled(factor)});
        return true;
    }
    case CfaDefCfaRegister: {
        const qint32 reg = readRegister();
        tell("DW_CFA_def_cfa_register(%d)\n", reg);
        setRule(cfaKey, {Kind::Value, reg, cfa().offset});
        return true;
    }
    case CfaDefCfaOffset: {
        const qint32 offset = qint32(cursor.readUleb128());
        tell("DW_CFA_def_cfa_offset(%d)\n", offset);
        setRule(cfaKey, {Kind::Value, cfa().reg, offset});
        return true;
    }
    case CfaDefCfaOffsetSf: {
        const qint64 factor = cursor.readSleb128();
        tell("DW_CFA_def_cfa_offset_sf(%d, %d)\n", qint32(factor), scaled(factor));
        setRule(cfaKey, {Kind::Value, cfa().reg, scaled(factor)});
        return true;
    }
    case CfaDefCfaExpression:
        cursor.skip(cursor.readUleb128());
        m_file->reportError("DW_CFA_def_cfa_expression(length)\n");
        return false;
    case CfaExpression:
    case CfaValExpression: {
        const qint32 reg = readRegister();
        const quint64 length = cursor.readUleb128();
        cursor.skip(length);
        m_file->reportError(opcode == CfaExpression ? "DW_CFA_def_expression(%d, %d)\n"
                                                    : "DW_CFA_val_expression(%d, %d)\n",
                            reg, qint32(length));
        return false;
    }
    // Values that are no addresses can't be kept beside the CFA; the row ends with what came before.
    case CfaValOffset:
    case CfaValOffsetSf: {
        const qint32 reg = readRegister();
        const qint64 factor = opcode == CfaValOffset ? qint64(cursor.readUleb128()) : cursor.readSleb128();
        tell("DW_CFA_val_offset(%d, %d, %d)\n", reg, qint32(factor), scaled(factor));
        setRule(cfaKey, {Kind::Value, reg, scaled(factor)});
        return false;
    }
    }
    m_file->reportError("Unhandled DW_CFA opcode 0x%02x\n", opcode);
    return false;
}

QByteArray DwarfFrameTable::dump()
{
    QByteArray listing;
    m_listing = &listing;
    m_target = ~quint32(0);
    m_rules.clear();
    for (ByteCursor section = m_section; !section.atEnd();) {
        Entry entry = readEntry(section);
        if (entry.content.failed())
            break;
        const auto line = [&](const char *format, auto... values) {
            listing += QString::asprintf(format, values...).toLatin1();
        };
        const qsizetype length = section.offset() - entry.offset - (entry.offsetSize == 8 ? 12 : 4);
        line("\nlength: %d ", int(length));
        line("cie_id: 0x%X ", quint32(entry.cieOffset));
        ByteCursor instructions = entry.content;
        if (entry.isCie) {
            const CommonInformation cie = readCommonInformation(entry.content);
            line("CIE\nversion: %d\n", cie.version);
            listing.append("augmentation : ").append(cie.augmentation).append('\n');
            if (cie.version > 3)
                line("address size: %d\npointer size: %d\n", cie.addressSize, cie.segmentSize);
            line("code_alignment_factor: 0x%X\ndata_alignment_factor: 0x%X\n", cie.codeAlignment,
                 quint32(cie.dataAlignment));
            line("return_address_register: %d\n\n", cie.returnRegister);
            m_cie = cie;
            instructions = cie.instructions;
        } else {
            m_location = instructions.readU32();
            line("FDE initial_location: 0x%X ", m_location);
            line("address_range: 0x%X\n", instructions.readU32());
            ByteCursor cie = m_section;
            cie.seek(entry.cieOffset);
            m_cie = readCommonInformation(readEntry(cie).content);
        }
        while (!instructions.atEnd())
            step(instructions);
        m_savedRules.clear();
    }
    m_listing = nullptr;
    return listing;
}
