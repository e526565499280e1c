#pragma once

#include "target/interface/TargetMemoryInterface.h"

class ElfFile;

// A program's image as memory: what its variables hold when the program starts, those without an initial value
// being zero. Bytes of loadable segments at their virtual addresses, in a file without segments those of allocated
// sections. Pieces of memory from elsewhere (a dump of the RAM of a machine that has run) lie over it.
class ElfImageMemory : public TargetMemoryInterface
{
public:
    explicit ElfImageMemory(const ElfFile &elf); // which must outlive this

    // Bytes that count before those of the file and of pieces that were added earlier. What would reach past the
    // end of the address space is left out.
    void addPiece(quint32 address, const QByteArray &bytes);

    // Throws "memory at 0x... can't be read: it is not in the file".
    void readMemory(quint32 address, quint32 length, void *dest) override;
    // Ends where the memory does, too.
    QString readCString(quint32 address, quint32 maximumLength, quint32 blockSize, quint32 alignment) override;
    // Throws: the image isn't changed.
    void writeMemory(quint32 address, quint32 length, const void *data) override;
    bool isInMemory(quint32 address, quint32 length) const override;

private:
    struct Piece
    {
        quint64 start, end;              // behind the last byte
        std::span<const quint8> content; // from `start`; what is behind it up to `end` is zero
    };
    void addRegion(quint32 start, quint32 size, std::span<const quint8> content);
    const Piece *pieceAt(quint64 address) const;
    quint64 endOfRead(const Piece &piece, quint64 address, quint64 end) const;

    std::vector<Piece> m_pieces; // the first that has an address counts
    std::vector<QByteArray> m_dumps;
};
