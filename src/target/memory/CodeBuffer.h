#pragma once

#include "base/SafeFile.h"

#include <QByteArray>
#include <QString>
#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <span>
#include <vector>

// Writers of load files: addressed bytes go in, an image in the writer's format comes out. Used once: any mix
// of setAddress() and putByte(), then finish(). Without finish() no file is made.
//
// Nothing here throws. When the file can't be opened or written, later calls do nothing and failed() tells.
class CodeBuffer
{
public:
    CodeBuffer(const CodeBuffer &) = delete;
    CodeBuffer &operator=(const CodeBuffer &) = delete;
    virtual ~CodeBuffer() = default;

    virtual void setAddress(quint32 address) = 0;
    virtual void putByte(quint8 byte) = 0;
    // Writes what is pending and the format's end with the program's entry address, where it has a place for it.
    virtual void finish(quint32 entry) = 0;
    // putByte() for each of the bytes.
    virtual void putBytes(std::span<const quint8> bytes) = 0;

    bool failed() const { return m_failed; }
    QString errorString() const { return m_file.errorString(); }

protected:
    explicit CodeBuffer(const QString &fileName) : m_file(fileName), m_failed(!m_file.open()) {}

    void write(QByteArrayView bytes) { m_failed = m_failed || !m_file.write(bytes); }
    void commit() { m_failed = m_failed || !m_file.commit(); }
    void writeZeros(quint64 count) { m_failed = m_failed || !m_file.writeZeros(count); }

    quint32 m_address = 0;

private:
    SafeFile m_file;
    bool m_failed;
};

// The writers of text: bytes of successive addresses are collected into lines of 16.
class TextCodeBuffer : public CodeBuffer
{
public:
    void setAddress(quint32 address) override;
    void putByte(quint8 byte) override { putBytes({&byte, 1}); }
    void putBytes(std::span<const quint8> bytes) override;
    void finish(quint32 entry) override;

protected:
    static constexpr quint32 bytesPerLine = 16;

    struct Record;

    using CodeBuffer::CodeBuffer;

    // The record or records of one line, at most 16 bytes from `start` on.
    virtual void writeLine(quint32 start, std::span<const quint8> bytes) = 0;
    virtual void writeEnd(quint32 entry) = 0;
    // True when no line may hold bytes of both ends of the address space.
    virtual bool breaksAtWrap() const { return false; }
    // Ends the record with a line feed.
    void append(Record &record);

private:
    void flushLine();
    void flushText();

    std::array<quint8, bytesPerLine> m_line;
    quint32 m_lineStart = 0;
    std::array<char, 65536> m_text; // whole lines that wait to be written together
    size_t m_textLength = 0;
};

// Motorola S-records: "S", type, count of the bytes behind it, address, data, ones' complement of the sum.
// S1 lines up to 0xFFFF, S2 up to 0xFFFFFE, S3 from there; the end is an S9 with the low half of the entry.
class SRecordBuffer : public TextCodeBuffer
{
public:
    explicit SRecordBuffer(const QString &fileName) : TextCodeBuffer(fileName) {}

protected:
    void writeLine(quint32 start, std::span<const quint8> bytes) override;
    void writeEnd(quint32 entry) override;
};

// A listing: address in eight hex digits, then each byte behind a space.
class HexBuffer : public TextCodeBuffer
{
public:
    explicit HexBuffer(const QString &fileName) : TextCodeBuffer(fileName) {}

protected:
    void writeLine(quint32 start, std::span<const quint8> bytes) override;
    void writeEnd(quint32) override {}
};

// Intel hex: ":", length, 16-bit address, type, data, negated sum. The upper half of the address comes in an
// extended linear address record (type 4) before the first line that needs another one than the line before.
class IntelHexBuffer : public TextCodeBuffer
{
public:
    explicit IntelHexBuffer(const QString &fileName) : TextCodeBuffer(fileName) {}

protected:
    void writeLine(quint32 start, std::span<const quint8> bytes) override;
    void writeEnd(quint32 entry) override;
    bool breaksAtWrap() const override { return true; }

private:
    quint16 m_upperAddress = 0;
};

