#pragma once

#include "base/ByteImage.h"
#include "base/HException.h"
#include "elf/ElfFile.h"

#include <QHash>
#include <memory>
#include <unordered_map>

// A member's name can't be found: the archive is unusable, whatever its members are.
class ElfArchiveError : public HException
{
public:
    using HException::HException;
};

// A Unix archive of ELF objects: which member defines a symbol?
//
//     "!<arch>\n"
//     { name 16, date 12, user 6, group 6, mode 8, size 10 (decimal), "`\n" } content, a line feed if that is odd
//
// The member "/" is the symbol index: a count, member offsets (each 32 bits, big-endian), then the names, each
// ending in NUL. "//" holds long names: a member named "/12" has its name there at offset 12, up to "/". In the
// BSD form a member named "#1/12" has its name in the first 12 bytes of its content. Members that aren't ELF
// (bitcode, text) are passed over as a linker does.
class ElfArchive
{
public:
    // `demangle` is handed on to the members.
    explicit ElfArchive(bool demangle = false) : m_demangle(demangle) {}

    // Throws ElfArchiveError ("invalid long names table offset 12", "invalid archive file name"), HException
    // "truncated archive file", and what ElfFile::parse throws for a broken member.
    void parse(ByteImage archive);

    static bool isArchive(std::span<const quint8> bytes);
    // "!<thin>\n": the members are other files. Such an archive can't be parsed here.
    static bool isThinArchive(std::span<const quint8> bytes);

    // The member that the symbol index names first for `symbol`, and its name; null without one. `symbol` is
    // the name's bytes as the objects have it.
    ElfFile *memberDefining(QByteArrayView symbol, QByteArrayView *memberName = nullptr) const;

private:
    struct Header
    {
        QByteArrayView name; // the 16 bytes
        quint32 offset;      // of the header from the archive's start
        quint32 contentSize;
        quint32 contentOffset() const { return offset + 60; }
    };
    struct Member
    {
        std::unique_ptr<ElfFile> file;
        QByteArrayView name; // in m_archive
    };

    Header headerAt(quint32 offset) const;
    quint32 offsetBehind(const Header &header) const;
    void readSymbolIndex(const Header &header);
    void readMembers(quint32 offset, QByteArrayView longNames);
    QByteArrayView memberName(const Header &header, QByteArrayView longNames) const;

    const bool m_demangle;
    ByteImage m_archive;
    QHash<QByteArrayView, quint32> m_memberOffsetBySymbol; // the names stand in m_archive
    std::unordered_map<quint32, Member> m_memberByOffset;
};
