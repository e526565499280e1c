#pragma once

#include "xml/tree/XMLDocument.h"

// Writes a document, see XMLDocument::write, into a device, or into a buffer when there is none.
class XMLWriter
{
public:
    XMLWriter(quint32 indent, quint32 wrapWidth, QIODevice *device = nullptr)
        : m_indent(indent), m_wrapWidth(wrapWidth), m_device(device)
    {}

    void writePrologue(const XMLDocument &document);
    void writeTree(const XMLNode *top);
    // False when the device could not take everything.
    bool flush();
    const QByteArray &text() const { return m_text; }

private:
    bool startNode(const XMLNode &node, quint64 level);
    bool startElement(const XMLElement &element, quint64 level);
    void endElement(const XMLElement &element, quint64 level);
    bool mustWrap(const XMLElement &element, quint64 level) const;
    void writeSpaces(quint64 count);
    void writeEscaped(QByteArrayView text);
    void write(QByteArrayView text);

    const quint64 m_indent;
    const quint64 m_wrapWidth;
    QIODevice *m_device;
    bool m_ok = true;
    QByteArray m_text;
};
