#pragma once

#include <QByteArrayView>
#include <concepts>
#include <memory>
#include <vector>

// One attribute as it is stored: two byte strings and nothing that owns them (the element does).
// A null value is told from an empty one.
class XMLAttribute
{
public:
    XMLAttribute() = default;
    XMLAttribute(QByteArrayView name, QByteArrayView value)
        : m_name(name.data()),
          m_value(value.data()),
          m_nameSize(quint32(name.size())),
          m_valueSize(quint32(value.size()))
    {}

    QByteArrayView name() const { return {m_name, qsizetype(m_nameSize)}; }
    QByteArrayView value() const { return {m_value, qsizetype(m_valueSize)}; }

private:
    const char *m_name = nullptr;
    const char *m_value = nullptr;
    quint32 m_nameSize = 0;
    quint32 m_valueSize = 0;
};

// The text of a parsed document and the attribute lists made from it. The nodes point into it instead of
// owning a heap block for each string; each counts as a reference, and the last one to go releases the text.
// The count is plain: nodes that share a source belong to one thread.
class XMLSource
{
public:
    // `buffer` holds `size` bytes and one more.
    XMLSource(std::unique_ptr<char[]> buffer, size_t size) : m_buffer(std::move(buffer)), m_size(size) {}
    XMLSource(const XMLSource &) = delete;
    XMLSource &operator=(const XMLSource &) = delete;

    void addReference() { ++m_references; }
    void release()
    {
        if (--m_references == 0)
            delete this;
    }

    char *begin() { return m_buffer.get(); }
    char *end() { return m_buffer.get() + m_size; }
    bool contains(const char *text) const { return size_t(text - m_buffer.get()) <= m_size; }
    // A copy of the list that lives as long as the source.
    XMLAttribute *storeAttributes(const std::vector<XMLAttribute> &attributes);

private:
    ~XMLSource() = default;

    std::unique_ptr<char[]> m_buffer;
    size_t m_size;
    quint32 m_references = 0;
    std::vector<std::unique_ptr<XMLAttribute[]>> m_pages;
    XMLAttribute *m_free = nullptr;
    size_t m_freeCount = 0;
};

// A byte string on its way into a node: any bytes, which the node will copy, or a piece of a parsed text,
// which it will point to. Null is told from empty.
class XMLText
{
public:
    template <typename Bytes>
    requires std::convertible_to<const Bytes &, QByteArrayView> XMLText(const Bytes &bytes) : m_bytes(bytes) {}
    XMLText(QByteArrayView bytes, XMLSource *source) : m_bytes(bytes), m_source(source) {}

    QByteArrayView bytes() const { return m_bytes; }
    XMLSource *source() const { return m_source; } // null: the bytes are the caller's

private:
    QByteArrayView m_bytes;
    XMLSource *m_source = nullptr;
};
