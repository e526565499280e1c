#pragma once

#include "base/ByteCursor.h"

#include <map>
#include <vector>

class DwarfFile;

// How a register of the caller is found.
struct RegisterRule
{
    enum Kind : quint32 {
        Undefined,
        SameValue,
        Offset,       // saved at CFA + offset
        Register,     // held in `reg`
        Value,        // is `reg` + offset
        Architecture, // the machine's own way
    };

    Kind kind = SameValue;
    qint32 reg = 0;
    qint32 offset = 0;

    bool operator==(const RegisterRule &) const = default;
};

// The call-frame information of .debug_frame (DWARF 5, section 6.4): for an address the rule of each register
// and of the canonical frame address (CFA).
//
//     CIE: length, 0xFFFFFFFF, version 1, augmentation text, [version 4: address size 1, segment size 1],
//          code_alignment_factor ULEB128, data_alignment_factor SLEB128, return_address_register 1, instructions
//     FDE: length, offset of its CIE, initial_location 4, address_range 4, instructions
//
// Lengths and offsets are 4 bytes; with a length of 0xFFFFFFFF an entry is in the 64-bit format and the length
// behind it, the CIE offset and a CIE's mark are 8 bytes.
//
// The table is the working state of the interpreter: the result of one request is read before the next.
class DwarfFrameTable
{
public:
    static constexpr qint32 cfaKey = -1; // of the CFA's rule among the registers'; its kind is Value

    explicit DwarfFrameTable(DwarfFile &file) : m_file(&file) {}
    void setSection(ByteCursor section, quint32 loadOffset);

    // False when nothing describes the code at `address`. Else rules() holds the row for it; with
    // `trackMaximum` the whole description has been run and rules() holds its last row.
    bool computeRegisters(quint32 address, bool trackMaximum = false);
    const std::map<qint32, RegisterRule> &rules() const { return m_rules; }
    quint8 returnRegister() const { return m_cie.returnRegister; } // of the last request

    // The largest distance of the CFA from its register in the function at `address`, in bytes, or -1 when
    // nothing describes it.
    qint32 stackUsage(quint32 address);

    // Every entry in the section's order, instructions decoded.
    QByteArray dump();

    // Foreign bytes can't make a table larger than these; what is beyond is ignored.
    static constexpr size_t maximumRules = 512, maximumSavedStates = 128;

private:
    struct Entry // the head of a CIE or FDE
    {
        quint32 offset;
        bool isCie;
        quint64 cieOffset;
        quint8 offsetSize;
        ByteCursor content; // behind the head
    };
    struct Description // FDE
    {
        quint32 start, last; // both included
        quint32 offset;      // in the section
        quint32 highest;     // `last` of all up to this one in the order by start
    };
    struct CommonInformation
    {
        quint8 version = 0;
        QByteArrayView augmentation;
        quint8 addressSize = 0, segmentSize = 0; // from version 4
        quint32 codeAlignment = 1;
        qint32 dataAlignment = 1;
        quint8 returnRegister = 0;
        ByteCursor instructions;
    };

    template <typename... Operands>
    void tell(const char *format, Operands... operands);
    static Entry readEntry(ByteCursor &section);
    static CommonInformation readCommonInformation(ByteCursor content);
    void makeIndex();
    const Description *descriptionOf(quint32 target);
    bool step(ByteCursor &cursor);
    bool advance(quint32 next);
    void setRule(qint64 key, const RegisterRule &rule);
    void restoreRule(qint64 key);

    DwarfFile *m_file;
    ByteCursor m_section;
    quint32 m_loadOffset = 0;
    bool m_hasIndex = false;
    std::vector<Description> m_descriptions; // by start, those of one start in the section's order

    std::map<qint32, RegisterRule> m_rules, m_initialRules;
    std::vector<std::map<qint32, RegisterRule>> m_savedRules;
    quint32 m_location = 0, m_target = 0;
    CommonInformation m_cie; // of the last request
    qint32 m_maximumOffset = 0;
    QByteArray *m_listing = nullptr; // during dump()
};
