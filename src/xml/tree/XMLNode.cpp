#include "xml/tree/XMLNode.h"

#include <algorithm>
#include <cstring>

XMLAttribute *XMLSource::storeAttributes(const std::vector<XMLAttribute> &attributes)
{
    constexpr size_t pageCount = 2048;
    if (attributes.size() > m_freeCount) {
        m_freeCount = std::max(pageCount, attributes.size());
        m_free = m_pages.emplace_back(std::make_unique_for_overwrite<XMLAttribute[]>(m_freeCount)).get();
    }
    XMLAttribute *stored = m_free;
    std::copy(attributes.begin(), attributes.end(), stored);
    m_free += attributes.size();
    m_freeCount -= attributes.size();
    return stored;
}

XMLNode::XMLNode(Kind kind, const XMLText &value) : m_source(value.source()), m_kind(kind)
{
    if (m_source)
        m_source->addReference();
    const QByteArrayView stored = store(value);
    m_value = stored.data();
    m_valueSize = quint32(stored.size());
}

XMLNode::~XMLNode()
{
    destroyChain(m_firstChild);
    drop(XMLNode::value());
    if (m_source)
        m_source->release();
}

// Lifts the children of each node into the chain before the node goes, so that depth costs no stack.
void XMLNode::destroyChain(XMLNode *first)
{
    while (XMLNode *node = first) {
        if (XMLNode *child = std::exchange(node->m_firstChild, nullptr)) {
            child->m_previous->m_next = node;
            first = child;
        } else {
            first = node->m_next;
            delete node;
        }
    }
}

QByteArrayView XMLNode::store(const XMLText &text) const
{
    const QByteArrayView bytes = text.bytes();
    if (bytes.isNull() || (m_source && text.source() == m_source))
        return bytes;
    if (bytes.isEmpty())
        return "";
    Q_ASSERT(bytes.size() <= std::numeric_limits<quint32>::max());
    char *copy = new char[size_t(bytes.size())];
    std::memcpy(copy, bytes.data(), size_t(bytes.size()));
    return {copy, bytes.size()};
}

void XMLNode::drop(QByteArrayView stored) const
{
    if (!stored.isEmpty() && !(m_source && m_source->contains(stored.data())))
        delete[] stored.data();
}

XMLText XMLNode::share(QByteArrayView stored) const
{
    return m_source && m_source->contains(stored.data()) ? XMLText(stored, m_source) : XMLText(stored);
}

void XMLNode::setValue(const XMLText &text)
{
    const QByteArrayView old = XMLNode::value();
    const QByteArrayView stored = store(text);
    m_value = stored.data();
    m_valueSize = quint32(stored.size());
    drop(old);
}

XMLElement *XMLNode::elementFrom(XMLNode *node, QByteArrayView name)
{
    for (; node; node = node->m_next) {
        XMLElement *element = node->toElement();
        if (element && (name.isNull() || element->name() == name))
            return element;
    }
    return nullptr;
}

XMLNode *XMLNode::nextBehindTree(const XMLNode *top) const
{
    for (const XMLNode *node = this; node && node != top; node = node->m_parent)
        if (node->m_next)
            return node->m_next;
    return nullptr;
}

void XMLNode::appendChild(std::unique_ptr<XMLNode> child)
{
    XMLNode *node = child.release();
    node->m_parent = this;
    node->m_next = nullptr;
    if (m_firstChild) {
        node->m_previous = m_firstChild->m_previous;
        node->m_previous->m_next = node;
    } else {
        m_firstChild = node;
    }
    m_firstChild->m_previous = node;
}

void XMLNode::prependChild(std::unique_ptr<XMLNode> child)
{
    XMLNode *node = child.release();
    node->m_parent = this;
    node->m_next = m_firstChild;
    node->m_previous = m_firstChild ? m_firstChild->m_previous : node;
    if (m_firstChild)
        m_firstChild->m_previous = node;
    m_firstChild = node;
}

std::unique_ptr<XMLNode> XMLNode::removeChild(XMLNode *node)
{
    if (!hasChild(node))
        return nullptr;
    // In this order it holds for the first, the last and the only child too.
    if (m_firstChild != node)
        node->m_previous->m_next = node->m_next;
    (node->m_next ? node->m_next : m_firstChild)->m_previous = node->m_previous;
    if (m_firstChild == node)
        m_firstChild = node->m_next;
    node->m_previous = nullptr;
    return std::unique_ptr<XMLNode>(node);
}

std::unique_ptr<XMLNode> XMLNode::replaceChild(XMLNode *oldNode, std::unique_ptr<XMLNode> newNode)
{
    if (!hasChild(oldNode) || !newNode)
        return newNode;
    XMLNodeChain chain(std::move(newNode));
    XMLNode::insertAfter(oldNode, std::move(chain));
    return XMLNode::removeChild(oldNode);
}

void XMLNode::insertAfter(XMLNode *reference, XMLNodeChain chain)
{
    XMLNode *first = std::exchange(chain.m_first, nullptr);
    if (!first)
        return;
    XMLNode *last = first->m_previous;
    for (XMLNode *node = first; node; node = node->m_next)
        node->m_parent = this;
    if (!m_firstChild) {
        m_firstChild = first; // whose previous is the last already
        return;
    }
    XMLNode *before = hasChild(reference) ? reference : lastChild();
    last->m_next = before->m_next;
    (last->m_next ? last->m_next : m_firstChild)->m_previous = last;
    before->m_next = first;
    first->m_previous = before;
}

XMLNodeChain XMLNode::takeChildren()
{
    XMLNodeChain chain;
    chain.m_first = std::exchange(m_firstChild, nullptr);
    for (XMLNode *node = chain.m_first; node; node = node->m_next)
        node->m_parent = nullptr;
    return chain;
}

void XMLNodeChain::append(std::unique_ptr<XMLNode> child)
{
    XMLNode *node = child.release();
    node->m_parent = nullptr;
    node->m_next = nullptr;
    if (m_first) {
        node->m_previous = m_first->m_previous;
        node->m_previous->m_next = node;
    } else {
        m_first = node;
    }
    m_first->m_previous = node;
}
