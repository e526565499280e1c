#include "packages/archive/ArchiveCommands.h"

#include "base/HException.h"
#include "base/JsonWriter.h"
#include "base/PlainText.h"
#include "base/TerminalProgress.h"
#include "packages/archive/PackageArchive.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int usualLevel = 6; // 7 and more cost time and save next to nothing

PackageArchive::Progress watchedProgress(const CommandArguments &arguments)
{
    const auto progress = std::make_shared<TerminalProgress>(arguments.has("quiet"));
    return [progress](quint64 done, quint64 total) { progress->update(done, total); };
}

qint64 integerOption(const CommandArguments &arguments, const char *name, qint64 otherwise)
{
    if (!arguments.has(name))
        return otherwise;
    bool isNumber = false;
    const qint64 value = arguments.value(name).toLongLong(&isNumber, 0);
    if (!isNumber)
        throw UsageError(u"'%1' is no number"_s.arg(arguments.value(name)));
    return value;
}

// The archive that the first argument names, loaded; standard input is copied to a file first.
class GivenArchive
{
public:
    explicit GivenArchive(const CommandArguments &arguments) : m_path(arguments.positional().first())
    {
        const qint64 offset = integerOption(arguments, "offset", 0);
        if (offset < 0)
            throw UsageError(u"--offset is not negative"_s);
        QTemporaryDir folder;
        QString path = m_path;
        if (path == u"-") {
            path = folder.filePath(u"archive"_s);
            copyStandardInput(path);
        }
        run([&] { m_archive.load(path, offset); });
    }
    // For verbs that read members.
    void prepareToUnpack(const CommandArguments &arguments)
    {
        const qint64 limit = integerOption(arguments, "limit", 0);
        if (limit < 0)
            throw UsageError(u"--limit is not negative"_s);
        m_archive.setUnpackLimit(quint64(limit));
        m_archive.setProgress(watchedProgress(arguments));
    }
    const QString &path() const { return m_path; }
    PackageArchive *operator->() { return &m_archive; }
    const PackageArchive *operator->() const { return &m_archive; }

    // Does the work; a failure's message says which archive it is about.
    template <typename Work>
    void run(const Work &work) const
    {
        try {
            work();
        } catch (const HException &error) {
            throw error.message().contains(m_path) ? error : HException(m_path + u": "_s + error.message());
        }
    }

    // The members that a user means: by name, a folder's, or by wildcard. None: there is no such member.
    std::vector<PackageArchiveFile> membersNamed(const QString &text) const
    {
        if (const PackageArchiveFile file = m_archive.find(text); !file.isNull())
            return {file};
        std::vector<PackageArchiveFile> members;
        const QString folder = text.endsWith(u'/') ? text : text + u'/';
        for (qsizetype i = 0; i < m_archive.fileCount(); ++i)
            if (m_archive.file(i).name().startsWith(folder))
                members.push_back(m_archive.file(i));
        return members.empty() ? m_archive.filesMatching(text) : members;
    }
    // Marks what the arguments behind the archive name; gives the first that names nothing.
    QString markMembers(const QStringList &names)
    {
        QString missing;
        for (const QString &name : names) {
            auto members = membersNamed(name);
            if (members.empty() && missing.isEmpty())
                missing = name;
            for (PackageArchiveFile &member : members)
                member.setMarked(true);
        }
        return missing;
    }
    [[noreturn]] void failMissing(const QString &name) const
    {
        throw HException(u"%1: no member '%2'"_s.arg(m_path, name));
    }

private:
    static void copyStandardInput(const QString &path)
    {
        QFile input, copy(path);
        bool done = input.open(stdin, QIODevice::ReadOnly) && copy.open(QIODevice::WriteOnly);
        while (done) {
            const QByteArray bytes = input.read(1 << 20);
            if (bytes.isEmpty())
                break;
            done = copy.write(bytes) == bytes.size();
        }
        if (!done || input.error() != QFile::NoError || !copy.flush())
            throw HException(u"cannot read standard input"_s);
    }

    QString m_path;
    PackageArchive m_archive;
};

// Gathers the files for a new archive below the paths that the user gave.
class Gatherer
{
public:
    Gatherer(PackageArchive &archive, const QString &prefix, const QString &output) : m_archive(archive)
    {
        if (!prefix.isEmpty())
            m_prefix = prefix.endsWith(u'/') ? prefix : prefix + u'/';
        struct stat status;
        if (::stat(PackageArchive::nameToBytes(output).constData(), &status) == 0)
            m_output = Identity(status.st_dev, status.st_ino);
    }

