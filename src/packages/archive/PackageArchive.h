#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <vector>

class PackageArchiveIOFileInterface;
struct PackageArchiveUnpacking;

enum class PackageArchiveSource { archive = 1, disk = 2, memory = 3 };

// One member: where its bytes are and what its table entry says.
struct PackageArchiveFileData
{
    PackageArchiveSource source = PackageArchiveSource::archive;
    QString name;        // path inside the archive, parts joined by "/"
    QString diskPath;    // source disk
    quint32 offset = 0;  // source archive: in the decompressed stream
    quint32 size = 0;    // bytes
    quint32 mode = 0644; // permission bits
    QDateTime time;      // of modification
    bool isMarked = false;
    QByteArray data; // source memory
};

// A look at a member, or at none. It is valid until the member is removed or its archive loads again or goes.
class PackageArchiveFile
{
public:
    PackageArchiveFile() = default;
    explicit PackageArchiveFile(PackageArchiveFileData *data) : m_data(data) {}

    bool isNull() const { return !m_data; }
    PackageArchiveSource source() const { return m_data->source; }
    const QString &name() const { return m_data->name; }
    const QString &diskPath() const { return m_data->diskPath; }
    quint32 offset() const { return m_data->offset; }
    quint32 size() const { return m_data->size; }
    quint32 mode() const { return m_data->mode; }
    const QDateTime &time() const { return m_data->time; }
    bool isMarked() const { return m_data->isMarked; }
    void setMarked(bool marked) { m_data->isMarked = marked; }
    bool operator==(const PackageArchiveFile &) const = default;

private:
    friend class PackageArchive;
    PackageArchiveFileData *m_data = nullptr;
};

struct FileCloser
{
    void operator()(FILE *file) const { std::fclose(file); }
};

// What an archive consists of.
struct PackageArchiveData
{
    std::unique_ptr<FILE, FileCloser> stream;                   // the file that it was loaded from, or null
    std::unique_ptr<PackageArchiveIOFileInterface> input;       // over `stream`
    quint64 streamBytes = 0;                                    // of `stream`, from the header to the file's end
    quint64 plainBytes = 0;                                     // of the decompressed stream, by the table
    bool isPlain = false;                                       // it stands in the file uncompressed
    std::vector<std::unique_ptr<PackageArchiveFileData>> files; // in the table's order
    std::vector<PackageArchiveFileData *> sorted; // by name, equal names in the table's order; may be unfilled
    int version = 1;
    int compression = 0;
};

// A package archive: named files with their size, permissions and time in one compressed stream. It is
// loaded by its table alone; members are read when they are asked for, in table order in one pass over the
// stream. Members from disk, memory and a loaded archive are saved together. Not for more than one thread.
//
// The file, integers little-endian:
//
//     version 2   u32 0x71F5C6B1   u16 compression << 12 | 2   u16 0   then one compressed stream of
//                 u32 count   16 zero bytes
//                 count of { u16 name length   u32 offset   u32 size   u32 mode   u32 time   name }
//                 the contents in the table's order
//     version 1   u32 0xB231F47A   u32 1   u32 big-endian size estimate   then one zlib stream of
//                 u32 0x4152C3C8   u32 count
//                 count of { name[1024], NUL-terminated   u32 offset   u32 size   u32 read-only   u32 time }
//                 the contents in the table's order
//
// Compression is 0 for zlib (RFC 1950), 1 for bzip2. Offsets count in the decompressed stream, times in
// seconds since 1970. A version 1 stream that stands in the file uncompressed, without the outer header, is
// read as well. Names are UTF-8; bytes that are not are kept, see nameFromBytes.
//
// Every failure is an HException; the object can go on to be used afterwards.
class PackageArchive : public QObject
{
    Q_OBJECT

public:
    // Told now and then while bytes are read or written: how many are done, of how many. It may throw to end
    // the operation, which then leaves nothing behind.
    using Progress = std::function<void(quint64 doneBytes, quint64 totalBytes)>;

    // Loads `path` unless it is empty.
    explicit PackageArchive(const QString &path = {}, QObject *parent = nullptr);
    ~PackageArchive() override;

    // The table of the archive that stands at `offset` of the file. `sorted` fills the look-up order at once
    // instead of at the first look-up.
    void load(const QString &path, qint64 offset = 0, bool sorted = false);
    // Writes the archive with its version and compression, level 0 to 9 (more counts as 9, less than 0 as 7).
    // The file at `path` ("-": standard output) is replaced when all is written and stays as it was otherwise.
    void save(const QString &path, int level = -1);

