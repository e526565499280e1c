#pragma once

#include "debug/dwarf/DwarfFile.h"

#include <QStringList>
#include <cstdarg>

// A file that keeps what is reported.
class TestDwarfFile : public DwarfFile
{
public:
    void reportError(const char *format, ...) override Q_ATTRIBUTE_FORMAT_PRINTF(2, 3)
    {
        va_list arguments;
        va_start(arguments, format);
        errors += QString::vasprintf(format, arguments);
        va_end(arguments);
    }
    void reportTrace(const char *format, ...) override Q_ATTRIBUTE_FORMAT_PRINTF(2, 3)
    {
        va_list arguments;
        va_start(arguments, format);
        traces += QString::vasprintf(format, arguments);
        va_end(arguments);
    }

    QStringList errors, traces;
};

// Asks everything that a debugger asks, so that damage is met wherever it is.
inline quint64 exerciseDwarf(DwarfFile &file)
{
    quint64 sum = file.publicNames().size() + file.publicTypes().size();
    for (DwarfCompilationUnit &unit : file.units()) {
        for (quint32 index = 0; index < unit.entryCount(); ++index) {
            const DwarfDebuggingInformationEntry entry = unit.entry(index);
            sum += entry.attributes().size() + quint64(entry.qualifiedName().size()) + entry.ranges().size();
            sum += entry.staticAddress() + entry.enclosingClass().offset();
            if (entry.has(DW_AT_type))
                sum += file.definitionOf(entry.target(DW_AT_type)).tag();
            if (const auto number = entry.number(DW_AT_decl_file))
                sum += quint64(unit.fileName(*number).size());
        }
    }
    sum += quint64(file.findType(QStringLiteral("device::Motor")).offset());
    sum += file.publicEntries(QStringLiteral("main")).size() + file.isTemplateName(QStringLiteral("Box"));
    for (const SourceLineRow &row : file.lineMap().rows()) {
        sum += quint64(file.symbolicLocationAt(row.address).function.size());
        sum += quint64(file.frames().stackUsage(row.address));
    }
    sum += quint64(file.lineMap().dump().size()) + quint64(file.frames().dump().size());
    return sum + file.variableAt(0x20000000).offset();
}
