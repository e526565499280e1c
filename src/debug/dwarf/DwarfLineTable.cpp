#include "debug/dwarf/DwarfLineTable.h"

#include "debug/dwarf/DwarfFile.h"

#include <array>

namespace {

enum StandardOpcode : quint8 { // DWARF 5, section 6.2.5.2
    Extended = 0,
    Copy = 1,
    AdvancePc = 2,
    AdvanceLine = 3,
    SetFile = 4,
    SetColumn = 5,
    NegateStatement = 6,
    SetBasicBlock = 7,
    ConstAddPc = 8,
    FixedAdvancePc = 9,
    SetPrologueEnd = 10,
    SetEpilogueBegin = 11,
    SetIsa = 12,
};

enum ExtendedOpcode : quint8 { EndSequence = 1, SetAddress = 2, DefineFile = 3, SetDiscriminator = 4 };

enum EntryContent : quint64 { ContentPath = 1, ContentDirectory = 2 }; // DWARF 5, section 6.2.4.1

// The registers of the line number program (DWARF 5, section 6.2.2) that matter here.
struct LineState
{
    quint32 address = 0;
    quint32 addressSet = 0; // by the last DW_LNE_set_address
    quint32 line = 1;
    quint64 file = 1;
    bool isStatement;
};

} // namespace

std::optional<DwarfLineTable> DwarfLineTable::read(DwarfCompilationUnit &unit, quint64 offset)
{
    const DwarfSections &sections = unit.file().sections();
    ByteCursor section = sections.cursorAt(sections.lines, offset);
    quint64 length = section.readU32();
    const bool is64Bit = length == 0xFFFFFFFF;
    if (is64Bit)
        length = section.readU64();
    if (section.failed() || length > sections.lines.size())
        return {};
    // A program that runs past the section ends with it.
    const qsizetype start = section.offset();
    DwarfLineTable table(unit, section.take(std::min(length, quint64(section.remaining()))));
    table.m_offsetSize = is64Bit ? 8 : 4;
    table.m_lengthBytes = start - qsizetype(offset) + table.m_program.remaining();
    table.m_compilationDirectory = unit.compilationDirectory();
    if (!table.readHeader())
        return {};
    return table;
}

bool DwarfLineTable::readHeader()
{
    ByteCursor &cursor = m_program;
    m_version = cursor.readU16();
    if (m_version >= 5)
        cursor.skip(2);        // address_size, segment_selector_size
    cursor.skip(m_offsetSize); // header_length: the program begins behind the lists
    m_minimumInstructionLength = cursor.readU8();
    if (m_version >= 4)
        cursor.skip(1); // maximum_operations_per_instruction
    m_defaultIsStatement = cursor.readU8() != 0;
    m_lineBase = qint8(cursor.readU8());
    m_lineRange = cursor.readU8();
    m_opcodeBase = cursor.readU8();
    const std::span<const quint8> counts = cursor.readBytes(m_opcodeBase ? m_opcodeBase - 1u : 0u);
    m_operandCounts.assign(counts.begin(), counts.end());
    if (m_version < 5)
        return readFileLists();
    return readEntries(false) && readEntries(true);
}

bool DwarfLineTable::readFileLists()
{
    while (!m_program.failed()) {
        const QByteArrayView directory = m_program.readString();
        if (directory.isEmpty())
            break;
        m_directories.push_back(directory);
    }
    while (!m_program.failed()) {
        const QByteArrayView name = m_program.readString();
        if (name.isEmpty())
            break;
        readFileEntry(m_program, name);
    }
    return !m_program.failed();
}

// name, directory index, time, length, the last three ULEB128
void DwarfLineTable::readFileEntry(ByteCursor &cursor, QByteArrayView name)
{
    const quint64 directory = cursor.readUleb128();
    cursor.readUleb128();
    cursor.readUleb128();
    if (!cursor.failed())
        m_files.push_back({name, directory});
}

// A count and pairs of (content type, form), then a count of entries made up of these.
bool DwarfLineTable::readEntries(bool areFiles)
{
    std::vector<DwarfAttributeSpecification> formats(m_program.readU8());
    for (DwarfAttributeSpecification &format : formats) {
        format = {quint32(m_program.readUleb128()), quint32(m_program.readUleb128()), 0};
    }
    DwarfFormat tableFormat = m_unit->format();
    tableFormat.offsetSize = m_offsetSize; // assemblers write 32-bit tables for 64-bit units
    for (quint64 left = m_program.readUleb128(); left && !m_program.failed(); --left) {
        const quint8 *before = m_program.position();
        File entry = {};
        for (const DwarfAttributeSpecification &format : formats) {
            const DwarfAttribute value = m_unit->readAttribute(m_program, format, tableFormat);
            if (format.name == ContentPath)
                entry.name = value.text();
            else if (format.name == ContentDirectory)
                entry.directory = value.value;
        }
        if (m_program.position() == before)
            return false; // entries without bytes have no end
        if (areFiles)
            m_files.push_back(entry);
        else
            m_directories.push_back(entry.name);
    }
    return !m_program.failed();
}