// Extended Tektronix hex: "%", length of the record, type (6 data, 8 end with the entry address), sum of the
// values of all digits but its own, then the address behind the count of its digits, then data.
class TekHexBuffer : public TextCodeBuffer
{
public:
    explicit TekHexBuffer(const QString &fileName) : TextCodeBuffer(fileName) {}

protected:
    void writeLine(quint32 start, std::span<const quint8> bytes) override { writeRecord('6', start, bytes); }
    void writeEnd(quint32 entry) override { writeRecord('8', entry, {}); }

private:
    void writeRecord(char type, quint32 address, std::span<const quint8> bytes);
};

// TI hex: "@" and an address where it doesn't follow from the line before, bytes with spaces between, "q".
class TIHexBuffer : public TextCodeBuffer
{
public:
    explicit TIHexBuffer(const QString &fileName) : TextCodeBuffer(fileName) {}

protected:
    void writeLine(quint32 start, std::span<const quint8> bytes) override;
    void writeEnd(quint32 entry) override;

private:
    std::optional<quint32> m_nextAddress; // where the last line ended
};

// The writers of binary images: bytes are kept in pages until the end, so that memory is proportional to what
// is written, wherever it lies. Untouched bytes of a page are 0xFF, as erased flash is.
class PagedCodeBuffer : public CodeBuffer
{
public:
    void setAddress(quint32 address) override { m_address = address; }
    void putByte(quint8 byte) override { putBytes({&byte, 1}); }
    void putBytes(std::span<const quint8> bytes) override;

protected:
    PagedCodeBuffer(const QString &fileName, quint32 pageBytes) : CodeBuffer(fileName), m_pageBytes(pageBytes) {}

    quint32 pageBytes() const { return m_pageBytes; }
    // The touched pages by their first address.
    const std::map<quint32, quint8 *> &pages() const { return m_pages; }
    quint32 highestAddress() const { return m_highestAddress; }

private:
    struct Free
    {
        void operator()(quint8 *block) const { std::free(block); }
    };
    quint8 *newPage();

    const quint32 m_pageBytes; // a power of two
    std::map<quint32, quint8 *> m_pages;
    std::vector<std::unique_ptr<quint8, Free>> m_blocks; // what the pages are cut from
    size_t m_blockUsed = 0;                              // of the last block, bytes
    quint32 m_highestAddress = 0;
};

// A plain image: the byte of address 0 comes first, that of the highest address written last. Pages that were
// never touched are zeros; in a file they are holes.
class BinaryBuffer : public PagedCodeBuffer
{
public:
    explicit BinaryBuffer(const QString &fileName) : PagedCodeBuffer(fileName, 4096) {}

    // The file starts with the byte of `base` instead; bytes below it are left out.
    void setBase(quint32 base) { m_base = base; }
    void finish(quint32 entry) override;

private:
    quint32 m_base = 0;
};

// USB Flashing Format (github.com/microsoft/uf2): self-contained blocks of 512 bytes, which a boot loader that
// shows itself as a mass-storage device takes in any order. Each carries 256 bytes of one aligned address.
class Uf2Buffer : public PagedCodeBuffer
{
public:
    explicit Uf2Buffer(const QString &fileName) : PagedCodeBuffer(fileName, 256) {}

    // Boot loaders that serve several kinds of chips take only blocks of their family.
    void setFamily(quint32 family) { m_family = family; }
    void finish(quint32 entry) override;

private:
    std::optional<quint32> m_family;
};

// The writer that a file name's extension stands for: "hex" Intel hex, "lst" listing, "srec", "bin", "txt" TI hex.
// Null for any other.
std::unique_ptr<CodeBuffer> createCodeBuffer(const QString &extension, const QString &fileName);
