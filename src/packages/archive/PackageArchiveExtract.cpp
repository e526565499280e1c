// Unpacking to disk: which names are refused, and how all members come to their places at once.

#include "base/FileDescriptor.h"
#include "base/HException.h"
#include "packages/archive/PackageArchive.h"

#include <QSet>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

struct PackageArchiveUnpacking
{
    PackageArchiveFile file;
    QByteArray path; // where it goes
};

namespace {

constexpr mode_t permissionBits = 0777; // of an entry's mode; a package gives nobody other users' rights

[[noreturn]] void fail(const QString &what, const QByteArray &path)
{
    throw HException(what + PackageArchive::nameFromBytes(path));
}

QByteArray folderOf(const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash < 0 ? "."_ba : slash == 0 ? "/"_ba : path.first(slash);
}

// The name without empty and "." parts. Throws for one that can't be a file below the folder it is put in.
QByteArray checkedName(const QString &name)
{
    const QByteArray bytes = PackageArchive::nameToBytes(name);
    QByteArrayList parts = bytes.split('/');
    if (bytes.startsWith('/') || parts.contains(".."))
        throw HException(u"file name leaves the target folder: "_s + name);
    if (parts.last().isEmpty() || parts.last() == "." || bytes.contains('\0'))
        throw HException(u"invalid file name in archive: "_s + name);
    parts.removeIf([](const QByteArray &part) { return part.isEmpty() || part == "."; });
    return parts.join('/');
}

// The folders between `top` and the file `name` below it must be real ones as far as they exist. `checked`
// keeps those that are, for the next file.
void checkFolders(const QByteArray &top, const QByteArray &name, QSet<QByteArray> &checked)
{
    for (qsizetype slash = name.indexOf('/'); slash >= 0; slash = name.indexOf('/', slash + 1)) {
        const QByteArray folder = top + '/' + name.first(slash);
        struct stat status;
        if (checked.contains(folder))
            continue;
        if (::lstat(folder.constData(), &status) == 0) {
            if (S_ISLNK(status.st_mode))
                fail(u"file name leaves the target folder through a symbolic link: "_s, folder);
            if (!S_ISDIR(status.st_mode))
                fail(u"cannot create output file "_s, top + '/' + name);
        }
        checked.insert(folder);
    }
}

// A folder beside the targets that takes the files until all are there. Whatever it still holds goes away
// with it, and so do the folders that were made for it and for the targets and have stayed empty.
class StagingFolder
{
public:
    StagingFolder() = default;
    StagingFolder(const StagingFolder &) = delete;
    StagingFolder &operator=(const StagingFolder &) = delete;
    ~StagingFolder()
    {
        for (size_t i = 0; i < m_fileCount; ++i)
            ::unlink(filePath(i).constData());
        if (!m_path.isEmpty())
            ::rmdir(m_path.constData());
        while (!m_madeFolders.empty()) { // those that hold files stay
            ::rmdir(m_madeFolders.back().constData());
            m_madeFolders.pop_back();
        }
    }

    bool create(const QByteArray &folder)
    {
        QByteArray pattern = folder + "/.vnPack-XXXXXX";
        if (!makeFolder(folder) || !::mkdtemp(pattern.data()))
            return false;
        m_path = pattern;
        return true;
    }
    // With all parents.
    bool makeFolder(const QByteArray &folder)
    {
        struct stat status;
        if (::stat(folder.constData(), &status) == 0)
            return S_ISDIR(status.st_mode);
        if (folder.isEmpty() || folder == "." || !makeFolder(folderOf(folder)) ||
            ::mkdir(folder.constData(), 0777) != 0)
            return false;
        m_madeFolders.push_back(folder);
        return true;
    }
    QByteArray addFile() { return filePath(m_fileCount++); }
    QByteArray filePath(size_t index) const { return m_path + '/' + QByteArray::number(quint64(index)); }

private:
    QByteArray m_path;
    size_t m_fileCount = 0;
    std::vector<QByteArray> m_madeFolders;
};

} // namespace

void PackageArchive::extract(PackageArchiveFile file, const QString &path, bool overwrite) const
{
    const QByteArray target = nameToBytes(path);
    unpack({{file, target}}, folderOf(target), overwrite, false);
}

void PackageArchive::extractTo(PackageArchiveFile file, const QString &directory, bool overwrite) const
{
    extractFiles({file}, directory, overwrite, false);
}

