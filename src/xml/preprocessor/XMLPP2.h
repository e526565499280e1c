#pragma once

#include "xml/macros/MacroExpansion.h"
#include "xml/tree/XMLDocument.h"

#include <vector>

// A description file with conditionals, loops, includes and fragments in it. The preprocessor walks the tree
// that was parsed and rewrites it in place, so that a reader only sees the resolved tree.
//
// Elements with these names are directives: if, ifnot, ifex, ifdef, ifndef, switch, include, define, for,
// xmldef, xmlput, foreach; docs/description-files.md tells what each does. No error stops the walk:
// each is reported and the directive is dropped or left in place.
//
// Attribute values and macro strings are taken as UTF-8. A directive that is the root of the document has no
// parent to put anything into: it is reported and stays.
class XMLPP2 : public QXMLDocument
{
public:
    using QXMLDocument::QXMLDocument;

    // Takes a message. By default there is nobody to tell.
    virtual void reportError(const QString &message);

    // Parses and processes with the macros of "name=value;name=value". `expand`: references in attribute values
    // are replaced during the walk. False when the parse failed, see errorText(); nothing is processed then.
    bool load(const QString &fileName, const QString &macroString, bool expand);
    bool loadString(const QString &text, const QString &macroString, bool expand);
    // Processes the node and its following siblings. `currentFile` is where relative includes count from.
    void processConditionals(XMLNode *node, const QString &currentFile, const MacroMap &macros, bool expand);

    // The fragment that the last <xmldef> of that name holds; null if there is none. It stays as long as the document.
    XMLElement *fragment(const QString &name) const { return m_fragments.value(name).element; }

    // How many elements one walk may add to what was parsed, before it reports and adds no more. 256 bytes
    // of expanded text count as an element, an included file as 200 and those in it.
    void setMaximumProduced(quint64 count) { m_maximumProduced = count; }

protected:
    // Parses an included file into this document.
    virtual bool parseInclude(const QString &path);

private:
    class Walk;
    struct Fragment
    {
        XMLElement *element = nullptr;
        QString file;
    };
    struct Included
    {
        std::unique_ptr<XMLElement> root;
        bool ok;
    };

    Included readInclude(const QString &path);

    QMap<QString, Fragment> m_fragments;
    std::vector<std::unique_ptr<XMLNode>> m_fragmentElements; // replaced ones too
    quint64 m_maximumProduced = 2'000'000;
};
