#pragma once

#include "base/ByteCursor.h"

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

class DwarfCompilationUnit;

// A line number program (DWARF 5, section 6.2), versions 2 to 5, which stands apart from the version of the
// unit that it belongs to. The header is read by read(), the rows come from run().
class DwarfLineTable
{
public:
    struct Row
    {
        quint32 address; // of the file, no load offset
        qint32 line;
        quint32 file; // its number in this table
    };
    struct Rows
    {
        std::vector<Row> rows;                     // in the program's order
        quint32 lowest = ~quint32(0), highest = 0; // addresses of rows; lowest above highest: no rows
    };

    // The header at `offset` of .debug_line, or none when it is cut short or longer than the section. Paths of
    // relative files begin with the unit's compilation directory.
    static std::optional<DwarfLineTable> read(DwarfCompilationUnit &unit, quint64 offset);

    // Statement rows with a line, as a debugger wants them. In an executable, sequences at address 0 are what
    // the linker left of removed code; they are dropped. Files that the program defines join the table, so a
    // table is run once. What `result` held is replaced; its memory is used again.
    void run(bool isExecutable, Rows &result);

    quint16 version() const { return m_version; }
    qsizetype lengthBytes() const { return m_lengthBytes; } // of the whole contribution
    // The path of a file number as rows and DW_AT_decl_file have it: from 1, in version 5 from 0. Empty for a
    // number without a file. Tells the text that the table gives: a relative directory stays relative.
    QByteArray path(quint64 file) const;
    size_t fileCount() const { return m_files.size(); }
    // Numbers of files begin here.
    quint32 firstFile() const { return m_version >= 5 ? 0 : 1; }

private:
    struct File
    {
        QByteArrayView name;
        quint64 directory;
    };

    DwarfLineTable(DwarfCompilationUnit &unit, ByteCursor program) : m_unit(&unit), m_program(program) {}
    bool readHeader();
    bool readFileLists();            // versions 2 to 4
    bool readEntries(bool areFiles); // version 5
    void readFileEntry(ByteCursor &cursor, QByteArrayView name);

    DwarfCompilationUnit *m_unit;
    ByteCursor m_program; // behind the header
    QByteArrayView m_compilationDirectory;
    quint16 m_version = 0;
    quint8 m_offsetSize = 4;
    quint8 m_minimumInstructionLength = 1;
    bool m_defaultIsStatement = false;
    qint8 m_lineBase = 0;
    quint8 m_lineRange = 1;
    quint8 m_opcodeBase = 1;
    std::vector<quint8> m_operandCounts; // of the standard opcodes
    std::vector<QByteArrayView> m_directories;
    std::vector<File> m_files;
    qsizetype m_lengthBytes = 0;
};
