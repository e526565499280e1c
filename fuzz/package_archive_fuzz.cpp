#include "base/HException.h"
#include "packages/archive/PackageArchive.h"

#include <sys/mman.h>
#include <unistd.h>

// Any bytes as an archive: loading, looking up, reading every member and the stream to its end.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int file = ::memfd_create("archive", MFD_CLOEXEC);
    static const QString path = QString::fromLatin1("/proc/self/fd/") + QString::number(file);
    if (::ftruncate(file, 0) != 0 || ::pwrite(file, data, size, 0) != ssize_t(size))
        return 0;
    try {
        PackageArchive archive;
        archive.setUnpackLimit(1 << 20);
        archive.load(path);
        archive.packageDescription();
        for (qsizetype i = 0; i < qMin(archive.fileCount(), qsizetype(16)); ++i) {
            PackageArchive::nameToBytes(archive.find(archive.file(i).name()).name());
            archive.readFile(archive.file(i));
        }
        archive.test();
    } catch (const HException &) {
    }
    return 0;
}
