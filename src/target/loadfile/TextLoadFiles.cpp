#include "target/loadfile/TextLoadFiles.h"

#include "base/ByteOrder.h"
#include "base/HException.h"

#include <array>
#include <cstring>
#include <emmintrin.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype longestRecordLine = 529;
constexpr qsizetype longestListingLine = 63;
constexpr quint8 noDigit = 0xFF;

constexpr std::array<quint8, 256> makeDigitValues()
{
    std::array<quint8, 256> values;
    values.fill(noDigit);
    for (quint8 i = 0; i < 10; ++i)
        values['0' + i] = i;
    for (quint8 i = 0; i < 6; ++i)
        values['A' + i] = values['a' + i] = quint8(10 + i);
    return values;
}

constexpr std::array<quint8, 256> digitValues = makeDigitValues();

// Sixteen hex digits make eight bytes at `dest`, whose sum is added to `sum`. False when one is no digit.
bool decodeSixteenDigits(const quint8 *digits, quint8 *dest, quint8 &sum)
{
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i *>(digits));
    const __m128i fromZero = _mm_sub_epi8(text, _mm_set1_epi8('0'));
    const __m128i fromA = _mm_sub_epi8(_mm_or_si128(text, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    const __m128i isNumber = _mm_cmpeq_epi8(_mm_min_epu8(fromZero, _mm_set1_epi8(9)), fromZero);
    const __m128i isLetter = _mm_cmpeq_epi8(_mm_min_epu8(fromA, _mm_set1_epi8(5)), fromA);
    if (_mm_movemask_epi8(_mm_or_si128(isNumber, isLetter)) != 0xFFFF)
        return false;
    const __m128i values =
        _mm_add_epi8(_mm_and_si128(text, _mm_set1_epi8(15)), _mm_and_si128(isLetter, _mm_set1_epi8(9)));
    // In each pair the first digit, the high one, stands in the low half of 16 bits.
    const __m128i pairs =
        _mm_and_si128(_mm_or_si128(_mm_slli_epi16(values, 4), _mm_srli_epi16(values, 8)), _mm_set1_epi16(0xFF));
    const __m128i bytes = _mm_packus_epi16(pairs, _mm_setzero_si128());
    _mm_storel_epi64(reinterpret_cast<__m128i *>(dest), bytes);
    sum += quint8(_mm_cvtsi128_si32(_mm_sad_epu8(bytes, _mm_setzero_si128())));
    return true;
}

[[noreturn]] void throwBadByte()
{
    throw HException(u"invalid ASCII encoded byte"_s);
}

} // namespace

// One line with its line end: a position that reads pairs of hex digits and sums them up.
class TextLoadFile::Line
{
public:
    // At most the bytes up to `limit`.
    Line(const quint8 *start, const quint8 *limit) : m_start(start), m_position(start), m_limit(limit) {}

    // Behind the line feed, or where the line is cut. Sought only when somebody asks: a line feed is no digit, so
    // that no read passes it, and behind a record it is the next character.
    const quint8 *end()
    {
        if (!m_end) {
            const void *const lineFeed = std::memchr(m_position, '\n', size_t(m_limit - m_position));
            m_end = lineFeed ? static_cast<const quint8 *>(lineFeed) + 1 : m_limit;
        }
        return m_end;
    }
    qsizetype length() { return end() - m_start; }
    quint8 at(qsizetype offset) const { return offset < m_limit - m_start ? m_start[offset] : quint8(0); }
    void seek(qsizetype offset) { m_position = m_start + std::min<qsizetype>(offset, m_limit - m_start); }
    quint8 sum() const { return m_sum; }

    quint8 readByte()
    {
        quint8 byte;
        readBytes(&byte, 1);
        return byte;
    }
    // Big-endian.
    quint32 readNumber(quint32 size)
    {
        quint8 bytes[4];
        readBytes(bytes, size);
        return quint32(extractInteger(bytes, 0, size, true));
    }
    void readBytes(quint8 *dest, quint32 count)
    {
        if (count > quint64(m_limit - m_position) / 2)
            throwBadByte();
        quint8 seen = 0, sum = 0;
        for (; count >= 8; count -= 8, dest += 8, m_position += 16)
            if (!decodeSixteenDigits(m_position, dest, sum))
                throwBadByte();
        for (; count; --count, ++dest, m_position += 2) {
            const quint8 high = digitValues[m_position[0]], low = digitValues[m_position[1]];
            seen |= high | low;
            *dest = quint8(high << 4 | low);
            sum += *dest;
        }
        if (seen & 0xF0)
            throwBadByte();
        m_sum += sum;
    }
    void checkSum(quint8 expected)
    {
        if (readByte() != expected)
            throw HException(u"invalid checksum"_s);
    }

private:
    const quint8 *m_start;
    const quint8 *m_position;
    const quint8 *m_limit;
    const quint8 *m_end = nullptr;
    quint8 m_sum = 0;
};

quint8 *TextLoadFile::placeFor(quint32 address, quint32 count)
{
    if (!m_current || m_current->endAddress() != address) {
        auto section = std::make_unique<ExpandingLoadFileSection>(address);
        m_current = section.get();
        m_sections.append(std::move(section));
    }
    return m_current->expand(count);
}

