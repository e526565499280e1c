#include "base/HException.h"
#include "debug/dwarf/DwarfFile.h"
#include "elf/ElfFile.h"

// An object with its debug information, as text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FILE *const nowhere = std::fopen("/dev/null", "w");
    try {
        ElfFile elf(true);
        elf.parse(ByteImage::fromBytes(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size))));
        elf.dump(nowhere);
        DwarfFile dwarf;
        dwarf.load(elf);
        dwarf.dump(nowhere);
    } catch (const HException &) {
    }
    return 0;
}
