#pragma once

#include <QtGlobal>

class ElfDwarfFile;

// One activation of a function on the target.
class Frame
{
public:
    virtual ~Frame() = default;

    virtual quint32 readRegister(quint32 number) = 0; // by its DWARF number
    virtual quint32 programCounter() = 0;
    virtual quint32 frameValue() = 0;
    virtual quint32 canonicalFrameAddress() = 0;
};

// A frame of a program with DWARF information; location expressions take their file from it.
class ElfDwarfFrame : public Frame
{
public:
    explicit ElfDwarfFrame(ElfDwarfFile *file) : m_file(file) {}

    ElfDwarfFile *file() const { return m_file; }

private:
    ElfDwarfFile *m_file;
};
