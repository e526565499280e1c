#include "xml/preprocessor/XMLPP2.h"

#include "xml/preprocessor/XMLPP2Walk.h"

void XMLPP2::reportError(const QString &) {}

bool XMLPP2::load(const QString &fileName, const QString &macroString, bool expand)
{
    const bool ok = parseFile(fileName);
    if (ok && root())
        processConditionals(root(), fileName, readMacroString(macroString), expand);
    return ok;
}

bool XMLPP2::loadString(const QString &text, const QString &macroString, bool expand)
{
    const bool ok = parse(text.toUtf8());
    if (ok && root())
        processConditionals(root(), QString(), readMacroString(macroString), expand);
    return ok;
}

void XMLPP2::processConditionals(XMLNode *node, const QString &currentFile, const MacroMap &macros, bool expand)
{
    Walk(*this).run(node, currentFile, macros, expand);
}

bool XMLPP2::parseInclude(const QString &path)
{
    return parseFile(path);
}

// All that a parse changes in the document is put back.
XMLPP2::Included XMLPP2::readInclude(const QString &path)
{
    std::unique_ptr<XMLElement> ownRoot = takeRoot();
    const QByteArray ownDoctype = doctype(), ownVersion = version(), ownEncoding = encoding();
    const bool ok = parseInclude(path);
    std::unique_ptr<XMLElement> included = takeRoot();
    setRoot(std::move(ownRoot));
    setDoctype(ownDoctype);
    setVersion(ownVersion);
    setEncoding(ownEncoding);
    return {std::move(included), ok};
}
