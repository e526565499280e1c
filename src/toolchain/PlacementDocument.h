#pragma once

#include "xml/preprocessor/XMLPP2.h"

#include <optional>

// A place in a description file, for messages.
struct SourcePlace
{
    QString file;
    quint32 line = 0; // from 1; 0 when it isn't known

    // "file:line: error: message"
    QString error(const QString &message) const { return diagnostic(u"error", message); }
    QString warning(const QString &message) const { return diagnostic(u"warning", message); }

private:
    QString diagnostic(QStringView severity, const QString &message) const;
};

// An element that knows the file it was read from.
class PlacedElement : public XMLElement
{
public:
    PlacedElement(const XMLText &name, const QString &file) : XMLElement(name), m_file(file) {}
    const QString &file() const { return m_file; }

private:
    QString m_file; // shared by all elements of a file
};

// A memory map or section placement document, preprocessed with macros, its imports in place.
//
//     <!DOCTYPE Board_Memory_Definition_File>
//     <root name="LM3S6965">
//       <MemorySegment name="FLASH" start="0x00000000" size="0x00040000" access="ReadOnly"/>
//
// A direct child `Import` of the root stands for the root of the file that its `filename` names; relative names
// count from the importing file.
class PlacementDocument : public XMLPP2
{
public:
    // Throws a one-line diagnostic for a file that can't be read, is no XML or breaks the preprocessor's rules.
    PlacementDocument(const QString &path, const QString &macros);

    std::unique_ptr<XMLElement> createElement(const XMLText &name) override;
    void reportError(const QString &message) override;

    // What it was read from: the document, and what it imports and includes.
    const QStringList &files() const { return m_files; }
    SourcePlace placeOf(const XMLElement &element) const;
    // An attribute's text; null when it is absent. Throws when a macro in it has no value.
    QString text(const XMLElement &element, const char *attribute) const;
    // An attribute calculated; a "+" before it adds `base`. None when it is absent. Throws for what is no number
    // of 32 bits.
    std::optional<quint32> number(const XMLElement &element, const char *attribute, quint32 base = 0) const;
    // "Yes" in any case.
    bool isYes(const XMLElement &element, const char *attribute) const;

protected:
    bool parseInclude(const QString &path) override;

private:
    std::unique_ptr<XMLElement> readRoot(const QString &path, const QString &macros);
    void readImports(const QString &macros);

    QString m_path;
    QString m_reading; // the file that elements are made from
    QStringList m_files;
};
