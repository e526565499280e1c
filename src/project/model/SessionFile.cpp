#include "project/model/SessionFile.h"

#include "base/HException.h"
#include "base/SafeFile.h"
#include "project/model/ElementPath.h"
#include "xml/macros/SystemMacroTable.h"
#include "xml/preprocessor/XmlPP.h"

#include <QFileInfo>
#include <QMetaProperty>

using namespace Qt::StringLiterals;

namespace {

constexpr auto doctype = "Veldane_Session_File"_L1;
constexpr int fileIndent = 2;
constexpr auto filesKey = "Files"_L1;
constexpr auto projectKey = "ProjectWindow"_L1;

// Folders that a stored path may begin with, the longest that fits being taken.
constexpr const char *pathMacros[] = {"StudioDir", "StudioUserDir", "HomeDir", "DesktopDir", "DocumentsDir"};

QString textOf(const QVariant &value)
{
    return value.metaType() == QMetaType::fromType<QStringList>() ? value.toStringList().join(u'\n') : value.toString();
}

bool isBelow(const QString &path, const QString &directory)
{
    return directory.size() > 1 && path.startsWith(directory) && path.size() > directory.size() &&
           path[directory.size()] == u'/';
}

} // namespace

QDomElement writeStoredProperties(QDomDocument &document, const QObject &object, const QMetaObject &base)
{
    const QMetaObject &type = *object.metaObject();
    QDomElement element = document.createElement(QString::fromLatin1(type.className()));
    for (int i = base.propertyCount(); i < type.propertyCount(); ++i)
        if (const QMetaProperty property = type.property(i); property.isStored())
            element.setAttribute(QString::fromLatin1(property.name()), textOf(property.read(&object)));
    return element;
}

bool readStoredProperties(const QDomElement &element, QObject &object, const QMetaObject &base)
{
    const QMetaObject &type = *object.metaObject();
    if (element.tagName() != QLatin1StringView(type.className()))
        return false;
    for (int i = base.propertyCount(); i < type.propertyCount(); ++i) {
        const QMetaProperty property = type.property(i);
        const QString name = QString::fromLatin1(property.name());
        if (!property.isStored() || !element.hasAttribute(name))
            continue;
        const QString text = element.attribute(name);
        if (property.metaType() == QMetaType::fromType<QStringList>()) {
            property.write(&object, text.isEmpty() ? QStringList() : text.split(u'\n'));
        } else {
            QVariant value(text);
            if (value.convert(property.metaType()))
                property.write(&object, value);
        }
    }
    return true;
}

SessionFile::SessionFile() : m_document(doctype)
{
    m_document.appendChild(m_document.createElement(u"session"_s));
}

QString SessionFile::pathFor(const QString &solutionFile)
{
    const QFileInfo info(solutionFile);
    return info.path() + u'/' + info.completeBaseName() + ".vnSession"_L1;
}

bool SessionFile::load(const QString &path)
{
    *this = SessionFile();
    XmlPP reader; // refuses what is nested too deeply
    if (!reader.load(path, QString(), false))
        return false;
    const QDomDocument document = reader.document();
    if (document.doctype().name() != doctype || document.documentElement().tagName() != "session"_L1)
        return false;
    m_document = document;
    return true;
}

void SessionFile::save(const QString &path) const
{
    writeFileSafely(path, m_document.toByteArray(fileIndent));
}

QDomElement SessionFile::part(const QString &key) const
{
    return root().firstChildElement(key);
}

void SessionFile::setPart(const QDomElement &part)
{
    const QDomElement old = root().firstChildElement(part.tagName());
    if (old.isNull())
        root().appendChild(part);
    else
        root().replaceChild(part, old);
}

std::vector<std::unique_ptr<SessionOpenFile>> SessionFile::openFiles(const QString &directory) const
{
    std::vector<std::unique_ptr<SessionOpenFile>> files;
    for (QDomElement element = part(filesKey).firstChildElement(); !element.isNull();
         element = element.nextSiblingElement()) {
        auto file = std::make_unique<SessionOpenFile>();
        if (!readStoredProperties(element, *file, QObject::staticMetaObject) || file->path.isEmpty())
            continue;
        file->path = pathOfSession(file->path, directory);
        files.push_back(std::move(file));
    }
    return files;
}

void SessionFile::setOpenFiles(const std::vector<std::unique_ptr<SessionOpenFile>> &files, const QString &directory)
{
    QDomElement list = m_document.createElement(filesKey);
    for (const auto &file : files) {
        QDomElement element = writeStoredProperties(m_document, *file, QObject::staticMetaObject);
        element.setAttribute(u"path"_s, sessionPath(file->path, directory));
        list.appendChild(element);
    }
    setPart(list);
}

QStringList SessionFile::expandedNodes() const
{
    QStringList paths;
    for (QDomElement element = part(projectKey).firstChildElement(); !element.isNull();
         element = element.nextSiblingElement()) {
        ProjectSessionItem item;
        if (readStoredProperties(element, item, QObject::staticMetaObject))
            paths.append(item.path);
    }
    return paths;
}

void SessionFile::setExpandedNodes(const QStringList &paths)
{
    QDomElement list = m_document.createElement(projectKey);
    for (const QString &path : paths) {
        ProjectSessionItem item;
        item.path = path;
        list.appendChild(writeStoredProperties(m_document, item, QObject::staticMetaObject));
    }
    setPart(list);
}

QString sessionPath(const QString &path, const QString &directory)
{
    if (isBelow(path, directory))
        return relativePath(directory, path);
    const MacroMap &macros = SystemMacroTable::instance().systemMacros();
    QString best, name;
    for (const char *macro : pathMacros) {
        const QString folder = macros.value(QString::fromLatin1(macro));
        if (folder.size() > best.size() && isBelow(path, folder)) {
            best = folder;
            name = QString::fromLatin1(macro);
        }
    }
    return best.isEmpty() ? path : u"$(%1)%2"_s.arg(name, path.sliced(best.size()));
}

QString pathOfSession(const QString &path, const QString &directory)
{
    return absolutePath(directory, expandGlobal(path));
}
