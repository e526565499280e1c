#pragma once

#include <QtGlobal>
#include <elf.h>
#include <span>

// A program header in host order, and the segment's content in the image (empty when p_filesz is 0; shorter
// than p_filesz when the image ends before it does).
struct ElfSegment
{
    Elf32_Phdr header;
    std::span<quint8> content;

    bool isLoadable() const { return header.p_type == PT_LOAD && header.p_filesz != 0; }
};
