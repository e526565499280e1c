#pragma once

#include <cstdint>

// A number with 16 bits before and 16 behind the binary point: a Cortex-M3 has no floating-point unit. Products
// are worked out in 64 bits; results beyond +-32767 wrap.
class Fixed
{
public:
    constexpr Fixed() = default;
    constexpr Fixed(int whole) : m_bits(whole * one) {}
    static constexpr Fixed fraction(int numerator, int denominator)
    {
        return ofBits(static_cast<std::int32_t>(static_cast<std::int64_t>(numerator) * one / denominator));
    }

    constexpr int rounded() const { return (m_bits + one / 2) >> fractionBits; }

    friend constexpr Fixed operator+(Fixed a, Fixed b) { return ofBits(a.m_bits + b.m_bits); }
    friend constexpr Fixed operator-(Fixed a, Fixed b) { return ofBits(a.m_bits - b.m_bits); }
    friend constexpr Fixed operator*(Fixed a, Fixed b)
    {
        return ofBits(static_cast<std::int32_t>(static_cast<std::int64_t>(a.m_bits) * b.m_bits >> fractionBits));
    }
    friend constexpr bool operator<(Fixed a, Fixed b) { return a.m_bits < b.m_bits; }

private:
    static constexpr int fractionBits = 16;
    static constexpr std::int32_t one = 1 << fractionBits;

    static constexpr Fixed ofBits(std::int32_t bits)
    {
        Fixed result;
        result.m_bits = bits;
        return result;
    }

    std::int32_t m_bits = 0;
};

constexpr Fixed clamped(Fixed value, Fixed low, Fixed high)
{
    return value < low ? low : high < value ? high : value;
}

static_assert((Fixed::fraction(1, 4) * Fixed(10)).rounded() == 3);
