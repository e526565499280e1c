#pragma once

#include "debug/dwarf/ElfDwarfFile.h"

// A program whose bad debug information is told on standard error, each report once and not too many of them.
class ReportingFile : public ElfDwarfFile
{
public:
    // "-" is standard input. Throws what ElfFile::load() throws.
    explicit ReportingFile(const QString &path);

    std::unique_ptr<DwarfFile> createDwarfFile() override;
};