void PackageArchive::extractAll(const QString &directory, bool overwrite) const
{
    std::vector<PackageArchiveFile> files;
    for (const auto &file : m_data.files)
        files.emplace_back(file.get());
    extractFiles(files, directory, overwrite, m_data.input != nullptr);
}

void PackageArchive::extractMarked(const QString &directory, bool overwrite) const
{
    std::vector<PackageArchiveFile> files;
    for (const auto &file : m_data.files)
        if (file->isMarked)
            files.emplace_back(file.get());
    extractFiles(files, directory, overwrite, false);
}

void PackageArchive::extractFiles(const std::vector<PackageArchiveFile> &files, const QString &directory,
                                  bool overwrite, bool checkEnd) const
{
    const QByteArray top = directory.isEmpty() ? "."_ba : nameToBytes(directory);
    QSet<QByteArray> checkedFolders;
    std::vector<PackageArchiveUnpacking> unpackings;
    for (const PackageArchiveFile file : files) {
        const QByteArray name = checkedName(file.name());
        checkFolders(top, name, checkedFolders);
        unpackings.push_back({file, top + '/' + name});
    }
    for (const PackageArchiveUnpacking &unpacking : unpackings) // one member's folder is another's file
        if (checkedFolders.contains(unpacking.path))
            fail(u"cannot create output file "_s, unpacking.path);
    unpack(std::move(unpackings), top, overwrite, checkEnd);
}

void PackageArchive::unpack(std::vector<PackageArchiveUnpacking> files, const QByteArray &stagingFolder, bool overwrite,
                            bool checkEnd) const
{
    quint64 totalBytes = 0;
    QSet<QByteArray> paths;
    for (const PackageArchiveUnpacking &unpacking : files) {
        struct stat status;
        const bool exists = ::lstat(unpacking.path.constData(), &status) == 0;
        if (!overwrite && (exists || paths.contains(unpacking.path)))
            fail(u"cannot overwrite file "_s, unpacking.path);
        if (exists && S_ISDIR(status.st_mode))
            fail(u"cannot create output file "_s, unpacking.path);
        paths.insert(unpacking.path);
        totalBytes += unpacking.file.size();
    }
    checkUnpackLimit(totalBytes);
    if (files.empty())
        return;

    // In the stream's order, so that it is decompressed once.
    std::ranges::stable_sort(files, {}, [](const PackageArchiveUnpacking &one) { return one.file.offset(); });
    StagingFolder staging;
    if (!staging.create(stagingFolder))
        fail(u"cannot create output file "_s, files.front().path);
    quint64 done = 0;
    for (const PackageArchiveUnpacking &unpacking : files) {
        writeMember(unpacking, staging.addFile(), done, totalBytes);
        done += unpacking.file.size();
    }
    if (checkEnd)
        checkStreamEnd();
    for (const PackageArchiveUnpacking &unpacking : files)
        if (!staging.makeFolder(folderOf(unpacking.path)))
            fail(u"cannot create output file "_s, unpacking.path);
    for (size_t i = 0; i < files.size(); ++i)
        if (::rename(staging.filePath(i).constData(), files[i].path.constData()) != 0)
            fail(u"cannot create output file "_s, files[i].path);
}

// Writes a member to the staged file. Messages name the place where it is to go.
void PackageArchive::writeMember(const PackageArchiveUnpacking &unpacking, const QByteArray &stagedPath, quint64 done,
                                 quint64 totalBytes) const
{
    const FileDescriptor output(::open(stagedPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!output.isOpen())
        fail(u"cannot create output file "_s, unpacking.path);
    readFile(unpacking.file, [&](QByteArrayView chunk) {
        done += quint64(chunk.size());
        while (!chunk.isEmpty()) {
            const ssize_t count = ::write(output.number(), chunk.data(), size_t(chunk.size()));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                fail(u"cannot write to output file "_s, unpacking.path);
            chunk = chunk.sliced(count);
        }
        report(done, totalBytes);
    });
    const timespec time{time_t(unpacking.file.time().toSecsSinceEpoch()), 0};
    const timespec both[2] = {time, time};
    ::futimens(output.number(), both);
    if (::fchmod(output.number(), unpacking.file.mode() & permissionBits) != 0)
        fail(u"cannot set mode of output file "_s, unpacking.path);
}
