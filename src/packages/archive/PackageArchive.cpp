#include "packages/archive/PackageArchive.h"

#include "base/ByteCursor.h"
#include "base/HException.h"
#include "base/Pattern.h"
#include "base/SafeFile.h"
#include "packages/archive/PackageArchiveStreams.h"

#include <cerrno>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 magicOfVersion2 = 0x71F5C6B1;
constexpr quint32 magicOfVersion1 = 0xB231F47A; // of the outer header
constexpr quint32 magicOfTableOfVersion1 = 0x4152C3C8;
constexpr int zlibCompression = 0, bzip2Compression = 1;

constexpr quint32 headBytesOfVersion1 = 8, entryBytesOfVersion1 = 1040, nameBytesOfVersion1 = 1024;
constexpr quint32 headBytesOfVersion2 = 20, entryBytesOfVersion2 = 18, maximumNameBytes = 65535;

constexpr quint64 maximumTableBytes = 256 << 20;
constexpr quint64 unpackAlways = 1 << 30; // bytes that any archive may unpack to
constexpr quint64 unpackTimes = 100;      // times its own size that any archive may
constexpr quint64 deflateTimes = 1032;    // most that deflate can save: 258 bytes in 2 bits
constexpr quint64 maximumFileBytes = 0xFFFFFFFF;
constexpr quint64 reserveBytes = 16 << 20; // taken in advance for a member; larger ones grow
constexpr qsizetype chunkBytes = 256 * 1024;
constexpr char16_t escapedBytes = 0xDC00; // plus a byte that isn't UTF-8
constexpr int defaultLevel = 7, highestLevel = 9;

using FileHandle = std::unique_ptr<FILE, FileCloser>;

// The next bytes of the table, as many as there still are.
ByteCursor readRecord(PackageArchiveIOFileInterface &input, std::span<quint8> buffer)
{
    const qsizetype count = input.read(buffer.data(), qsizetype(buffer.size()));
    return ByteCursor(buffer.first(size_t(count)), false);
}

FileHandle openToRead(const QString &path, struct stat &status)
{
    FileHandle file(std::fopen(PackageArchive::nameToBytes(path).constData(), "rbe"));
    if (!file || ::fstat(fileno(file.get()), &status) != 0 || S_ISDIR(status.st_mode))
        return nullptr;
    return file;
}

quint32 secondsOf(const QDateTime &time)
{
    return quint32(qBound(qint64(0), time.isValid() ? time.toSecsSinceEpoch() : 0, qint64(0xFFFFFFFF)));
}

void append(QByteArray &bytes, quint64 value, quint32 size, bool bigEndian = false)
{
    bytes.resize(bytes.size() + qsizetype(size));
    insertInteger(bytes.data(), bytes.size() - qsizetype(size), value, size, bigEndian);
}

} // namespace

PackageArchive::PackageArchive(const QString &path, QObject *parent) : QObject(parent)
{
    if (!path.isEmpty())
        load(path);
}

PackageArchive::~PackageArchive() = default;

void PackageArchive::forget()
{
    m_data.sorted.clear();
    m_data.files.clear();
    m_data.input.reset();
    m_data.stream.reset();
    m_data.streamBytes = m_data.plainBytes = 0;
}

void PackageArchive::load(const QString &path, qint64 offset, bool sorted)
{
    forget();
    struct stat status;
    errno = 0;
    m_data.stream = openToRead(path, status);
    if (!m_data.stream)
        throw HException(errno == ENOENT ? path + u" does not exist"_s : u"cannot open "_s + path);
    try {
        if (fseeko(m_data.stream.get(), off_t(offset), SEEK_SET) != 0)
            throw HException(u"error reading stream"_s);
        skipPrefix(m_data.stream.get());
        const off_t start = ftello(m_data.stream.get());
        m_data.streamBytes = quint64(qMax(off_t(0), status.st_size - start));
        loadTable();
    } catch (...) {
        forget();
        throw;
    }
    if (sorted)
        fillSorted();
}

