#pragma once

#include <QStringList>
#include <memory>
#include <vector>

// What a file is to the build, as "file_type" in project files names it.
namespace BuildType {
extern const QString c, cpp, header, assembly, objectFile, library, executable, linkerScript, memoryMap,
    sectionPlacement, registerDefinitions;
}

// By the ending of the name, whatever its case, and of an XML file by its doctype. Empty for what has no
// fixed ending or no use in a build.
QString buildTypeOfFile(const QString &path);

// What can be done with a file, a bit each.
enum class FileAction {
    Open,
    OpenAsText,
    OpenAsBinary,
    OpenInBrowser,
    Run,
    Compile,
    Build,
    Download,
    Debug,
    AddToProject
};

// Does what a window can do with the files of one type.
class FileTypeHandler
{
public:
    virtual ~FileTypeHandler() = default;
    virtual void open(const QString & /*path*/) {}
    virtual void openAsText(const QString &) {}
    virtual void openAsBinary(const QString &) {}
    virtual void openInBrowser(const QString &) {}
    virtual void run(const QString &) {}
    virtual void compile(const QString &) {}
    virtual void build(const QString &) {}
    virtual void download(const QString &) {}
    virtual void debug(const QString &) {}
    virtual void addToProject(const QString &) {}
};

// A kind of file that windows tell apart.
class FileType
{
public:
    // A row of the table of types.
    struct Row
    {
        const char *id;   // "CFileType"
        const char *name; // as users see it
        bool isBinary;
        quint32 actions;        // a bit each, 1 << number
        const char *icon;       // name of its picture
        const char *extensions; // in lower case, separated by blanks
        const char *doctype;    // of an XML file; null: any
    };

    explicit FileType(const Row &row) : m_row(row) {}

    QString id() const { return QString::fromLatin1(m_row.id); }
    QString name() const { return QString::fromUtf8(m_row.name); }
    QString icon() const { return QString::fromLatin1(m_row.icon); }
    QStringList extensions() const;
    bool isBinary() const { return m_row.isBinary; }
    bool offers(FileAction action) const { return m_row.actions >> int(action) & 1; }
    void setHandler(std::unique_ptr<FileTypeHandler> handler) { m_handler = std::move(handler); }
    // Hands the file to the handler; false when the type doesn't offer that or has no handler.
    bool perform(FileAction action, const QString &path) const;

private:
    friend class FileTypes;

    const Row &m_row;
    std::unique_ptr<FileTypeHandler> m_handler;
};

// All types there are.
class FileTypes
{
public:
    FileTypes();

    const std::vector<FileType> &all() const { return m_types; }
    FileType *typeWithId(const QString &id); // null when there is none
    // By name and, of XML, doctype; null for a file of no known type.
    const FileType *typeOf(const QString &path) const;

private:
    std::vector<FileType> m_types;
};
