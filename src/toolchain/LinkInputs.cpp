#include "toolchain/LinkInputs.h"

#include "base/HException.h"
#include "elf/ElfArchive.h"
#include "toolchain/ArchiveMembers.h"

using namespace Qt::StringLiterals;

namespace {

// The most telling first.
constexpr const char *entryNames[] = {"Reset_Handler", "_start", "reset_handler", "__start"};

QByteArrayView viewOf(std::span<const quint8> bytes)
{
    return {bytes.data(), qsizetype(bytes.size())};
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
    // GCC's modules carry this name, and their symbols as text. What they define counts as needed only if the
    // linker hears of it before it has seen the libraries.
    if (bytes.contains("__gnu_lto_slim")) {
        inputs.hasGccModules = true;
        for (const char *name : libraryCallbacks)
            if (name[0] == '_' && bytes.contains(QByteArrayView(name, qsizetype(qstrlen(name)) + 1)) &&
                !inputs.lateSymbols.contains(QLatin1StringView(name)))
                inputs.lateSymbols += QString::fromLatin1(name);
    }
    const auto addMachine = [&inputs](const std::optional<Machine> &machine) {
        if (machine && (!inputs.machine || machine->rank > inputs.machine->rank))
            inputs.machine = machine;
    };
    addMachine(machineOf64(image.bytes()));
    ElfFile file;
    file.parse(std::move(image)); // throws for a 64-bit file
    addMachine(machineOf(file));
    for (const char *name : candidates) {
        const ElfSymbol *symbol = file.symbolNamed(QString::fromLatin1(name));
        if (symbol && symbol->sectionIndex() != SHN_UNDEF) {
            inputs.entry = QString::fromLatin1(name);
            return;
        }
    }
}

// One object of an archive tells the machine as well as all of them.
void readArchive(std::span<const quint8> archive, const QString &path, LinkInputs &inputs)
{
    for (const std::span<const quint8> member : archiveMembers(archive)) {
        if (isBitcode(member)) {
            inputs.bitcodeArchives += path;
            return;
        }
        if (!inputs.machine && ElfFile::isElf(member))
            readObject(ByteImage::fromBytes(viewOf(member).toByteArray()), inputs);
    }
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
            if (isBitcode(image.bytes())) {
                inputs.hasCpp = inputs.hasCpp || bytes.contains("_ZN");
                inputs.bitcode += path;
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
