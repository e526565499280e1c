#include "project/model/ProjectElement.h"

#include "project/model/ElementCache_p.h"

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

quint64 ProjectElement::s_changeCount = 0;

ProjectElement::ProjectElement(const XMLText &tag) : XMLElement(tag), m_type(typeTagged(XMLElement::name())) {}

ProjectElement::~ProjectElement()
{
    ++s_changeCount;
}

const ProjectElement *ProjectElement::enclosing(Type wanted) const
{
    const ProjectElement *node = this;
    while (node && node->type() != wanted)
        node = node->parentElement();
    return node;
}

ProjectElement *ProjectElement::enclosing(Type wanted)
{
    return const_cast<ProjectElement *>(std::as_const(*this).enclosing(wanted));
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
    ++s_changeCount;
}

void ProjectElement::removeProperty(const QString &key)
{
    if (!m_properties.remove(key))
        return;
    m_isModified = true;
    ++s_changeCount;
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
    if (!configuration(name))
        return;
    for (ProjectElement *child = firstElement(); child;) {
        ProjectElement *next = child->nextElement();
        if (child->type() == Type::Configuration && child->displayName() == name)
            removeChild(child);
        child = next;
    }
    m_isModified = true;
}

void ProjectElement::renameConfiguration(const QString &oldName, const QString &newName)
{
    ProjectElement *renamed = configuration(oldName);
    if (!renamed || oldName == newName)
        return;
    removeConfiguration(newName);
    m_configurations.remove(oldName);
    m_configurations.insert(newName, renamed);
    for (ProjectElement *child = firstElement(); child; child = child->nextElement())
        if (child->type() == Type::Configuration && child->displayName() == oldName)
            child->setProperty(u"Name"_s, newName);
    m_isModified = true;
}

void ProjectElement::takeAttributes()
{
    for (const XMLAttribute &attribute : attributes()) {
        // Nearly all attributes of a large solution have this name, and a literal takes no memory.
        const bool isFileName = attribute.name() == "file_name";
        m_properties.insert(isFileName ? u"file_name"_s : QString::fromUtf8(attribute.name()),
                            decoded(attribute.value()));
    }
    removeAttributes();
    ++s_changeCount;
    if (m_type == Type::Configuration && parentElement())
        parentElement()->m_configurations.insert(displayName(), this);
    m_isModified = false;
}

void ProjectElement::setFile(const QString &path, const QDateTime &time)
{
    m_filePath = path;
    m_fileTime = time;
    ++s_changeCount;
}

void ProjectElement::setBuildType(const QString &type)
{
    m_buildType = type;
    ++s_changeCount;
}

void ProjectElement::appendChild(std::unique_ptr<XMLNode> node)
{
    ++s_changeCount;
    XMLElement::appendChild(std::move(node));
}

void ProjectElement::prependChild(std::unique_ptr<XMLNode> node)
{
    ++s_changeCount;
    XMLElement::prependChild(std::move(node));
}

std::unique_ptr<XMLNode> ProjectElement::removeChild(XMLNode *node)
{
    ++s_changeCount;
    const auto *element = static_cast<const ProjectElement *>(node ? node->toElement() : nullptr);
    if (element && element->type() == Type::Configuration)
        m_configurations.removeIf([element](const auto &entry) { return entry.value() == element; });
    return XMLElement::removeChild(node);
}

std::unique_ptr<XMLNode> ProjectElement::replaceChild(XMLNode *oldNode, std::unique_ptr<XMLNode> newNode)
{
    ++s_changeCount;
    return XMLElement::replaceChild(oldNode, std::move(newNode));
}

void ProjectElement::insertAfter(XMLNode *reference, XMLNodeChain chain)
{
    ++s_changeCount;
    XMLElement::insertAfter(reference, std::move(chain));
}

ElementCache &ProjectElement::cache() const
{
    if (!m_cache)
        m_cache = std::make_unique<ElementCache>();
    return *m_cache;
}