void PackageArchive::loadTable()
{
    FILE *const stream = m_data.stream.get();
    const off_t start = ftello(stream);
    quint8 bytes[8];
    ByteCursor header({bytes, std::fread(bytes, 1, sizeof bytes, stream)}, false);
    m_data.version = 1;
    m_data.compression = zlibCompression;
    off_t headerBytes = 0;
    switch (header.readU32()) {
    case magicOfVersion2: {
        const quint16 word = header.readU16();
        m_data.compression = word >> 12;
        m_data.version = word & 0xFFF;
        headerBytes = 8;
        break;
    }
    case magicOfVersion1: headerBytes = 12; break;
    }
    if (std::ferror(stream) || fseeko(stream, start + headerBytes, SEEK_SET) != 0)
        throw HException(u"error reading stream"_s);
    m_data.isPlain = headerBytes == 0;
    m_data.input =
        m_data.isPlain ? std::make_unique<PackageArchiveIOFile>(stream) : makeInputFile(m_data.compression, stream);
    switch (m_data.version) {
    case 1: loadTableOfVersion1(); break;
    case 2: loadTableOfVersion2(); break;
    default: throw HException(u"unsupported package file format"_s);
    }
}

void PackageArchive::loadTableOfVersion1()
{
    std::array<quint8, entryBytesOfVersion1> bytes;
    ByteCursor head = readRecord(*m_data.input, {bytes.data(), headBytesOfVersion1});
    const quint32 magic = head.readU32();
    const quint32 count = head.readU32();
    if (head.failed() || magic != magicOfTableOfVersion1)
        throw HException(u"unsupported package file format"_s);
    startTable(headBytesOfVersion1 + quint64(count) * entryBytesOfVersion1, count);
    for (quint32 i = 0; i < count; ++i) {
        ByteCursor entry = readRecord(*m_data.input, bytes);
        ByteCursor nameField = entry.take(nameBytesOfVersion1);
        const QByteArrayView name = nameField.readString();
        const quint32 offset = entry.readU32();
        const quint32 size = entry.readU32();
        const bool isReadOnly = entry.readU32() != 0;
        const quint32 time = entry.readU32();
        if (entry.failed() || nameField.failed())
            throw HException(u"bad table of contents"_s);
        appendLoaded(name, offset, size, isReadOnly ? 0444 : 0666, time);
    }
}

void PackageArchive::loadTableOfVersion2()
{
    std::array<quint8, headBytesOfVersion2> headBytes;
    ByteCursor head = readRecord(*m_data.input, headBytes);
    const quint32 count = head.readU32();
    head.skip(headBytesOfVersion2 - 4);
    if (head.failed())
        throw HException(u"bad header"_s);
    quint64 tableBytes = headBytesOfVersion2 + quint64(count) * entryBytesOfVersion2;
    startTable(tableBytes, count);
    std::array<quint8, entryBytesOfVersion2> bytes;
    QByteArray name;
    for (quint32 i = 0; i < count; ++i) {
        ByteCursor entry = readRecord(*m_data.input, bytes);
        const quint16 nameBytes = entry.readU16();
        const quint32 offset = entry.readU32();
        const quint32 size = entry.readU32();
        const quint32 mode = entry.readU32();
        const quint32 time = entry.readU32();
        name.resize(nameBytes);
        if (entry.failed() || m_data.input->read(name.data(), nameBytes) != nameBytes)
            throw HException(u"bad table of contents"_s);
        startTable(tableBytes += nameBytes, count);
        appendLoaded(name, offset, size, mode, time);
    }
}

// Makes room for a table that takes at least so many bytes of the decompressed stream.
void PackageArchive::startTable(quint64 tableBytes, quint32 count)
{
    if (tableBytes > maximumTableBytes)
        throw HException(u"table of contents too large"_s);
    extendPlain(tableBytes);
    m_data.files.reserve(count);
}

// The table says that the decompressed stream goes on to `end`. What the file can't hold, however well it is
// compressed, is a damaged table; with bzip2 there is no such bound.
void PackageArchive::extendPlain(quint64 end)
{
    const bool isBounded = m_data.isPlain || m_data.compression == zlibCompression;
    if (isBounded && end > m_data.streamBytes * (m_data.isPlain ? 1 : deflateTimes))
        throw HException(u"bad table of contents"_s);
    m_data.plainBytes = qMax(m_data.plainBytes, end);
}

void PackageArchive::appendLoaded(QByteArrayView name, quint32 offset, quint32 size, quint32 mode, quint32 time)
{
    extendPlain(quint64(offset) + size);
    auto file = std::make_unique<PackageArchiveFileData>();
    file->name = nameFromBytes(name);
    file->offset = offset;
    file->size = size;
    file->mode = mode;
    file->time = QDateTime::fromSecsSinceEpoch(time);
    m_data.files.push_back(std::move(file));
}

std::unique_ptr<PackageArchiveIOFileInterface> PackageArchive::makeInputFile(int compression, FILE *stream)
{
    std::unique_ptr<PackageArchiveCompressedInputFile> file;
    switch (compression) {
    case zlibCompression: file = std::make_unique<PackageArchiveCompressedGzInputFile>(stream); break;
    case bzip2Compression: file = std::make_unique<PackageArchiveCompressedBzInputFile>(stream); break;
    default: throw HException(u"unsupported compression algorithm"_s);
    }
    file->open();
    return file;
}

