#pragma once

#include <QStringView>

// Reads an integer as it is written in expressions, description files and property texts: white space, a
// sign, then "0x" for radix 16, "0b" for radix 2, another leading "0" for radix 8, else radix 10. Digits end
// at "U", "u", "L", "l" or anything that is neither a letter nor a digit. The radix doesn't limit them ("a" counts as
// 10 anywhere, so 09 is 9) and values wrap at 64 bits. A text without digits is 0; a negative number is given as its
// two's complement.
quint64 readInteger(QStringView text);
