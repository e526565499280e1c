#include "toolchain/LinkInputs.h"

#include "base/HException.h"
#include "elf/ElfArchive.h"

using namespace Qt::StringLiterals;

namespace {

// The most telling first.
constexpr const char *entryNames[] = {"Reset_Handler", "_start", "reset_handler", "__start"};

QByteArrayView viewOf(std::span<const quint8> bytes)
{
    return {bytes.data(), qsizetype(bytes.size())};
}

// LLVM's bitstream: "BC" and 0xC0DE, or the wrapper that some targets put before it.
bool isBitcode(QByteArrayView bytes)
{
    return bytes.startsWith(QByteArrayView("BC\xC0\xDE", 4)) || bytes.startsWith(QByteArrayView("\xDE\xC0\x17\x0B", 4));
}

void readObject(ByteImage image, LinkInputs &inputs)
{
    const QByteArrayView bytes = viewOf(image.bytes());
    // A look at the bytes first: building a symbol table for each object takes far longer.
    QList<const char *> candidates;
    for (const char *name : entryNames) {
        if (inputs.entry == QLatin1StringView(name))
            break;
        if (bytes.contains(QByteArrayView(name, qsizetype(qstrlen(name)) + 1)))
            candidates += name;
    }
    ElfFile file;
    file.parse(std::move(image));
    const std::optional<Machine> machine = machineOf(file);
    if (machine && (!inputs.machine || machine->rank > inputs.machine->rank))
        inputs.machine = machine;
    for (const char *name : candidates) {
        const ElfSymbol *symbol = file.symbolNamed(QString::fromLatin1(name));
        if (symbol && symbol->sectionIndex() != SHN_UNDEF) {
            inputs.entry = QString::fromLatin1(name);
            return;
        }
    }
}

// Member headers end in "`\n"; the content follows.
void readArchive(std::span<quint8> archive, const QString &path, LinkInputs &inputs)
{
    const QByteArrayView bytes = viewOf(archive);
    const QByteArray bitcodeMember("`\nBC\xC0\xDE", 6), elfMember("`\n\x7F"
                                                                  "ELF",
                                                                  6);
    if (inputs.firstBitcode.isEmpty() && bytes.contains(bitcodeMember))
        inputs.firstBitcode = path;
    const qsizetype header = inputs.machine ? -1 : bytes.indexOf(elfMember);
    if (header < 0)
        return;
    // The size of the content is 10 decimal digits before the header's end.
    const qsizetype start = header + 2;
    const qsizetype size = header < 10 ? 0 : bytes.sliced(header - 10, 10).trimmed().toLongLong();
    if (size > 0 && size <= bytes.size() - start)
        readObject(ByteImage::view(archive.subspan(size_t(start), size_t(size))), inputs);
}

} // namespace

LinkInputs LinkInputs::read(const QStringList &paths)
{
    LinkInputs inputs;
    for (const QString &path : paths) {
        try {
            ByteImage image = ByteImage::load(path);
            const QByteArrayView bytes = viewOf(image.bytes());
            inputs.hasCpp = inputs.hasCpp || bytes.contains(QByteArrayView("\0_Z", 3));
            if (isBitcode(bytes)) {
                inputs.hasCpp = inputs.hasCpp || bytes.contains("_ZN");
                if (inputs.firstBitcode.isEmpty())
                    inputs.firstBitcode = path;
            } else if (ElfArchive::isArchive(image.bytes())) {
                readArchive(image.bytes(), path, inputs);
            } else if (ElfFile::isElf(image.bytes())) {
                readObject(std::move(image), inputs);
            }
        } catch (const HException &) {
            continue;
        }
    }
    return inputs;
}
