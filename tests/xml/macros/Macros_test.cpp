#include "support/QtPrinters.h"
#include "xml/macros/SystemMacroTable.h"

#include <QDir>

using namespace Qt::StringLiterals;

namespace {

// The process's table with an installation in /opt/vn; put back when the test ends.
class Macros : public testing::Test
{
protected:
    Macros()
    {
        table.addInstallationMacros(QDir(u"/opt/vn"_s), QDir(u"/home/u/.vn"_s));
        table.setGlobalMacros({u"Board=mine"_s, u"Micro=global"_s, u"Empty="_s, u"Flag"_s});
    }
    ~Macros() override { table = SystemMacroTable(); }

    SystemMacroTable &table = SystemMacroTable::instance();
    const MacroMap own{{u"A"_s, u"1"_s},
                       {u"B"_s, u"$(A)"_s},
                       {u"N"_s, u"A"_s},
                       {u"a(b)c"_s, u"x"_s},
                       {u"Board"_s, u"nearest"_s},
                       {u"$(A)"_s, u"named by a reference"_s},
                       {u"Grow"_s, u"$(Grow:$(Grow))$(Grow:$(Grow))"_s}};
};

struct ExpansionRow
{
    const char *text, *result;
};

TEST_F(Macros, ExpandReferences)
{
    const ExpansionRow rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"$(A)-$(A)", "1-1"},
        {"x$", "x$"},
        {"$x", "$x"},
        {"$$", "$"},
        {"$$$", "$$"},
        {"$$(A)", "$(A)"},
        {"$$$(A)", "$1"},
        {"a$(A", "a"},
        {"a$(A)b$(", "a1b"},
        {"$(UNKNOWN)", "$(UNKNOWN)"},
        {"$(UNKNOWN:x)", "x"},
        {"$(UNKNOWN:)", ""},
        {"$(A:x)", "1"},
        {"$(UNKNOWN:a:b)", "a:b"},
        {"$(UNKNOWN::a:b)", "a:b"},
        {"$(a(b)c)", "x"},
        {"$()", "$()"},
        {"$(B)", "$(A)"},            // a value isn't looked into
        {"$(UNKNOWN:$(A))", "1"},    // a "$" inside asks for another pass
        {"$(UNKNOWN:$(B))", "$(A)"}, // and that pass is done by the same rules
        {"$(B)$(A:$(A))", "11"},     // over the whole text
        {"$(UNKNOWN:$(StudioDir))", "$(StudioDir)"},
        {"$(UNKNOWN::$(B))", "$(B)"},
        {"$(A:$(A))$(UNKNOWN::$(B))", "1$(B)"}, // no pass after "::", whatever stood before
        {"$($(A))", "named by a reference"},    // the name is taken as it is written
        {"$($(N))", "$($(N))"},
        {"$(StudioDir)", "$(StudioDir)"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(expandWith(own, QString::fromLatin1(row.text)), QString::fromLatin1(row.result)) << row.text;
}

TEST_F(Macros, AreLookedUpFromNearToFar)
{
    const auto all = [&](const QString &text) { return expandMacros(table, own, text, true, true); };
    EXPECT_EQ(all(u"$(Board) $(Micro) $(HostOS)"_s), u"nearest global linux"_s);
    EXPECT_EQ(expandGlobal(u"$(Board) $(Micro) [$(Empty)$(Flag)]"_s), u"mine global []"_s);
    EXPECT_EQ(expandSystem(u"$(Board) $(Micro)"_s), u"$(Board) ARM"_s);
    EXPECT_EQ(expandSystem(u"$(UNKNOWN:$(StudioDir)/include)"_s), u"/opt/vn/include"_s);
    EXPECT_EQ(expandSystem(u"$(UNKNOWN::$(StudioDir))"_s), u"$(StudioDir)"_s);
}

TEST_F(Macros, EndHoweverTheyAskForMore)
{
    const MacroMap ping{{u"P"_s, u"$(Q:$(P))"_s}, {u"Q"_s, u"$(P:$(Q))"_s}, {u"L"_s, u"$(L:$(L))x"_s}};
    EXPECT_EQ(expandWith(ping, u"$(P:$(P))"_s), u"$(P:$(Q))"_s) << "as it stands after 100 passes";
    EXPECT_EQ(expandWith(ping, u"$(L:$(L))"_s), u"$(L:$(L))"_s + u"x"_s.repeated(100));
    EXPECT_LE(expandWith(own, u"$(Grow:$(Grow))"_s).size(), maximumExpandedLength);
    const QString many = u"$(Big)"_s.repeated(20);
    EXPECT_EQ(expandWith({{u"Big"_s, QString(1 << 16, u'x')}}, many), many) << "too long: stays as it is";
}

TEST_F(Macros, OfTheTimeAreComputedWhenTheyAreExpanded)
{
    table.setClock([] { return QDateTime(QDate(2031, 3, 7), QTime(9, 5, 2), Qt::UTC); });
    EXPECT_EQ(expandSystem(u"$(Date)|$(DateYear)|$(DateMonth)|$(DateDay)"_s), u"7 March 2031|2031|03|07"_s);
    EXPECT_EQ(expandSystem(u"$(Time)|$(TimeHour)|$(TimeMinute)|$(TimeSecond)"_s), u"09:05:02|09|05|02"_s);
    EXPECT_EQ(expandSystem(u"$(UnixTime)"_s), u"1930640702"_s);
    EXPECT_NE(table.systemMacros()[u"UnixTime"_s], u"1930640702"_s);
    EXPECT_EQ(expandWith({{u"DateYear"_s, u"never"_s}}, u"$(DateYear)"_s), u"2031"_s);
    EXPECT_EQ(expandWith({}, u"$(DateYear)"_s), u"$(DateYear)"_s);
}

TEST_F(Macros, OfTheProductAreThere)
{
    EXPECT_EQ(expandSystem(u"$(StudioName)|$(StudioNameShort)|$(ProductName)|$(ProductNameShort)"_s),
              u"Veldane Studio|Veldane|Veldane Studio|Veldane"_s);
    EXPECT_EQ(expandSystem(u"$(Platform) $(TargetID) $(HostEXE) $(HostDLL) $(StudioUserDir)"_s),
              u"arm 8  .so_x64 /home/u/.vn"_s);
    QStringList order;
    for (const auto &row : table.descriptions())
        order += row.name;
    EXPECT_EQ(order.size(), 16 + 25);
    EXPECT_EQ(order.first(), u"Date"_s);
    EXPECT_EQ(order[16], u"StudioMajorVersion"_s);
    EXPECT_EQ(order.last(), u"StudioSessionFileExt"_s);
    table.addSystemMacro(u"Quiet"_s, u"q"_s, {});
    EXPECT_EQ(table.descriptions().size(), order.size());
    EXPECT_EQ(expandSystem(u"$(Quiet)"_s), u"q"_s);
}

TEST(VersionNumber, IsMadeOfDigits)
{
    EXPECT_EQ(versionNumber(u"4"_s, u"12"_s), u"41200"_s);
    EXPECT_EQ(versionNumber(u"4"_s, u"12a"_s), u"41201"_s);
    EXPECT_EQ(versionNumber(u"4"_s, u"12z"_s), u"41226"_s);
    EXPECT_EQ(versionNumber(u"0"_s, u"1"_s), u"00100"_s);
}

TEST(MacroString, IsCutAtSemicolonsAndTheFirstEqualsSign)
{
    const MacroMap expected{{u"A"_s, u"1"_s}, {u"B"_s, u"x=y;z"_s}, {u"C"_s, {}}, {u"D"_s, u"\\"_s}, {u"E"_s, u"\\"_s}};
    EXPECT_EQ(readMacroString(u"A=1;;B=x=y\\;z;C;D=\\\\;E=\\"_s), expected);
    EXPECT_EQ(readMacroString({}), MacroMap());
}

} // namespace