std::unique_ptr<PackageArchiveIOFileInterface> PackageArchive::makeOutputFile(int compression, FILE *stream, int level)
{
    std::unique_ptr<PackageArchiveCompressedOutputFile> file;
    switch (compression) {
    case zlibCompression: file = std::make_unique<PackageArchiveCompressedGzOutputFile>(stream, level); break;
    case bzip2Compression: file = std::make_unique<PackageArchiveCompressedBzOutputFile>(stream, level); break;
    default: throw HException(u"unsupported compression algorithm"_s);
    }
    file->open();
    return file;
}

void PackageArchive::writePrefix(FILE *) {}
void PackageArchive::skipPrefix(FILE *) {}

void PackageArchive::fillSorted() const
{
    m_data.sorted.clear();
    for (const auto &file : m_data.files)
        m_data.sorted.push_back(file.get());
    std::ranges::stable_sort(m_data.sorted, {}, &PackageArchiveFileData::name);
}

PackageArchiveFile PackageArchive::find(const QString &name) const
{
    if (m_data.sorted.size() != m_data.files.size())
        fillSorted();
    const auto found = std::ranges::lower_bound(m_data.sorted, name, {}, &PackageArchiveFileData::name);
    return found != m_data.sorted.end() && (*found)->name == name ? PackageArchiveFile(*found) : PackageArchiveFile();
}

std::vector<PackageArchiveFile> PackageArchive::filesMatching(const QString &pattern) const
{
    std::vector<PackageArchiveFile> found;
    const QRegularExpression inside = wildcardPattern(pattern);
    const QRegularExpression whole(QRegularExpression::anchoredPattern(inside.pattern()), inside.patternOptions());
    if (inside.isValid())
        for (const auto &file : m_data.files)
            if (whole.match(file->name).hasMatch())
                found.emplace_back(file.get());
    return found;
}

PackageArchiveFile PackageArchive::findWildcard(const QString &pattern) const
{
    const auto found = filesMatching(pattern);
    return found.empty() ? PackageArchiveFile() : found.front();
}

PackageArchiveFile PackageArchive::packageDescription() const
{
    return findWildcard(u"*_package.xml"_s);
}

PackageArchiveFileData &PackageArchive::entryNamed(const QString &name)
{
    if (const PackageArchiveFile existing = find(name); !existing.isNull())
        return *existing.m_data;
    PackageArchiveFileData &entry = *m_data.files.emplace_back(std::make_unique<PackageArchiveFileData>());
    entry.name = name;
    m_data.sorted.insert(std::ranges::upper_bound(m_data.sorted, name, {}, &PackageArchiveFileData::name), &entry);
    return entry;
}

void PackageArchive::addFile(const QString &diskPath, const QString &name)
{
    struct stat status;
    if (::stat(nameToBytes(diskPath).constData(), &status) != 0 || !S_ISREG(status.st_mode))
        throw HException(u"cannot read "_s + diskPath);
    if (quint64(status.st_size) > maximumFileBytes)
        throw HException(u"file too large: "_s + diskPath);
    PackageArchiveFileData &entry = entryNamed(name);
    entry.source = PackageArchiveSource::disk;
    entry.diskPath = diskPath;
    entry.data.clear();
    entry.size = quint32(status.st_size);
    entry.mode = status.st_mode & 07777;
    entry.time = QDateTime::fromSecsSinceEpoch(status.st_mtime);
}

void PackageArchive::addData(const QByteArray &bytes, const QDateTime &time, quint32 mode, const QString &name)
{
    if (quint64(bytes.size()) > maximumFileBytes)
        throw HException(u"file too large: "_s + name);
    PackageArchiveFileData &entry = entryNamed(name);
    entry.source = PackageArchiveSource::memory;
    entry.diskPath.clear();
    entry.data = bytes;
    entry.size = quint32(bytes.size());
    entry.mode = mode;
    entry.time = time;
}

void PackageArchive::remove(const QString &name)
{
    const auto found = std::ranges::find(m_data.files, name, [](const auto &file) { return file->name; });
    if (found == m_data.files.end())
        return;
    std::erase(m_data.sorted, found->get());
    m_data.files.erase(found);
}

