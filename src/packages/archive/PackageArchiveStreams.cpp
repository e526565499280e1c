#include "packages/archive/PackageArchiveStreams.h"

#include "base/HException.h"

#include <QtEndian>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t bufferBytes = 65536;
constexpr qsizetype dropBytes = 16384;
constexpr size_t pieceBytes = 1 << 20;
constexpr int deflateMemory = 8;      // zlib's default; more is slower and packs worse
constexpr size_t windowBytes = 32768; // how far back deflate can refer (RFC 1951)

} // namespace

qsizetype PackageArchiveIOFile::read(void *buffer, qsizetype length)
{
    const size_t count = std::fread(buffer, 1, size_t(length), m_stream);
    if (std::ferror(m_stream))
        throw HException(u"error reading stream"_s);
    return qsizetype(count);
}

qsizetype PackageArchiveIOFile::write(const void *buffer, qsizetype length)
{
    return qsizetype(std::fwrite(buffer, 1, size_t(length), m_stream));
}

bool PackageArchiveIOFile::seek(quint64 offset)
{
    return fseeko(m_stream, m_base + off_t(offset), SEEK_SET) == 0;
}

unsigned PackageArchiveCompressedInputFile::refill()
{
    m_input.resize(bufferBytes);
    return unsigned(PackageArchiveIOFile::read(m_input.data(), qsizetype(bufferBytes)));
}

qsizetype PackageArchiveCompressedInputFile::read(void *buffer, qsizetype length)
{
    const qsizetype count = transfer(buffer, length);
    m_position += quint64(count);
    return count;
}

bool PackageArchiveCompressedInputFile::seek(quint64 offset)
{
    if (offset < m_position) {
        close();
        if (!PackageArchiveIOFile::seek(0))
            return false;
        m_position = 0;
        m_isComplete = false;
        open();
    }
    char dropped[dropBytes];
    while (m_position < offset)
        if (read(dropped, qsizetype(qMin(offset - m_position, quint64(dropBytes)))) == 0)
            return false;
    return true;
}

void PackageArchiveCompressedGzInputFile::open()
{
    m_zlib = {};
    if (inflateInit(&m_zlib) != Z_OK)
        throw HException(u"cannot initialise inflate"_s);
}

void PackageArchiveCompressedGzInputFile::close()
{
    inflateEnd(&m_zlib);
    m_zlib = {};
}

qsizetype PackageArchiveCompressedGzInputFile::transfer(void *buffer, qsizetype length)
{
    constexpr qsizetype most = 1 << 30; // what zlib's counters take in one call
    qsizetype done = 0;
    while (done < length && !m_isComplete) {
        if (m_zlib.avail_in == 0) {
            m_zlib.avail_in = refill();
            m_zlib.next_in = reinterpret_cast<Bytef *>(m_input.data());
        }
        const uInt room = uInt(qMin(length - done, most));
        const bool fileEnded = m_zlib.avail_in == 0;
        m_zlib.next_out = static_cast<Bytef *>(buffer) + done;
        m_zlib.avail_out = room;
        const int status = inflate(&m_zlib, Z_NO_FLUSH);
        const uInt produced = room - m_zlib.avail_out;
        done += produced;
        if (status == Z_STREAM_END)
            m_isComplete = true;
        else if (status != Z_OK && status != Z_BUF_ERROR)
            throw HException(u"error decompressing stream"_s);
        else if (fileEnded && produced == 0)
            break;
    }
    return done;
}

void PackageArchiveCompressedBzInputFile::open()
{
    m_bzip2 = {};
    if (BZ2_bzDecompressInit(&m_bzip2, 0, 0) != BZ_OK)
        throw HException(u"cannot initialise inflate"_s);
}

void PackageArchiveCompressedBzInputFile::close()
{
    BZ2_bzDecompressEnd(&m_bzip2);
    m_bzip2 = {};
}

qsizetype PackageArchiveCompressedBzInputFile::transfer(void *buffer, qsizetype length)
{
    constexpr qsizetype most = 1 << 30;
    qsizetype done = 0;
    while (done < length && !m_isComplete) {
        if (m_bzip2.avail_in == 0) {
            m_bzip2.avail_in = refill();
            m_bzip2.next_in = m_input.data();
        }
        const unsigned room = unsigned(qMin(length - done, most));
        const bool fileEnded = m_bzip2.avail_in == 0;
        m_bzip2.next_out = static_cast<char *>(buffer) + done;
        m_bzip2.avail_out = room;
        const int status = BZ2_bzDecompress(&m_bzip2);
        const unsigned produced = room - m_bzip2.avail_out;
        done += produced;
        if (status == BZ_STREAM_END)
            m_isComplete = true;
        else if (status != BZ_OK)
            throw HException(u"error decompressing stream"_s);
        else if (fileEnded && produced == 0)
            break;
    }
    return done;
}

void PackageArchiveCompressedGzOutputFile::open()
{
    // RFC 1950, section 2.2: deflate with a 32 KiB window, how hard it tried, a check of both bytes.
    const unsigned effort = m_level < 2 ? 0 : m_level < 6 ? 1 : m_level == 6 ? 2 : 3;
    unsigned header = 0x7800 | effort << 6;
    header += 31 - header % 31;
    const quint8 bytes[2] = {quint8(header >> 8), quint8(header)};
    if (PackageArchiveIOFile::write(bytes, sizeof bytes) != sizeof bytes)
        m_failed = true;
    m_checksum = adler32(0, nullptr, 0);
}

