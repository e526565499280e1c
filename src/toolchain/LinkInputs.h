#pragma once

#include "toolchain/Machine.h"

// What the files of a link tell about it.
struct LinkInputs
{
    std::optional<Machine> machine; // of the objects; none when there are none of a machine we know
    QStringList bitcode;            // the modules among them
    QStringList bitcodeArchives;    // archives that hold some
    bool hasCpp = false;            // some name in them is a C++ name
    QString entry;                  // the name that an entry point usually has, when an object defines it

    bool hasBitcode() const { return !bitcode.isEmpty() || !bitcodeArchives.isEmpty(); }

    // Files that can't be read or are broken say nothing here; the linker tells what is wrong with them.
    static LinkInputs read(const QStringList &paths);
};
