#include "xml/tree/XMLWriter.h"

#include "base/SafeFile.h"

#include <QIODevice>
#include <array>

namespace {

constexpr qsizetype flushSize = 1 << 16;

// "&#x..;" for every byte that isn't printable ASCII; empty for what stands for itself.
struct Escape
{
    char text[7];
    quint8 size;
};

constexpr std::array<Escape, 256> escapes = [] {
    std::array<Escape, 256> table{};
    const auto set = [&table](quint8 byte, std::string_view text) {
        for (const char c : text)
            table[byte].text[table[byte].size++] = c;
    };
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (byte >= ' ' && byte <= '~')
            continue;
        constexpr std::string_view digits = "0123456789abcdef";
        set(quint8(byte), "&#x");
        if (byte >= 16)
            set(quint8(byte), digits.substr(byte / 16, 1));
        set(quint8(byte), digits.substr(byte % 16, 1));
        set(quint8(byte), ";");
    }
    set('"', "&quot;");
    set('&', "&amp;");
    set('<', "&lt;");
    set('>', "&gt;");
    return table;
}();

} // namespace

void XMLWriter::writePrologue(const XMLDocument &document)
{
    if (!document.version().isNull() || !document.encoding().isNull()) {
        write("<?xml ");
        if (!document.version().isNull())
            write(" version=\"" + document.version() + '"');
        if (!document.encoding().isNull())
            write(" encoding=\"" + document.encoding() + '"');
        write(" ?>\n");
    }
    if (!document.doctype().isNull())
        write("<!DOCTYPE " + document.doctype() + ">\n");
}

void XMLWriter::writeTree(const XMLNode *top)
{
    quint64 level = 0;
    for (const XMLNode *node = top; node;) {
        if (startNode(*node, level)) {
            node = node->firstChild();
            ++level;
            continue;
        }
        while (node != top && !node->nextSibling()) {
            node = node->parent();
            endElement(*node->toElement(), --level);
        }
        node = node == top ? nullptr : node->nextSibling();
    }
}

// True when the node's children and endElement() are to come.
bool XMLWriter::startNode(const XMLNode &node, quint64 level)
{
    writeSpaces(level * m_indent);
    switch (node.kind()) {
    case XMLNode::Kind::Element: return startElement(*node.toElement(), level);
    case XMLNode::Kind::Data: writeEscaped(node.value()); break;
    case XMLNode::Kind::Comment:
        write("<!--");
        write(node.value());
        write("-->");
        break;
    case XMLNode::Kind::CDATASection:
        write("<![CDATA[");
        write(node.value());
        write("]]>");
        break;
    }
    return false;
}

bool XMLWriter::startElement(const XMLElement &element, quint64 level)
{
    write("<");
    write(element.name());
    const auto attributes = element.attributes();
    const bool wrap = mustWrap(element, level);
    for (const XMLAttribute &attribute : attributes) {
        if (wrap && !attribute.value().isNull()) {
            write("\n");
            writeSpaces((level + 1) * m_indent);
        } else {
            write(" ");
        }
        write(attribute.name());
        write("=\"");
        writeEscaped(attribute.value());
        write("\"");
    }

    const XMLNode *child = element.firstChild();
    if (child && child->kind() != XMLNode::Kind::Data) {
        write(m_indent ? ">\n" : ">");
        return true;
    }
    if (child) {
        write(">");
        writeEscaped(child->value());
        write("</");
        write(element.name());
        write(">");
    } else {
        write(attributes.empty() ? "/>" : " />");
    }
    if (m_indent)
        write("\n");
    return false;
}

void XMLWriter::endElement(const XMLElement &element, quint64 level)
{
    writeSpaces(level * m_indent);
    write("</");
    write(element.name());
    write(m_indent ? ">\n" : ">");
}

bool XMLWriter::mustWrap(const XMLElement &element, quint64 level) const
{
    const auto attributes = element.attributes();
    if (!m_wrapWidth || attributes.size() < 2)
        return false;
    quint64 width = level * m_indent + quint64(element.name().size()) + 1;
    for (const XMLAttribute &attribute : attributes) {
        width += quint64(attribute.name().size() + attribute.value().size()) + 4;
        if (width > m_wrapWidth)
            return true;
    }
    return false;
}

void XMLWriter::writeSpaces(quint64 count)
{
    static const QByteArray spaces(256, ' ');
    for (; count; count -= qMin<quint64>(count, 256))
        write(QByteArrayView(spaces).first(qsizetype(qMin<quint64>(count, 256))));
}

void XMLWriter::writeEscaped(QByteArrayView text)
{
    const char *run = text.begin();
    for (const char &c : text) {
        const Escape &escape = escapes[quint8(c)];
        if (!escape.size)
            continue;
        write(QByteArrayView(run, &c));
        write(QByteArrayView(escape.text, escape.size));
        run = &c + 1;
    }
    write(QByteArrayView(run, text.end()));
}

void XMLWriter::write(QByteArrayView text)
{
    m_text.append(text);
    if (m_device && m_text.size() >= flushSize)
        flush();
}

bool XMLWriter::flush()
{
    if (m_device && m_ok) {
        m_ok = writeAll(*m_device, m_text);
        m_text.resize(0);
    }
    return m_ok;
}
