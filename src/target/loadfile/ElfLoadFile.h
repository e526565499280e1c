#pragma once

#include "elf/ElfFile.h"
#include "target/loadfile/LoadFile.h"

// An ELF file as a loader sees it: each allocated section with content that lies in a loadable segment, in file
// order, at its load (physical) address.
class ElfLoadFile : public StandardLoadFile
{
public:
    // Throws what ElfFile::load() throws.
    explicit ElfLoadFile(const QString &path);

    bool hasAddressInformation() const override { return true; }
    bool hasDebugInformation() const override { return true; }
    // Throws HException for a section that runs past the end of the file or of the address space.
    bool readSections() override;

    ElfFile &elfFile() { return m_elf; }

private:
    ElfFile m_elf;
};
