#include "base/HException.h"
#include "elf/ElfArchive.h"

// An archive or an object, walked by name and by address.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    try {
        if (ElfArchive::isArchive({data, size})) {
            ElfArchive archive(true);
            archive.parse(ByteImage::fromBytes(bytes));
            archive.memberDefining("one");
            return 0;
        }
        ElfFile file(true);
        file.parse(ByteImage::fromBytes(bytes));
        for (const ElfSymbol *symbol : file.symbolsByName()) {
            file.functionSymbolAt(symbol->value() + 1, true, true);
            file.mappingSymbolAt(symbol->value(), file.sectionOfSymbol(symbol));
        }
        char block[64];
        file.read(file.header().e_entry, sizeof block, false, block, 0, false);
        for (const auto &section : file.sections())
            section->data();
    } catch (const HException &) {
    }
    return 0;
}
