// What cc reads of foreign bytes: the attributes of objects, the members of archives, memory maps and section
// placements, from which it writes a linker script.

#include "base/HException.h"
#include "elf/ElfFile.h"
#include "toolchain/ArchiveMembers.h"
#include "toolchain/LinkerScript.h"
#include "toolchain/Machine.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The documents are read by name: the bytes lie in a file without one.
void readPlacement(const uint8_t *data, size_t size)
{
    static const int file = memfd_create("placement", 0);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != ssize_t(size))
        return;
    const QString path = u"/proc/self/fd/%1"_s.arg(file);
    try {
        SectionPlacement::readMemoryMap(path, u"A=1"_s);
    } catch (const HException &) {
    }
    const SectionPlacement placement(
        SectionPlacement::readSegmentList(u"FLASH RX 0 0x1000;RAM RWX 0x20000000 0x1000"_s), path, u"A=1"_s);
    LinkerScript(placement, u"main"_s).text();
}

void readObject(const uint8_t *data, size_t size)
{
    for (const std::span<const quint8> member : archiveMembers({data, size}))
        isBitcode(member);
    ElfFile file;
    file.parse(ByteImage::fromBytes(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size))));
    machineOf(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const bool isText = size > 0 && data[0] == '<';
    try {
        isText ? readPlacement(data, size) : readObject(data, size);
    } catch (const HException &) {
    }
    return 0;
}
