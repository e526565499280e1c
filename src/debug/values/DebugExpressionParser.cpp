#include "debug/values/DebugExpressionParser.h"

#include <array>
#include <bit>
#include <cmath>

namespace {

// Half precision, widened by shifting: 0 and numbers below the normal ones are no special case.
constexpr quint32 halfBiasDifference = 0x70;

double ofHalf(quint32 bits)
{
    const quint32 exponent = (bits >> 10 & 0x1F) + halfBiasDifference;
    return double(std::bit_cast<float>((bits & 0x8000) << 16 | exponent << 23 | (bits & 0x3FF) << 13));
}

quint16 halfOf(double value)
{
    const quint32 bits = std::bit_cast<quint32>(float(value));
    const quint32 exponent = (bits >> 23 & 0xFF) - halfBiasDifference;
    return quint16((bits >> 16 & 0x8000) | (exponent & 0x1F) << 10 | (bits >> 13 & 0x3FF));
}

// Quadruple precision: sign, 15 bits of exponent, 112 of fraction.
constexpr int quadrupleBias = 16383, quadrupleFractionBits = 112;

double ofQuadruple(quint64 high, quint64 low)
{
    const int exponent = int(high >> 48 & 0x7FFF);
    const double fraction = std::ldexp(double(high & 0xFFFFFFFFFFFF), 64) + double(low);
    const double sign = high >> 63 ? -1 : 1;
    if (exponent == 0x7FFF)
        return sign * (fraction == 0 ? std::numeric_limits<double>::infinity() : std::nan(""));
    const double whole = exponent ? std::ldexp(1.0, quadrupleFractionBits) + fraction : fraction;
    return sign * std::ldexp(whole, std::max(exponent, 1) - quadrupleBias - quadrupleFractionBits);
}

} // namespace

double DebugExpressionParser::readFloat(quint32 size)
{
    switch (size) {
    case 2: return ofHalf(quint32(block().readInteger(2)));
    case 4: return double(std::bit_cast<float>(quint32(block().readInteger(4))));
    case 8: return std::bit_cast<double>(block().readInteger(8));
    case 16: {
        const quint64 first = block().readInteger(8), second = block().readInteger(8);
        return m_bigEndian ? ofQuadruple(first, second) : ofQuadruple(second, first);
    }
    }
    return 0;
}

void DebugExpressionParser::writeFloat(double value, quint32 size)
{
    switch (size) {
    case 2: block().writeInteger(halfOf(value), 2); break;
    case 4: block().writeInteger(std::bit_cast<quint32>(float(value)), 4); break;
    case 8: block().writeInteger(std::bit_cast<quint64>(value), 8); break;
    case 16: {
        int exponent = 0;
        const double fraction = std::frexp(std::abs(value), &exponent); // 0.5 <= fraction < 1
        quint64 high = 0, low = 0;
        if (std::isnan(value) || std::isinf(value)) {
            high = quint64(0x7FFF) << 48 | (std::isnan(value) ? quint64(1) << 47 : 0);
        } else if (fraction != 0) {
            const quint64 bits = quint64(std::ldexp(fraction, 53)) & ((quint64(1) << 52) - 1);
            high = quint64(exponent - 1 + quadrupleBias) << 48 | bits >> 4;
            low = bits << 60;
        }
        high |= quint64(std::signbit(value)) << 63;
        block().writeInteger(m_bigEndian ? high : low, 8);
        block().writeInteger(m_bigEndian ? low : high, 8);
        break;
    }
    }
}
