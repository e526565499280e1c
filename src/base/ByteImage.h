#pragma once

#include <QByteArray>
#include <QString>
#include <span>

// The bytes of one file or member, whole in memory: mapped from a file, owned, or a view of somebody else's.
// A mapping is private, so that writing to the bytes changes this image only and never the file. An image is
// moved, not copied, and its bytes stay where they are as long as it lives.
class ByteImage
{
public:
    ByteImage() = default;
    ByteImage(ByteImage &&other) noexcept { swap(other); }
    ByteImage &operator=(ByteImage &&other) noexcept
    {
        swap(other);
        return *this;
    }
    ~ByteImage();

    // A file's content. Regular files are mapped; pipes and devices are read to their end, at most 2 GiB.
    // Throws "cannot open PATH" when it can't be opened or is a folder, "cannot read PATH" when reading fails.
    // The second form takes the path as the system has it.
    static ByteImage load(const QString &path);
    static ByteImage load(const QByteArray &encodedPath);
    static ByteImage fromBytes(QByteArray bytes);
    // The caller keeps the bytes alive.
    static ByteImage view(std::span<quint8> bytes);

    quint8 *data() { return m_bytes.data(); }
    const quint8 *data() const { return m_bytes.data(); }
    size_t size() const { return m_bytes.size(); }
    std::span<quint8> bytes() { return m_bytes; }
    std::span<const quint8> bytes() const { return m_bytes; }

private:
    void swap(ByteImage &other) noexcept;

    std::span<quint8> m_bytes;
    QByteArray m_owned;      // holds m_bytes unless they are mapped or a view
    bool m_isMapped = false; // to be unmapped
};
