#pragma once

#include "xml/tree/XMLText.h"

#include <span>

class XMLElement;
class XMLNodeChain;

// A node of the XML tree. It owns its children and is owned by its parent, or, without one, by whoever holds
// the unique_ptr. Siblings form a chain; appending, removing and splicing take constant time, and nothing
// here recurses, so that a tree may be as deep or as wide as memory allows.
//
// Strings are bytes, never decoded. A view of one is valid until that string is set again or the node goes.
// A tree belongs to one thread at a time, together with the trees that were parsed from or copied with it.
class XMLNode
{
public:
    enum class Kind : quint8 { Element, Data, Comment, CDATASection };

    XMLNode(const XMLNode &) = delete;
    XMLNode &operator=(const XMLNode &) = delete;
    virtual ~XMLNode();

    Kind kind() const { return m_kind; }
    // This node as an element; null when it is none.
    inline XMLElement *toElement();
    inline const XMLElement *toElement() const;

    XMLNode *parent() const { return m_parent; } // null on a root
    XMLNode *nextSibling() const { return m_next; }
    XMLNode *firstChild() const { return m_firstChild; }
    XMLNode *lastChild() const { return m_firstChild ? m_firstChild->m_previous : nullptr; }
    // The first element among the children or the following siblings, of any name or of `name`; null if none.
    XMLElement *firstChildElement(QByteArrayView name = {}) const { return elementFrom(m_firstChild, name); }
    XMLElement *nextSiblingElement(QByteArrayView name = {}) const { return elementFrom(m_next, name); }
    // The node behind this one in document order within the tree below `top`; null behind the last.
    XMLNode *nextInTree(const XMLNode *top) const { return m_firstChild ? m_firstChild : nextBehindTree(top); }
    // The same, but over this node's children.
    XMLNode *nextBehindTree(const XMLNode *top) const;

    // Line of the source on which the node began, from 0; 0 for nodes built in memory.
    quint32 line() const { return m_line; }
    void setLine(quint32 line) { m_line = line; }

    virtual void appendChild(std::unique_ptr<XMLNode> node);
    virtual void prependChild(std::unique_ptr<XMLNode> node);
    // Unlinks `node` and hands it over. Its own parent and next sibling stay readable as they were, so that a
    // walk can go on behind it. Null for what isn't a child.
    virtual std::unique_ptr<XMLNode> removeChild(XMLNode *node);
    // Puts `newNode` in the place of `oldNode` and gives the old one, which keeps its pointers as above.
    // When `oldNode` isn't a child, nothing happens and `newNode` comes back.
    virtual std::unique_ptr<XMLNode> replaceChild(XMLNode *oldNode, std::unique_ptr<XMLNode> newNode);
    // Splices the chain in behind the child `reference`; at the end when that isn't a child.
    virtual void insertAfter(XMLNode *reference, XMLNodeChain chain);
    // All children, which have no parent then.
    XMLNodeChain takeChildren();

    // The node's string: an element's tag name, otherwise the text.
    virtual void setValue(const XMLText &text);
    virtual QByteArrayView value() const { return {m_value, qsizetype(m_valueSize)}; }

protected:
    XMLNode(Kind kind, const XMLText &value);

    // Strings and lists of this source are pointed to and not owned; null: all are owned.
    XMLSource *source() const { return m_source; }
    // A string as this node stores it: in its source, or a copy of its own.
    QByteArrayView store(const XMLText &text) const;
    // Frees it, if it is a copy.
    void drop(QByteArrayView stored) const;
    // A stored string for another node: one in the source need not be copied.
    XMLText share(QByteArrayView stored) const;

private:
    friend class XMLNodeChain;
    friend class XMLDocument;

    static XMLElement *elementFrom(XMLNode *node, QByteArrayView name);
    bool hasChild(const XMLNode *node) const { return node && node->m_parent == this && node->m_previous; }
    static void destroyChain(XMLNode *first);

    XMLNode *m_parent = nullptr;
    XMLNode *m_next = nullptr;
    XMLNode *m_previous = nullptr; // of the first in a chain the last; null on a node in no chain
    XMLNode *m_firstChild = nullptr;
    XMLSource *m_source;
    const char *m_value = nullptr;
    quint32 m_valueSize = 0;
    quint32 m_line = 0;
    const Kind m_kind;
};

// Siblings without a parent, owned.
class XMLNodeChain
{
public:
    XMLNodeChain() = default;
    template <std::derived_from<XMLNode> Node>
    XMLNodeChain(std::unique_ptr<Node> node)
    {
        append(std::move(node));
    }
    XMLNodeChain(XMLNodeChain &&other) noexcept : m_first(std::exchange(other.m_first, nullptr)) {}
    XMLNodeChain &operator=(XMLNodeChain &&other) noexcept
    {
        std::swap(m_first, other.m_first);
        return *this;
    }
    ~XMLNodeChain() { XMLNode::destroyChain(m_first); }

    bool isEmpty() const { return !m_first; }
    XMLNode *first() const { return m_first; }
    XMLNode *last() const { return m_first ? m_first->m_previous : nullptr; }
    void append(std::unique_ptr<XMLNode> node);

private:
    friend class XMLNode;

    XMLNode *m_first = nullptr;
};

// An element: a tag name, which value() and setValue() stand for too, and attributes in document order with
// names that occur once.
class XMLElement : public XMLNode
{
public:
    explicit XMLElement(const XMLText &name);
    ~XMLElement() override;

    QByteArrayView name() const { return value(); }

    // Replaces the value where the name exists already (compared exactly), otherwise adds the pair at the end.
    virtual void setAttribute(const XMLText &name, const XMLText &value);
    virtual void removeAttribute(QByteArrayView name);
    virtual void removeAttributes(); // all
    virtual bool hasAttribute(QByteArrayView name) const { return find(name); }
    // Null for an absent attribute and for a null value.
    virtual QByteArrayView attribute(QByteArrayView name) const;
    // Valid until an attribute is set or removed.
    virtual std::span<const XMLAttribute> attributes() const { return {m_attributes, m_attributeCount}; }

private:
    friend class XMLParser;   // fills the list of a new element
    friend class XMLDocument; // copies lists

    struct AttributeList;

    void copyAttributes(const XMLElement &from);
    XMLAttribute *find(QByteArrayView name) const;
    void addAttribute(const XMLAttribute &attribute);
    void makeListOwn();

    bool m_hasOwnStrings = false; // some name or value may be a copy; the rest of the base's last words
    quint32 m_attributeCount = 0;
    XMLAttribute *m_attributes = nullptr;
    std::unique_ptr<AttributeList> m_ownList; // null: the list lies in the source
};

class XMLData : public XMLNode
{
public:
    explicit XMLData(const XMLText &text) : XMLNode(Kind::Data, text) {}
};

class XMLComment : public XMLNode
{
public:
    explicit XMLComment(const XMLText &text) : XMLNode(Kind::Comment, text) {}
};

class XMLCDATASection : public XMLNode
{
public:
    explicit XMLCDATASection(const XMLText &text) : XMLNode(Kind::CDATASection, text) {}
};

XMLElement *XMLNode::toElement()
{
    return m_kind == Kind::Element ? static_cast<XMLElement *>(this) : nullptr;
}

const XMLElement *XMLNode::toElement() const
{
    return m_kind == Kind::Element ? static_cast<const XMLElement *>(this) : nullptr;
}
