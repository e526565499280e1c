#include "project/model/ProjectElement.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array tags = {"solution", "configuration", "project", "folder", "file"}; // in the order of types

ProjectElement::Type typeTagged(QByteArrayView tag)
{
    return ProjectElement::Type(std::find(tags.begin(), tags.end(), tag) - tags.begin());
}

// Attributes are UTF-8. A character reference gives one byte, so that one by somebody else ("&#228;") may not be.
QString decoded(QByteArrayView bytes)
{
    return bytes.isValidUtf8() ? QString::fromUtf8(bytes) : QString::fromLatin1(bytes);
}

} // namespace

ProjectElement::ProjectElement(const XMLText &tag) : XMLElement(tag), m_type(typeTagged(XMLElement::name())) {}

ProjectElement *ProjectElement::enclosing(Type wanted)
{
    ProjectElement *node = this;
    while (node && node->type() != wanted)
        node = node->parentElement();
    return node;
}

QString ProjectElement::displayName() const
{
    const QString name = property(u"Name"_s);
    if (!name.isEmpty())
        return name;
    const QString file = property(u"file_name"_s);
    return file.isEmpty() ? u"<NULL>"_s : file.section(u'/', -1);
}

void ProjectElement::setProperty(const QString &key, const QString &value)
{
    const auto known = m_properties.constFind(key);
    if (known != m_properties.constEnd() && *known == value)
        return;
    m_properties.insert(key, value);
    m_isModified = true;
}

void ProjectElement::removeProperty(const QString &key)
{
    if (m_properties.remove(key))
        m_isModified = true;
}

ProjectElement *ProjectElement::addConfiguration(const QString &name)
{
    if (ProjectElement *known = configuration(name))
        return known;
    auto made = std::make_unique<ProjectElement>("configuration");
    ProjectElement *added = made.get();
    added->setProperty(u"Name"_s, name);
    appendChild(std::move(made));
    m_isModified = true;
    return *m_configurations.insert(name, added);
}

void ProjectElement::removeConfiguration(const QString &name)
{
    if (ProjectElement *known = m_configurations.take(name)) {
        removeChild(known);
        m_isModified = true;
    }
}

void ProjectElement::takeAttributes()
{
    while (!attributes().empty()) {
        const XMLAttribute &last = attributes().back();
        const QByteArray key = last.name().toByteArray();
        m_properties.insert(QString::fromUtf8(key), decoded(last.value()));
        removeAttribute(key);
    }
    if (m_type == Type::Configuration && parentElement())
        parentElement()->m_configurations.insert(displayName(), this);
    m_isModified = false;
}

void ProjectElement::setFile(const QString &path, const QDateTime &time)
{
    m_filePath = path;
    m_fileTime = time;
}
