#pragma once

#include "target/loadfile/LoadFile.h"

// The readers of text formats. The constructor reads the whole file; the first fault ends it with an HException
// whose message tells the line. Records that follow each other without a gap make one section, in file order;
// a record that passes the end of the address space is cut there, and its rest goes to address 0.
//
// Lines end with LF or CR LF. One that is longer than the format allows (529 characters, or 63 in the listing
// and in TI hex) is cut there and read on as another line.
class TextLoadFile : public StandardLoadFile
{
public:
    bool hasAddressInformation() const override { return true; }
    bool readSections() override { return true; }

protected:
    class Line;

    // Where a record's `count` bytes go: `decode(destination, count)` fills them, in two parts at the end of the
    // address space.
    template <typename Decode>
    void addRecord(quint32 address, quint32 count, Decode decode);
    // Calls `readLine(line)` for each line until it gives true, which readLines() then gives too.
    template <typename ReadLine>
    bool readLines(const ByteImage &image, qsizetype longestLine, ReadLine readLine);

private:
    quint8 *placeFor(quint32 address, quint32 count);

    ExpandingLoadFileSection *m_current = nullptr;
};

// Intel hex (Hexadecimal Object File Format Specification, 1988), record types 0 to 5.
class IntelHexLoadFile : public TextLoadFile
{
public:
    explicit IntelHexLoadFile(const QString &path) : IntelHexLoadFile(ByteImage::load(path)) {}
    explicit IntelHexLoadFile(const ByteImage &image);

private:
    bool readRecord(Line &line);

    quint32 m_segmentBase = 0; // bytes
    quint32 m_linearBase = 0;  // bytes
};

// A listing: address in eight hex digits, then each byte behind a space.
class HexLoadFile : public TextLoadFile
{
public:
    explicit HexLoadFile(const QString &path) : HexLoadFile(ByteImage::load(path)) {}
    explicit HexLoadFile(const ByteImage &image);
};

// TI hex: "@" and an address, lines of bytes with one character between, "q" at the end.
class TIHexLoadFile : public TextLoadFile
{
public:
    explicit TIHexLoadFile(const QString &path) : TIHexLoadFile(ByteImage::load(path)) {}
    explicit TIHexLoadFile(const ByteImage &image);
};

// Motorola S-records, S0 to S3, S5 and S7 to S9. Of other records only the count and the checksum behind it are
// read, so that one with content is refused.
class SRecordLoadFile : public TextLoadFile
{
public:
    explicit SRecordLoadFile(const QString &path) : SRecordLoadFile(ByteImage::load(path)) {}
    explicit SRecordLoadFile(const ByteImage &image);

private:
    void readRecord(Line &line);

    quint32 m_dataRecords = 0;
};
