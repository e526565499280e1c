#include "toolchain/PlacementDocument.h"

#include "base/HException.h"
#include "expression/ExpressionParser.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

QString SourcePlace::diagnostic(QStringView severity, const QString &message) const
{
    const QString where = line ? file + u':' + QString::number(line) : file;
    return u"%1: %2: "_s.arg(where, severity) + message;
}

PlacementDocument::PlacementDocument(const QString &path, const QString &macros) : m_path(path)
{
    setRoot(readRoot(path, macros));
    readImports(macros);
}

// Parses one file of the document, the top one or an imported one, and gives its root.
std::unique_ptr<XMLElement> PlacementDocument::readRoot(const QString &path, const QString &macros)
{
    std::unique_ptr<XMLElement> before = takeRoot();
    if (!QFileInfo(path).isFile())
        throw HException(SourcePlace{path}.error(QFileInfo(path).isDir() ? u"is a folder"_s : u"no such file"_s));
    m_reading = path;
    m_files += path;
    if (!load(path, macros, true))
        throw HException(SourcePlace{path, errorLine() + 1}.error(QString::fromUtf8(errorText())));
    if (!root()) {
        const auto &[openName, openLine] = openElement();
        throw HException(SourcePlace{path, openLine + 1}.error(
            openName.isEmpty() ? u"the document is empty or cut off"_s
                               : u"<%1> has no end: the document is cut off"_s.arg(QString::fromUtf8(openName))));
    }
    std::unique_ptr<XMLElement> read = takeRoot();
    setRoot(std::move(before));
    return read;
}

void PlacementDocument::readImports(const QString &macros)
{
    for (XMLElement *child = root()->firstChildElement(), *next; child; child = next) {
        next = child->nextSiblingElement();
        if (child->name() != "Import")
            continue;
        const SourcePlace place = placeOf(*child);
        const QString name = text(*child, "filename");
        if (name.isEmpty())
            throw HException(place.error(u"'Import' has no 'filename'"_s));
        const QString path = QFileInfo(m_path).dir().filePath(name);
        if (!QFileInfo(path).isFile())
            throw HException(place.error(u"cannot open '%1'"_s.arg(path)));
        root()->replaceChild(child, readRoot(path, macros));
    }
}

std::unique_ptr<XMLElement> PlacementDocument::createElement(const XMLText &name)
{
    return std::make_unique<PlacedElement>(name, m_reading);
}

bool PlacementDocument::parseInclude(const QString &path)
{
    const QString before = std::exchange(m_reading, path);
    m_files += path;
    const bool ok = XMLPP2::parseInclude(path);
    m_reading = before;
    return ok;
}

// The preprocessor's messages end in " : file:line".
void PlacementDocument::reportError(const QString &message)
{
    const qsizetype place = message.lastIndexOf(u" : "_s);
    if (place < 0)
        throw HException(SourcePlace{m_path}.error(message));
    throw HException(message.sliced(place + 3) + u": error: "_s + message.first(place));
}

SourcePlace PlacementDocument::placeOf(const XMLElement &element) const
{
    // Copies that a loop made have no line.
    const bool isCopy = element.line() == 0 && &element != root();
    return {static_cast<const PlacedElement &>(element).file(), isCopy ? 0 : element.line() + 1};
}

QString PlacementDocument::text(const XMLElement &element, const char *attribute) const
{
    const QString text = expandSystem(QString::fromUtf8(element.attribute(attribute)).trimmed());
    const qsizetype macro = text.indexOf(u"$("_s);
    if (macro >= 0) {
        const qsizetype end = text.indexOf(u')', macro);
        throw HException(placeOf(element).error(
            u"macro '%1' is not defined"_s.arg(text.sliced(macro + 2, end < 0 ? -1 : end - macro - 2))));
    }
    return text;
}

std::optional<quint32> PlacementDocument::number(const XMLElement &element, const char *attribute, quint32 base) const
{
    const QString expression = text(element, attribute);
    if (expression.isEmpty())
        return std::nullopt;
    bool ok = false;
    quint64 value = SimpleExpressionParser().evaluateUnsigned(expression, &ok);
    if (ok && expression.startsWith(u'+'))
        value += base;
    if (!ok || value > 0xFFFFFFFF)
        throw HException(
            placeOf(element).error(u"%1 '%2' is no number of 32 bits"_s.arg(QLatin1StringView(attribute), expression)));
    return quint32(value);
}

bool PlacementDocument::isYes(const XMLElement &element, const char *attribute) const
{
    return text(element, attribute).compare(u"Yes"_s, Qt::CaseInsensitive) == 0;
}