    int version() const { return m_data.version; }
    int compression() const { return m_data.compression; }
    // The loaded stream stands in the file uncompressed.
    bool isPlain() const { return m_data.isPlain; }
    void setVersion(int version) { m_data.version = version; }
    void setCompression(int compression) { m_data.compression = compression; }
    void setProgress(Progress progress) { m_progress = std::move(progress); }
    // The most bytes that a loaded archive may decompress to. 0, the default, means 1 GiB or 100 times the
    // archive's own size, whichever is more.
    void setUnpackLimit(quint64 bytes) { m_unpackLimit = bytes; }

    qsizetype fileCount() const { return qsizetype(m_data.files.size()); }
    PackageArchiveFile file(qsizetype index) const { return PackageArchiveFile(m_data.files[size_t(index)].get()); }
    // The first member of exactly that name, or none.
    PackageArchiveFile find(const QString &name) const;
    // The first member, or all, whose whole name matches: "*" (which takes "/" too), "?" and "[...]".
    PackageArchiveFile findWildcard(const QString &pattern) const;
    std::vector<PackageArchiveFile> filesMatching(const QString &pattern) const;
    // The member that describes a package, or none.
    PackageArchiveFile packageDescription() const;

    // Each takes the place of the member of that name, or becomes the last member. A file on disk is read when
    // the archive is saved; size, permissions and time are those of now.
    void addFile(const QString &diskPath, const QString &name);
    void addData(const QByteArray &bytes, const QDateTime &time, quint32 mode, const QString &name);
    void remove(const QString &name);

    QByteArray readFile(PackageArchiveFile file) const;
    // Throws when there is no such member.
    QByteArray readFile(const QString &name) const;
    // The same in pieces, for members that needn't be whole in memory.
    using Sink = std::function<void(QByteArrayView)>;
    void readFile(PackageArchiveFile file, const Sink &sink) const;
    // Reads the loaded stream to its end, which checks it, and throws when it doesn't hold exactly what the table
    // says.
    void test() const;

    // Writes a member to `path`, whatever its name, with its time and permissions (not set-user-id and the
    // like). Folders that are missing are made.
    void extract(PackageArchiveFile file, const QString &path, bool overwrite) const;
    // To its name below `directory`.
    void extractTo(PackageArchiveFile file, const QString &directory, bool overwrite) const;
    // Many at once, all or nothing: they are moved to their places when all are unpacked. A name that would
    // leave `directory` or is there already (without `overwrite`), and sizes that the stream can't hold, are
    // refused before anything is written.
    void extractAll(const QString &directory, bool overwrite) const;
    void extractMarked(const QString &directory, bool overwrite) const;

    // Names as the file holds them. Bytes that aren't UTF-8 become lone surrogates U+DC80 to U+DCFF, which
    // stand for nothing else, so that every name comes back as it was.
    static QString nameFromBytes(QByteArrayView bytes);
    static QByteArray nameToBytes(QStringView name);

protected:
    // How the stream behind the header is read and written. The stream stands where it starts.
    virtual std::unique_ptr<PackageArchiveIOFileInterface> makeInputFile(int compression, FILE *stream);
    virtual std::unique_ptr<PackageArchiveIOFileInterface> makeOutputFile(int compression, FILE *stream, int level);
    // For archives with something in front of the header.
    virtual void writePrefix(FILE *stream);
    virtual void skipPrefix(FILE *stream);

private:
    void forget();
    void loadTable();
    void loadTableOfVersion1();
    void loadTableOfVersion2();
    void startTable(quint64 tableBytes, quint32 count);
    void extendPlain(quint64 end);
    void appendLoaded(QByteArrayView name, quint32 offset, quint32 size, quint32 mode, quint32 time);
    void checkUnpackLimit(quint64 plainBytes) const;
    void checkStreamEnd() const;
    void fillSorted() const;
    PackageArchiveFileData &entryNamed(const QString &name);
    QByteArray tableForSaving() const;
    void writeTo(FILE *stream, const QByteArray &table, int level);
    void extractFiles(const std::vector<PackageArchiveFile> &files, const QString &directory, bool overwrite,
                      bool checkEnd) const;
    void unpack(std::vector<PackageArchiveUnpacking> files, const QByteArray &stagingFolder, bool overwrite,
                bool checkEnd) const;
    void writeMember(const PackageArchiveUnpacking &unpacking, const QByteArray &stagedPath, quint64 done,
                     quint64 totalBytes) const;
    void report(quint64 done, quint64 total) const
    {
        if (m_progress)
            m_progress(done, total);
    }

    mutable PackageArchiveData m_data; // reading moves the stream, looking up fills the order
    Progress m_progress;
    quint64 m_unpackLimit = 0;
};
