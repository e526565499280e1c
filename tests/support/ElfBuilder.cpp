#include "support/ElfBuilder.h"

#include "base/ByteOrder.h"

namespace {

constexpr quint32 fileHeaderSize = 52, programHeaderSize = 32, sectionHeaderSize = 40;

class Writer
{
public:
    explicit Writer(bool bigEndian) : m_bigEndian(bigEndian) {}
    Writer &put(quint32 size, std::initializer_list<quint32> values)
    {
        for (const quint32 value : values) {
            char bytes[4];
            insertInteger(bytes, 0, value, size, m_bigEndian);
            out.append(bytes, size);
        }
        return *this;
    }
    QByteArray out;

private:
    bool m_bigEndian;
};

} // namespace

QList<ElfBuilder::Section> ElfBuilder::allSections() const
{
    QList<Section> all = sections;
    if (hasSymbolTable) {
        Writer table(bigEndian);
        QByteArray names(1, '\0');
        table.put(4, {0, 0, 0, 0});
        for (const Symbol &symbol : symbols) {
            table.put(4, {symbol.name.isEmpty() ? 0 : quint32(names.size()), symbol.value, symbol.size});
            table.put(1, {symbol.info, 0}).put(2, {symbol.section});
            names += symbol.name + '\0';
        }
        all.append({".symtab", SHT_SYMTAB, 0, 0, table.out});
        all.append({".strtab", SHT_STRTAB, 0, 0, names});
    }
    QByteArray names(1, '\0');
    for (const Section &section : all)
        names += section.name + '\0';
    all.append({".shstrtab", SHT_STRTAB, 0, 0, names + ".shstrtab" + '\0'});
    return all;
}

quint32 ElfBuilder::contentOffset(int index) const
{
    quint32 offset = fileHeaderSize + quint32(segments.size()) * programHeaderSize;
    const QList<Section> all = allSections();
    for (int i = 0; i < index - 1; ++i)
        offset += quint32(all[i].content.size());
    return offset;
}

quint32 ElfBuilder::sectionHeaderOffset() const
{
    return contentOffset(int(allSections().size()) + 1);
}

QByteArray ElfBuilder::build() const
{
    const QList<Section> all = allSections();
    const quint32 count = quint32(all.size()) + 1;
    const quint32 contents = contentOffset(1);

    Writer file(bigEndian);
    file.out = QByteArray("\x7f"
                          "ELF\x01",
                          5) +
               char(bigEndian ? 2 : 1) + '\x01' + QByteArray(9, '\0');
    file.put(2, {type, machine}).put(4, {1, entry, segments.isEmpty() ? 0 : fileHeaderSize, sectionHeaderOffset(), 0});
    file.put(2, {fileHeaderSize, programHeaderSize, quint32(segments.size()), sectionHeaderSize,
                 countInFirstSection ? 0 : count, countInFirstSection ? 0xFFFF : count - 1});
    for (const Segment &segment : segments)
        file.put(4, {segment.type, contents + segment.offset, segment.virtualAddress, segment.physicalAddress,
                     segment.fileSize, segment.memorySize, 7, 4});
    for (const Section &section : all)
        file.out += section.content;

    file.put(4, {0, 0, 0, 0, 0, countInFirstSection ? count : 0, countInFirstSection ? count - 1 : 0, 0, 0, 0});
    quint32 nameOffset = 1, offset = contents;
    for (const Section &section : all) {
        const quint32 size = section.size == 0xFFFFFFFF ? quint32(section.content.size()) : section.size;
        const bool isTable = section.type == SHT_SYMTAB;
        file.put(4, {nameOffset, section.type, section.flags, section.address, offset, size, isTable ? count - 2 : 0,
                     section.info, 4, isTable ? 16u : 0u});
        nameOffset += quint32(section.name.size()) + 1;
        offset += quint32(section.content.size());
    }
    return file.out;
}

QByteArray archiveHeader(const QByteArray &name, qsizetype size)
{
    return name.leftJustified(16, ' ') + QByteArray("0").leftJustified(12, ' ') + "0     0     644     " +
           QByteArray::number(size).leftJustified(10, ' ') + "`\n";
}

QByteArray buildArchive(const QList<ArchiveMember> &members, bool withIndex)
{
    QByteArray longNames;
    QList<QByteArray> headerNames;
    for (const ArchiveMember &member : members) {
        if (member.name.size() < 16) {
            headerNames += member.name + '/';
        } else {
            headerNames += '/' + QByteArray::number(longNames.size());
            longNames += member.name + "/\n";
        }
    }
    const auto padded = [](const QByteArray &bytes) { return bytes.size() & 1 ? bytes + '\n' : bytes; };
    Writer index(true);
    QByteArray names;
    qsizetype symbolCount = 0;
    for (const ArchiveMember &member : members)
        for (const QByteArray &symbol : member.symbols) {
            names += symbol + '\0';
            ++symbolCount;
        }
    const qsizetype indexSize = 4 + 4 * symbolCount + names.size();
    qsizetype offset = 8 + (withIndex ? 60 + indexSize + (indexSize & 1) : 0);
    offset += longNames.isEmpty() ? 0 : 60 + padded(longNames).size();
    index.put(4, {quint32(symbolCount)});
    for (const ArchiveMember &member : members) {
        for (qsizetype i = 0; i < member.symbols.size(); ++i)
            index.put(4, {quint32(offset)});
        offset += 60 + padded(member.content).size();
    }
    QByteArray archive = "!<arch>\n";
    if (withIndex)
        archive += archiveHeader("/", indexSize) + padded(index.out + names);
    if (!longNames.isEmpty())
        archive += archiveHeader("//", longNames.size()) + padded(longNames);
    for (qsizetype i = 0; i < members.size(); ++i)
        archive += archiveHeader(headerNames[i], members[i].content.size()) + padded(members[i].content);
    return archive;
}
