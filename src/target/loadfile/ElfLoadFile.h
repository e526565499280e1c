#pragma once

#include "elf/ElfFile.h"
#include "target/loadfile/LoadFile.h"

// What a loader takes from an ELF file: each allocated section with content that lies in a loadable segment, in file
// order, at its load (physical) address. The sections point into the file. Throws HException for a section that runs
// past the end of the file or of the address space.
void readElfSections(const ElfFile &elf, LoadFileSections &sections);

// An ELF file as a loader sees it.
class ElfLoadFile : public StandardLoadFile
{
public:
    // Throws what ElfFile::load() throws.
    explicit ElfLoadFile(const QString &path);

    bool hasAddressInformation() const override { return true; }
    bool hasDebugInformation() const override { return true; }
    bool readSections() override;

    ElfFile &elfFile() { return m_elf; }

private:
    ElfFile m_elf;
};
