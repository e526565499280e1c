#include "base/ByteImage.h"

#include "base/FileDescriptor.h"
#include "base/HException.h"

#include <QFile>
#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype maximumStreamBytes = qsizetype(2) << 30;

QByteArray readToEnd(int descriptor, const QByteArray &path)
{
    QByteArray bytes;
    char block[65536];
    for (;;) {
        const ssize_t count = ::read(descriptor, block, sizeof block);
        if (count == 0)
            return bytes;
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 || bytes.size() + count > maximumStreamBytes)
            throw HException(u"cannot read "_s + QFile::decodeName(path));
        bytes.append(block, count);
    }
}

} // namespace

ByteImage::~ByteImage()
{
    if (m_isMapped)
        ::munmap(m_bytes.data(), m_bytes.size());
}

void ByteImage::swap(ByteImage &other) noexcept
{
    std::swap(m_bytes, other.m_bytes);
    std::swap(m_owned, other.m_owned); // a QByteArray's bytes stay in place when it is swapped
    std::swap(m_isMapped, other.m_isMapped);
}

ByteImage ByteImage::load(const QString &path)
{
    return load(QFile::encodeName(path));
}

ByteImage ByteImage::load(const QByteArray &path)
{
    const FileDescriptor file(::open(path.constData(), O_RDONLY | O_CLOEXEC));
    struct stat status;
    if (!file.isOpen() || ::fstat(file.number(), &status) != 0 || S_ISDIR(status.st_mode))
        throw HException(u"cannot open "_s + QFile::decodeName(path));
    if (!S_ISREG(status.st_mode) || status.st_size == 0) // files of /proc have content but no size
        return fromBytes(readToEnd(file.number(), path));
    const size_t size = size_t(status.st_size);
    void *const address = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE, file.number(), 0);
    if (address == MAP_FAILED)
        throw HException(u"cannot read "_s + QFile::decodeName(path));
    ByteImage image;
    image.m_bytes = {static_cast<quint8 *>(address), size};
    image.m_isMapped = true;
    return image;
}

ByteImage ByteImage::fromBytes(QByteArray bytes)
{
    ByteImage image;
    image.m_owned = std::move(bytes);
    image.m_bytes = {reinterpret_cast<quint8 *>(image.m_owned.data()), size_t(image.m_owned.size())};
    return image;
}

ByteImage ByteImage::view(std::span<quint8> bytes)
{
    ByteImage image;
    image.m_bytes = bytes;
    return image;
}
