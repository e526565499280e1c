#pragma once

#include "expression/ExpressionValue.h"

// The text of a value. `radix` 2, 8, 10 or 16 with the prefix of C: the digits are padded to the width of the value's
// size and cut to it; `asChar` shows an integer as a character; `floatFormat` is printf's.
QString toText(const ExpressionValue &value, int radix = 10, bool asUnsigned = false, bool asChar = false,
               const char *floatFormat = "%g");
// What a user wrote, as a value of the kind and size of `prototype`. A marker is set to the address that the text
// gives. Kind None for a text that is no such value.
ExpressionValue fromText(const ExpressionValue &prototype, const QString &text);

// 97 'a', as C writes the character.
QString characterText(const ExpressionValue &value);