qsizetype PackageArchiveCompressedGzOutputFile::transfer(const void *buffer, qsizetype length)
{
    const auto *bytes = static_cast<const Bytef *>(buffer);
    qsizetype done = 0;
    while (done < length && !m_failed) {
        const size_t wanted = m_dictionarySize + pieceBytes - m_plain.size();
        const size_t count = qMin(wanted, size_t(length - done));
        m_plain.insert(m_plain.end(), bytes + done, bytes + done + count);
        done += qsizetype(count);
        if (count == wanted)
            startPiece(false);
    }
    return m_failed ? 0 : done;
}

void PackageArchiveCompressedGzOutputFile::startPiece(bool isLast)
{
    const size_t processors = qMax(1u, std::thread::hardware_concurrency());
    if (m_pieces.size() > processors && !writeOldestPiece())
        m_failed = true;
    const size_t next = qMin(m_plain.size(), windowBytes);
    std::vector<Bytef> rest;
    rest.reserve(windowBytes + pieceBytes);
    rest.assign(m_plain.end() - qptrdiff(next), m_plain.end());
    m_pieces.push_back(
        std::async(std::launch::async, deflatePiece, std::move(m_plain), m_dictionarySize, m_level, isLast));
    m_plain = std::move(rest);
    m_dictionarySize = next;
}

PackageArchiveCompressedGzOutputFile::Piece
PackageArchiveCompressedGzOutputFile::deflatePiece(const std::vector<Bytef> &dictionaryAndPlain, size_t dictionarySize,
                                                   int level, bool isLast)
{
    const Bytef *plain = dictionaryAndPlain.data() + dictionarySize;
    const uInt plainSize = uInt(dictionaryAndPlain.size() - dictionarySize);
    z_stream zlib{};
    // Negative window bits: without header and checksum, which belong to the whole stream.
    if (deflateInit2(&zlib, level, Z_DEFLATED, -MAX_WBITS, deflateMemory, Z_DEFAULT_STRATEGY) != Z_OK)
        throw HException(u"cannot initialise deflate"_s);
    deflateSetDictionary(&zlib, dictionaryAndPlain.data(), uInt(dictionarySize));
    constexpr size_t syncBytes = 16; // the empty block that brings a piece to a byte boundary
    Piece piece{std::vector<Bytef>(deflateBound(&zlib, plainSize) + syncBytes), adler32(1, plain, plainSize),
                plainSize};
    zlib.next_in = const_cast<Bytef *>(plain);
    zlib.avail_in = plainSize;
    zlib.next_out = piece.bytes.data();
    zlib.avail_out = uInt(piece.bytes.size());
    deflate(&zlib, isLast ? Z_FINISH : Z_SYNC_FLUSH);
    Q_ASSERT(zlib.avail_in == 0);
    piece.bytes.resize(zlib.total_out);
    deflateEnd(&zlib);
    return piece;
}

bool PackageArchiveCompressedGzOutputFile::writeOldestPiece()
{
    const Piece piece = m_pieces.front().get();
    m_pieces.pop_front();
    m_checksum = adler32_combine(m_checksum, piece.checksum, off_t(piece.plainSize));
    return PackageArchiveIOFile::write(piece.bytes.data(), qsizetype(piece.bytes.size())) ==
           qsizetype(piece.bytes.size());
}

void PackageArchiveCompressedGzOutputFile::close()
{
    startPiece(true);
    while (!m_failed && !m_pieces.empty())
        m_failed = !writeOldestPiece();
    quint8 bytes[4];
    qToBigEndian(quint32(m_checksum), bytes);
    if (m_failed || PackageArchiveIOFile::write(bytes, sizeof bytes) != sizeof bytes)
        throw HException(u"cannot write file"_s);
}

PackageArchiveCompressedBzOutputFile::~PackageArchiveCompressedBzOutputFile()
{
    BZ2_bzCompressEnd(&m_bzip2);
}

void PackageArchiveCompressedBzOutputFile::open()
{
    if (BZ2_bzCompressInit(&m_bzip2, qMax(1, m_level), 0, 0) != BZ_OK)
        throw HException(u"cannot initialise deflate"_s);
    m_output.resize(bufferBytes);
}

bool PackageArchiveCompressedBzOutputFile::run(int action)
{
    for (;;) {
        m_bzip2.next_out = m_output.data();
        m_bzip2.avail_out = unsigned(m_output.size());
        const int status = BZ2_bzCompress(&m_bzip2, action);
        const qsizetype count = qsizetype(m_output.size() - m_bzip2.avail_out);
        if (status < 0 || PackageArchiveIOFile::write(m_output.data(), count) != count)
            return false;
        if (action == BZ_RUN ? m_bzip2.avail_in == 0 : status == BZ_STREAM_END)
            return true;
    }
}

qsizetype PackageArchiveCompressedBzOutputFile::transfer(const void *buffer, qsizetype length)
{
    constexpr qsizetype most = 1 << 30;
    for (qsizetype done = 0; done < length;) {
        const qsizetype count = qMin(length - done, most);
        m_bzip2.next_in = const_cast<char *>(static_cast<const char *>(buffer)) + done;
        m_bzip2.avail_in = unsigned(count);
        if (!run(BZ_RUN))
            return done;
        done += count;
    }
    return length;
}

void PackageArchiveCompressedBzOutputFile::close()
{
    if (!run(BZ_FINISH))
        throw HException(u"cannot write file"_s);
}