QByteArray DwarfLineTable::path(quint64 number) const
{
    const quint64 index = number - firstFile();
    if (index >= m_files.size())
        return {};
    const File &file = m_files[index];
    if (file.name.startsWith('/'))
        return file.name.toByteArray();
    const auto join = [](QByteArrayView directory, QByteArrayView name) {
        QByteArray path;
        path.reserve(directory.size() + 1 + name.size());
        if (!directory.isEmpty())
            path.append(directory).append('/');
        return path.append(name);
    };
    if (m_version < 5) {
        if (file.directory == 0)
            return join(m_compilationDirectory, file.name);
        return join(file.directory <= m_directories.size() ? m_directories[file.directory - 1] : QByteArrayView(),
                    file.name);
    }
    // Directory 0 is the compilation directory, and the others count from it.
    const QByteArrayView base = m_directories.empty() ? m_compilationDirectory : m_directories[0];
    if (file.directory == 0 || file.directory >= m_directories.size())
        return join(base, file.name);
    const QByteArrayView directory = m_directories[file.directory];
    return directory.startsWith('/') ? join(directory, file.name) : join(join(base, directory), file.name);
}

void DwarfLineTable::run(bool isExecutable, Rows &result)
{
    result.rows.clear();
    result.lowest = ~quint32(0);
    result.highest = 0;
    if (m_lineRange == 0) {
        m_unit->file().reportError("line_range 0 in the line table of unit 0x%x\n", m_unit->offset());
        return;
    }
    // What a special opcode does, by opcode.
    struct Advance
    {
        quint32 address;
        qint32 line;
    };
    std::array<Advance, 256> advances;
    for (quint32 opcode = m_opcodeBase; opcode < advances.size(); ++opcode) {
        const quint32 adjusted = opcode - m_opcodeBase;
        advances[opcode] = {adjusted / m_lineRange * m_minimumInstructionLength,
                            m_lineBase + qint32(adjusted % m_lineRange)};
    }
    const quint32 constAdvance = quint32(255 - m_opcodeBase) / m_lineRange * m_minimumInstructionLength;

    ByteCursor cursor = m_program;
    const LineState start{.isStatement = m_defaultIsStatement};
    LineState state = start;
    const auto emit = [&] {
        if (state.line == 0 || !state.isStatement || (isExecutable && (state.addressSet == 0 || state.address == 0)))
            return;
        result.rows.push_back({state.address, qint32(state.line), quint32(state.file)});
        result.lowest = std::min(result.lowest, state.address);
        result.highest = std::max(result.highest, state.address);
    };
    while (!cursor.atEnd()) {
        const quint8 opcode = cursor.readU8();
        if (opcode >= m_opcodeBase) {
            state.address += advances[opcode].address;
            state.line += quint32(advances[opcode].line);
            emit();
            continue;
        }
        switch (opcode) {
        case Extended: {
            const quint64 length = cursor.readUleb128();
            ByteCursor operand = cursor.take(length);
            if (length == 0)
                break;
            const quint8 extended = operand.readU8();
            switch (extended) {
            case EndSequence: state = start; break;
            case SetAddress:
                state.address = state.addressSet =
                    quint32(operand.readUnsigned(operand.remaining() >= 8 ? 8 : quint32(operand.remaining())));
                break;
            case DefineFile: {
                const QByteArrayView name = operand.readString();
                readFileEntry(operand, name);
                break;
            }
            case SetDiscriminator: break;
            default:
                m_unit->file().reportError("[0x%08x] unknown DW_EXTENDED_OPCODE %d\n", quint32(operand.offset() - 1),
                                           extended);
            }
            break;
        }
        case Copy: emit(); break;
        case AdvancePc: state.address += quint32(cursor.readUleb128()) * m_minimumInstructionLength; break;
        case AdvanceLine: state.line += quint32(cursor.readSleb128()); break;
        case SetFile: state.file = cursor.readUleb128(); break;
        case SetColumn:
        case SetIsa: cursor.readUleb128(); break;
        case NegateStatement: state.isStatement = !state.isStatement; break;
        case SetBasicBlock:
        case SetPrologueEnd:
        case SetEpilogueBegin: break;
        case ConstAddPc: state.address += constAdvance; break;
        case FixedAdvancePc: state.address += cursor.readU16(); break;
        default:
            m_unit->file().reportError("[0x%08x] unknown DW_OPCODE %d\n", quint32(cursor.offset() - 1), opcode);
            for (quint8 count = m_operandCounts[opcode - 1]; count; --count)
                cursor.readUleb128();
        }
    }
}
