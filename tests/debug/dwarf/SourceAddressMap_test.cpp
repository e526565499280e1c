#include "debug/dwarf/SourceAddressMap.h"
#include "support/QtPrinters.h"

using namespace Qt::StringLiterals;

namespace {

struct MapFixture
{
    SourcePaths paths;
    SourceAddressMap map{paths};

    QString at(quint32 address)
    {
        const auto found = map.sourceAt(address);
        return found ? text(*found) : u"none"_s;
    }
    QString in(quint32 address, quint32 low, quint32 high)
    {
        const auto found = map.sourceInRange(address, low, high);
        return found ? text(*found) : u"none"_s;
    }
    static QString text(const SourcePosition &position)
    {
        return u"%1:%2 %3-%4"_s.arg(position.path)
            .arg(position.line)
            .arg(position.start, 0, 16)
            .arg(position.end, 0, 16);
    }
};

TEST(SourceAddressMap, KeepsTheFirstFileAndItsHighestLine)
{
    struct Row
    {
        const char *what;
        std::vector<std::pair<const char *, int>> added;
        const char *kept;
    };
    const Row rows[] = {
        {"higher line later", {{"/a", 10}, {"/a", 12}}, "/a:12 100-100"},
        {"higher line first", {{"/a", 12}, {"/a", 10}}, "/a:12 100-100"},
        {"another file later", {{"/a", 10}, {"/b", 12}}, "/a:10 100-100"},
        {"the first file again", {{"/a", 10}, {"/b", 12}, {"/a", 11}}, "/a:11 100-100"},
        {"another spelling of the file", {{"/x/../a", 10}, {"/a", 12}}, "/a:12 100-100"},
        {"no path", {{"", 10}, {"/b", 2}}, "/b:2 100-100"},
    };
    for (const Row &row : rows) {
        MapFixture fixture;
        for (const auto &[path, line] : row.added) {
            fixture.map.add(QString::fromLatin1(path), line, 0x100);
            fixture.map.rows(); // sorting between additions makes no difference
        }
        EXPECT_EQ(fixture.at(0x100), QString::fromLatin1(row.kept)) << row.what;
        MapFixture atOnce;
        for (const auto &[path, line] : row.added)
            atOnce.map.add(QString::fromLatin1(path), line, 0x100);
        EXPECT_EQ(atOnce.at(0x100), QString::fromLatin1(row.kept)) << row.what;
    }
}

TEST(SourceAddressMap, FindsRowsAtAndAround)
{
    MapFixture f;
    EXPECT_EQ(f.at(0), u"none"_s);
    EXPECT_EQ(f.in(0, 0, ~0u), u"none"_s);
    f.map.add(u"/a"_s, 3, 0x120);
    f.map.add(u"/a"_s, 1, 0x100);
    f.map.add(u"/a"_s, 2, 0x110);
    f.map.add(u"/a"_s, 9, 0xFFFFFFFF);
    EXPECT_EQ(f.at(0x110), u"/a:2 110-11f"_s);
    EXPECT_EQ(f.at(0x112), u"none"_s) << "inside a row, not on one";
    EXPECT_EQ(f.at(0xFFFFFFFF), u"/a:9 ffffffff-ffffffff"_s);
    EXPECT_EQ(f.in(0x112, 0x100, 0x11F), u"/a:2 110-11f"_s);
    EXPECT_EQ(f.in(0x112, 0x100, 0x117), u"/a:2 110-117"_s) << "the function's last row ends with it";
    EXPECT_EQ(f.in(0x122, 0x108, 0x117), u"none"_s);
    EXPECT_EQ(f.in(0x10A, 0x108, 0x117), u"/a:2 108-10f"_s) << "before the function's first row";
    EXPECT_EQ(f.in(0x90, 0x80, 0x17F), u"none"_s) << "no row before";
    EXPECT_EQ(f.in(0xFFFFFFFF, 0xFFFFFFF0, 0xFFFFFFFF), u"/a:9 ffffffff-ffffffff"_s);
}

TEST(SourceAddressMap, ListsTheAddressesOfALine)
{
    MapFixture f;
    f.map.add(u"/home/x/a.c"_s, 10, 0x100);
    f.map.add(u"/home/x/a.c"_s, 10, 0x300);
    f.map.add(u"/home/x/a.c"_s, 12, 0x200);
    f.map.add(u"foo/bar.c"_s, 7, 0x400);
    QList<quint32> list;
    EXPECT_TRUE(f.map.addressesOfLine(u"/home/x/a.c"_s, 10, list));
    EXPECT_EQ(list, (QList<quint32>{0x300, 0x100})) << "the latest first";
    EXPECT_FALSE(f.map.addressesOfLine(u"/home/x/a.c"_s, 11, list)) << "no moving on to the next line";
    EXPECT_FALSE(f.map.addressesOfLine(u"a.c"_s, 10, list)) << "absolute paths are found as they are";
    EXPECT_EQ(list.size(), 2);
    EXPECT_TRUE(f.map.addressesOfLine(u"/home/foo/bar.c"_s, 7, list)) << "ends with a relative path";
    EXPECT_EQ(list.last(), 0x400u);
    EXPECT_EQ(f.map.dump(), QByteArray("Addresses:\n0x100 10 /home/x/a.c\n0x200 12 /home/x/a.c\n"
                                       "0x300 10 /home/x/a.c\n0x400 7 foo/bar.c\nSources:\n"
                                       "File: /home/x/a.c\nLine: 10 0x300\nLine: 10 0x100\nLine: 12 0x200\n"
                                       "File: foo/bar.c\nLine: 7 0x400\n"));
}

TEST(SourceAddressMap, SortsManyRowsAsFewOnes)
{
    std::vector<SourceLineRow> rows;
    quint32 random = 1;
    for (quint32 i = 0; i < 20000; ++i) {
        random = random * 1664525 + 1013904223;
        rows.push_back({random >> 8 & 0xFFF000FF, 1, 0, i});
    }
    std::vector<SourceLineRow> expected = rows;
    std::ranges::stable_sort(expected, {}, &SourceLineRow::address);
    SourceAddressMap::sortByAddress(rows);
    const auto key = [](const SourceLineRow &row) { return std::pair(row.address, row.order); };
    EXPECT_TRUE(std::ranges::equal(rows, expected, {}, key, key));
}

} // namespace
