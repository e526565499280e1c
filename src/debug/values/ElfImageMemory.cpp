#include "debug/values/ElfImageMemory.h"

#include "base/HException.h"
#include "elf/ElfFile.h"

#include <cstring>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void failToRead(quint64 address)
{
    throw HException(u"memory at 0x%1 can't be read: it is not in the file"_s.arg(address, 8, 16, QChar(u'0')));
}

} // namespace

ElfImageMemory::ElfImageMemory(const ElfFile &elf) : TargetMemoryInterface(elf.bigEndian())
{
    for (const ElfSegment &segment : elf.segments()) {
        if (segment.header.p_type == PT_LOAD)
            addRegion(segment.header.p_vaddr, segment.header.p_memsz, segment.content);
    }
    if (!m_pieces.empty() || elf.header().e_type == ET_REL) // in an object file nothing has its address yet
        return;
    for (const auto &section : elf.sections()) {
        const Elf32_Shdr &header = section->header();
        if (!(header.sh_flags & SHF_ALLOC) || (header.sh_flags & SHF_TLS))
            continue;
        try {
            addRegion(header.sh_addr, header.sh_size, section->content());
        } catch (const HException &) { // cut short: its bytes aren't there
        }
    }
}

void ElfImageMemory::addRegion(quint32 start, quint32 size, std::span<const quint8> content)
{
    if (size)
        m_pieces.push_back({start, quint64(start) + size, content.first(std::min<size_t>(content.size(), size))});
}

void ElfImageMemory::addPiece(quint32 address, const QByteArray &bytes)
{
    const quint64 room = (quint64(1) << 32) - address;
    const QByteArray kept = bytes.first(qsizetype(std::min(quint64(bytes.size()), room)));
    if (kept.isEmpty())
        return;
    m_dumps.push_back(kept); // the bytes stay where they are when the list grows
    const std::span content(reinterpret_cast<const quint8 *>(kept.constData()), size_t(kept.size()));
    m_pieces.insert(m_pieces.begin(), {address, address + content.size(), content});
}

const ElfImageMemory::Piece *ElfImageMemory::pieceAt(quint64 address) const
{
    const auto found = std::ranges::find_if(
        m_pieces, [&](const Piece &piece) { return address >= piece.start && address < piece.end; });
    return found == m_pieces.end() ? nullptr : &*found;
}

// How far a read from `address` in `piece` goes before it ends or meets a piece that counts before it.
quint64 ElfImageMemory::endOfRead(const Piece &piece, quint64 address, quint64 end) const
{
    end = std::min(end, piece.end);
    for (const Piece *earlier = m_pieces.data(); earlier != &piece; ++earlier) {
        if (earlier->start > address)
            end = std::min(end, earlier->start);
    }
    return end;
}

void ElfImageMemory::readMemory(quint32 address, quint32 length, void *dest)
{
    quint8 *out = static_cast<quint8 *>(dest);
    const quint64 end = quint64(address) + length;
    for (quint64 place = address; place < end;) {
        const Piece *piece = pieceAt(place);
        if (!piece)
            failToRead(place);
        const quint64 stop = endOfRead(*piece, place, end);
        const size_t start = size_t(place - piece->start), count = size_t(stop - place);
        const size_t present = start < piece->content.size() ? std::min(count, piece->content.size() - start) : 0;
        if (present)
            std::memcpy(out, piece->content.data() + start, present);
        std::memset(out + present, 0, count - present);
        out += count;
        place = stop;
    }
}

QString ElfImageMemory::readCString(quint32 address, quint32 maximumLength, quint32, quint32)
{
    QByteArray text;
    while (quint32(text.size()) < maximumLength) {
        const quint32 place = address + quint32(text.size());
        if (!text.isEmpty() && !pieceAt(place))
            break;
        char character = 0;
        readMemory(place, 1, &character);
        if (!character)
            break;
        text += character;
    }
    return QString::fromLatin1(text);
}

void ElfImageMemory::writeMemory(quint32 address, quint32, const void *)
{
    throw HException(
        u"memory at 0x%1 can't be written: a file isn't a running program"_s.arg(address, 8, 16, QChar(u'0')));
}

bool ElfImageMemory::isInMemory(quint32 address, quint32 length) const
{
    const quint64 end = quint64(address) + length;
    for (quint64 place = address; place < end;) {
        const Piece *piece = pieceAt(place);
        if (!piece)
            return false;
        place = endOfRead(*piece, place, end);
    }
    return true;
}
