#include "toolchain/ElfEdits.h"

#include "base/ByteOrder.h"
#include "base/HException.h"
#include "base/SafeFile.h"
#include "elf/ElfFile.h"

#include <QFile>
#include <algorithm>
#include <cstddef>

using namespace Qt::StringLiterals;

namespace {

// The new name of a section; the old one when no rule is for it.
QString renamed(const QString &name, const QList<SectionRename> &renames)
{
    for (const QString &prefix : {u""_s, u".rel"_s, u".rela"_s}) {
        for (const SectionRename &rename : renames) {
            const QString from = prefix + rename.from;
            if (name == from || name.startsWith(from + u'.'))
                return prefix + rename.to + name.sliced(from.size());
        }
    }
    return name;
}

bool isSegmentSymbol(QByteArrayView name)
{
    return name.startsWith("__") && name.contains("_segment_") && name.endsWith("__");
}

// ElfFile reads no other.
bool isElf32(const QString &path)
{
    QFile file(path);
    return file.open(QFile::ReadOnly) && file.read(EI_CLASS + 1) == QByteArray(ELFMAG) + char(ELFCLASS32);
}

} // namespace

// The table of the new names goes to the end of the file; section headers are changed in place. The old table
// stays where it is, for the symbols' names may lie in it.
void renameSections(const QString &path, const QList<SectionRename> &renames)
{
    if (!isElf32(path))
        return;
    ElfFile file;
    file.load(path);
    const quint32 tableIndex = file.header().e_shstrndx;
    if (tableIndex >= file.sectionCount())
        return;
    QByteArray names(1, '\0');
    bool isChanged = false;
    const auto headerField = [&](quint32 section, size_t offset) {
        const quint32 header = file.header().e_shoff + section * file.header().e_shentsize;
        return file.pointerAtOffset(header + quint32(offset));
    };
    for (quint32 i = 1; i < file.sectionCount(); ++i) {
        const QString old = file.sectionAt(i)->name(), name = renamed(old, renames);
        isChanged = isChanged || name != old;
        insertInteger(headerField(i, offsetof(Elf32_Shdr, sh_name)), 0, quint64(names.size()), 4, file.bigEndian());
        names += name.toUtf8() + '\0';
    }
    if (!isChanged)
        return;
    const std::span<const quint8> image = file.image();
    insertInteger(headerField(tableIndex, offsetof(Elf32_Shdr, sh_offset)), 0, image.size(), 4, file.bigEndian());
    insertInteger(headerField(tableIndex, offsetof(Elf32_Shdr, sh_size)), 0, quint64(names.size()), 4,
                  file.bigEndian());
    QByteArray bytes(reinterpret_cast<const char *>(image.data()), qsizetype(image.size()));
    writeFileSafely(path, bytes + names);
}

// Only the rows that these symbols have are dealt out anew among them. Where relocations are left in the file
// their numbers would have to follow; such a file stays as it is.
void groupSegmentSymbols(const QString &path)
{
    if (!isElf32(path))
        return;
    ElfFile file;
    file.load(path);
    const ElfSection *table = file.sectionNamed(u".symtab"_s);
    if (!table)
        return;
    for (quint32 i = 1; i < file.sectionCount(); ++i) {
        const quint32 type = file.sectionAt(i)->header().sh_type;
        if (type == SHT_REL || type == SHT_RELA || type == SHT_GROUP)
            return;
    }
    struct Row
    {
        QByteArray name;
        QByteArray bytes;
    };
    std::vector<Row> rows;
    std::vector<quint32> offsets;
    for (quint32 i = 0; i < quint32(file.symbolCount()); ++i) {
        const QByteArrayView name = file.symbolAtIndex(i)->rawName();
        if (!isSegmentSymbol(name))
            continue;
        const quint32 offset = table->header().sh_offset + i * quint32(sizeof(Elf32_Sym));
        const std::span<quint8> bytes = file.bytesAtOffset(offset, sizeof(Elf32_Sym));
        offsets.push_back(offset);
        rows.push_back(
            {name.toByteArray(), QByteArray(reinterpret_cast<char *>(bytes.data()), qsizetype(bytes.size()))});
    }
    std::ranges::sort(rows, {}, &Row::name);
    bool isChanged = false;
    for (size_t i = 0; i < rows.size(); ++i) {
        const std::span<quint8> bytes = file.bytesAtOffset(offsets[i], sizeof(Elf32_Sym));
        isChanged = isChanged || std::memcmp(bytes.data(), rows[i].bytes.data(), bytes.size()) != 0;
        std::memcpy(bytes.data(), rows[i].bytes.data(), bytes.size());
    }
    if (isChanged)
        file.save(path);
}
