#include "base/IntegerReader.h"

namespace {

// The value of a digit or letter, or -1 for what ends a number.
int digitValue(char16_t c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char16_t lower = c | 0x20;
    if (lower == 'u' || lower == 'l' || lower < 'a' || lower > 'z')
        return -1;
    return lower - 'a' + 10;
}

} // namespace

quint64 readInteger(QStringView text)
{
    text = text.trimmed();
    const bool negative = text.startsWith(u'-');
    if (negative || text.startsWith(u'+'))
        text = text.sliced(1);
    quint32 radix = 10;
    if (text.startsWith(u"0x"))
        radix = 16;
    else if (text.startsWith(u"0b"))
        radix = 2;
    else if (text.startsWith(u'0'))
        radix = 8;
    if (radix == 16 || radix == 2)
        text = text.sliced(2);
    quint64 value = 0;
    for (const QChar c : text) {
        const int digit = digitValue(c.unicode());
        if (digit < 0)
            break;
        value = value * radix + quint64(digit);
    }
    return negative ? 0 - value : value;
}
