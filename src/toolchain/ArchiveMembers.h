#pragma once

#include <QtGlobal>
#include <span>
#include <vector>

// The contents of an archive's members in their order, without the symbol index and the table of long names. What
// a damaged archive holds up to the damage. The format is drawn at ElfArchive, which looks members up by symbol and
// knows only those that are ELF.
std::vector<std::span<const quint8>> archiveMembers(std::span<const quint8> archive);

// LLVM's bitstream, bare or in the wrapper that some targets put before it.
bool isBitcode(std::span<const quint8> bytes);
