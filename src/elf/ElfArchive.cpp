#include "elf/ElfArchive.h"

#include "base/ByteCursor.h"

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 magicSize = 8, headerSize = 60, nameSize = 16, sizeFieldOffset = 48, sizeFieldSize = 10;

bool beginsWith(std::span<const quint8> bytes, QByteArrayView magic)
{
    return bytes.size() >= size_t(magic.size()) && std::memcmp(bytes.data(), magic.data(), size_t(magic.size())) == 0;
}

QByteArrayView textOf(std::span<const quint8> bytes)
{
    return {bytes.data(), qsizetype(bytes.size())};
}

// The decimal number that a header field begins with; without digits 0.
quint32 decimal(QByteArrayView text)
{
    quint64 value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            break;
        value = std::min<quint64>(value * 10 + quint64(c - '0'), 0xFFFFFFFF);
    }
    return quint32(value);
}

[[noreturn]] void throwTruncated()
{
    throw HException(u"truncated archive file"_s);
}

} // namespace

bool ElfArchive::isArchive(std::span<const quint8> bytes)
{
    return beginsWith(bytes, "!<arch>\n");
}

bool ElfArchive::isThinArchive(std::span<const quint8> bytes)
{
    return beginsWith(bytes, "!<thin>\n");
}

ElfArchive::Header ElfArchive::headerAt(quint32 offset) const
{
    const QByteArrayView bytes = textOf(m_archive.bytes().subspan(offset, headerSize));
    const Header header{bytes.first(nameSize), offset, decimal(bytes.sliced(sizeFieldOffset, sizeFieldSize))};
    if (header.contentSize > m_archive.size() - header.contentOffset())
        throwTruncated();
    return header;
}

quint32 ElfArchive::offsetBehind(const Header &header) const
{
    return header.contentOffset() + header.contentSize;
}

void ElfArchive::parse(ByteImage archive)
{
    if (archive.size() > 0xFFFFFFFF)
        throw HException(u"archive file of more than 4 GiB"_s);
    m_archive = std::move(archive);
    const auto hasHeader = [&](quint64 offset) { return offset + headerSize <= m_archive.size(); };
    const auto isNamed = [](const Header &header, const char *name) {
        return header.name == QByteArray(name).leftJustified(nameSize, ' ');
    };
    // The index and the long names are padded to an even size.
    quint64 offset = magicSize;
    if (hasHeader(offset)) {
        const Header header = headerAt(quint32(offset));
        if (isNamed(header, "/")) {
            readSymbolIndex(header);
            offset = quint64(offsetBehind(header)) + (header.contentSize & 1);
        }
    }
    QByteArrayView longNames;
    if (hasHeader(offset)) {
        const Header header = headerAt(quint32(offset));
        if (isNamed(header, "//")) {
            longNames = textOf(m_archive.bytes().subspan(header.contentOffset(), header.contentSize));
            offset = quint64(offsetBehind(header)) + (header.contentSize & 1);
        }
    }
    // A header without content behind it is no member.
    if (offset + headerSize < m_archive.size())
        readMembers(quint32(offset), longNames);
}

void ElfArchive::readSymbolIndex(const Header &header)
{
    ByteCursor names(m_archive.bytes().subspan(header.contentOffset(), header.contentSize), true);
    const quint32 count = names.readU32();
    ByteCursor offsets = names.take(quint64(count) * 4);
    if (names.failed())
        throwTruncated();
    m_memberOffsetBySymbol.reserve(count);
    for (quint32 i = 0; i < count; ++i) {
        const QByteArrayView name = names.readString();
        if (names.failed())
            throwTruncated();
        const quint32 offset = offsets.readU32();
        if (!m_memberOffsetBySymbol.contains(name)) // the first entry of a name stays
            m_memberOffsetBySymbol.insert(name, offset);
    }
}

QByteArrayView ElfArchive::memberName(const Header &header, QByteArrayView longNames) const
{
    QByteArrayView text = header.name;
    if (text.startsWith('/')) {
        const quint32 offset = decimal(text.sliced(1));
        if (offset >= quint64(longNames.size()))
            throw ElfArchiveError(u"invalid long names table offset %1"_s.arg(offset));
        text = longNames.sliced(offset);
    }
    const qsizetype end = text.indexOf('/');
    if (end < 0)
        throw ElfArchiveError(u"invalid archive file name"_s);
    return text.first(end);
}

void ElfArchive::readMembers(quint32 first, QByteArrayView longNames)
{
    for (quint64 offset = first; offset + headerSize < m_archive.size();) {
        const Header header = headerAt(quint32(offset));
        std::span<quint8> content = m_archive.bytes().subspan(header.contentOffset(), header.contentSize);
        QByteArrayView name;
        if (header.name.startsWith("#1/")) {
            const quint32 length = decimal(header.name.sliced(3));
            if (length > content.size())
                throwTruncated();
            name = textOf(content.first(length));
            name = name.first(qsizetype(qstrnlen(name.data(), length))); // padded with NULs
            content = content.subspan(length);
        } else {
            name = memberName(header, longNames);
        }
        if (ElfFile::isElf(content) && !m_memberByOffset.contains(header.offset)) {
            auto file = std::make_unique<ElfFile>(m_demangle);
            file->parse(ByteImage::view(content));
            m_memberByOffset.emplace(header.offset, Member{std::move(file), name});
        }
        offset = offsetBehind(header);
        if (offset < m_archive.size() && m_archive.data()[offset] == '\n')
            ++offset;
    }
}

ElfFile *ElfArchive::memberDefining(QByteArrayView symbol, QByteArrayView *memberName) const
{
    const auto offset = m_memberOffsetBySymbol.constFind(symbol);
    if (offset == m_memberOffsetBySymbol.constEnd())
        return nullptr;
    const auto member = m_memberByOffset.find(*offset);
    if (member == m_memberByOffset.end())
        return nullptr;
    if (memberName)
        *memberName = member->second.name;
    return member->second.file.get();
}
