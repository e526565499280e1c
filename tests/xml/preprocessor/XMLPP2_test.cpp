#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/preprocessor/XMLPP2.h"

using namespace Qt::StringLiterals;

namespace {

// Reads includes from memory and collects messages without their prefix.
class MemoryXMLPP2 : public XMLPP2
{
public:
    void reportError(const QString &message) override
    {
        const QString prefix = u"XmlPP::processConditionals(): "_s;
        EXPECT_TRUE(message.startsWith(prefix)) << message.toStdString();
        reports += message.sliced(prefix.size());
    }

    QMap<QString, QByteArray> files;
    QStringList reports;
    int reads = 0;

protected:
    bool parseInclude(const QString &path) override
    {
        ++reads;
        return parse(files.value(path));
    }
};

// What becomes of the children of the root, as the writer shows them on one line.
QByteArray inside(XMLDocument &document)
{
    QByteArray text = document.text();
    text.replace(" />", "/>");
    if (text == "<r/>")
        return {};
    return text.startsWith("<r>") ? text.sliced(3).chopped(4) : text;
}

QByteArray resolved(MemoryXMLPP2 &document, const char *body, const char *macros = "", bool expand = false)
{
    document.reports.clear();
    EXPECT_TRUE(document.loadString(u"<r>"_s + QString::fromUtf8(body) + u"</r>"_s, QString::fromUtf8(macros), expand));
    return inside(document);
}

struct ProcessRow
{
    const char *what, *body, *result;
    const char *macros = "";
    bool expand = false;
    const char *report = nullptr;
};

void checkRows(std::span<const ProcessRow> rows)
{
    for (const ProcessRow &row : rows) {
        MemoryXMLPP2 document;
        EXPECT_EQ(resolved(document, row.body, row.macros, row.expand), QByteArray(row.result)) << row.what;
        const QStringList reports = row.report ? QStringList{QString::fromUtf8(row.report)} : QStringList();
        EXPECT_EQ(document.reports, reports) << row.what;
    }
}

TEST(XMLPP2, DecidesByConditions)
{
    checkRows(std::vector<ProcessRow>{
        {"if with a value in its list", "<if A=\"1,2\"><b/></if>", "<b/>", "A=2"},
        {"if with another value", "<if A=\"1,2\"><b/></if><c/>", "<c/>", "A=3"},
        {"ifnot", "<ifnot A=\"1\"><b/></ifnot><ifnot A=\"3\"><c/></ifnot>", "<b/>", "A=3"},
        {"an empty list is never it", "<if A=\"\"><b/></if><ifnot A=\"\"><c/></ifnot>", "<c/>"},
        {"if defines what it asks for", "<if A=\"1\"/><ifdef name=\"A\"><b/></ifdef><ifdef name=\"B\"><c/></ifdef>",
         "<b/>"},
        {"ifndef", "<ifndef name=\"A\"><b/></ifndef><ifndef name=\"B\"><c/></ifndef>", "<c/>", "A"},
        {"two conditions", "<if A=\"\" B=\"\"><ifdef name=\"X\"/></if>", "<if A=\"\" B=\"\"/>", "", false,
         "one condition required for <if[not]> : line 1"},
        {"ifex", "<ifex expression=\"$(N) > 3\"><b/></ifex><ifex expression=\"$(N) > 4\"><c/></ifex>", "<b/>", "N=4"},
        {"ifex that isn't boolean, or fails", "<ifex expression=\"1\"><b/></ifex><ifex expression=\"x\"><c/></ifex>",
         ""},
        {"ifex without expression", "<ifex expression=\"\"><if A=\"\"/><b/></ifex>",
         "<ifex expression=\"\"><b/></ifex>"},
        {"switch takes the first case",
         "<switch name=\"A\"><default><d/></default><case value=\"1,2\"><b/></case>"
         "<case value=\"2\"><c/></case></switch><e/>",
         "<b/><e/>", "A=2"},
        {"switch takes the last default",
         "<switch name=\"A\"><default><b/></default><x/><default><c/></default>"
         "<case value=\"1\"/></switch>",
         "<c/>"},
        {"switch without a choice", "<switch name=\"A\"><case value=\"1\"><b/></case></switch><e/>", "<e/>"},
        {"directives in what is spliced", "<if A=\"1\"><b/><if A=\"1\"><c/><if A=\"2\"><x/></if></if><d/></if><e/>",
         "<b/><c/><d/><e/>", "A=1"},
    });
}

TEST(XMLPP2, DefinesAndExpands)
{
    checkRows(std::vector<ProcessRow>{
        {"no expansion unless asked", "<b c=\"$(A)\"/>", "<b c=\"$(A)\"/>", "A=1"},
        {"expansion with the given macros alone", "<b c=\"$(A)$(StudioDir)$$\"/>", "<b c=\"1$(StudioDir)$\"/>", "A=1",
         true},
        {"later siblings and what is below them see it",
         "<a><define name=\"X\" value=\"1\"/></a><b c=\"$(X)\"/><define name=\"X\" value=\"2\"/><b c=\"$(X)\"><b "
         "c=\"$(X)\"/></b>",
         "<a/><b c=\"$(X)\"/><b c=\"2\"><b c=\"2\"/></b>", "", true},
        {"not from inside a conditional", "<if A=\"1\"><define name=\"X\" value=\"1\"/></if><b c=\"$(X)\"/>",
         "<b c=\"$(X)\"/>", "A=1", true},
        {"numbers",
         "<define name=\"X\" expression=\"$(A)*4\"/><define name=\"Y\" hex_expression=\"$(X)+0xA2\"/>"
         "<define name=\"Z\" expression=\"nothing\"/><define expand_macros=\"Yes\" name=\"V\" value=\"$(X)\"/>"
         "<b x=\"$(X)\" y=\"$(Y)\" z=\"$(Z)\" v=\"$(V)\"/>",
         "<b x=\"12\" y=\"0xAE\" z=\"$(Z)\" v=\"$(X)\"/>", "A=3"},
        {"no name",
         "<define expand_macros=\"Yes\"/><b c=\"$(A)\"/><define name=\"A\" value=\"2\" expand_macros=\"yes\"/>"
         "<b c=\"$(A)\"/>",
         "<b c=\"1\"/><b c=\"$(A)\"/>", "A=1", false, "missing name in <define> : line 1"},
        {"nothing to define it with", "<define name=\"A\"/>", "", "", false,
         "missing value or expression in <define> : line 1"},
        {"expansion is for the chain and below",
         "<a><define name=\"V\" value=\"\" expand_macros=\"Yes\"/><b c=\"$(A)\"/></a><b c=\"$(A)\"/>",
         "<a><b c=\"1\"/></a><b c=\"$(A)\"/>", "A=1"},
        {"a directive's own attributes", "<define name=\"$(A)\" value=\"1\"/><ifdef name=\"q\"><b/></ifdef>", "<b/>",
         "A=q", true},
    });
}

TEST(XMLPP2, Loops)
{
    checkRows(std::vector<ProcessRow>{
        {"for", "<for index=\"i\" start=\"0\" end=\"4\" incr=\"2\"><b c=\"$(i)$(i_alpha)\"/><d/></for><e/>",
         "<b c=\"0A\"/><d/><b c=\"2C\"/><d/><e/>"},
        {"for with derived values",
         "<for index=\"i\" start=\"10\" end=\"12\" incr=\"1\" mul=\"0x100\" add=\"$(Base)\"><b c=\"$(i_hex) $(i_ap) "
         "$(i_ap_hex)\"/></for>",
         "<b c=\"0xA 2816 0xB00\"/><b c=\"0xB 3072 0xC00\"/>", "Base=0x100"},
        {"for below zero",
         "<for index=\"i\" start=\"0\" end=\"2\" incr=\"1\" sub=\"1\"><b c=\"$(i_ap) $(i_ap_hex)\"/></for>",
         "<b c=\"-1 0xFFFFFFFF\"/><b c=\"0 0x0\"/>"},
        {"for over nothing", "<for index=\"i\" start=\"3\" end=\"3\" incr=\"1\"><b/></for><e/>", "<e/>"},
        {"for without an attribute", "<for index=\"i\" start=\"0\" end=\"2\"><b/></for>", "", "", false,
         "<for index=\"i\" start=\"0\" end=\"32\" incr=\"1\"> : line 1"},
        {"for that stands still", "<for index=\"i\" start=\"0\" end=\"2\" incr=\"0\"><b/></for><e/>", "<e/>", "", false,
         "the index of <for> never reaches its end : line 1"},
        {"for that would wrap", "<for index=\"i\" start=\"0xFFFFFFF0\" end=\"0xFFFFFFFF\" incr=\"16\"><b/></for>", "",
         "", false, "the index of <for> never reaches its end : line 1"},
        {"for up to the last index",
         "<for index=\"i\" start=\"0xFFFFFFFE\" end=\"0xFFFFFFFF\" incr=\"1\"><b c=\"$(i)\"/></for>",
         "<b c=\"4294967294\"/>"},
        {"copies are processed like others",
         "<for index=\"i\" start=\"0\" end=\"3\" incr=\"1\"><ifex expression=\"$(i) != 1\"><b c=\"$(i)\"><d "
         "e=\"$(i)$(A)\"/></b></ifex></for>",
         "<b c=\"0\"><d e=\"0x\"/></b><b c=\"2\"><d e=\"2x\"/></b>", "A=x", true},
        {"loops in loops",
         "<for index=\"i\" start=\"0\" end=\"2\" incr=\"1\"><for index=\"j\" start=\"$(i)\" end=\"2\" incr=\"1\"><b "
         "c=\"$(i)$(j)\"/></for></for>",
         "<b c=\"00\"/><b c=\"01\"/><b c=\"11\"/>"},
        {"a CDATA section ends the body",
         "<for index=\"i\" start=\"0\" end=\"1\" incr=\"1\"><b/><![CDATA[x]]><c/></for>", "<b/>"},
        {"foreach", "<foreach a=\"1,2\" b=\"x,y\"><c d=\"$(a)$(b)\"/></foreach>",
         "<c d=\"1x\"/><c d=\"1y\"/><c d=\"2x\"/><c d=\"2y\"/>"},
        {"foreach without variables", "<foreach><c/></foreach>", "<c/>"},
        {"foreach over an empty list", "<foreach a=\"1,2\" b=\",\"><c/></foreach><e/>", "<e/>"},
        {"foreach with separators", "<foreach a=\"1,2\" split_by=\";\" b=\"x&#10;,y;z\"><c d=\"$(a)$(b)\"/></foreach>",
         "<c d=\"1x,y\"/><c d=\"1z\"/><c d=\"2x,y\"/><c d=\"2z\"/>"},
        {"foreach expands behind expand_macros",
         "<foreach a=\"$(L)\" expand_macros=\"\" b=\"$(L)\"><c d=\"$(a)-$(b)\"/></foreach>",
         "<c d=\"$(L)-1\"/><c d=\"$(L)-2\"/>", "L=1,2"},
        {"foreach excludes",
         "<foreach exclude_entries=\"b\" exclude_wildcard=\"x*z,q\" a=\"a,b,xyz,.xz.,aqa,c\"><c d=\"$(a)\"/></foreach>",
         "<c d=\"a\"/><c d=\"c\"/>"},
        {"foreach misses an exclusion", "<foreach exclude_entries=\"q\" a=\"1,2\"><c d=\"$(a)\"/></foreach>",
         "<c d=\"1\"/><c d=\"2\"/>", "", false, "exclude_entries cannot find entry named q : line 1"},
        {"an exclusion behind the variable", "<foreach a=\"1,2\" exclude_entries=\"1\"><c d=\"$(a)\"/></foreach>",
         "<c d=\"1\"/><c d=\"2\"/>"},
    });
}

TEST(XMLPP2, PlacesFragments)
{
    checkRows(std::vector<ProcessRow>{
        {"as often as asked, unchanged",
         "<xmldef name=\"f\"><b c=\"$(A)\"/><if A=\"1\"><d/></if></xmldef><xmlput name=\"f\"/><xmlput name=\"f\"/>",
         "<b c=\"$(A)\"/><d/><b c=\"$(A)\"/><d/>", "A=1"},
        {"with macros of its own",
         "<xmldef name=\"f\"><b c=\"$(A)$(B)\"/></xmldef><xmlput name=\"f\" expand_macros=\"\" macros=\"B=2;&#10;C=\"/>"
         "<xmlput name=\"f\" macros=\"B=3\"/>",
         "<b c=\"12\"/><b c=\"$(A)$(B)\"/>", "A=1"},
        {"expanded as all else",
         "<xmldef name=\"f\"><b c=\"$(A)$(B)\"/></xmldef><xmlput name=\"f\" macros=\"B=$(A)\"/><xmlput name=\"f\"/>",
         "<b c=\"11\"/><b c=\"1$(B)\"/>", "A=1", true},
        {"the last definition counts",
         "<xmldef name=\"f\"><b/></xmldef><xmldef name=\"f\"><c/></xmldef><xmlput name=\"f\"/>", "<c/>"},
        {"before its definition", "<xmlput name=\"f\"/><xmldef name=\"f\"/>", "<xmlput name=\"f\"/>", "", false,
         "xmlput cannot fine xmldef named f : line 1"},
        {"without names", "<xmlput/><xmldef><if A=\"1\"/></xmldef>", "<xmlput/><xmldef/>"},
    });
    MemoryXMLPP2 document;
    resolved(document, "<xmldef name=\"f\"><b/></xmldef>");
    EXPECT_EQ(document.fragment(u"f"_s)->firstChildElement()->name(), "b");
    EXPECT_EQ(document.fragment(u"g"_s), nullptr);
}

TEST(XMLPP2, Includes)
{
    const QMap<QString, QByteArray> files = {
        {u"plain.xml"_s, "<!DOCTYPE other><p c=\"$(A)\"><b c=\"$(A)\"/><define name=\"X\" value=\"1\"/></p>"},
        {u"many.xml"_s, "<envelope><b/><xmldef name=\"f\"><g/></xmldef><c/></envelope>"},
        {u"sub/near.xml"_s, "<envelope><include filename=\"leaf.xml\"/><include filename=\"../many.xml\"/></envelope>"},
        {u"sub/leaf.xml"_s, "<leaf/>"},
        {u"half.xml"_s, "<p/>\n<q ="},
        {u"bad.xml"_s, "<q>\n</p>"},
    };
    const struct
    {
        const char *body, *result, *macros;
        bool expand;
        QStringList reports;
    } rows[] = {
        {"<include filename=\"plain.xml\"/><ifdef name=\"X\"/>", "<p c=\"$(A)\"><b c=\"$(A)\"/></p>", "A=1", false, {}},
        {"<include filename=\"plain.xml\"/>", "<p c=\"1\"><b c=\"1\"/></p>", "A=1", true, {}},
        {"<include filename=\"plain.xml\" macros=\"A=2\"/>", "<p c=\"$(A)\"><b c=\"$(A)\"/></p>", "A=1", false, {}},
        {"<include filename=\"plain.xml\" expand_macros=\"\" macros=\"A=2\"/>",
         "<p c=\"2\"><b c=\"2\"/></p>",
         "A=1",
         false,
         {}},
        {"<include filename=\"plain.xml\" no_root=\"\"/><e/>", "<b c=\"$(A)\"/><e/>", "", false, {}},
        {"<include filename=\"plain.xml\" inherit_attributes=\"c;;x;none\" c=\"own\" x=\"y\"/>",
         "<p c=\"own\" x=\"y\"><b c=\"$(A)\"/></p>",
         "",
         false,
         {}},
        {"<include filename=\"many.xml\"/><xmlput name=\"f\"/>", "<b/><c/><g/>", "", false, {}},
        {"<include filename=\"sub/near.xml\"/>", "<leaf/><b/><c/>", "", false, {}},
        {"<include/>", "<include/>", "", false, {u"missing filename in <include> : line 1"_s}},
        {"\n<include filename=\"none.xml\"/>",
         "<include filename=\"none.xml\"/>",
         "",
         false,
         {u"error: include file 'none.xml' is empty : line 2"_s}},
        {"<include filename=\"bad.xml\"/>",
         "<include filename=\"bad.xml\"/>",
         "",
         false,
         {u"error: include file 'bad.xml' is empty (tagName mismatch) : line 1"_s}},
        {"<include filename=\"half.xml\"/>",
         "<include filename=\"half.xml\"/>",
         "",
         false,
         {u"error \"bad tagName\" in include file half.xml line:2 : line 1"_s}},
    };
    for (const auto &row : rows) {
        MemoryXMLPP2 document;
        document.files = files;
        EXPECT_EQ(resolved(document, row.body, row.macros, row.expand), QByteArray(row.result)) << row.body;
        EXPECT_EQ(document.reports, row.reports) << row.body;
        EXPECT_TRUE(document.doctype().isNull()) << "the include's doesn't become the document's";
    }
}

TEST(XMLPP2, TellsTheFileOfEachMessage)
{
    MemoryXMLPP2 document;
    document.files = {{u"d/a.xml"_s, "<envelope>\n<xmldef name=\"f\">\n<define/></xmldef>\n<define/></envelope>"}};
    document.parse(
        "<r>\n<include filename=\"a.xml\"/>\n<xmlput name=\"f\"/><for index=\"i\" start=\"0\" end=\"1\" incr=\"1\">\n"
        "<define/></for></r>");
    document.processConditionals(document.root(), u"d/main.xml"_s, {}, false);
    const QString text = u"missing name in <define> : "_s;
    EXPECT_EQ(document.reports, QStringList({text + u"d/a.xml:4"_s, text + u"d/a.xml:3"_s, text + u"d/main.xml:4"_s}));
}

TEST(XMLPP2, ARootHasNoPlaceToGo)
{
    MemoryXMLPP2 document;
    EXPECT_TRUE(document.loadString(u"<if A=\"1\"><b/><if A=\"1\"><c/></if></if>"_s, {}, false));
    EXPECT_EQ(inside(document), "<if A=\"1\"><b/></if>");
    EXPECT_EQ(document.reports, QStringList(u"<if> cannot be the root of a document : line 1"_s));
    EXPECT_TRUE(document.loadString({}, {}, false));
    EXPECT_EQ(document.root(), nullptr);
    EXPECT_FALSE(document.loadString(u"<a></b>"_s, {}, false));
}

TEST(XMLPP2, StopsWhatWouldNotEnd)
{
    MemoryXMLPP2 document;
    document.setMaximumProduced(20'000);
    document.files = {
        {u"self.xml"_s, "<p><include filename=\"self.xml\"/></p>"},
        {u"twice.xml"_s, "<envelope><include filename=\"twice.xml\"/><include filename=\"twice.xml\"/></envelope>"}};
    const auto countOf = [&](QByteArrayView tag) {
        int count = 0;
        for (const XMLNode *node = document.root(); node; node = node->nextInTree(document.root()))
            count += node->value() == tag;
        return count;
    };
    resolved(document, "<include filename=\"self.xml\"/>");
    EXPECT_EQ(countOf("p"), 64);
    EXPECT_EQ(document.reports, QStringList(u"<include> is nested more than 64 deep : self.xml:1"_s));

    resolved(document, "<xmldef name=\"f\"><b/><xmlput name=\"f\"/></xmldef><xmlput name=\"f\"/>");
    EXPECT_EQ(countOf("b"), 64);
    EXPECT_EQ(document.reports, QStringList(u"<xmlput> is nested more than 64 deep : line 1"_s));

    document.reads = 0;
    resolved(document, "<include filename=\"twice.xml\"/>");
    EXPECT_EQ(document.reads, 98) << "each counts as 200 elements besides its own three";

    document.setMaximumProduced(1000);
    const QString tooMany = u"more than 1000 elements were to be produced"_s;
    for (const char *body :
         {"<include filename=\"twice.xml\"/>",
          "<for index=\"i\" start=\"0\" end=\"0xFFFFFFFF\" incr=\"1\"><b/></for><for index=\"i\" start=\"0\" end=\"9\" "
          "incr=\"1\"><c/></for>",
          "<foreach a=\"1,2,3,4\" b=\"1,2,3,4\" c=\"1,2,3,4\" d=\"1,2,3,4\" e=\"1,2,3,4\"><b/></foreach>",
          "<define expand_macros=\"Yes\" name=\"x\" value=\"0123456789ABCDEF0123456789ABCDEF\"/>"
          "<for index=\"i\" start=\"0\" end=\"20\" incr=\"1\"><define name=\"x\" value=\"$(x)$(x)\"/></for>"}) {
        resolved(document, body);
        EXPECT_EQ(document.reports.size(), qsizetype(1 + document.reports.first().startsWith(u"<include>"))) << body;
        EXPECT_TRUE(document.reports.last().startsWith(tooMany)) << document.reports.last().toStdString();
        EXPECT_LE(countOf("b"), 1000);
    }
    resolved(document, "<for index=\"i\" start=\"0\" end=\"0xFFFFFFFF\" incr=\"1\"><![CDATA[]]></for>");
    EXPECT_TRUE(document.reports.isEmpty()) << "nothing to repeat takes no time";
}

TEST(XMLPP2, TakesAnyDepth)
{
    const QString opening = u"<a><if X=\"1\">"_s.repeated(100'000), closing = u"</if></a>"_s.repeated(100'000);
    MemoryXMLPP2 document;
    EXPECT_TRUE(document.loadString(u"<r>"_s + opening + closing + u"</r>"_s, u"X=1"_s, true));
    EXPECT_EQ(inside(document).size(), 100'000 * 7 - 3) << "the innermost is <a/>";
}

// Macros that are defined on every level, each seen on all deeper ones, would take memory with the depth's square.
TEST(XMLPP2, BoundsWhatNestedDefinitionsHold)
{
    QString text = u"<r>"_s, closing;
    for (int i = 0; i < 100; ++i, closing += u"</e>"_s)
        text += u"<e><define name='m%1' value='%1'/><x/>"_s.arg(i);
    MemoryXMLPP2 document;
    document.setMaximumProduced(1000); // 1 + 2 + ... + 44 is 990
    EXPECT_TRUE(document.loadString(text + u"<ifdef name='m43'><b/></ifdef><ifdef name='m44'><c/></ifdef>"_s + closing +
                                        u"<e><define name='m1' value='1'/><ifdef name='m1'><d/></ifdef></e></r>"_s,
                                    QString(), true));
    EXPECT_EQ(document.reports, QStringList(u"more than 1000 macros were to be defined inside each other : line 1"_s));
    const QByteArray result = inside(document);
    EXPECT_TRUE(result.contains("<b/>") && !result.contains("<c/>")) << result.toStdString();
    EXPECT_TRUE(result.contains("<d/>")) << "what is left behind counts no longer";
}

TEST(XMLPP2, LoadsFilesAndLeavesOutText)
{
    TemporaryFolder folder;
    folder.write("leaf.xml", "<leaf/>");
    const QString main = folder.write("main.xml", "<r>text<!-- note --><include filename=\"leaf.xml\"/></r>");
    XMLPP2 document;
    EXPECT_TRUE(document.load(main, {}, false));
    EXPECT_EQ(inside(document), "<leaf/>");
    EXPECT_FALSE(document.load(folder.path("none.xml"), {}, false));
    XMLPP2 withText(true);
    EXPECT_TRUE(
        withText.loadString(u"<r><for index=\"i\" start=\"0\" end=\"2\" incr=\"1\"> <b>x</b> </for></r>"_s, {}, false));
    const XMLElement *first = withText.root()->firstChildElement("b");
    ASSERT_TRUE(first && first->nextSiblingElement("b"));
    EXPECT_EQ(first->firstChild()->value(), "x");
}

// An element class of its own, in the tree and in what the preprocessor makes.
class TaggedElement : public XMLElement
{
    using XMLElement::XMLElement;
};
class TaggingXMLPP2 : public XMLPP2
{
    std::unique_ptr<XMLElement> createElement(const XMLText &name) override
    {
        return std::make_unique<TaggedElement>(name);
    }
};

TEST(XMLPP2, MakesTheSubclassesElements)
{
    TaggingXMLPP2 document;
    document.loadString(u"<r><foreach a=\"1,2\"><b><c/></b></foreach></r>"_s, {}, false);
    for (const XMLNode *node = document.root(); node; node = node->nextInTree(document.root()))
        EXPECT_TRUE(dynamic_cast<const TaggedElement *>(node));
}

} // namespace
