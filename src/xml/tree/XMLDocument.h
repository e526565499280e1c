#pragma once

#include "xml/tree/XMLNode.h"

#include <QByteArray>
#include <cstdio>

class QIODevice;

// An XML document: the root element with what stands before it, the forgiving parser and the writer.
//
// It isn't a validating parser: a DTD is passed over, and only the five predefined entities and numeric
// references (each one byte) are known. End of text with elements open is no error, nor is a text without
// any XML; both give success and no root, so test root() as well as the result.
//
// A subclass that overrides createElement() makes every element of the document its own class. The parser
// calls it before the element has attributes or a parent, and appendChild() of the parent when the element closes.
class XMLDocument
{
public:
    // Without text the parser makes no text and no comment nodes.
    explicit XMLDocument(bool keepText = false) : m_keepText(keepText) {}
    XMLDocument(const XMLDocument &) = delete;
    XMLDocument &operator=(const XMLDocument &) = delete;
    virtual ~XMLDocument();

    virtual std::unique_ptr<XMLElement> createElement(const XMLText &name);

    XMLElement *root() const { return m_root.get(); }
    void setRoot(std::unique_ptr<XMLElement> root) { m_root = std::move(root); }
    std::unique_ptr<XMLElement> takeRoot() { return std::move(m_root); }
    bool keepsText() const { return m_keepText; }
    // Spaces a nesting level on output, 0 for all on one line; column at which the attributes of an element
    // are broken onto lines of their own, 0 for never.
    quint32 indent() const { return m_indent; }
    quint32 wrapWidth() const { return m_wrapWidth; }
    void setIndent(quint32 indent) { m_indent = indent; }
    void setWrapWidth(quint32 width) { m_wrapWidth = width; }
    // The name in <!DOCTYPE name>; version and encoding of the XML declaration. Null when there is none.
    const QByteArray &doctype() const { return m_doctype; }
    const QByteArray &version() const { return m_version; }
    const QByteArray &encoding() const { return m_encoding; }
    void setDoctype(const QByteArray &name) { m_doctype = name; }
    void setVersion(const QByteArray &version) { m_version = version; }
    void setEncoding(const QByteArray &encoding) { m_encoding = encoding; }

    // False, with error text and line, when the text breaks the rules; root() is then null or an earlier
    // complete top-level element. The text ends at its first NUL. parseStream and parseFile skip a UTF-8
    // byte-order mark. What is larger than 1 GiB can't be read.
    bool parse(QByteArrayView text);
    bool parseStream(FILE *stream);
    bool parseFile(const char *path);

    // Of the last load or save that failed: the message, at most 1023 bytes, and the line from 0.
    const QByteArray &errorText() const { return m_errorText; }
    quint32 errorLine() const { return m_errorLine; }

    // The innermost element that the last parse found open at the end of its text; no name: there was none.
    struct OpenElement
    {
        QByteArray name;
        quint32 line = 0; // from 0, of its start
    };
    const OpenElement &openElement() const { return m_openElement; }

    // Keep indent and wrap width in the document and write it all. write() is always true, the stream knows
    // its errors; the file is replaced whole or stays as it was.
    bool write(FILE *stream, quint32 indent, quint32 wrapWidth);
    bool writeFile(const char *path, quint32 indent, quint32 wrapWidth);
    // The document as write() would write it, with the indent and wrap width that it has.
    QByteArray text() const;
    bool writeTo(QIODevice &device) const;

    // A deep copy of `source`, made with this document's createElement(); lines are 0. With a parent it is
    // appended there and a look at it comes back.
    std::unique_ptr<XMLNode> copyTree(const XMLNode *source);
    XMLNode *copyTree(const XMLNode *source, XMLNode *parent);

private:
    friend class XMLParser;

    bool load(FILE *stream, QByteArrayView name);
    bool parseSource(std::unique_ptr<char[]> buffer, size_t size, size_t start);
    std::unique_ptr<XMLNode> copyNode(const XMLNode *source);
    bool failToRead(QByteArrayView name);
    void setError(const QByteArray &text);

    std::unique_ptr<XMLElement> m_root;
    QByteArray m_doctype, m_version, m_encoding;
    QByteArray m_errorText;
    quint32 m_errorLine = 0;
    OpenElement m_openElement;
    quint32 m_indent = 0;
    quint32 m_wrapWidth = 0;
    const bool m_keepText;
};

// A document that is loaded and saved by Qt file names.
class QXMLDocument : public XMLDocument
{
public:
    using XMLDocument::parseFile;
    using XMLDocument::writeFile;
    using XMLDocument::XMLDocument;

    bool parseFile(const QString &path);
    bool writeFile(const QString &path, quint32 indent, quint32 wrapWidth);
};

// The doctype name of a file, found in its first 1024 bytes without parsing it: processing instructions may
// stand before it and nothing else. Null when there is none.
QByteArray readDoctype(const char *path);
QByteArray readDoctype(const QString &path);
