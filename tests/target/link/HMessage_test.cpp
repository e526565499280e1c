#include "support/QtPrinters.h"
#include "target/link/HMessage.h"

#include <gtest/gtest.h>

namespace {

QByteArray hexOf(const HMessage &message)
{
    return QByteArray(reinterpret_cast<const char *>(message.bytes().data()), message.capacity()).toHex();
}

TEST(HMessage, PutsAndGetsInBothByteOrders)
{
    HMessage message(26);
    message.putU32(0x01020304, true);
    message.putS32(-2, false);
    message.putU16(0x0506, false);
    message.putS16(-3, true);
    message.putU8(0xFE);
    message.putS8(-4);
    message.putBytes("xyz", 3);
    message.putString("hi");
    EXPECT_EQ(message.cursor(), 20u);
    message.putU32At(21, 0xAABBCCDD, false);
    EXPECT_EQ(message.cursor(), 20u);
    EXPECT_EQ(hexOf(message), "01020304feffffff0605fffdfefc78797a68690000ddccbbaa00");
    message.seek(0);
    EXPECT_EQ(message.getU32(true), 0x01020304u);
    EXPECT_EQ(message.getS32(false), -2);
    EXPECT_EQ(message.getU16(false), 0x0506);
    EXPECT_EQ(message.getS16(true), -3);
    EXPECT_EQ(message.getU8(), 0xFE);
    EXPECT_EQ(message.getS8(), -4);
    char text[8] = {};
    message.getBytes(text, 3);
    EXPECT_STREQ(text, "xyz");
    EXPECT_EQ(message.getString(text, 2), 3u); // the stored text counts, not what fits
    EXPECT_STREQ(text, "h");
    EXPECT_EQ(message.cursor(), 20u);
    EXPECT_EQ(message.getU32At(21, true), 0xDDCCBBAAu);
}

TEST(HMessage, NothingLeavesTheBuffer)
{
    HMessage message(QByteArray("abc"));
    message.putU32(1, false);
    EXPECT_EQ(message.cursor(), 4u);
    message.putU16At(2, 1, false);
    message.putStringAt(0, "long");
    EXPECT_EQ(hexOf(message), "616263");
    EXPECT_EQ(message.getU32At(0, false), 0u);
    EXPECT_EQ(message.getU8At(0xFFFFFFFF), 0u);
    char text[4] = "###";
    EXPECT_EQ(message.getStringAt(1, text, 4), 3u); // no NUL before the end
    EXPECT_STREQ(text, "bc");
    message.getStringAt(9, text, 4);
    EXPECT_STREQ(text, "");
    message.seek(0x7FFFFFFF);
    for (int i = 0; i < 3; ++i)
        message.putBytes("x", 0x7FFFFFFF); // the cursor stops at the last offset
    EXPECT_EQ(message.cursor(), 0xFFFFFFFFu);
    EXPECT_EQ(message.getU16(false), 0u);
}

TEST(HMessage, ReadsLebNumbers)
{
    struct Row
    {
        const char *hex;
        quint32 value, count;
        qint32 signedValue;
    };
    const Row rows[] = {
        {"00", 0, 1, 0},
        {"40", 64, 1, -64},
        {"E58E26", 624485, 3, 624485},
        {"FFFFFF7F", 0x0FFFFFFF, 4, -1},
        {"FFFFFF3F", 0x07FFFFFF, 4, 0x07FFFFFF},
        {"80808080", 0xFFFFFFFF, 4, 0x7FFFFFFF},
        {"81", 1, 1, 1}, // cut off
        {"", 0, 0, 0},
    };
    for (const Row &row : rows) {
        HMessage message(row.hex);
        quint32 value = 77;
        qint32 signedValue = 77;
        EXPECT_EQ(message.getULEB(value), row.count) << row.hex;
        EXPECT_EQ(message.cursor(), row.count);
        EXPECT_EQ(value, row.value) << row.hex;
        EXPECT_EQ(message.getSLEBAt(0, signedValue), row.count) << row.hex;
        EXPECT_EQ(signedValue, row.signedValue) << row.hex;
    }
}

TEST(HMessage, TextMarksAndCopies)
{
    EXPECT_EQ(hexOf(HMessage("4D 9")), "4d09");
    EXPECT_EQ(hexOf(HMessage("4d39EAf6z1")), "4d39eaf601");
    EXPECT_EQ(HMessage("").capacity(), 0u);
    EXPECT_EQ(HMessage(static_cast<const char *>(nullptr)).capacity(), 0u);

    HMessage message("010203");
    message.setEndMark(2);
    message.setSecondMark(1);
    message.seek(-1);
    EXPECT_EQ(message.getU8(), 3);
    EXPECT_EQ(message.secondMark(), 1u);

    HMessage copy = message;
    copy.putU8At(0, 9);
    EXPECT_EQ(message.getU8At(0), 1);
    quint8 outside[2] = {5, 6};
    HMessage view{std::span<quint8>(outside)};
    HMessage same = view;
    same.putU8(7);
    EXPECT_EQ(outside[0], 7);
    same = message;
    same.putU8At(0, 8);
    EXPECT_EQ(message.getU8At(0), 1);
    EXPECT_EQ(outside[0], 7);
}

} // namespace
