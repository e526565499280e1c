#include "target/memory/CodeBuffer.h"

#include "base/ByteOrder.h"

#include <bit>
#include <cstring>
#include <emmintrin.h>
#include <new>
#include <sys/mman.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char digits[] = "0123456789ABCDEF";

constexpr std::array<std::array<char, 2>, 256> makeHexPairs()
{
    std::array<std::array<char, 2>, 256> pairs{};
    for (size_t byte = 0; byte < 256; ++byte)
        pairs[byte] = {digits[byte >> 4], digits[byte & 15]};
    return pairs;
}

constexpr auto hexPairs = makeHexPairs();

} // namespace

// One record under way: the text grows, the sum of the bytes that it shows is kept.
struct TextCodeBuffer::Record
{
    std::array<char, 80> text;
    quint32 length = 0;
    quint8 sum = 0;

    void put(char character) { text[length++] = character; }
    // Two upper-case digits.
    void putHex(quint8 byte)
    {
        std::memcpy(&text[length], hexPairs[byte].data(), 2);
        length += 2;
        sum += byte;
    }
    // Most significant byte first.
    void putHex(quint32 value, quint32 size)
    {
        while (size)
            putHex(quint8(value >> 8 * --size));
    }
    void putHex(std::span<const quint8> bytes)
    {
        for (; bytes.size() >= 8; bytes = bytes.subspan(8))
            putEight(bytes.data());
        for (const quint8 byte : bytes)
            putHex(byte);
    }
    void putEight(const quint8 *bytes)
    {
        const __m128i low = _mm_set1_epi8(15), eight = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(bytes));
        const __m128i nibbles =
            _mm_unpacklo_epi8(_mm_and_si128(_mm_srli_epi16(eight, 4), low), _mm_and_si128(eight, low));
        const __m128i toLetter =
            _mm_and_si128(_mm_cmpgt_epi8(nibbles, _mm_set1_epi8(9)), _mm_set1_epi8('A' - '0' - 10));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(&text[length]),
                         _mm_add_epi8(_mm_add_epi8(nibbles, _mm_set1_epi8('0')), toLetter));
        length += 16;
        sum += quint8(_mm_cvtsi128_si32(_mm_sad_epu8(eight, _mm_setzero_si128())));
    }
};

void TextCodeBuffer::setAddress(quint32 address)
{
    if (address == m_address)
        return;
    flushLine();
    m_address = m_lineStart = address;
}

void TextCodeBuffer::putBytes(std::span<const quint8> bytes)
{
    while (!bytes.empty()) {
        const quint32 used = m_address - m_lineStart;
        size_t count = std::min<size_t>(bytes.size(), bytesPerLine - used);
        if (breaksAtWrap())
            count = std::min<quint64>(count, (quint64(1) << 32) - m_address);
        std::memcpy(&m_line[used], bytes.data(), count);
        m_address += quint32(count);
        bytes = bytes.subspan(count);
        if (m_address - m_lineStart == bytesPerLine || (m_address == 0 && breaksAtWrap()))
            flushLine();
    }
}

void TextCodeBuffer::flushLine()
{
    if (m_address != m_lineStart)
        writeLine(m_lineStart, {m_line.data(), m_address - m_lineStart});
    m_lineStart = m_address;
}

void TextCodeBuffer::append(Record &record)
{
    record.put('\n');
    if (record.length > m_text.size() - m_textLength)
        flushText();
    std::memcpy(&m_text[m_textLength], record.text.data(), record.length);
    m_textLength += record.length;
}

void TextCodeBuffer::flushText()
{
    write(QByteArrayView(m_text.data(), qsizetype(std::exchange(m_textLength, 0))));
}

void TextCodeBuffer::finish(quint32 entry)
{
    flushLine();
    writeEnd(entry);
    flushText();
    commit();
}

void SRecordBuffer::writeLine(quint32 start, std::span<const quint8> bytes)
{
    const quint32 addressBytes = start < 0x10000 ? 2 : start < 0xFFFFFF ? 3 : 4;
    Record record;
    record.put('S');
    record.put(digits[addressBytes - 1]);
    record.putHex(quint8(bytes.size() + addressBytes + 1));
    record.putHex(start, addressBytes);
    record.putHex(bytes);
    record.putHex(quint8(~record.sum));
    append(record);
}

void SRecordBuffer::writeEnd(quint32 entry)
{
    Record record;
    record.put('S');
    record.put('9');
    record.putHex(3);
    record.putHex(entry & 0xFFFF, 2);
    record.putHex(quint8(~record.sum));
    append(record);
}

void HexBuffer::writeLine(quint32 start, std::span<const quint8> bytes)
{
    Record record;
    record.putHex(start, 4);
    for (const quint8 byte : bytes) {
        record.put(' ');
        record.putHex(byte);
    }
    append(record);
}

void IntelHexBuffer::writeLine(quint32 start, std::span<const quint8> bytes)
{
    const quint16 upper = quint16(start >> 16);
    if (upper != m_upperAddress) {
        m_upperAddress = upper;
        Record record;
        record.put(':');
        record.putHex(0x02000004, 4);
        record.putHex(upper, 2);
        record.putHex(quint8(-record.sum));
        append(record);
    }
    Record record;
    record.put(':');
    record.putHex(quint8(bytes.size()));
    record.putHex(start & 0xFFFF, 2);
    record.putHex(0);
    record.putHex(bytes);
    record.putHex(quint8(-record.sum));
    append(record);
}