    void add(const QString &given)
    {
        struct stat status;
        if (::stat(PackageArchive::nameToBytes(given).constData(), &status) == 0 &&
            Identity(status.st_dev, status.st_ino) == m_output)
            throw HException(given + u" is to be the archive itself"_s);
        QString name = QDir::cleanPath(given);
        const QString asGiven = name;
        while (name.startsWith(u'/') || name.startsWith(u"../") || name == u"..")
            name.remove(0, name.indexOf(u'/') < 0 ? name.size() : name.indexOf(u'/') + 1);
        if (name != asGiven && !m_hasTold) {
            std::fprintf(stderr, "vnPack: leading '%s' is left out of member names\n",
                         qPrintable(asGiven.chopped(name.size())));
            m_hasTold = true;
        }
        addPath(given, name == u"." ? QString() : name);
    }

private:
    using Identity = std::pair<dev_t, ino_t>;

    void addPath(const QString &path, const QString &name)
    {
        struct stat status;
        if (::stat(PackageArchive::nameToBytes(path).constData(), &status) != 0)
            throw HException(u"cannot read "_s + path);
        const Identity identity(status.st_dev, status.st_ino);
        if (S_ISDIR(status.st_mode)) {
            if (std::ranges::find(m_openFolders, identity) != m_openFolders.end())
                throw HException(u"folder holds itself: "_s + path);
            m_openFolders.push_back(identity);
            addFolder(path, name.isEmpty() ? name : name + u'/');
            m_openFolders.pop_back();
        } else if (identity != m_output) {
            const QString member = m_prefix + name;
            const PackageArchiveFile existing = m_archive.find(member);
            if (!existing.isNull() && QDir::cleanPath(existing.diskPath()) != QDir::cleanPath(path))
                throw HException(u"%1 and %2 would have the same name"_s.arg(existing.diskPath(), path));
            m_archive.addFile(path, member);
        }
    }

    void addFolder(const QString &path, const QString &namePrefix)
    {
        std::error_code error;
        std::vector<std::string> names;
        std::filesystem::directory_iterator entry(PackageArchive::nameToBytes(path).toStdString(), error);
        for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
            names.push_back(entry->path().filename().native());
        if (error)
            throw HException(u"cannot read "_s + path);
        std::ranges::sort(names); // the same files make the same archive everywhere
        const QString folder = path.endsWith(u'/') ? path : path + u'/';
        for (const std::string &bytes : names) {
            const QString name = PackageArchive::nameFromBytes(bytes);
            addPath(folder + name, namePrefix + name);
        }
    }

    PackageArchive &m_archive;
    QString m_prefix;
    Identity m_output{};
    std::vector<Identity> m_openFolders; // that are being gathered, outermost first
    bool m_hasTold = false;
};

int create(const CommandArguments &arguments)
{
    const QString format = arguments.value("format", u"2"_s), compression = arguments.value("compression", u"zlib"_s);
    if (format != u"1" && format != u"2")
        throw UsageError(u"--format is 1 or 2"_s);
    if (compression != u"zlib" && compression != u"bzip2")
        throw UsageError(u"--compression is zlib or bzip2"_s);
    if (format == u"1" && compression == u"bzip2")
        throw UsageError(u"format 1 is always compressed with zlib"_s);
    const int level = int(qBound(qint64(-1), integerOption(arguments, "level", usualLevel), qint64(9)));

    const QString output = arguments.positional().first();
    PackageArchive archive;
    archive.setVersion(format == u"1" ? 1 : 2);
    archive.setCompression(compression == u"bzip2" ? 1 : 0);
    archive.setProgress(watchedProgress(arguments));
    Gatherer gatherer(archive, arguments.value("prefix"), output);
    for (const QString &path : arguments.positional().sliced(1))
        gatherer.add(path);
    try {
        archive.save(output, level);
    } catch (const HException &error) {
        throw error.message().contains(output) ? error : HException(output + u": "_s + error.message());
    }
    return 0;
}

QString modeText(PackageArchiveFile file)
{
    return u"%1"_s.arg(file.mode() & 07777, 4, 8, QChar(u'0'));
}

void printJson(const GivenArchive &archive, const std::vector<PackageArchiveFile> &files)
{
    JsonWriter json;
    json.beginObject();
    json.field("file", archive.path());
    json.field("version", archive->version());
    json.field("compression", archive->isPlain() ? u"none" : archive->compression() == 0 ? u"zlib" : u"bzip2");
    json.beginArray("files");
    for (const PackageArchiveFile file : files) {
        json.beginObject();
        json.field("name", file.name());
        json.field("size", file.size());
        json.field("offset", file.offset());
        json.field("mode", modeText(file));
        json.field("mtime", file.time().toSecsSinceEpoch());
        json.end();
    }
    json.end();
    json.end();
    printOut(json.text());
}

