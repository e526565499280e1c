#pragma once

#include <QString>

class QIODevice;
class XMLDocument;
class XMLElement;

// How a document is laid out again. Without text only elements, their attributes and CDATA sections remain.
struct XMLFormat
{
    quint32 indent = 2;
    quint32 wrapWidth = 75; // 0: attributes stay on the line of their element
    bool keepText = false;  // and comments; text of white space between elements goes all the same
};

// Reads `path`, lays it out and writes it to `output`. Throws "couldn't read PATH", "PATH:LINE: TEXT" for a
// broken document or one without a root, "PATH:LINE: text beside elements or comments can't be formatted" for
// mixed content when text is kept, "PATH:LINE: elements are nested too deeply for this indent" (more than 256 MiB
// of spaces), and "couldn't write the document: REASON". Lines count from 1.
void formatXml(const QString &path, const XMLFormat &format, QIODevice &output);

// Throws "PATH:LINE: <NAME> isn't closed" or "PATH:1: no root element" for a document that was parsed and has none.
void requireRoot(const XMLDocument &document, const QString &path);

// Throws as above when the spaces would be that many: what is nested thousands of levels deep would fill a disk,
// for indentation grows with the square of the depth.
void checkDepth(const XMLElement *root, const QString &path, quint32 indent);

// Takes away the blank text between the tags of a tree that was parsed with its text: it is layout, and the writer
// shows an element's text only where it has nothing else. Throws as above for mixed content; null is an empty tree.
void removeLayout(XMLElement *root, const QString &path);
