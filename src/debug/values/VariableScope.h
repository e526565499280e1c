#pragma once

#include "debug/dwarf/DwarfFile.h"

// What a program can name where it stands.
struct VariableScope
{
    DwarfDebuggingInformationEntry function;                // none outside of functions
    std::vector<DwarfDebuggingInformationEntry> parameters; // of the function
    // Of the blocks around the address, the innermost block's first; an inlined function counts as a block, and
    // its parameters as variables.
    std::vector<DwarfDebuggingInformationEntry> locals;
    std::vector<DwarfDebuggingInformationEntry> globals; // of the unit, those in namespaces too; no declarations

    static VariableScope at(DwarfFile &file, quint32 address);
    // The function and the blocks in it around an address of the file, the outermost first.
    static std::vector<DwarfDebuggingInformationEntry> blocksAt(DwarfDebuggingInformationEntry function,
                                                                quint32 address);
};

// Where a variable is while the program stands at an address, as far as the file alone can tell.
struct VariableLocation
{
    enum Kind {
        None,      // nowhere, or nowhere at this address
        Address,   // in memory, at `address`
        Memory,    // in memory, at a place that depends on registers
        Register,  // in one register
        Registers, // in several
        Pieces,    // partly here and partly there
        Value,     // nowhere: the expression computes what it holds
        Constant,  // nowhere: the entry says what it holds
    };

    Kind kind = None;
    quint32 address = 0;                // with the load offset
    std::span<const quint8> expression; // in force; empty without one

    static VariableLocation of(DwarfDebuggingInformationEntry variable, quint32 programCounter);
};

// "memory"
const char *variableLocationName(VariableLocation::Kind kind);
