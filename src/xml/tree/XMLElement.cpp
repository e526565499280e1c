#include "xml/tree/XMLNode.h"

#include <QHash>
#include <algorithm>

// Above this many attributes a list of their own has an index.
constexpr quint32 fewAttributes = 64;

struct XMLElement::AttributeList
{
    std::vector<XMLAttribute> entries;
    QHash<QByteArrayView, quint32> places; // by name; empty until a name is looked for among many
};

XMLElement::XMLElement(const XMLText &name) : XMLNode(Kind::Element, name) {}

XMLElement::~XMLElement()
{
    XMLElement::removeAttributes();
}

void XMLElement::removeAttributes()
{
    if (m_hasOwnStrings) {
        for (const XMLAttribute &attribute : XMLElement::attributes()) {
            drop(attribute.name());
            drop(attribute.value());
        }
    }
    m_ownList.reset();
    m_attributeCount = 0;
}

XMLAttribute *XMLElement::find(QByteArrayView name) const
{
    XMLAttribute *const end = m_attributes + m_attributeCount;
    if (m_ownList && m_attributeCount > fewAttributes) {
        auto &places = m_ownList->places;
        if (places.isEmpty()) {
            for (const XMLAttribute &attribute : m_ownList->entries)
                places.insert(attribute.name(), quint32(places.size()));
        }
        const auto place = places.constFind(name);
        return place == places.constEnd() ? nullptr : m_attributes + *place;
    }
    XMLAttribute *found = std::find_if(m_attributes, end, [name](const auto &entry) { return entry.name() == name; });
    return found == end ? nullptr : found;
}

QByteArrayView XMLElement::attribute(QByteArrayView name) const
{
    const XMLAttribute *found = find(name);
    return found ? found->value() : QByteArrayView();
}

void XMLElement::setAttribute(const XMLText &name, const XMLText &value)
{
    const QByteArrayView stored = store(value);
    m_hasOwnStrings = true;
    if (m_attributeCount > fewAttributes)
        makeListOwn();
    if (XMLAttribute *found = find(name.bytes())) {
        const QByteArrayView old = found->value();
        *found = XMLAttribute(found->name(), stored);
        drop(old);
    } else {
        addAttribute(XMLAttribute(store(name), stored));
    }
}

void XMLElement::removeAttribute(QByteArrayView name)
{
    XMLAttribute *found = find(name);
    if (!found)
        return;
    const XMLAttribute old = *found;
    std::copy(found + 1, m_attributes + m_attributeCount, found);
    --m_attributeCount;
    if (m_ownList) {
        m_ownList->entries.pop_back();
        m_ownList->places.clear();
    }
    drop(old.name());
    drop(old.value());
}

void XMLElement::addAttribute(const XMLAttribute &attribute)
{
    makeListOwn();
    m_ownList->entries.push_back(attribute);
    if (!m_ownList->places.isEmpty())
        m_ownList->places.insert(attribute.name(), m_attributeCount);
    m_attributes = m_ownList->entries.data();
    ++m_attributeCount;
}

void XMLElement::makeListOwn()
{
    if (m_ownList)
        return;
    m_ownList = std::make_unique<AttributeList>();
    m_ownList->entries.assign(m_attributes, m_attributes + m_attributeCount);
    m_attributes = m_ownList->entries.data();
}

void XMLElement::copyAttributes(const XMLElement &from)
{
    if (m_attributeCount) { // the factory has set some
        for (const XMLAttribute &attribute : from.XMLElement::attributes())
            setAttribute(attribute.name(), attribute.value());
        return;
    }
    if (from.m_attributeCount == 0)
        return;
    makeListOwn();
    m_ownList->entries.reserve(from.m_attributeCount);
    for (const XMLAttribute &attribute : from.XMLElement::attributes()) {
        const XMLAttribute copy(store(from.share(attribute.name())), store(from.share(attribute.value())));
        m_hasOwnStrings |=
            copy.name().data() != attribute.name().data() || copy.value().data() != attribute.value().data();
        addAttribute(copy);
    }
}
