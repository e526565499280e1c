#include "xml/tree/XMLDocument.h"

#include "base/SafeFile.h"
#include "xml/tree/XMLParser.h"
#include "xml/tree/XMLWriter.h"

#include <QFile>
#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr size_t largestText = 1 << 30;

struct CloseFile
{
    void operator()(FILE *file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<FILE, CloseFile>;

struct ReleaseSource
{
    void operator()(XMLSource *source) const { source->release(); }
};

struct StreamText
{
    std::unique_ptr<char[]> buffer; // one byte longer than size; null when it could not be read
    size_t size = 0;
};

// All of a stream from its start, or from where it is if it can't seek.
StreamText readStream(FILE *stream)
{
    size_t capacity = 0;
    if (std::fseek(stream, 0, SEEK_END) == 0) {
        capacity = size_t(std::ftell(stream));
        std::rewind(stream);
    }
    StreamText text;
    for (bool atEnd = false; !atEnd;) {
        if (capacity > largestText)
            return {};
        auto grown = std::make_unique_for_overwrite<char[]>(capacity + 1);
        if (text.size)
            std::memcpy(grown.get(), text.buffer.get(), text.size);
        text.buffer = std::move(grown);
        // One byte more than expected tells a file of that size from a longer one.
        text.size += std::fread(text.buffer.get() + text.size, 1, capacity + 1 - text.size, stream);
        atEnd = text.size <= capacity;
        capacity = std::max<size_t>(2 * capacity, 1 << 16);
    }
    if (std::ferror(stream))
        return {};
    return text;
}

} // namespace

XMLDocument::~XMLDocument() = default;

std::unique_ptr<XMLElement> XMLDocument::createElement(const XMLText &name)
{
    return std::make_unique<XMLElement>(name);
}

bool XMLDocument::parse(QByteArrayView text)
{
    const size_t size = size_t(text.size());
    if (size > largestText)
        return failToRead("text");
    auto buffer = std::make_unique_for_overwrite<char[]>(size + 1);
    std::copy_n(text.data(), size, buffer.get());
    return parseSource(std::move(buffer), size, 0);
}

bool XMLDocument::parseStream(FILE *stream)
{
    return load(stream, "stream");
}

bool XMLDocument::parseFile(const char *path)
{
    const OpenFile file(std::fopen(path, "rb"));
    return load(file.get(), path);
}

bool XMLDocument::load(FILE *stream, QByteArrayView name)
{
    StreamText text;
    if (stream)
        text = readStream(stream);
    if (!text.buffer)
        return failToRead(name);
    const bool hasMark = QByteArrayView(text.buffer.get(), qsizetype(text.size)).startsWith("\xEF\xBB\xBF");
    return parseSource(std::move(text.buffer), text.size, hasMark ? 3 : 0);
}

bool XMLDocument::parseSource(std::unique_ptr<char[]> buffer, size_t size, size_t start)
{
    buffer[size] = 0;
    const std::unique_ptr<XMLSource, ReleaseSource> source(new XMLSource(std::move(buffer), size));
    source->addReference();
    return XMLParser(*this, *source, start).parse();
}

bool XMLDocument::write(FILE *stream, quint32 indent, quint32 wrapWidth)
{
    m_indent = indent;
    m_wrapWidth = wrapWidth;
    QFile device;
    if (device.open(stream, QIODevice::WriteOnly))
        writeTo(device);
    return true;
}

bool XMLDocument::writeFile(const char *path, quint32 indent, quint32 wrapWidth)
{
    m_indent = indent;
    m_wrapWidth = wrapWidth;
    SafeFile file(QFile::decodeName(path));
    const bool ok = file.open() && writeTo(file.device()) && file.commit();
    if (!ok)
        setError("couldn't write " + QByteArray(path));
    return ok;
}

bool XMLDocument::writeTo(QIODevice &device) const
{
    XMLWriter writer(m_indent, m_wrapWidth, &device);
    writer.writePrologue(*this);
    writer.writeTree(root());
    return writer.flush();
}

QByteArray XMLDocument::text() const
{
    XMLWriter writer(m_indent, m_wrapWidth);
    writer.writePrologue(*this);
    writer.writeTree(root());
    return writer.text();
}

std::unique_ptr<XMLNode> XMLDocument::copyTree(const XMLNode *source)
{
    std::unique_ptr<XMLNode> top = copyNode(source);
    const auto addCopy = [this](XMLNode *parent, const XMLNode *node) {
        parent->appendChild(copyNode(node));
        return parent->lastChild();
    };
    XMLNode *copy = top.get();
    for (const XMLNode *from = source;;) {
        if (from->firstChild()) {
            from = from->firstChild();
            copy = addCopy(copy, from);
            continue;
        }
        for (; from != source && !from->nextSibling(); from = from->parent())
            copy = copy->parent();
        if (from == source)
            return top;
        from = from->nextSibling();
        copy = addCopy(copy->parent(), from);
    }
}

XMLNode *XMLDocument::copyTree(const XMLNode *source, XMLNode *parent)
{
    std::unique_ptr<XMLNode> copy = copyTree(source);
    XMLNode *copied = copy.get();
    parent->appendChild(std::move(copy));
    return copied;
}

std::unique_ptr<XMLNode> XMLDocument::copyNode(const XMLNode *source)
{
    const XMLText value = source->share(source->value());
    switch (source->kind()) {
    case XMLNode::Kind::Element: break;
    case XMLNode::Kind::Data: return std::make_unique<XMLData>(value);
    case XMLNode::Kind::Comment: return std::make_unique<XMLComment>(value);
    case XMLNode::Kind::CDATASection: return std::make_unique<XMLCDATASection>(value);
    }
    std::unique_ptr<XMLElement> copy = createElement(value);
    copy->copyAttributes(*source->toElement());
    return copy;
}

bool XMLDocument::failToRead(QByteArrayView name)
{
    setError("couldn't read " + name.toByteArray());
    m_errorLine = 0;
    return false;
}

void XMLDocument::setError(const QByteArray &text)
{
    constexpr qsizetype longest = 1023;
    m_errorText = text.first(qMin(text.size(), longest));
}

bool QXMLDocument::parseFile(const QString &path)
{
    return parseFile(QFile::encodeName(path).constData());
}

bool QXMLDocument::writeFile(const QString &path, quint32 indent, quint32 wrapWidth)
{
    return writeFile(QFile::encodeName(path).constData(), indent, wrapWidth);
}

QByteArray readDoctype(const char *path)
{
    std::array<char, 1024> buffer;
    const OpenFile file(std::fopen(path, "rb"));
    if (!file)
        return {};
    const qsizetype size = qsizetype(std::fread(buffer.data(), 1, buffer.size(), file.get()));
    const QByteArrayView head(buffer.data(), size);
    qsizetype at = head.indexOf('<');
    while (at >= 0 && head.sliced(at + 1).startsWith('?'))
        at = head.indexOf('<', at + 1);
    constexpr QByteArrayView keyword = "<!DOCTYPE ";
    if (at < 0 || !head.sliced(at).startsWith(keyword))
        return {};
    const auto isSpace = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    const auto isName = [](char c) {
        return ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') || (c >= '0' && c <= '9') || c == '_';
    };
    const auto begin = std::find_if_not(head.begin() + at + keyword.size(), head.end(), isSpace);
    const auto end = std::find_if_not(begin, head.end(), isName);
    if (end == buffer.data() + buffer.size())
        return {};
    return QByteArray(begin, end - begin);
}

QByteArray readDoctype(const QString &path)
{
    return readDoctype(QFile::encodeName(path).constData());
}