void PackageArchive::readFile(PackageArchiveFile file, const Sink &sink) const
{
    const PackageArchiveFileData &entry = *file.m_data;
    if (entry.source == PackageArchiveSource::memory) {
        sink(entry.data);
        return;
    }
    QByteArray chunk(qsizetype(qMin(quint64(entry.size), quint64(chunkBytes))), Qt::Uninitialized);
    if (entry.source == PackageArchiveSource::disk) {
        struct stat status;
        const FileHandle disk = openToRead(entry.diskPath, status);
        if (!disk)
            throw HException(u"cannot read "_s + entry.diskPath);
        chunk.resize(chunkBytes);
        while (const size_t count = std::fread(chunk.data(), 1, size_t(chunk.size()), disk.get()))
            sink(QByteArrayView(chunk).first(qsizetype(count)));
        if (std::ferror(disk.get()))
            throw HException(u"cannot read "_s + entry.diskPath);
        return;
    }
    checkUnpackLimit(quint64(entry.offset) + entry.size);
    if (!m_data.input->seek(entry.offset))
        throw HException(u"error reading from compressed stream"_s);
    for (quint64 left = entry.size; left != 0;) {
        const qsizetype wanted = qsizetype(qMin(left, quint64(chunk.size())));
        if (m_data.input->read(chunk.data(), wanted) != wanted)
            throw HException(u"cannot read file %1 from archive"_s.arg(entry.name));
        sink(QByteArrayView(chunk).first(wanted));
        left -= quint64(wanted);
    }
}

QByteArray PackageArchive::readFile(PackageArchiveFile file) const
{
    QByteArray bytes;
    bytes.reserve(qsizetype(qMin(quint64(file.size()), reserveBytes)));
    readFile(file, [&](QByteArrayView chunk) { bytes.append(chunk); });
    return bytes;
}

QByteArray PackageArchive::readFile(const QString &name) const
{
    const PackageArchiveFile file = find(name);
    if (file.isNull())
        throw HException(u"cannot read file %1 from archive"_s.arg(name));
    return readFile(file);
}

void PackageArchive::checkUnpackLimit(quint64 plainBytes) const
{
    const quint64 limit = m_unpackLimit ? m_unpackLimit : qMax(unpackAlways, unpackTimes * m_data.streamBytes);
    if (plainBytes > limit)
        throw HException(u"archive would unpack to %1 bytes, more than the limit of %2"_s.arg(plainBytes).arg(limit));
}

void PackageArchive::checkStreamEnd() const
{
    char behind;
    if (!m_data.input->seek(m_data.plainBytes))
        throw HException(u"error reading from compressed stream"_s);
    if (m_data.input->read(&behind, 1) != 0)
        throw HException(u"data behind the last file"_s);
    const auto *compressed = dynamic_cast<PackageArchiveCompressedInputFile *>(m_data.input.get());
    if (compressed && !compressed->isComplete())
        throw HException(u"error reading from compressed stream"_s);
}

void PackageArchive::test() const
{
    if (!m_data.input)
        return;
    checkUnpackLimit(m_data.plainBytes);
    for (quint64 done = 0; done < m_data.plainBytes; done += quint64(chunkBytes)) {
        if (!m_data.input->seek(done))
            throw HException(u"error reading from compressed stream"_s);
        report(done, m_data.plainBytes);
    }
    checkStreamEnd();
}

void PackageArchive::save(const QString &path, int level)
{
    if (m_data.version != 1 && m_data.version != 2)
        throw HException(u"unsupported package file version"_s);
    const QByteArray table = tableForSaving();
    SafeFile safe(path);
    if (!safe.open())
        throw HException(u"cannot open output file"_s);
    const int descriptor = ::dup(static_cast<QFileDevice &>(safe.device()).handle());
    FileHandle stream(descriptor < 0 ? nullptr : ::fdopen(descriptor, "wb"));
    if (!stream)
        throw HException(u"cannot open output file"_s);
    writeTo(stream.get(), table, level < 0 ? defaultLevel : qMin(level, highestLevel));
    if (std::fclose(stream.release()) != 0 || !safe.commit())
        throw HException(u"cannot write file"_s);
}

