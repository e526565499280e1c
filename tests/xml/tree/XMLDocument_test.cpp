#include "xml/tree/XMLDocument.h"

#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QDomDocument>
#include <gtest/gtest.h>

namespace {

// The tree in one line: name{attribute=value}(children), text in quotes, <!comment>, [cdata].
QByteArray outline(const XMLNode *node)
{
    if (!node)
        return "none";
    const QByteArray value = node->value().toByteArray();
    switch (node->kind()) {
    case XMLNode::Kind::Data: return '"' + value + '"';
    case XMLNode::Kind::Comment: return "<!" + value + '>';
    case XMLNode::Kind::CDATASection: return '[' + value + ']';
    case XMLNode::Kind::Element: break;
    }
    QByteArray text = value;
    for (const XMLAttribute &attribute : node->toElement()->attributes())
        text += '{' + attribute.name().toByteArray() + '=' + attribute.value().toByteArray() + '}';
    if (!node->firstChild())
        return text;
    text += '(';
    for (const XMLNode *child = node->firstChild(); child; child = child->nextSibling())
        text += outline(child);
    return text + ')';
}

QByteArray written(const QByteArray &text, quint32 indent, quint32 wrap, bool keepText = false)
{
    XMLDocument document(keepText);
    EXPECT_TRUE(document.parse(text));
    document.setIndent(indent);
    document.setWrapWidth(wrap);
    return document.text();
}

struct ParseCase
{
    const char *text, *outline;
};

} // namespace

TEST(XMLDocument, ParsesForgivingly)
{
    const ParseCase cases[] = {
        {"", "none"},
        {" \r\n\t ", "none"},
        {"no XML at all <a/>", "none"},
        {"<a>", "none"},
        {"<a", "none"},
        {"<", "none"},
        {"<a/>", "a"},
        {"<a />", "a"},
        {"<a></a>", "a"},
        {"<a/ >", "a"},
        {"< />", ""},
        {"<a-b:c_1/>", "a-b:c_1"},
        {"<a/><b/>", "b"},
        {"</a><b/></b>", "b"},
        {"<abc></a>", "abc"},
        {"<a></ ><b/>", "b"},
        {"<a><b></b x></b></a>", "a(b)"}, // an end tag with more in it closes nothing
        {"<a>text<b/>more</a>", "a(b)"},
        {"<a b>", "none"},
        {"<a b/>", "a"},
        {"<a b = \"1\"c='2'/>", "a{b=1}{c=2}"},
        {"<a b=\"1\" c=\"2\" b=\"3\"/>", "a{b=3}{c=2}"},
        {"<a b=c=\"1\"/>", "a{c=1}"},
        {"<a b='\"<>\r\n'/>", "a{b=\"<>\r\n}"},
        {"<a b='1", "none"},
        {"<a b='&lt;&gt;&amp;&apos;&quot;'/>", "a{b=<>&'\"}"},
        {"<a b='&#65;&#x41;&#xc3;&#xA9;&#321;'/>", "a{b=AA\xC3\xA9"
                                                   "A}"},
        {"<a b='&unknown;&#4a;&#x4g;&#65&amp'/>", "a{b=&unknown;&#4a;&#x4g;&#65&amp}"},
        {"<a b='1&#;2' c='3'/>", "a{b=1}{c=3}"}, // byte 0 ends a string
        {"<a b='&lt' c=';'/>", "a{b=&lt}{c=;}"},
        {"<!DOCTYPE d><?xml version='1.0'?><!-- <x/> --><a/>", "a"},
        {"<!DOCTYPE d [<!ENTITY e 'f'>]><a/>", "a"},
        {"<?php echo ?><a><?php?></a>", "a"},
        {"<!-- a -- b --><a><!----><!-->--></a>", "a"},
        {"<a><!-- </a>", "none"},
        {"<a><![CDATA[<b>]]&amp;]]></a>", "a([<b>]]&amp;])"},
        {"<![CDATA[x]]><a/>", "a"},
        {"<a><![CDATA[x</a>", "none"},
        {"<a><!-x></a>", "a"},
    };
    for (const auto &row : cases) {
        XMLDocument document;
        EXPECT_TRUE(document.parse(row.text)) << row.text;
        EXPECT_EQ(outline(document.root()), row.outline) << row.text;
    }
}

