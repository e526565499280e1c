#pragma once

#include "elf/ElfFile.h"

#include <QStringList>

class CommandArguments;
class JsonWriter;

// The header tables of an ELF file as text lines, for the ELF view and for vnDump. All numbers are hexadecimal.
void listElfHeader(const ElfFile &file, QStringList &lines);
void listProgramHeaders(const ElfFile &file, QStringList &lines);
void listSectionHeaders(const ElfFile &file, QStringList &lines);

// The symbols in table order, a line each, as UTF-8.
QByteArray symbolLines(const ElfFile &file);

// Names by the standard; those that have none give their number.
QString segmentTypeName(quint32 type);
QString sectionTypeName(quint32 type); // "UNKNOWN section type" for what has none
const char *elfClassName(quint8 value);
const char *elfDataName(quint8 value);

// vnDump elf FILE [--header] [--segments] [--sections] [--symbols] [--all] [--json]; gives the exit status.
int dumpElf(const CommandArguments &arguments);
