#include "base/HException.h"
#include "debug/disassembly/CodeListing.h"
#include "elf/ElfFile.h"

// An ELF file, mostly an object: its debug sections are relocated and its code is listed.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    try {
        ElfFile elf(true);
        elf.parse(ByteImage::fromBytes(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size))));
        DwarfFile dwarf;
        dwarf.load(elf, 0, false, false, elf.header().e_type == ET_EXEC);
        CodeListing code(elf, dwarf, true);
        int rows = 0;
        for (const ElfSection *section : code.sections()) {
            quint64 next = code.startOf(*section);
            code.list(*section, 0, ~quint32(0), [&](const CodeRow &row) {
                // The rows cover the section.
                if (row.address != next || row.bytes.empty() || row.bytes.size() != row.instruction.length)
                    __builtin_trap();
                next += row.instruction.length;
                ++rows;
            });
            if (rows > 2000)
                break;
        }
    } catch (const HException &) {
    }
    return 0;
}