TEST(XMLDocument, KeepsTextAndCommentsWhenAsked)
{
    const ParseCase cases[] = {
        {"<a/>", "a"},
        {"<a></a>", "a(\"\")"}, // a run is a node even when it is empty
        {"<a> x &amp;\r\n&#13;</a>", "a(\" x &\n\r\")"},
        {"<a>1<b/>2</a>", "a(\"1\"b\"2\")"},
        {"<a>1<!--c-->2</a>", "a(\"1\"<!c>\"2\")"},
        {"<!--c--><a>&#;x</a><!--d-->", "a(\"\")"},
        {"<a><?p q?></a>", "a(\"\"\" q?>\")"},
        {"<a>1</a\n>", "a(\"1\")"},
    };
    for (const auto &row : cases) {
        XMLDocument document(true);
        EXPECT_TRUE(document.parse(row.text)) << row.text;
        EXPECT_EQ(outline(document.root()), row.outline) << row.text;
    }
}

TEST(XMLDocument, ReadsPrologue)
{
    XMLDocument document;
    ASSERT_TRUE(document.parse("<?xml version=\"1.0\" encoding='UTF-8' other='x'?>\n<!DOCTYPE some-name ><a/>"));
    EXPECT_EQ(document.version(), "1.0");
    EXPECT_EQ(document.encoding(), "UTF-8");
    EXPECT_EQ(document.doctype(), "some-name");
    EXPECT_EQ(document.text(), "<?xml  version=\"1.0\" encoding=\"UTF-8\" ?>\n<!DOCTYPE some-name>\n<a/>");

    XMLDocument external;
    ASSERT_TRUE(external.parse("<?xml?><!DOCTYPE a SYSTEM 'a.dtd'><a/>"));
    EXPECT_TRUE(external.doctype().isNull());
    EXPECT_TRUE(external.version().isNull());
    EXPECT_EQ(external.text(), "<a/>");
}

TEST(XMLDocument, TellsErrorAndLine)
{
    const struct
    {
        const char *text, *message;
        quint32 line;
        const char *root;
    } cases[] = {
        {"<a b=1>", "bad tagName", 0, "none"},
        {"<a.b/>", "bad tagName", 0, "none"},
        {"<a\n 1b='2'/>", "bad tagName", 1, "none"},
        {"<?xml\n 1?>", "bad tagName", 1, "none"},
        {"<a>\n<b c='\n&#10;\n'>\n</a>", "tagName mismatch", 4, "none"},
        {"<a>\n</abc>", "tagName mismatch", 1, "none"},
        {"<r/>\n\n<a></b>", "tagName mismatch", 2, "r"},
        {"<a/b>", "tagName mismatch", 0, "none"},
    };
    for (const bool keepText : {false, true}) {
        for (const auto &row : cases) {
            XMLDocument document(keepText);
            EXPECT_FALSE(document.parse(row.text)) << row.text;
            EXPECT_EQ(document.errorText(), row.message) << row.text;
            EXPECT_EQ(document.errorLine(), row.line) << row.text;
            EXPECT_EQ(outline(document.root()), row.root) << row.text;
        }
    }
}

TEST(XMLDocument, NodesKnowTheirLines)
{
    XMLDocument document(true);
    ASSERT_TRUE(document.parse("\n<a\nb='\n'>\nx\n<!--\n\n--><c/>\n<![CDATA[\n]]><d/></a>"));
    QByteArray lines;
    for (const XMLNode *node = document.root(); node; node = node->nextInTree(document.root()))
        lines += QByteArray::number(node->line()) + ' ';
    // a, text, comment, text, c, text, CDATA section, text, d, text
    EXPECT_EQ(lines, "1 3 5 7 7 7 8 9 9 9 ");
}

