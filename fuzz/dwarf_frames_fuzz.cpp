#include "debug/dwarf/DwarfFile.h"

// The input is a .debug_frame behind a byte that picks the order of bytes and a load offset.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    DwarfSections sections;
    sections.bigEndian = data[0] & 1;
    sections.frames = {data + 1, size - 1};
    DwarfFile file;
    file.load(sections, data[0] & 2 ? 0x1000 : 0);
    for (const quint32 address : {0u, 1u, 0x1000u, 0x1010u, 0x8000u, 0x8004u, 0x80FFu, 0x20000000u, 0xFFFFFFFFu}) {
        if (file.frames().computeRegisters(address) && file.frames().rules().size() > DwarfFrameTable::maximumRules)
            __builtin_trap();
        file.frames().stackUsage(address);
    }
    file.frames().dump();
    return 0;
}