template <typename Decode>
void TextLoadFile::addRecord(quint32 address, quint32 count, Decode decode)
{
    const quint32 below = quint32(std::min<quint64>(count, (quint64(1) << 32) - address));
    decode(placeFor(address, below), below);
    if (below < count)
        decode(placeFor(0, count - below), count - below);
}

template <typename ReadLine>
bool TextLoadFile::readLines(const ByteImage &image, qsizetype longestLine, ReadLine readLine)
{
    const quint8 *position = image.data();
    const quint8 *const end = position + image.size();
    int number = 1;
    try {
        for (; position != end; ++number) {
            Line line(position, position + std::min<qsizetype>(end - position, longestLine));
            if (readLine(line))
                return true;
            position = line.end();
        }
    } catch (const HException &error) {
        throw HException(u"%1 : line %2"_s.arg(error.message()).arg(number));
    }
    return false;
}

IntelHexLoadFile::IntelHexLoadFile(const ByteImage &image)
{
    if (!readLines(image, longestRecordLine, [this](Line &line) { return readRecord(line); }))
        throw HException(u"invalid end of file in hex file"_s);
}

bool IntelHexLoadFile::readRecord(Line &line)
{
    if (line.at(0) != ':')
        throw HException(u"missing record mark in hex file"_s);
    line.seek(1);
    const quint32 head = line.readNumber(4); // length, 16-bit address, type
    const quint8 length = quint8(head >> 24), type = quint8(head);
    switch (type) {
    case 0: // data
        addRecord(m_linearBase + (head >> 8 & 0xFFFF) + m_segmentBase, length,
                  [&](quint8 *dest, quint32 count) { line.readBytes(dest, count); });
        break;
    case 2: m_segmentBase = line.readNumber(2) * 16; break;
    case 3: // CS and IP, as one number
    case 5: setEntryPoint(line.readNumber(4)); break;
    case 4: m_linearBase = line.readNumber(2) << 16; break;
    }
    line.checkSum(quint8(-line.sum()));
    return type == 1;
}

HexLoadFile::HexLoadFile(const ByteImage &image)
{
    readLines(image, longestListingLine, [this](Line &line) {
        if (line.length() < 8)
            throw HException(u"invalid address"_s);
        const quint32 address = line.readNumber(4);
        qsizetype place = 8;
        addRecord(address, quint32(line.length() - 8) / 3, [&](quint8 *dest, quint32 count) {
            for (; count; --count, place += 3) {
                if (line.at(place) != ' ')
                    throw HException(u"invalid seperator"_s);
                line.seek(place + 1);
                *dest++ = line.readByte();
            }
        });
        return false;
    });
}

TIHexLoadFile::TIHexLoadFile(const ByteImage &image)
{
    quint32 address = 0;
    const auto readLine = [&](Line &line) {
        if (line.at(0) == 'q')
            return true;
        if (line.at(0) == '@') {
            address = 0;
            for (qsizetype i = 1; line.at(i) > ' '; ++i) {
                const quint8 digit = digitValues[line.at(i)];
                address = digit == noDigit ? ~quint32(0) : address << 4 | digit;
            }
            return false;
        }
        const quint32 total = quint32(line.length() + 1) / 3;
        qsizetype place = 0;
        addRecord(address, total, [&](quint8 *dest, quint32 count) {
            for (; count; --count, place += 3) {
                line.seek(place);
                *dest++ = line.readByte();
            }
        });
        address += total;
        return false;
    };
    if (!readLines(image, longestListingLine, readLine))
        throw HException(u"unexpected end of file"_s);
}

SRecordLoadFile::SRecordLoadFile(const ByteImage &image)
{
    readLines(image, longestRecordLine, [this](Line &line) {
        readRecord(line);
        return false;
    });
}

void SRecordLoadFile::readRecord(Line &line)
{
    if (line.at(0) != 'S')
        throw HException(u"no leading 'S' character"_s);
    const quint8 type = line.at(1);
    if (type == '\n')
        throwBadByte();
    line.seek(2);
    const quint8 count = line.readByte(); // of the bytes behind it: address, data and checksum
    const auto dataLength = [&](quint32 others) {
        if (count < others)
            throw HException(u"invalid record length"_s);
        return count - others;
    };
    switch (type) {
    case '0': { // header
        std::array<quint8, 255> dropped;
        line.readBytes(dropped.data(), dataLength(1));
        break;
    }
    case '1':
    case '2':
    case '3': {
        const quint32 addressBytes = type - '1' + 2u;
        const quint32 length = dataLength(addressBytes + 1);
        const quint32 address = line.readNumber(addressBytes);
        addRecord(address, length, [&](quint8 *dest, quint32 part) { line.readBytes(dest, part); });
        ++m_dataRecords;
        break;
    }
    case '5':
        if (line.readNumber(2) != m_dataRecords)
            throw HException(u"incorrect data record count"_s);
        break;
    case '7':
    case '8':
    case '9': setEntryPoint(line.readNumber(quint32('9' - type) + 2)); break;
    }
    line.checkSum(quint8(~line.sum()));
}