TEST(XMLDocument, ManyAttributesStayUnique)
{
    QByteArray text = "<a";
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < 50'000; ++i)
            text += " n" + QByteArray::number(i) + "='" + QByteArray::number(i + round) + '\'';
    XMLDocument document;
    ASSERT_TRUE(document.parse(text + "/>"));
    ASSERT_EQ(document.root()->attributes().size(), 50'000u);
    EXPECT_EQ(document.root()->attributes().front().value(), "1");
    EXPECT_EQ(document.root()->attribute("n49999"), "50000");
    EXPECT_EQ(document.root()->attribute("n63"), "64");
    EXPECT_EQ(document.root()->attribute("n64"), "65");
}

TEST(XMLDocument, WritesWithIndentAndWrapWidth)
{
    const QByteArray text = "<a><b x='1' y='22'/><c><d e='f'/></c></a>";
    EXPECT_EQ(written(text, 0, 0), "<a><b x=\"1\" y=\"22\" /><c><d e=\"f\" /></c></a>");
    EXPECT_EQ(written(text, 2, 0), "<a>\n  <b x=\"1\" y=\"22\" />\n  <c>\n    <d e=\"f\" />\n  </c>\n</a>\n");
    // The second line is 2 + 1 + 1 + (1 + 1 + 4) + (1 + 2 + 4) = 17 wide.
    EXPECT_EQ(written(text, 2, 17), written(text, 2, 0));
    EXPECT_EQ(written(text, 2, 16),
              "<a>\n  <b\n    x=\"1\"\n    y=\"22\" />\n  <c>\n    <d e=\"f\" />\n  </c>\n</a>\n");
    EXPECT_EQ(written("<a b='a value too long for the width'/>", 2, 10),
              "<a b=\"a value too long for the width\" />\n");
    EXPECT_EQ(written("<a b='\t\n\"&amp;&lt;&gt;\xC3\xA9~'/>", 0, 0),
              "<a b=\"&#x9;&#xa;&quot;&amp;&lt;&gt;&#xc3;&#xa9;~\" />");

    XMLDocument document;
    document.setRoot(document.createElement("a"));
    document.root()->setAttribute("null", QByteArrayView());
    document.root()->setAttribute("b", "2");
    document.setIndent(2);
    document.setWrapWidth(1);
    EXPECT_EQ(document.text(), "<a null=\"\"\n  b=\"2\" />\n");
    XMLDocument empty;
    EXPECT_EQ(empty.text(), "");
}

TEST(XMLDocument, WritesTextAlone)
{
    EXPECT_EQ(written("<a>t&lt;<b/></a>", 2, 0, true), "<a>t&lt;</a>\n");
    EXPECT_EQ(written("<a><b/></a>", 2, 0, true), "<a></a>\n");
    EXPECT_EQ(written("<a><![CDATA[<]]></a>", 2, 0), "<a>\n  <![CDATA[<]]></a>\n");

    XMLDocument document;
    document.setRoot(document.createElement("a"));
    document.root()->appendChild(std::make_unique<XMLComment>("c"));
    document.root()->appendChild(std::make_unique<XMLData>("t&"));
    document.setIndent(1);
    EXPECT_EQ(document.text(), "<a>\n <!--c--> t&amp;</a>\n");
}

TEST(XMLDocument, WrittenTreesReadBackTheSame)
{
    QByteArray everyByte;
    for (int byte = 1; byte < 256; ++byte)
        everyByte += char(byte);
    XMLDocument document;
    document.setRoot(document.createElement("a"));
    document.root()->setAttribute("b", everyByte);
    document.setDoctype("d");
    document.setEncoding("UTF-8");
    XMLDocument again;
    ASSERT_TRUE(again.parse(document.text()));
    EXPECT_EQ(again.root()->attribute("b"), everyByte);
    EXPECT_EQ(again.text(), document.text());
}

// What another parser understands in well-formed texts, we understand too.
TEST(XMLDocument, AgreesWithQDomDocument)
{
    const QByteArray text = "<r><a b='1' c='x &lt; &amp; y'/><d><e f=\"it's\"/><g h='&#65;'/></d>\n</r>";
    XMLDocument document;
    ASSERT_TRUE(document.parse(text));
    document.setIndent(1);
    QDomDocument ours, theirs;
    ASSERT_TRUE(ours.setContent(document.text()));
    ASSERT_TRUE(theirs.setContent(text));
    const auto describe = [](const QDomElement &element, auto &self) -> QString {
        QStringList attributes;
        for (int i = 0; i < element.attributes().length(); ++i) {
            const QDomAttr attribute = element.attributes().item(i).toAttr();
            attributes += attribute.name() + QChar(u'=') + attribute.value();
        }
        attributes.sort();
        QString all = element.tagName() + attributes.join(QChar(u','));
        for (QDomElement e = element.firstChildElement(); !e.isNull(); e = e.nextSiblingElement())
            all += QChar(u'(') + self(e, self) + QChar(u')');
        return all;
    };
    EXPECT_EQ(describe(ours.documentElement(), describe), describe(theirs.documentElement(), describe));
}

TEST(XMLDocument, MakesEveryElementByItsFactory)
{
    struct Numbered : XMLElement
    {
        Numbered(const XMLText &name, int n) : XMLElement(name), number(n) {}
        int number;
    };
    struct NumberingDocument : XMLDocument
    {
        std::unique_ptr<XMLElement> createElement(const XMLText &name) override
        {
            return std::make_unique<Numbered>(name, count++);
        }
        int count = 0;
    };
    NumberingDocument document;
    ASSERT_TRUE(document.parse("<a><b/><c/></a>"));
    EXPECT_EQ(static_cast<Numbered *>(document.root()->lastChild())->number, 2);
    document.copyTree(document.root(), document.root());
    EXPECT_EQ(outline(document.root()), "a(bca(bc))");
    EXPECT_EQ(static_cast<Numbered *>(document.root()->lastChild())->number, 3);
}

TEST(XMLDocument, CopiesOutliveWhatTheyCameFrom)
{
    std::unique_ptr<XMLNode> copy, part;
    {
        XMLDocument document(true);
        ASSERT_TRUE(document.parse("\n<a b='1&amp;'><c/>text<!--d--><![CDATA[e]]></a>"));
        document.root()->setAttribute("null", QByteArrayView());
        document.root()->setAttribute("own", QByteArray("made later"));
        copy = document.copyTree(document.root());
        part = document.root()->removeChild(document.root()->firstChildElement());
    }
    EXPECT_EQ(outline(copy.get()), "a{b=1&}{null=}{own=made later}(\"\"c\"text\"<!d>\"\"[e]\"\")");
    EXPECT_TRUE(copy->toElement()->hasAttribute("null"));
    EXPECT_TRUE(copy->toElement()->attribute("null").isNull());
    EXPECT_EQ(copy->line(), 0u);
    EXPECT_EQ(part->value(), "c");
}

TEST(XMLDocument, DeepAndWideTreesNeedNoStack)
{
    constexpr int count = 1'000'000;
    XMLDocument deep;
    ASSERT_TRUE(deep.parse(QByteArray("<a>").repeated(count) + QByteArray("</a>").repeated(count)));
    std::unique_ptr<XMLNode> copy = deep.copyTree(deep.root());
    int depth = 0;
    for (const XMLNode *node = copy.get(); node; node = node->firstChild())
        ++depth;
    EXPECT_EQ(depth, count);
    EXPECT_EQ(deep.text(), QByteArray("<a>").repeated(count - 1) + "<a/>" + QByteArray("</a>").repeated(count - 1));
    EXPECT_TRUE(deep.parse(QByteArray("<a>").repeated(count)));
    EXPECT_FALSE(deep.parse(QByteArray("<a>").repeated(count) + "<1 !"));

    XMLDocument wide;
    ASSERT_TRUE(wide.parse("<a>" + QByteArray("<b/>").repeated(count) + "</a>"));
    copy = wide.copyTree(wide.root());
    while (copy->firstChild()) // from both ends
        copy->removeChild(copy->removeChild(copy->lastChild()) ? copy->firstChild() : nullptr);
    EXPECT_EQ(wide.text().size(), 3 + 4 * count + 4);
}

TEST(XMLDocument, LoadsAndSavesFiles)
{
    const TemporaryFolder folder;
    QXMLDocument document;
    ASSERT_TRUE(document.parseFile(folder.write("marked.xml", "\xEF\xBB\xBF<a\nb='1'/>")));
    const QString path = folder.path("\xC3\xA9.xml");
    ASSERT_TRUE(document.writeFile(path, 4, 1));
    EXPECT_EQ(document.indent(), 4u);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "<a b=\"1\" />\n");
    ASSERT_TRUE(document.parseFile(folder.write("empty.xml", "")));
    EXPECT_EQ(document.root(), nullptr);

    EXPECT_FALSE(document.parseFile(folder.write("bad.xml", "\n<a></b>")));
    EXPECT_EQ(document.errorLine(), 1u);
    EXPECT_FALSE(document.writeFile(folder.path("none/out.xml"), 0, 0));
    EXPECT_EQ(document.errorText(), "couldn't write " + QFile::encodeName(folder.path("none/out.xml")));
    EXPECT_EQ(document.errorLine(), 1u);
    EXPECT_FALSE(document.parseFile("none.xml"));
    EXPECT_EQ(document.errorText(), "couldn't read none.xml");
    EXPECT_EQ(document.errorLine(), 0u);
    EXPECT_FALSE(document.parseFile(folder.root())) << "a folder can't be read";
    EXPECT_FALSE(document.parseFile(QString(2000, QChar(u'x'))));
    EXPECT_EQ(document.errorText().size(), 1023);
}

