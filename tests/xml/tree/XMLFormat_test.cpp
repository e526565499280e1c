#include "xml/tree/XMLFormat.h"

#include "base/HException.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QBuffer>
#include <gtest/gtest.h>

namespace {

QByteArray formatted(const QByteArray &text, const XMLFormat &format)
{
    const TemporaryFolder folder;
    QBuffer output;
    output.open(QIODevice::WriteOnly);
    try {
        formatXml(folder.write("in.xml", text), format, output);
    } catch (const HException &e) {
        return e.message().mid(folder.root().size() + 1).toUtf8();
    }
    return output.data();
}

} // namespace

TEST(XMLFormat, LaysOutWithAndWithoutText)
{
    const QByteArray text = "<?xml version='1.0'?>\n<a>\n<!-- c -->\n<b x='1' y='2'>\n t </b><c> </c><d/>\n</a>";
    EXPECT_EQ(formatted(text, {.indent = 1}),
              "<?xml  version=\"1.0\" ?>\n<a>\n <b x=\"1\" y=\"2\" />\n <c/>\n <d/>\n</a>\n");
    EXPECT_EQ(
        formatted(text, {.indent = 1, .wrapWidth = 5, .keepText = true}),
        "<?xml  version=\"1.0\" ?>\n<a>\n <!-- c --> <b\n  x=\"1\"\n  y=\"2\">&#xa; t </b>\n <c> </c>\n <d/>\n</a>\n");
}

TEST(XMLFormat, RefusesWhatItWouldLose)
{
    EXPECT_EQ(formatted("<a>\n<b>\ntext<c/></b></a>", {.keepText = true}),
              "in.xml:2: text beside elements or comments can't be formatted");
    EXPECT_EQ(formatted("<a>\n</b>", {}), "in.xml:2: tagName mismatch");
    EXPECT_EQ(formatted("nothing", {}), "in.xml:1: no root element");
    EXPECT_EQ(formatted("<a>\n<b><c/>", {}), "in.xml:2: <b> isn't closed");
    const QByteArray deep = QByteArray("<a>").repeated(100'000) + QByteArray("</a>").repeated(100'000);
    EXPECT_EQ(formatted(deep, {}), "in.xml:1: elements are nested too deeply for this indent");
    EXPECT_EQ(formatted(deep, {.indent = 0}).size(), deep.size() - 3);

    QFile full(QStringLiteral("/dev/full"));
    ASSERT_TRUE(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    const TemporaryFolder folder;
    EXPECT_THROW(formatXml(folder.path("none.xml"), {}, full), HException);
    EXPECT_THROW(formatXml(folder.write("a.xml", "<a/>"), {}, full), HException);
}
