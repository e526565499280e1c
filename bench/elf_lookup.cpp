// Loads an ELF file and looks one symbol up, by name or by address: elf_lookup FILE NAME|0xADDRESS
#include "elf/ElfFile.h"

#include <cstdio>

int main(int argumentCount, char **arguments)
{
    if (argumentCount != 3)
        return 2;
    ElfFile file;
    file.load(QString::fromLocal8Bit(arguments[1]));
    const QString wanted = QString::fromLocal8Bit(arguments[2]);
    bool isAddress = false;
    const quint32 address = wanted.toUInt(&isAddress, 0);
    const ElfSymbol *symbol = isAddress ? file.nearestSymbol(address) : file.symbolNamed(wanted);
    std::printf("0x%08x\n", symbol ? symbol->value() : 0);
    return symbol ? 0 : 1;
}