int list(const CommandArguments &arguments)
{
    GivenArchive archive(arguments);
    const QStringList wanted = arguments.positional().sliced(1);
    const QString missing = archive.markMembers(wanted);
    std::vector<PackageArchiveFile> files;
    for (qsizetype i = 0; i < archive->fileCount(); ++i)
        if (wanted.isEmpty() || archive->file(i).isMarked())
            files.push_back(archive->file(i));
    if (arguments.has("json")) {
        printJson(archive, files);
    } else {
        for (const PackageArchiveFile file : files) {
            printOut(u"%1 %2 %3 %4\n"_s.arg(modeText(file), QString::number(file.size()).rightJustified(10),
                                            file.time().toString(u"yyyy-MM-dd HH:mm:ss"_s), plainText(file.name())));
        }
    }
    if (!missing.isEmpty())
        archive.failMissing(missing);
    return 0;
}

int extract(const CommandArguments &arguments)
{
    GivenArchive archive(arguments);
    archive.prepareToUnpack(arguments);
    const QStringList wanted = arguments.positional().sliced(1);
    if (const QString missing = archive.markMembers(wanted); !missing.isEmpty())
        archive.failMissing(missing);
    const QString folder = arguments.value("into", u"."_s);
    archive.run([&] {
        if (wanted.isEmpty())
            archive->extractAll(folder, arguments.has("overwrite"));
        else
            archive->extractMarked(folder, arguments.has("overwrite"));
    });
    return 0;
}

int cat(const CommandArguments &arguments)
{
    GivenArchive archive(arguments);
    archive.prepareToUnpack(arguments);
    std::vector<PackageArchiveFile> files;
    for (const QString &name : arguments.positional().sliced(1)) {
        const auto members = archive.membersNamed(name);
        if (members.empty())
            archive.failMissing(name);
        files.insert(files.end(), members.begin(), members.end());
    }
    archive.run([&] {
        for (const PackageArchiveFile file : files)
            archive->readFile(file, [](QByteArrayView chunk) { printOut(chunk); });
    });
    return 0;
}

int test(const CommandArguments &arguments)
{
    GivenArchive archive(arguments);
    archive.prepareToUnpack(arguments);
    if (const QString missing = archive.markMembers(arguments.positional().sliced(1)); !missing.isEmpty())
        archive.failMissing(missing);
    archive.run([&] { archive->test(); });
    quint64 totalBytes = 0;
    for (qsizetype i = 0; i < archive->fileCount(); ++i)
        totalBytes += archive->file(i).size();
    if (!arguments.has("quiet"))
        printOut(u"%1: %2 files, %3 bytes, good\n"_s.arg(archive.path()).arg(archive->fileCount()).arg(totalBytes));
    return 0;
}

constexpr CommandOption quiet{"q,quiet", nullptr, "no progress, no summary"};
constexpr CommandOption offset{"offset", "N", "bytes in front of the archive's header (default: 0)"};
constexpr CommandOption limit{"limit", "N", "most bytes to unpack (default: 1 GiB or 100 times the archive's size)"};

const CommandOption createOptions[] = {
    {"format", "1|2", "layout of the archive; 1 keeps of a mode only whether it is read-only (default: 2)"},
    {"compression", "NAME", "zlib or bzip2 (default: zlib)"},
    {"level", "N", "0 fastest to 9 smallest (default: 6)"},
    {"prefix", "NAME", "put NAME and \"/\" before each member's name"},
    quiet,
};
const CommandOption listOptions[] = {offset, {"json", nullptr, "print JSON"}};
const CommandOption extractOptions[] = {
    {"into", "DIR", "write below DIR (default: the current folder)"},
    {"overwrite", nullptr, "replace files that exist"},
    offset,
    limit,
    quiet,
};
const CommandOption readOptions[] = {offset, limit, quiet};

const CommandVerb verbs[] = {
    {"create", "OUT PATH...", "packs files, and all files below folders, into a new archive", 2, -1, createOptions,
     create},
    {"list", "FILE [MEMBER...]", "lists members: mode, size, time, name", 1, -1, listOptions, list},
    {"extract", "FILE [MEMBER...]", "writes members to disk, all of them or none", 1, -1, extractOptions, extract},
    {"cat", "FILE MEMBER...", "writes members to standard output", 2, -1, readOptions, cat},
    {"test", "FILE [MEMBER...]", "reads the whole archive and checks it", 1, -1, readOptions, test},
};

} // namespace

std::span<const CommandVerb> archiveVerbs()
{
    return verbs;
}
