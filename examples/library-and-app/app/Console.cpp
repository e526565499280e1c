#include "Console.hpp"

#include <cstdint>

namespace {

// LM3S6965 data sheet, "Universal Asynchronous Receivers/Transmitters".
volatile std::uint32_t &word(std::uint32_t address)
{
    return *reinterpret_cast<volatile std::uint32_t *>(address);
}

constexpr std::uint32_t clockGates1 = 0x400FE104, uart0 = 0x4000C000;
constexpr std::uint32_t data = 0x00, flags = 0x18, integerDivisor = 0x24, fractionalDivisor = 0x28, lineControl = 0x2C,
                        control = 0x30;
constexpr std::uint32_t transmitFifoFull = 1 << 5;

} // namespace

SerialPort::SerialPort()
{
    word(clockGates1) = word(clockGates1) | 1;
    // 115,200 baud from the 12 MHz of the internal oscillator: 6 and 33 / 64.
    word(uart0 + integerDivisor) = 6;
    word(uart0 + fractionalDivisor) = 33;
    word(uart0 + lineControl) = 0x70; // 8 bits, FIFOs
    word(uart0 + control) = 0x301;    // transmitter, receiver, on
}

void SerialPort::put(char c)
{
    while (word(uart0 + flags) & transmitFifoFull) {
    }
    word(uart0 + data) = static_cast<unsigned char>(c);
}

Console &Console::operator<<(const char *text)
{
    for (; *text; ++text)
        m_sink.put(*text);
    return *this;
}

Console &Console::operator<<(int number)
{
    char digits[12];
    char *start = digits + sizeof digits - 1;
    *start = '\0';
    unsigned rest = number < 0 ? 0u - static_cast<unsigned>(number) : static_cast<unsigned>(number);
    do {
        *--start = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest);
    if (number < 0)
        *--start = '-';
    return *this << start;
}
