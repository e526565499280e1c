#pragma once

#include "xml/macros/MacroExpansion.h"

#include <QDomDocument>
#include <optional>

class QIODevice;

// The preprocessor of user-interface and report descriptions, which are Qt DOM documents. It knows fewer
// directives than XMLPP2 (no loops, no fragments) and some of its own: expand_attributes on any element,
// define_macro, expand_definition, and includes of text. Messages go to the log.
//
// A file may be maximumDepth elements deep, since the DOM recurses, and an element have maximumAttributes, since the
// DOM counts them anew for each. A directive that is the root of the document is
// reported and stays.
class XmlPP
{
public:
    static constexpr int maximumDepth = 128;
    static constexpr qsizetype maximumAttributes = 4096;

    XmlPP() = default;
    explicit XmlPP(const MacroMap &defaultMacros) : m_defaultMacros(defaultMacros) {}
    XmlPP(const XmlPP &) = delete;
    XmlPP &operator=(const XmlPP &) = delete;
    virtual ~XmlPP() = default;

    // Reads UTF-8 and processes it with the default macros, overridden by those of "name=value;name=value". False
    // when the file can't be opened, or isn't well-formed XML; then the error, line and column from 1 are filled.
    bool load(const QString &fileName, const QString &macroString, bool expand, QString *errorText = nullptr,
              int *errorLine = nullptr, int *errorColumn = nullptr);
    // The same with the default macros alone.
    bool loadString(const QString &text, bool expand, QString *errorText = nullptr, int *errorLine = nullptr,
                    int *errorColumn = nullptr);
    bool loadInputSource(QIODevice &source, bool expand, QString *errorText = nullptr, int *errorLine = nullptr,
                         int *errorColumn = nullptr);
    // Processes the node and its following siblings.
    void processConditionals(const QDomNode &node, const QString &currentFile, const MacroMap &macros, bool expand);

    QDomDocument &document() { return m_document; }

protected:
    // A file's bytes; none when it can't be opened.
    virtual std::optional<QByteArray> readFile(const QString &path);

private:
    class Walk;

    bool read(const QString &text, QString *errorText, int *errorLine, int *errorColumn);

    MacroMap m_defaultMacros;
    QDomDocument m_document;
};
