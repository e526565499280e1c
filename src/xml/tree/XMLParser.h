#pragma once

#include "xml/tree/XMLDocument.h"

#include <QHash>

// One parse of one source into a document, see XMLDocument::parse. Works in place: names and values of the
// tree are pieces of the source, in which references are replaced by what they stand for.
class XMLParser
{
public:
    // Starts at `start` and ends at the first NUL; one stands behind the source's text.
    XMLParser(XMLDocument &document, XMLSource &source, size_t start);

    // The last complete top-level element goes to the document.
    bool parse();

private:
    bool parseMarkup();
    bool fail(const char *message);
    void parseDeclarationOrComment();
    void parseCDATASection();
    bool parseProcessingInstruction();
    bool parseStartTag();
    bool parseEndTag();
    void parseCharacterData();
    void readAttributes();
    void addAttribute(QByteArrayView name, QByteArrayView value);
    QByteArrayView readName();
    QByteArrayView readAttributeValue();
    QByteArrayView decode(char *begin, char *end, bool dropReturns);
    void skipSpace();
    void appendToOpen(std::unique_ptr<XMLNode> node);
    void closeElement();
    XMLText text(const char *begin, const char *end) { return {QByteArrayView(begin, end), &m_source}; }
    quint32 lineAt(const char *position);

    XMLDocument &m_document;
    XMLSource &m_source;
    char *m_cursor;
    const char *m_counted; // line feeds before it are in m_line
    quint32 m_line = 0;
    quint32 m_markupLine = 0; // of the "<" of the markup at hand
    std::vector<std::unique_ptr<XMLElement>> m_open;
    std::unique_ptr<XMLElement> m_root;

    std::vector<XMLAttribute> m_attributes;        // of the tag at hand
    quint64 m_seenNames = 0;                       // a bit for each hash of their names, while they are few
    QHash<QByteArrayView, quint32> m_attributeMap; // name to index, once they are many
};
