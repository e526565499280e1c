#include "debug/values/ValueText.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

struct TextCase
{
    ExpressionValue value;
    int radix;
    const char *text;
    bool asUnsigned = false, asChar = false;
};

TEST(ValueText, WritesEveryKind)
{
    const double infinity = std::numeric_limits<double>::infinity();
    using Value = ExpressionValue;
    const TextCase rows[] = {
        {Value::ofBool(true), 16, "true"},
        {Value(), 10, ""},
        {Value::ofText(u"x"_s), 16, "x"},
        {Value::ofSigned(-1, 1), 10, "-1"},
        {Value::ofSigned(-1, 1), 16, "0xff"},
        {Value::ofSigned(-1, 1), 10, "255", true},
        {Value::ofUnsigned(0xFFFF, 2), 8, "077777"},
        {Value::ofUnsigned(5, 4), 16, "0x00000005"},
        {Value::ofUnsigned(5, 1), 2, "0b00000101"},
        {Value::ofUnsigned(5, 1), 8, "0005"},
        {Value::ofUnsigned(1, 8), 8, "0000000000000000000001"},
        {Value::ofUnsigned(12345678901234567890u, 8), 10, "2345678901234567890"},
        {Value::ofUnsigned(7, 4, 6), 16, "0x07"},
        {Value::ofUnsigned(7, 4, 5), 2, "0b00111"},
        {Value::ofUnsigned(7, 3), 16, "0x7"},
        {Value::ofUnsigned('a', 1), 10, "a", false, true},
        {Value::ofUnsigned(10, 1), 10, "\\u000a", false, true},
        {Value::ofFloat(2.5), 10, "2.5"},
        {Value::ofFloat(2.5, 4), 16, "0x40200000"},
        {Value::ofFloat(infinity), 10, "Inf"},
        {Value::ofFloat(-infinity), 10, "-Inf"},
        {Value::ofFloat(std::numeric_limits<double>::quiet_NaN()), 10, "NaN"},
    };
    for (const TextCase &row : rows)
        EXPECT_EQ(toText(row.value, row.radix, row.asUnsigned, row.asChar), QString::fromLatin1(row.text));
    EXPECT_EQ(toText(Value::ofFloat(1.0 / 3), 10, false, false, "%.3f"), u"0.333"_s);
}

TEST(ValueText, ReadsWhatAUserWrites)
{
    using Value = ExpressionValue;
    EXPECT_EQ(fromText(Value::ofUnsigned(0, 2, 5), u" 0x1F"_s).asUnsigned(), 31u);
    EXPECT_EQ(fromText(Value::ofUnsigned(0, 2, 5), u"1"_s).bitSize(), 5u);
    EXPECT_EQ(fromText(Value::ofSigned(0, 1), u"-0b11"_s).asSigned(), -3);
    EXPECT_TRUE(fromText(Value::ofBool(false), u"true"_s).asBool());
    EXPECT_EQ(fromText(Value::ofBool(false), u"maybe"_s).kind(), Value::None);
    EXPECT_EQ(fromText(Value::ofFloat(0, 4), u"1e3"_s).asDouble(), 1000);
    EXPECT_EQ(fromText(Value::ofText(u"a"_s), u"b"_s).text(), u"b"_s);
}

TEST(ValueText, WritesCharactersAsC)
{
    const std::pair<int, const char *> rows[] = {{0, "0 '\\000'"},    {7, "7 '\\a'"},   {27, "27 '\\033'"},
                                                 {'A', "65 'A'"},     {39, "39 '\\''"}, {92, "92 '\\\\'"},
                                                 {200, "200 '\\310'"}};
    for (const auto &[code, text] : rows)
        EXPECT_EQ(characterText(ExpressionValue::ofUnsigned(quint64(code), 1)), QString::fromLatin1(text));
    EXPECT_EQ(characterText(ExpressionValue::ofSigned(-56, 1)), u"-56 '\\310'"_s);
    EXPECT_EQ(characterText(ExpressionValue::ofSigned(0xD, 1, 4)), u"-3 '\\375'"_s); // a bit field
}

} // namespace
