#include "xml/tree/XMLFormat.h"

#include "base/HException.h"
#include "xml/tree/XMLDocument.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace {

HException errorAt(const QString &path, quint32 line, const QString &message)
{
    return HException(u"%1:%2: %3"_s.arg(path, QString::number(line + 1), message));
}

bool isBlank(const XMLNode &node)
{
    return node.kind() == XMLNode::Kind::Data && node.value().trimmed().isEmpty();
}

// The parser makes a text node of every run between tags. Where other nodes stand among them, the blank
// ones are layout. The line of a node whose text the writer would not show with its siblings; none is ~0.
quint32 dropLayout(XMLElement &element)
{
    bool hasOthers = false;
    for (const XMLNode *child = element.firstChild(); child; child = child->nextSibling())
        hasOthers |= child->kind() != XMLNode::Kind::Data;
    for (XMLNode *child = element.firstChild(), *next = nullptr; hasOthers && child; child = next) {
        next = child->nextSibling();
        if (isBlank(*child))
            element.removeChild(child);
        else if (child->kind() == XMLNode::Kind::Data)
            return child->line();
    }
    return ~0u;
}

constexpr quint64 mostSpaces = 1 << 28;

} // namespace

void formatXml(const QString &path, const XMLFormat &format, QIODevice &output)
{
    XMLDocument document(format.keepText);
    if (!document.parseFile(QFile::encodeName(path).constData())) {
        const QString message = QString::fromUtf8(document.errorText());
        if (message.startsWith("couldn't read"_L1))
            throw HException(message);
        throw errorAt(path, document.errorLine(), message);
    }
    requireRoot(document, path);
    removeLayout(document.root(), path);
    checkDepth(document.root(), path, format.indent);
    document.setIndent(format.indent);
    document.setWrapWidth(format.wrapWidth);
    if (!document.writeTo(output))
        throw HException(u"couldn't write the document: %1"_s.arg(output.errorString()));
}

void requireRoot(const XMLDocument &document, const QString &path)
{
    const XMLDocument::OpenElement &open = document.openElement();
    if (document.root())
        return;
    if (!open.name.isEmpty())
        throw errorAt(path, open.line, u"<%1> isn't closed"_s.arg(QString::fromUtf8(open.name)));
    throw errorAt(path, 0, u"no root element"_s);
}

void removeLayout(XMLElement *root, const QString &path)
{
    for (XMLNode *node = root; node; node = node->nextInTree(root)) {
        const quint32 line = node->toElement() ? dropLayout(*node->toElement()) : ~0u;
        if (line != ~0u)
            throw errorAt(path, line, u"text beside elements or comments can't be formatted"_s);
    }
}

void checkDepth(const XMLElement *root, const QString &path, quint32 indent)
{
    quint64 depth = 0, spaces = 0;
    for (const XMLNode *node = root;;) {
        spaces += depth * indent;
        if (spaces > mostSpaces)
            throw errorAt(path, node->line(), u"elements are nested too deeply for this indent"_s);
        if (node->firstChild()) {
            node = node->firstChild();
            ++depth;
            continue;
        }
        for (; node != root && !node->nextSibling(); node = node->parent())
            --depth;
        if (node == root)
            return;
        node = node->nextSibling();
    }
}
