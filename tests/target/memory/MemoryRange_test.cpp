#include "target/memory/MemoryRange.h"

#include <QTextStream>
#include <gtest/gtest.h>

namespace {

MemoryRangeList rangesOf(std::initializer_list<MemoryRange> ranges)
{
    MemoryRangeList list;
    for (const MemoryRange &range : ranges)
        list.add(range.start, range.end, range.access, range.name);
    return list;
}

TEST(MemoryRange, SwapsEndsAndMeasuresTheWholeSpace)
{
    const MemoryRange range(0x200, 0x100);
    EXPECT_EQ(range.start, 0x100u);
    EXPECT_EQ(range.end, 0x200u);
    EXPECT_EQ(range.length(), 0x101u);
    EXPECT_TRUE(range.name.isNull());
    EXPECT_EQ(MemoryRange(0, 0xFFFFFFFF).length(), quint64(1) << 32);
}

TEST(MemoryRangeList, FindsTheFirstRangeThatHoldsAll)
{
    const MemoryRangeList list =
        rangesOf({{0, 0xFF, 0, "a"}, {0x80, 0x1FF, 0, "b"}, {0xFFFFFFF0, 0xFFFFFFFF, 0, "top"}});
    EXPECT_EQ(list.findAddress(0x80)->name, "a");
    EXPECT_EQ(list.findContaining(0x80, 0x100)->name, "b");
    EXPECT_EQ(list.findAddress(0xFFFFFFFF)->name, "top");
    EXPECT_EQ(list.findContaining(0, 0x100), nullptr);
    EXPECT_EQ(list.findAddress(0x200), nullptr);
    EXPECT_EQ(MemoryRangeList().findAddress(0), nullptr);
}

TEST(MemoryRangeList, ComparesLists)
{
    const MemoryRangeList list = rangesOf({{0, 0xFF}, {0x200, 0x2FF}});
    EXPECT_TRUE(list.intersectsRange(0xFF, 0x1FF));
    EXPECT_FALSE(list.intersectsRange(0x100, 0x1FF));
    EXPECT_TRUE(list.intersects(rangesOf({{0x400, 0x500}, {0x2FF, 0x300}})));
    EXPECT_FALSE(list.intersects({}));
    EXPECT_TRUE(list.containsAll(rangesOf({{0x10, 0x20}, {0x200, 0x2FF}})));
    EXPECT_FALSE(list.containsAll(rangesOf({{0x10, 0x20}, {0x200, 0x300}})));
    EXPECT_TRUE(list.containsAll({}));
}

TEST(MemoryRangeList, CoversAdjacentRangesOfEqualAccessOnly)
{
    EXPECT_TRUE(rangesOf({{0, 0xFF}, {0x100, 0x1FF}}).covers(0x80, 0x180));
    EXPECT_TRUE(rangesOf({{0, 0xFF}, {0x100, 0x1FF}}).covers(0x180, 0x80));
    EXPECT_TRUE(rangesOf({{0, 0xFF}, {0x80, 0x1FF}, {0x200, 0x2FF}}).covers(0, 0x2FF));
    EXPECT_FALSE(rangesOf({{0, 0xFF, accessReadWrite}, {0x100, 0x1FF, accessReadOnly}}).covers(0x80, 0x180));
    EXPECT_FALSE(rangesOf({{0, 0xFF}, {0x101, 0x1FF}}).covers(0x80, 0x180));
    EXPECT_FALSE(rangesOf({{0x100, 0x1FF}, {0, 0xFF}}).covers(0x80, 0x180)); // in list order only
    EXPECT_FALSE(rangesOf({{0, 0xFF}, {0x100, 0x1FF}}).covers(0x80, 0x200));
    EXPECT_TRUE(rangesOf({{0, 0xFFFFFFFE}, {0xFFFFFFFF, 0xFFFFFFFF}}).covers(0, 0xFFFFFFFF));
    EXPECT_FALSE(MemoryRangeList().covers(0, 0));
}

TEST(MemoryRangeList, SizesRemovalAndText)
{
    MemoryRangeList list =
        rangesOf({{0, 0xFF, accessReadOnly}, {0x200, 0x2FF, accessWriteOnly}, {0xFFFFFF00, 0xFFFFFFFF}});
    EXPECT_EQ(list.totalSize(false), 0x300u);
    EXPECT_EQ(list.totalSize(true), quint64(1) << 32);
    EXPECT_EQ(MemoryRangeList().totalSize(true), 0u);
    EXPECT_EQ(MemoryRangeList().totalSize(false), 0u);
    QString text;
    QTextStream stream(&text);
    list.print(stream);
    EXPECT_EQ(text.toStdString(), "0x00000000 - 0x000000FF : readonly\n"
                                  "0x00000200 - 0x000002FF : writeonly\n"
                                  "0xFFFFFF00 - 0xFFFFFFFF : readwrite\n");
    EXPECT_EQ(list.remove(0), 0u);
    EXPECT_EQ(list.at(0).start, 0x200u);
    list.clear();
    EXPECT_TRUE(list.isEmpty());
}

} // namespace