TEST(XMLDocument, WritesStreamsAndReadsPipes)
{
    FILE *stream = tmpfile();
    XMLDocument document;
    ASSERT_TRUE(document.parse("<a b='1'/>"));
    EXPECT_TRUE(document.write(stream, 2, 0));
    XMLDocument again;
    EXPECT_TRUE(again.parseStream(stream));
    EXPECT_EQ(outline(again.root()), "a{b=1}");
    fclose(stream);

    stream = popen("head -c 1000000 /dev/zero | tr '\\0' ' '; echo '<a/>'", "r");
    EXPECT_TRUE(again.parseStream(stream));
    EXPECT_EQ(outline(again.root()), "a");
    pclose(stream);
}

TEST(XMLDocument, ReadsDoctypeAlone)
{
    const TemporaryFolder folder;
    const QByteArray blanks(1013 - 3, ' '); // "<!DOCTYPE " is 10 bytes
    const struct
    {
        QByteArray text, doctype;
    } cases[] = {
        {"<!DOCTYPE Some_File1>", "Some_File1"},
        {"<?xml version='1.0'?>\n<!DOCTYPE   a-b>", "a"},
        {"text <!DOCTYPE a", "a"},
        {"<!-- c --><!DOCTYPE a>", ""},
        {"<!DOCTYPE\ta>", ""},
        {"<a/>", ""},
        {"<?xml?>", ""},
        {"<", ""},
        {"", ""},
        {"<!DOCTYPE " + blanks + "abc>", "abc"},
        {"<!DOCTYPE " + blanks + "abcd>", ""},
    };
    for (const auto &row : cases)
        EXPECT_EQ(readDoctype(folder.write("doctype.xml", row.text)), row.doctype) << row.text.constData();
    EXPECT_TRUE(readDoctype(folder.path("none.xml")).isNull());
}
