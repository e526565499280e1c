#pragma once

#include "toolchain/Machine.h"

// What the C library and compiled code call by name. Link-time optimisation sees nobody who needs them.
inline constexpr const char *libraryCallbacks[] = {
    "main",    "_exit", "_sbrk", "_write", "_read",  "_close",  "_fstat", "_isatty", "_lseek", "_kill",
    "_getpid", "_open", "_init", "_fini",  "memcpy", "memmove", "memset", "memcmp",  "abort",
};

// What the files of a link tell about it.
struct LinkInputs
{
    std::optional<Machine> machine; // of the objects; none when there are none of a machine we know
    QStringList bitcode;            // the modules among them
    QStringList bitcodeArchives;    // archives that hold some
    bool hasGccModules = false;     // there are -flto objects of GCC
    QStringList lateSymbols;        // of these: names that the C library calls, and that they have
    bool hasCpp = false;            // some name in them is a C++ name
    QString entry;                  // the name that an entry point usually has, when an object defines it

    bool hasBitcode() const { return !bitcode.isEmpty() || !bitcodeArchives.isEmpty(); }

    // Files that can't be read or are broken say nothing here; the linker tells what is wrong with them.
    static LinkInputs read(const QStringList &paths);
};
