#pragma once

#include <QString>

class ElfFile;
class ElfSymbol;

// A symbol by its name: as the linker has it, as a declaration, or as one without its parameters. Null without one.
const ElfSymbol *symbolOfName(const ElfFile &elf, const QString &name);

// A symbol by an address: the function or object that holds it, else the nearest one. Null without one.
const ElfSymbol *symbolOfAddress(const ElfFile &elf, quint32 address);
