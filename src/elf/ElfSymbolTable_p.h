#pragma once

#include "elf/ElfFile.h"

// The symbols of a file and the orders in which they are looked up, made at the first look-up.
struct ElfFile::SymbolTable
{
    explicit SymbolTable(ElfFile &file);

    ElfSymbol *at(quint32 index) { return arm.empty() ? &plain[index] : &arm[index]; }
    void sortByValue(std::vector<ElfSymbol *> &symbols);

    // One of the two has all the symbols, by index.
    std::vector<ElfSymbol> plain;
    std::vector<ARMElfSymbol> arm;

    std::vector<ElfSymbol *> named;             // in table order: those that have a place in the name order
    std::vector<ElfSymbol *> byName;            // made by symbolsByName()
    std::vector<ElfSymbol *> byAddress;         // sorted by value
    std::vector<ElfSymbol *> mapping;           // "$" symbols in loadable sections, sorted by value
    std::vector<ElfSymbol *> others;            // neither by name nor by address
    int scans = 0;                              // look-ups of raw names so far that went without an index
    QHash<QString, ElfSymbol *> demangledIndex; // made by the first look-up of a name
    QHash<QByteArrayView, ElfSymbol *> rawIndex;
};
