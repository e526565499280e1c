#include "base/Log.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/preprocessor/XmlPP.h"

#include <QBuffer>

using namespace Qt::StringLiterals;

namespace {

QStringList logged;

class XmlPPTest : public testing::Test
{
protected:
    XmlPPTest()
    {
        logged.clear();
        setLogSink([](const char *category, const char *text) {
            logged += QString::fromUtf8(category) + u": "_s + QString::fromUtf8(text).trimmed();
        });
    }
    ~XmlPPTest() override
    {
        setLogSink(nullptr);
        setLogMask(~0u);
    }
};

class MemoryXmlPP : public XmlPP
{
public:
    using XmlPP::XmlPP;
    QMap<QString, QByteArray> files;

protected:
    std::optional<QByteArray> readFile(const QString &path) override
    {
        const auto found = files.constFind(path);
        return found == files.constEnd() ? std::nullopt : std::optional(*found);
    }
};

const QMap<QString, QByteArray> domFiles = {
    {u"plain.xml"_s, "<p c=\"$(A)\"><b c=\"$(A)\"/></p>"},
    {u"sub/near.xml"_s, "<p><include filename=\"leaf.xml\" no_root=\"\"/></p>"},
    {u"sub/leaf.xml"_s, "<l><x/><y/></l>"},
    {u"bad.xml"_s, "<p>\n</q>"},
    {u"self.xml"_s, "<p><include filename=\"self.xml\"/></p>"},
    {u"twice.xml"_s, "<p><include filename=\"twice.xml\"/><include filename=\"twice.xml\"/></p>"},
    {u"text"_s, "a<b\r\nsecond \xC3\xA9"},
    {u"latin"_s, "\xE9"},
};

// What becomes of the inside of the root, on one line.
QString domResolved(const char *body, const MacroMap &macros = {}, bool expand = false)
{
    MemoryXmlPP preprocessor(macros);
    preprocessor.files = domFiles;
    EXPECT_TRUE(preprocessor.loadString(u"<r>"_s + QString::fromUtf8(body) + u"</r>"_s, expand)) << body;
    const QString text = preprocessor.document().toString(-1);
    return text == u"<r/>" ? QString() : text.sliced(3).chopped(4);
}

TEST_F(XmlPPTest, ResolvesDirectives)
{
    const MacroMap macros{{u"A"_s, u"1"_s}, {u"Name"_s, u"Two Words"_s}};
    const struct
    {
        const char *body, *result;
        bool expand;
        const char *log;
    } rows[] = {
        {"<if A=\"1,2\"><b/></if><ifnot A=\"1\"><c/></ifnot>", "<b/>", false, nullptr},
        {"<if Q=\"1\"/><ifdef name=\"Q\"><b/></ifdef><ifndef name=\"Z\"><c/></ifndef>", "<b/><c/>", false, nullptr},
        {"<if><if A=\"1\"><b/></if></if>", "<if><b/></if>", false,
         "warning: XmlPP::processConditionals(): one condition required for <if[not]> : line 1"},
        {"<switch name=\"A\"><default><b/></default><case value=\"0,1\"><c/>text</case></switch><d/>", "<c/>text<d/>",
         false, nullptr},
        {"<b c=\"$(A)\" expand_attributes=\"c,q\"/><b c=\"$(A)\" expand_attributes=\"q\"/>",
         "<b c=\"1\"/><b c=\"$(A)\"/>", false, nullptr},
        {"<define name=\"B\" value=\"$(A)x\"/><b c=\"$(B)\"/>", "<b c=\"1x\"/>", true, nullptr},
        {"<define_macro name=\"B\"/>", "", false,
         "warning: XmlPP::processConditionals(): missing name and/or value in <define_macro> : line 1"},
        {"[<expand_definition name=\"Name\" lowercase=\"\" underscore_spaces=\"\"/>]", "[two_words]", false, nullptr},
        {"[<expand_definition name=\"none\" default=\"x\"/>][<expand_definition name=\"none\"/>]", "[x][]", false,
         nullptr},
        {"<include filename=\"plain.xml\"/>", "<p c=\"$(A)\"><b c=\"$(A)\"/></p>", false, nullptr},
        {"<include filename=\"plain.xml\" macros=\"A=2\" expand_macros=\"\"/>", "<p c=\"2\"><b c=\"2\"/></p>", false,
         nullptr},
        {"<include filename=\"$(Q).xml\"/>", "<include filename=\"$(Q).xml\"/>", false,
         "error: XmlPP::processConditionals could not open include file $(Q).xml : line 1"},
        {"<define name=\"F\" value=\"sub/near\"/><include filename=\"$(F).xml\" expand_macros=\"\"/><e/>",
         "<p><x/><y/></p><e/>", false, nullptr},
        {"<include/>", "<include/>", false,
         "error: XmlPP::processConditionals(): missing filename in <include> : line 1"},
        {"<include filename=\"text\" type=\"text\" class=\"k\" id=\"\"/>", "<pre class=\"k\">a&lt;b\nsecond é</pre>",
         false, nullptr},
        {"<include filename=\"latin\" type=\"text\" encoding=\"ISO-8859-1\" tag=\"q\"/>", "<q>é</q>", false, nullptr},
    };
    for (const auto &row : rows) {
        logged.clear();
        EXPECT_EQ(domResolved(row.body, macros, row.expand), QString::fromUtf8(row.result)) << row.body;
        EXPECT_EQ(logged.join(u'|'), QString::fromUtf8(row.log)) << row.body;
    }
    EXPECT_EQ(domResolved("<expand_definition name=\"DateYear\"/>").size(), 4);
}

TEST_F(XmlPPTest, LogsWhatTheMaskAllows)
{
    domResolved("<include filename=\"bad.xml\"/>");
    ASSERT_EQ(logged.size(), 1);
    EXPECT_TRUE(logged[0].startsWith(u"error: XmlPP: error reading XML - ")) << logged[0].toStdString();
    EXPECT_TRUE(logged[0].contains(u" on line 2 column ")) << logged[0].toStdString();
    setLogMask(~quint32(logWarnings));
    logged.clear();
    domResolved("<define/><include/>");
    EXPECT_EQ(logged.size(), 1);
}

TEST_F(XmlPPTest, StopsWhatWouldNotEnd)
{
    EXPECT_EQ(domResolved("<include filename=\"self.xml\"/>").count(u"<p>"_s), 64);
    EXPECT_EQ(logged.size(), 1);
    logged.clear();
    domResolved("<include filename=\"twice.xml\"/>");
    EXPECT_EQ(logged.size(), 1) << "two to the power of 64, were it not for the limit";
    XmlPP preprocessor;
    QString error;
    int line = 0;
    EXPECT_FALSE(preprocessor.loadString(u"<a>\n"_s.repeated(100'000), false, &error, &line));
    EXPECT_EQ(error, u"elements are nested too deeply"_s);
    QString attributes;
    for (qsizetype i = 0; i <= XmlPP::maximumAttributes; ++i)
        attributes += u" a%1='$(x)'"_s.arg(i);
    EXPECT_FALSE(XmlPP().loadString(u"<r%1/>"_s.arg(attributes), true, &error));
    EXPECT_EQ(error, u"an element has too many attributes"_s);
    EXPECT_EQ(line, XmlPP::maximumDepth + 1);
}

TEST_F(XmlPPTest, LoadsFilesWithMacrosOverTheDefaults)
{
    TemporaryFolder folder;
    const QString path = folder.write("d.xml", "\xEF\xBB\xBF<r a=\"$(A)$(B)\"/>");
    XmlPP preprocessor({{u"A"_s, u"1"_s}, {u"B"_s, u"2"_s}});
    EXPECT_TRUE(preprocessor.load(path, u"B=3"_s, true));
    EXPECT_EQ(preprocessor.document().documentElement().attribute(u"a"_s), u"13"_s);
    EXPECT_FALSE(preprocessor.load(folder.path("none.xml"), {}, true));
    QBuffer source;
    source.setData("<r a=\"$(B)\"/>");
    source.open(QIODevice::ReadOnly);
    EXPECT_TRUE(preprocessor.loadInputSource(source, true));
    EXPECT_EQ(preprocessor.document().documentElement().attribute(u"a"_s), u"2"_s);
    QString error;
    int line = 0, column = 0;
    EXPECT_FALSE(preprocessor.loadString(u"<r>\n<"_s, true, &error, &line, &column));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(line, 2);
}

} // namespace
