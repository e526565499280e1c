#pragma once

#include <QtGlobal>
#include <bzlib.h>
#include <cstdio>
#include <deque>
#include <future>
#include <memory>
#include <vector>
#include <zlib.h>

// What an archive reads its table and files from and writes them to. Positions count in the bytes that the
// archive's offsets count: behind the header, decompressed.
class PackageArchiveIOFileInterface
{
public:
    virtual ~PackageArchiveIOFileInterface() = default;
    // Bytes read; fewer than asked only at the end.
    virtual qsizetype read(void *buffer, qsizetype length) = 0;
    // Bytes written; fewer than asked when the file can't take them.
    virtual qsizetype write(const void *buffer, qsizetype length) = 0;
    // False when the position can't be reached.
    virtual bool seek(quint64 offset) = 0;
};

// Bytes as they stand in a file, from where the file stands now. The caller keeps the file open.
class PackageArchiveIOFile : public PackageArchiveIOFileInterface
{
public:
    explicit PackageArchiveIOFile(FILE *stream) : m_stream(stream), m_base(ftello(stream)) {}

    qsizetype read(void *buffer, qsizetype length) override;
    qsizetype write(const void *buffer, qsizetype length) override;
    bool seek(quint64 offset) override;

protected:
    FILE *m_stream;
    off_t m_base; // where offset 0 stands in the file
};

// A compressed stream that is read forward. Going back means starting again.
class PackageArchiveCompressedInputFile : public PackageArchiveIOFile
{
public:
    using PackageArchiveIOFile::PackageArchiveIOFile;

    qsizetype read(void *buffer, qsizetype length) override;
    qsizetype write(const void *, qsizetype) override { return 0; }
    bool seek(quint64 offset) override;

    virtual void open() = 0;
    virtual void close() = 0;
    // Decompresses the next bytes; fewer than asked only at the stream's end or when the file ends before it.
    virtual qsizetype transfer(void *buffer, qsizetype length) = 0;

    // The stream's own end mark was met, and with it its checksum.
    bool isComplete() const { return m_isComplete; }

protected:
    // Fills `m_input` from the file and gives the count, 0 at its end.
    unsigned refill();

    std::vector<char> m_input;
    quint64 m_position = 0; // in the decompressed stream
    bool m_isComplete = false;
};

class PackageArchiveCompressedGzInputFile : public PackageArchiveCompressedInputFile
{
public:
    using PackageArchiveCompressedInputFile::PackageArchiveCompressedInputFile;
    ~PackageArchiveCompressedGzInputFile() override { PackageArchiveCompressedGzInputFile::close(); }
    void open() override;
    void close() override;
    qsizetype transfer(void *buffer, qsizetype length) override;

private:
    z_stream m_zlib{};
};

class PackageArchiveCompressedBzInputFile : public PackageArchiveCompressedInputFile
{
public:
    using PackageArchiveCompressedInputFile::PackageArchiveCompressedInputFile;
    ~PackageArchiveCompressedBzInputFile() override { PackageArchiveCompressedBzInputFile::close(); }
    void open() override;
    void close() override;
    qsizetype transfer(void *buffer, qsizetype length) override;

private:
    bz_stream m_bzip2{};
};

// A compressed stream that is written once from its start. close() writes what is left; a stream that is
// dropped without it is unfinished.
class PackageArchiveCompressedOutputFile : public PackageArchiveIOFile
{
public:
    PackageArchiveCompressedOutputFile(FILE *stream, int level) : PackageArchiveIOFile(stream), m_level(level) {}

    qsizetype read(void *, qsizetype) override { return 0; }
    qsizetype write(const void *buffer, qsizetype length) override { return transfer(buffer, length); }
    bool seek(quint64) override { return false; }

    virtual void open() = 0;
    // Throws "cannot write file" when the file can't take the rest.
    virtual void close() = 0;
    // Compresses the bytes and gives how many were taken; fewer than given when the file can't take them.
    virtual qsizetype transfer(const void *buffer, qsizetype length) = 0;

protected:
    int m_level; // 0 to 9
};

// One zlib stream (RFC 1950), deflated in pieces of a fixed size on all processors. Each piece starts from
// the 32 KiB before it and ends on a byte boundary, so the pieces join to one stream, and what comes out
// doesn't depend on the number of processors.
class PackageArchiveCompressedGzOutputFile : public PackageArchiveCompressedOutputFile
{
public:
    using PackageArchiveCompressedOutputFile::PackageArchiveCompressedOutputFile;
    void open() override;
    void close() override;
    qsizetype transfer(const void *buffer, qsizetype length) override;

private:
    struct Piece
    {
        std::vector<Bytef> bytes; // deflated
        uLong checksum;           // Adler-32 of the plain bytes
        size_t plainSize;
    };
    static Piece deflatePiece(const std::vector<Bytef> &dictionaryAndPlain, size_t dictionarySize, int level,
                              bool isLast);
    void startPiece(bool isLast);
    bool writeOldestPiece();

    std::vector<Bytef> m_plain;              // the dictionary of the next piece, then its bytes so far
    size_t m_dictionarySize = 0;             // leading bytes of m_plain that are in the stream already
    std::deque<std::future<Piece>> m_pieces; // under way, in the order of the stream
    uLong m_checksum = 0;
    bool m_failed = false;
};

class PackageArchiveCompressedBzOutputFile : public PackageArchiveCompressedOutputFile
{
public:
    using PackageArchiveCompressedOutputFile::PackageArchiveCompressedOutputFile;
    ~PackageArchiveCompressedBzOutputFile() override;
    void open() override;
    void close() override;
    qsizetype transfer(const void *buffer, qsizetype length) override;

private:
    bool run(int action); // compresses what m_bzip2 was given

    bz_stream m_bzip2{};
    std::vector<char> m_output;
};
