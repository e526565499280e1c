#pragma once

#include "toolchain/Machine.h"

// What the files of a link tell about it.
struct LinkInputs
{
    std::optional<Machine> machine; // of the objects; none when there are none of a machine we know
    QString firstBitcode;           // a bitcode module among them, or an archive that holds one; empty: there is none
    bool hasCpp = false;            // some name in them is a C++ name
    QString entry;                  // the name that an entry point usually has, when an object defines it

    // Files that can't be read or are broken say nothing here; the linker tells what is wrong with them.
    static LinkInputs read(const QStringList &paths);
};