// Head and entries as they stand at the start of the decompressed stream.
QByteArray PackageArchive::tableForSaving() const
{
    const bool isVersion1 = m_data.version == 1;
    const quint32 count = quint32(m_data.files.size());
    std::vector<QByteArray> names;
    quint64 offset = isVersion1 ? headBytesOfVersion1 + quint64(count) * entryBytesOfVersion1
                                : headBytesOfVersion2 + quint64(count) * entryBytesOfVersion2;
    for (const auto &file : m_data.files) {
        names.push_back(nameToBytes(file->name));
        if (names.back().size() > (isVersion1 ? nameBytesOfVersion1 - 1 : maximumNameBytes))
            throw HException(u"filename too long"_s);
        if (!isVersion1)
            offset += quint64(names.back().size());
    }
    QByteArray table;
    if (isVersion1)
        append(table, magicOfTableOfVersion1, 4);
    append(table, count, 4);
    if (!isVersion1)
        table.append(headBytesOfVersion2 - 4, '\0');
    for (size_t i = 0; i < names.size(); ++i) {
        const PackageArchiveFileData &file = *m_data.files[i];
        if (offset > maximumFileBytes)
            throw HException(u"archive too large"_s);
        if (isVersion1)
            table += names[i].leftJustified(nameBytesOfVersion1, '\0');
        else
            append(table, quint64(names[i].size()), 2);
        append(table, offset, 4);
        append(table, file.size, 4);
        append(table, isVersion1 ? (file.mode & 0222) == 0 : file.mode, 4);
        append(table, secondsOf(file.time), 4);
        if (!isVersion1)
            table += names[i];
        offset += file.size;
    }
    return table;
}

void PackageArchive::writeTo(FILE *stream, const QByteArray &table, int level)
{
    quint64 totalBytes = 0;
    for (const auto &file : m_data.files)
        totalBytes += file->size;
    writePrefix(stream);
    QByteArray header;
    if (m_data.version == 1) {
        const quint64 estimate = entryBytesOfVersion1 * m_data.files.size() + totalBytes;
        append(header, magicOfVersion1, 4);
        append(header, 1, 4);
        append(header, estimate + estimate / 100 + 13, 4, true);
    } else {
        append(header, magicOfVersion2, 4);
        append(header, quint64(m_data.compression) << 12 | 2, 2);
        append(header, 0, 2);
    }
    if (std::fwrite(header.constData(), 1, size_t(header.size()), stream) != size_t(header.size()))
        throw HException(u"cannot write header"_s);
    const auto output = makeOutputFile(m_data.version == 1 ? zlibCompression : m_data.compression, stream, level);
    const qsizetype headBytes = m_data.version == 1 ? headBytesOfVersion1 : headBytesOfVersion2;
    if (output->write(table.constData(), headBytes) != headBytes)
        throw HException(u"cannot write header2"_s);
    const qsizetype entryBytes = table.size() - headBytes;
    if (output->write(table.constData() + headBytes, entryBytes) != entryBytes)
        throw HException(u"cannot write table of contents"_s);
    quint64 done = 0;
    for (const auto &file : m_data.files) {
        quint64 fileBytes = 0;
        readFile(PackageArchiveFile(file.get()), [&](QByteArrayView chunk) {
            if (output->write(chunk.data(), chunk.size()) != chunk.size())
                throw HException(u"cannot write file"_s);
            fileBytes += quint64(chunk.size());
            report(done + fileBytes, totalBytes);
        });
        if (fileBytes != file->size) // only a file on disk can have changed since it was added
            throw HException(u"cannot read %1: its size has changed"_s.arg(file->diskPath));
        done += fileBytes;
    }
    if (auto *compressed = dynamic_cast<PackageArchiveCompressedOutputFile *>(output.get()))
        compressed->close();
}

QString PackageArchive::nameFromBytes(QByteArrayView bytes)
{
    QString name = QString::fromUtf8(bytes);
    if (name.toUtf8() == bytes)
        return name;
    name.clear();
    while (!bytes.isEmpty()) {
        qsizetype length = 0;
        QString character;
        do
            character = QString::fromUtf8(bytes.first(++length));
        while (character.toUtf8() != bytes.first(length) && length < qMin(qsizetype(4), bytes.size()));
        if (character.toUtf8() != bytes.first(length)) {
            character = QChar(escapedBytes + uchar(bytes.front()));
            length = 1;
        }
        name += character;
        bytes = bytes.sliced(length);
    }
    return name;
}

QByteArray PackageArchive::nameToBytes(QStringView name)
{
    QByteArray bytes;
    while (!name.isEmpty()) {
        const auto isEscape = [](QChar c) { return (c.unicode() & 0xFF80) == escapedBytes + 0x80; };
        // A high surrogate takes the one behind it with it.
        qsizetype length = 0;
        while (length < name.size() && !isEscape(name[length]))
            length += name[length].isHighSurrogate() ? 2 : 1;
        length = qMin(length, name.size());
        bytes += name.first(length).toUtf8();
        name = name.sliced(length);
        if (!name.isEmpty()) {
            bytes += char(name.front().unicode() & 0xFF);
            name = name.sliced(1);
        }
    }
    return bytes;
}
