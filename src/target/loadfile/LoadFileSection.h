#pragma once

#include <QByteArray>
#include <memory>
#include <span>
#include <vector>

// A run of bytes that a load file puts at one target address.
class LoadFileSectionInterface
{
public:
    LoadFileSectionInterface() = default;
    LoadFileSectionInterface(const LoadFileSectionInterface &) = delete;
    LoadFileSectionInterface &operator=(const LoadFileSectionInterface &) = delete;
    virtual ~LoadFileSectionInterface() = default;

    virtual const char *name() const = 0; // NUL-terminated; empty when the format knows no names
    virtual quint32 startAddress() const = 0;
    virtual quint32 size() const = 0;
    // With `preferCopy` the cached copy if there is one, else the section's own bytes; null when it has none.
    virtual const quint8 *data(bool preferCopy) const = 0;
    // Keeps a copy of the bytes as they are now, unless there is one.
    virtual void makeCopy() = 0;
    virtual void freeCopy() = 0;

    // The section's own bytes; empty when it has none.
    std::span<const quint8> bytes() const { return {data(false), data(false) ? size() : 0}; }
    // The address behind the last byte; 64 bits, because a section may end with the address space.
    quint64 endAddress() const { return quint64(startAddress()) + size(); }
};

// Equal start, size and bytes (or none in both). Names don't count.
bool operator==(const LoadFileSectionInterface &a, const LoadFileSectionInterface &b);

// A section over bytes that somebody else keeps alive.
class StandardLoadFileSection : public LoadFileSectionInterface
{
public:
    StandardLoadFileSection(QByteArray name, quint32 startAddress, quint32 size, const quint8 *bytes);

    const char *name() const override { return m_name.constData(); }
    quint32 startAddress() const override { return m_startAddress; }
    quint32 size() const override { return m_size; }
    const quint8 *data(bool preferCopy) const override { return preferCopy && m_copy ? m_copy.get() : m_bytes; }
    void makeCopy() override;
    void freeCopy() override { m_copy.reset(); }

    // The sizes of all sections constructed in this process since the total was last cleared.
    static quint64 constructedBytes() { return s_constructedBytes; }
    static void clearConstructedBytes() { s_constructedBytes = 0; }

protected:
    void setBytes(const quint8 *bytes, quint32 size)
    {
        m_bytes = bytes;
        m_size = size;
    }

private:
    static quint64 s_constructedBytes;

    QByteArray m_name;
    quint32 m_startAddress;
    quint32 m_size;
    const quint8 *m_bytes;
    std::unique_ptr<quint8[]> m_copy;
};

// A section that owns its bytes and grows while a file is read.
class ExpandingLoadFileSection : public StandardLoadFileSection
{
public:
    explicit ExpandingLoadFileSection(quint32 startAddress) : StandardLoadFileSection({}, startAddress, 0, nullptr) {}

    // Adds `count` bytes and gives the place of the first, which holds until the next call. The caller fills
    // them, and sees to it that the section doesn't pass the end of the address space.
    quint8 *expand(quint32 count)
    {
        const quint32 used = size();
        if (count > quint64(m_own.size()) - used)
            grow(count);
        quint8 *const bytes = reinterpret_cast<quint8 *>(m_own.data());
        setBytes(bytes, used + count);
        return bytes + used;
    }

private:
    void grow(quint32 count);

    QByteArray m_own; // as large as it may become before it grows again
};

// A section that owns its bytes: memory read back from a target, or put together from other sections.
class UploadLoadFileSection : public StandardLoadFileSection
{
public:
    UploadLoadFileSection(QByteArray name, quint32 startAddress, QByteArray bytes)
        : StandardLoadFileSection(std::move(name), startAddress, quint32(bytes.size()), nullptr),
          m_own(std::move(bytes))
    {
        setBytes(reinterpret_cast<const quint8 *>(m_own.constData()), size());
    }

private:
    QByteArray m_own;
};

// The sections of a load file: the primary list for the target's code address space, the secondary one for its
// second address space.
class LoadFileSections
{
public:
    using List = std::vector<std::unique_ptr<LoadFileSectionInterface>>;

    List &primary() { return m_primary; }
    const List &primary() const { return m_primary; }
    List &secondary() { return m_secondary; }
    const List &secondary() const { return m_secondary; }

    void append(std::unique_ptr<LoadFileSectionInterface> section) { m_primary.push_back(std::move(section)); }
    void clear() { m_primary.clear(); } // the primary list
    quint32 primarySize() const { return totalSize(m_primary); }
    quint32 secondarySize() const { return totalSize(m_secondary); }
    // Where the first primary section starts; 0 when there is none.
    quint32 startAddress() const { return m_primary.empty() ? 0 : m_primary.front()->startAddress(); }
    // The first primary section that wholly contains `count` bytes at `address`; null when none does, `count`
    // is 0 or the range wraps.
    LoadFileSectionInterface *find(quint32 address, quint32 count) const;
    void freeCopies();

private:
    static quint32 totalSize(const List &list);

    List m_primary;
    List m_secondary;
};
