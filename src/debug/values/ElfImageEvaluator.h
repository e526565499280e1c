#pragma once

#include "debug/values/DwarfExpressionEvaluator.h"
#include "debug/values/ElfImageMemory.h"

// Evaluates over a program as it lies in its file: initialised variables have their values, nothing runs. What
// needs registers or a frame throws.
class ElfImageEvaluator : public DwarfExpressionEvaluator
{
public:
    explicit ElfImageEvaluator(ElfDwarfFile &file) : m_memory(file.elf()) { setFile(&file); }

    ElfImageMemory &memory() { return m_memory; }
    // Shows types by these descriptions, which must outlive this.
    void setTypeDescriptions(const XMLElement *root) { m_descriptions = root; }

    TargetMemoryInterface *memoryOf(quint32, quint64) override { return &m_memory; }
    const XMLElement *typeDescriptionRoot() override { return m_descriptions; }
    quint32 readRegister(quint32 number) override;
    quint64 entryRegister(quint32 number) override { return readRegister(number); }
    quint32 canonicalFrameAddress() override;
    quint32 threadLocalBase() override;

private:
    ElfImageMemory m_memory;
    const XMLElement *m_descriptions = nullptr;
};
