#include "xml/tree/XMLNode.h"

#include <algorithm>

XMLElement::~XMLElement()
{
    XMLElement::removeAttributes();
    if (m_attributeCapacity)
        delete[] m_attributes;
}

void XMLElement::removeAttributes()
{
    if (m_hasOwnStrings) {
        for (const XMLAttribute &attribute : XMLElement::attributes()) {
            drop(attribute.name());
            drop(attribute.value());
        }
    }
    m_attributeCount = 0;
}

XMLAttribute *XMLElement::find(QByteArrayView name) const
{
    XMLAttribute *const end = m_attributes + m_attributeCount;
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
    drop(old.name());
    drop(old.value());
}

void XMLElement::addAttribute(const XMLAttribute &attribute)
{
    if (m_attributeCount >= m_attributeCapacity)
        reserveAttributes(std::max(4u, m_attributeCount * 2));
    m_attributes[m_attributeCount++] = attribute;
}

void XMLElement::reserveAttributes(quint32 count)
{
    auto list = std::make_unique_for_overwrite<XMLAttribute[]>(count);
    std::copy(m_attributes, m_attributes + m_attributeCount, list.get());
    if (m_attributeCapacity)
        delete[] m_attributes;
    m_attributes = list.release();
    m_attributeCapacity = count;
}

void XMLElement::copyAttributes(const XMLElement &from)
{
    if (m_attributeCount) { // the factory has set some
        for (const XMLAttribute &attribute : from.XMLElement::attributes())
            setAttribute(attribute.name(), attribute.value());
        return;
    }
    if (from.m_attributeCount)
        reserveAttributes(from.m_attributeCount);
    for (const XMLAttribute &attribute : from.XMLElement::attributes()) {
        const XMLAttribute copy(store(from.share(attribute.name())), store(from.share(attribute.value())));
        m_hasOwnStrings |=
            copy.name().data() != attribute.name().data() || copy.value().data() != attribute.value().data();
        m_attributes[m_attributeCount++] = copy;
    }
}