void IntelHexBuffer::writeEnd(quint32)
{
    Record record;
    record.put(':');
    record.putHex(0x00000001, 4);
    record.putHex(quint8(-record.sum));
    append(record);
}

void TekHexBuffer::writeRecord(char type, quint32 address, std::span<const quint8> bytes)
{
    const quint32 addressDigits = address ? quint32(35 - std::countl_zero(address)) / 4 : 1;
    Record record;
    record.put('%');
    record.putHex(quint8(addressDigits + 2 * bytes.size() + 6));
    record.put(type);
    const quint32 checksumPlace = record.length;
    record.putHex(0);
    record.put(digits[addressDigits]);
    for (quint32 i = addressDigits; i-- > 0;)
        record.put(digits[address >> 4 * i & 15]);
    record.putHex(bytes);

    quint32 sum = 0;
    for (quint32 i = 1; i < record.length; ++i)
        sum += quint32(record.text[i] <= '9' ? record.text[i] - '0' : record.text[i] - 'A' + 10);
    std::memcpy(&record.text[checksumPlace], hexPairs[quint8(sum)].data(), 2);
    append(record);
}

void TIHexBuffer::writeLine(quint32 start, std::span<const quint8> bytes)
{
    if (start != m_nextAddress) {
        Record record;
        record.put('@');
        record.putHex(start, 4);
        append(record);
    }
    m_nextAddress = start + quint32(bytes.size());
    Record record;
    for (const quint8 byte : bytes) {
        if (record.length)
            record.put(' ');
        record.put("0123456789abcdef"[byte >> 4]);
        record.put("0123456789abcdef"[byte & 15]);
    }
    append(record);
}

void TIHexBuffer::writeEnd(quint32)
{
    Record record;
    record.put('q');
    append(record);
}

// Cut from blocks that the system may back by huge pages: else faulting in the small ones would cost as much as
// all the rest of writing a large image.
quint8 *PagedCodeBuffer::newPage()
{
    constexpr size_t blockBytes = 2 << 20;
    if (m_blocks.empty() || m_blockUsed == blockBytes) {
        m_blocks.emplace_back(static_cast<quint8 *>(std::aligned_alloc(blockBytes, blockBytes)));
        if (!m_blocks.back())
            throw std::bad_alloc();
        ::madvise(m_blocks.back().get(), blockBytes, MADV_HUGEPAGE);
        m_blockUsed = 0;
    }
    quint8 *const page = m_blocks.back().get() + m_blockUsed;
    m_blockUsed += m_pageBytes;
    std::memset(page, 0xFF, m_pageBytes);
    return page;
}

void PagedCodeBuffer::putBytes(std::span<const quint8> bytes)
{
    while (!bytes.empty()) {
        const quint32 place = m_address % m_pageBytes;
        const size_t count = std::min<size_t>(bytes.size(), m_pageBytes - place);
        quint8 *&page = m_pages[m_address - place];
        if (!page)
            page = newPage();
        std::memcpy(page + place, bytes.data(), count);
        m_highestAddress = std::max(m_highestAddress, quint32(m_address + count - 1));
        m_address += quint32(count);
        bytes = bytes.subspan(count);
    }
}

void BinaryBuffer::finish(quint32)
{
    quint64 position = m_base; // the address whose byte comes next
    for (const auto &[start, page] : pages()) {
        const quint64 end = std::min(quint64(start) + pageBytes(), quint64(highestAddress()) + 1);
        if (end <= position)
            continue;
        if (start > position)
            writeZeros(start - std::exchange(position, start));
        write(QByteArrayView(page + (position - start), qsizetype(end - position)));
        position = end;
    }
    commit();
}

void Uf2Buffer::finish(quint32)
{
    quint32 number = 0;
    for (const auto &[start, page] : pages()) {
        std::array<char, 512> block{};
        const quint32 header[] = {0x0A324655,  0x9E5D5157, m_family ? 0x2000u : 0u, start,
                                  pageBytes(), number++,   quint32(pages().size()), m_family.value_or(0)};
        for (size_t i = 0; i < std::size(header); ++i)
            insertInteger(block.data(), qsizetype(4 * i), header[i], 4, false);
        std::memcpy(&block[32], page, pageBytes());
        insertInteger(block.data(), 508, 0x0AB16F30, 4, false);
        write(QByteArrayView(block.data(), block.size()));
    }
    commit();
}

std::unique_ptr<CodeBuffer> createCodeBuffer(const QString &extension, const QString &fileName)
{
    if (extension == u"hex")
        return std::make_unique<IntelHexBuffer>(fileName);
    if (extension == u"lst")
        return std::make_unique<HexBuffer>(fileName);
    if (extension == u"srec")
        return std::make_unique<SRecordBuffer>(fileName);
    if (extension == u"bin")
        return std::make_unique<BinaryBuffer>(fileName);
    if (extension == u"txt")
        return std::make_unique<TIHexBuffer>(fileName);
    return nullptr;
}
