#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

using namespace Qt::StringLiterals;

namespace {

ProgramResult vnXml(const QStringList &arguments, const QByteArray &input = {})
{
    return runProgram(u"vnXml"_s, arguments, input);
}

TEST(VnXml, CalculatesOneLineAnExpression)
{
    const ProgramResult result =
        vnXml({u"eval"_s, u"1 + 2*3"_s, u"1 == 1"_s, u"\"a b\""_s, u"0x10"_s, u"1/4.0"_s, QString()});
    EXPECT_EQ(result.status, 0) << result.error.toStdString();
    EXPECT_EQ(result.out, "7\ntrue\na b\n16\n0.25\n\n");
    const ProgramResult stopped = vnXml({u"eval"_s, u"1"_s, u"2 )"_s, u"3"_s});
    EXPECT_EQ(stopped.status, 1);
    EXPECT_EQ(stopped.out, "1\n");
    EXPECT_EQ(stopped.error, "vnXml: 2 ): unexpected text behind the expression: )\n");
    EXPECT_EQ(vnXml({u"eval"_s, u"1/0"_s}).error, "vnXml: 1/0: divide by zero\n");
}

TEST(VnXml, CalculatesAsJson)
{
    const ProgramResult result = vnXml({u"eval"_s, u"--json"_s, u"1"_s, u"1 == 2"_s, u"\"x\""_s, u"0.5"_s, u"x"_s});
    EXPECT_EQ(result.status, 1) << "one was wrong; the document is complete all the same";
    EXPECT_EQ(result.out, R"([
 {
  "query": "1",
  "kind": "signed",
  "value": 1,
  "size": 8
 },
 {
  "query": "1 == 2",
  "kind": "boolean",
  "value": false,
  "size": 1
 },
 {
  "query": "\"x\"",
  "kind": "string",
  "value": "x",
  "size": 0
 },
 {
  "query": "0.5",
  "kind": "float",
  "value": 0.5,
  "size": 8
 },
 {
  "query": "x",
  "kind": null,
  "value": null,
  "size": null,
  "error": "x symbol not found"
 }
]
)");
    EXPECT_EQ(vnXml({u"eval"_s, u"--json"_s, u"1"_s}).status, 0);
}

TEST(VnXml, ExpandsMacros)
{
    const QStringList words{u"macro"_s, u"$(A)-$(StudioNameShort)"_s, u"$(X:none)"_s, u"-D"_s, u"A=1=2"_s};
    EXPECT_EQ(vnXml(words).out, "1=2-Veldane\nnone\n");
    EXPECT_EQ(vnXml(words + QStringList{u"--no-system"_s}).out, "1=2-$(StudioNameShort)\nnone\n");
    const QByteArray studioDir = vnXml({u"macro"_s, u"$(StudioDir)"_s}).out.trimmed();
    EXPECT_EQ(studioDir + "/bin", QByteArray(VN_BIN)) << "the folder above the program's";
}

TEST(VnXml, ResolvesAFile)
{
    TemporaryFolder folder;
    folder.write("leaf.xml", "<leaf a=\"$(V)\"/>");
    const QString main = folder.write("main.xml", "<!DOCTYPE r>\n<r>\n <if V=\"1\"><b c=\"$(V)\"/></if>\n"
                                                  " <include filename=\"leaf.xml\"/>\n</r>");
    const ProgramResult good = vnXml({u"process"_s, main, u"--macros"_s, u"V=1"_s, u"--expand"_s});
    EXPECT_EQ(good.status, 0) << good.error.toStdString();
    EXPECT_EQ(good.out, "<!DOCTYPE r>\n<r>\n  <b c=\"1\" />\n  <leaf a=\"1\" />\n</r>\n");

    const ProgramResult told = vnXml({u"process"_s, u"-"_s}, "<r>\n<include filename=\"/none/x.xml\"/></r>");
    EXPECT_EQ(told.status, 1);
    EXPECT_EQ(told.out, "<r>\n  <include filename=\"/none/x.xml\" />\n</r>\n") << "the tree is there all the same";
    EXPECT_EQ(told.error, "XmlPP::processConditionals(): error: include file '/none/x.xml' is empty "
                          "(couldn't read /none/x.xml) : line 2\n");

    const ProgramResult text = vnXml({u"process"_s, u"--keep-text"_s, u"-"_s},
                                     "<r> <if A=\"1\"><a/></if> <for index=\"i\" start=\"0\" end=\"2\" incr=\"1\"> "
                                     "<b>$(i) x</b> </for><!-- c --></r>");
    EXPECT_EQ(text.out, "<r>\n  <b>$(i) x</b>\n  <b>$(i) x</b>\n  <!-- c --></r>\n");
    EXPECT_EQ(text.status, 0) << text.error.toStdString();
}

TEST(VnXml, FormatsAndNamesTheDoctype)
{
    const QByteArray document = "<?xml version=\"1.0\"?><!DOCTYPE Some_File ><a b=\"1\" c=\"2\"> <d>t</d></a>";
    const ProgramResult plain = vnXml({u"format"_s, u"-"_s}, document);
    EXPECT_EQ(plain.status, 0) << plain.error.toStdString();
    EXPECT_TRUE(plain.out.endsWith("<a b=\"1\" c=\"2\">\n  <d/>\n</a>\n")) << plain.out.toStdString();
    EXPECT_TRUE(vnXml({u"format"_s, u"-"_s, u"--indent"_s, u"1"_s, u"--wrap"_s, u"4"_s, u"--keep-text"_s}, document)
                    .out.endsWith("<a\n b=\"1\"\n c=\"2\">\n <d>t</d>\n</a>\n"));
    EXPECT_EQ(vnXml({u"doctype"_s, u"-"_s}, document).out, "Some_File\n");
    EXPECT_EQ(vnXml({u"doctype"_s, u"-"_s}, "<a/>").status, 1);
}

TEST(VnXml, TellsWhatIsWrong)
{
    const struct
    {
        QStringList arguments;
        QByteArray input;
        int status;
        const char *error;
    } rows[] = {
        {{u"process"_s, u"/none/x"_s}, {}, 1, "vnXml: couldn't read /none/x\n"},
        {{u"format"_s, u"/none/x"_s}, {}, 1, "vnXml: couldn't read /none/x\n"},
        {{u"doctype"_s, u"/none/x"_s}, {}, 1, "vnXml: couldn't read /none/x\n"},
        {{u"process"_s, u"-"_s}, "", 1, "vnXml: -:1: no root element\n"},
        {{u"process"_s, u"-"_s}, "<a>\n</b>", 1, "vnXml: -:2: tagName mismatch\n"},
        {{u"process"_s, u"-"_s},
         QByteArray("<a>").repeated(100'000) + QByteArray("</a>").repeated(100'000),
         1,
         "vnXml: -:1: elements are nested too deeply for this indent\n"},
        {{u"process"_s}, {}, 2, "vnXml: arguments are missing: process FILE; try 'vnXml --help'\n"},
        {{u"format"_s, u"x"_s, u"--indent"_s, u"-1"_s},
         {},
         2,
         "vnXml: --indent takes a number up to 10000; try 'vnXml --help'\n"},
    };
    for (const auto &row : rows) {
        const ProgramResult result = vnXml(row.arguments, row.input);
        EXPECT_EQ(result.status, row.status) << row.error;
        EXPECT_EQ(result.error, QByteArray(row.error));
        EXPECT_EQ(result.out, "");
    }
}

} // namespace
