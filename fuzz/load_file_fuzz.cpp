#include "base/HException.h"
#include "target/loadfile/TextLoadFiles.h"

#include <cstdlib>

namespace {

template <typename File>
std::unique_ptr<LoadFileInterface> read(const QByteArray &text)
{
    return std::make_unique<File>(ByteImage::fromBytes(text));
}

constexpr std::unique_ptr<LoadFileInterface> (*readers[])(const QByteArray &) = {
    read<IntelHexLoadFile>, read<HexLoadFile>, read<TIHexLoadFile>, read<SRecordLoadFile>};

} // namespace

// The first byte picks the reader. No section may pass the end of the address space, and joined sections span
// what the single ones did.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    try {
        const auto file = readers[data[0] % std::size(readers)](
            QByteArray(reinterpret_cast<const char *>(data) + 1, qsizetype(size) - 1));
        quint64 start = ~quint64(0), end = 0;
        for (const auto &section : file->sections().primary()) {
            start = std::min<quint64>(start, section->startAddress());
            end = std::max(end, section->endAddress());
        }
        if (end > quint64(1) << 32)
            std::abort();
        if (start < end && end - start < 1 << 20) {
            file->makeContiguous(0xFF);
            if (file->sections().primary().size() == 1 && file->sections().primarySize() != end - start)
                std::abort();
        }
    } catch (const HException &) {
    }
    return 0;
}
