#include "xml/tree/XMLDocument.h"

#include <QDomDocument>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <pugixml.hpp>

// Input: 20 MB of register descriptions, eight attributes an element, one reference in every tenth value.
// One round parses the text, visits every attribute's name and value and drops the tree. "tree" is what the
// heap holds for the parsed document, the text included.

static const QByteArray &registerDescriptions()
{
    static const QByteArray text = [] {
        QByteArray made = "<?xml version=\"1.0\"?>\n<registers>\n";
        for (int i = 0; made.size() < 20'000'000; ++i) {
            const QByteArray number = QByteArray::number(i);
            if (i % 16 == 0)
                made += (i ? "  </group>\n" : "") + QByteArray("  <group name=\"Peripheral ") + number + "\">\n";
            made += "    <register name=\"CONTROL_" + number + "\" start=\"0x4000" + number.rightJustified(6, '0') +
                    "\" size=\"4\" access=\"ReadWrite\" reset_value=\"0x00000000\" endian=\"little\" description=\"" +
                    (i % 10 ? "Selects the clock source" : "Input &lt; limit &amp; enabled") +
                    "\" group=\"timer\" />\n";
        }
        return made + "  </group>\n</registers>\n";
    }();
    return text;
}

static size_t heapBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// `parse` fills a document, `visit` gives the number of bytes in its names and values.
template <typename Document>
static void run(benchmark::State &state, auto parse, auto visit)
{
    const QByteArray &text = registerDescriptions();
    const size_t before = heapBytes();
    size_t after = 0;
    for (auto round : state) {
        Document document;
        parse(document, text);
        benchmark::DoNotOptimize(visit(document));
        if (!after)
            after = heapBytes();
    }
    state.SetBytesProcessed(state.iterations() * text.size());
    state.counters["tree"] = benchmark::Counter(double(after - before), {}, benchmark::Counter::kIs1024);
}

static void parseAndVisitXMLDocument(benchmark::State &state)
{
    run<XMLDocument>(
        state, [](XMLDocument &document, const QByteArray &text) { document.parse(text); },
        [](XMLDocument &document) {
            size_t bytes = 0;
            for (const XMLNode *node = document.root(); node; node = node->nextInTree(document.root())) {
                for (const XMLAttribute &attribute : node->toElement()->attributes())
                    bytes += size_t(attribute.name().size() + attribute.value().size());
            }
            return bytes;
        });
}
BENCHMARK(parseAndVisitXMLDocument)->Unit(benchmark::kMillisecond);

static size_t visit(const pugi::xml_node &node)
{
    size_t bytes = 0;
    for (const pugi::xml_attribute &attribute : node.attributes())
        bytes += strlen(attribute.name()) + strlen(attribute.value());
    for (const pugi::xml_node &child : node)
        bytes += visit(child);
    return bytes;
}

static void parseAndVisitPugixml(benchmark::State &state)
{
    run<pugi::xml_document>(
        state,
        [](pugi::xml_document &document, const QByteArray &text) {
            document.load_buffer(text.data(), size_t(text.size()));
        },
        [](pugi::xml_document &document) { return visit(document); });
}
BENCHMARK(parseAndVisitPugixml)->Unit(benchmark::kMillisecond);

static size_t visit(const QDomElement &element)
{
    size_t bytes = 0;
    const QDomNamedNodeMap attributes = element.attributes();
    for (int i = 0; i < attributes.length(); ++i) {
        const QDomAttr attribute = attributes.item(i).toAttr();
        bytes += size_t(attribute.name().size() + attribute.value().size());
    }
    for (QDomElement child = element.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
        bytes += visit(child);
    return bytes;
}

static void parseAndVisitQDomDocument(benchmark::State &state)
{
    run<QDomDocument>(
        state, [](QDomDocument &document, const QByteArray &text) { document.setContent(text); },
        [](QDomDocument &document) { return visit(document.documentElement()); });
}
BENCHMARK(parseAndVisitQDomDocument)->Unit(benchmark::kMillisecond)->Iterations(1);
