#include "toolchain/SmallTools.h"

#include "base/CommandLine.h"
#include "base/Directories.h"
#include "base/HException.h"
#include "base/SafeFile.h"
#include "xml/macros/SystemMacroTable.h"
#include "xml/preprocessor/XMLPP2.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <cstdio>
#include <filesystem>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// The options of a command line, in any order among its other words; "--" ends them.
class ToolArguments
{
public:
    // `flags` are words, `values` words that the next word belongs to.
    ToolArguments(const QStringList &arguments, const QStringList &flags, const QStringList &values = {})
    {
        bool areOptionsOver = false;
        for (qsizetype i = 0; i < arguments.size(); ++i) {
            const QString &word = arguments[i];
            if (areOptionsOver || !word.startsWith(u'-') || word == u"-")
                files += word;
            else if (word == u"--")
                areOptionsOver = true;
            else if (flags.contains(word))
                m_flags += word;
            else if (values.contains(word) && i + 1 < arguments.size())
                m_values.append({word, arguments[++i]});
            else
                throw UsageError(values.contains(word) ? u"'%1' needs a value"_s.arg(word)
                                                       : u"unknown option '%1'"_s.arg(word));
        }
    }

    bool has(const char *flag) const { return m_flags.contains(QLatin1StringView(flag)); }
    QStringList values(const char *option) const
    {
        QStringList list;
        for (const auto &[name, value] : m_values)
            if (name == QLatin1StringView(option))
                list += value;
        return list;
    }
    // The words that are no options.
    QStringList files;

private:
    QStringList m_flags;
    QList<std::pair<QString, QString>> m_values;
};

QString reason()
{
    return QString::fromLocal8Bit(strerror(errno));
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        throw HException(u"cannot open '%1': %2"_s.arg(path, reason()));
    return status.st_mode & 07777;
}

void setMode(const QString &path, mode_t mode)
{
    if (chmod(QFile::encodeName(path).constData(), mode) != 0)
        throw HException(u"cannot change the mode of '%1': %2"_s.arg(path, reason()));
}

void makeDirectory(const QString &path)
{
    if (!QDir().mkpath(path))
        throw HException(u"cannot make the folder '%1'"_s.arg(path));
}

// Replaces the target, a read-only one too. It gets the source's mode, and the time of now, by which a build
// knows it as new.
void copyFile(const QString &source, const QString &target)
{
    constexpr qint64 blockBytes = 1 << 20;
    QFile input(source);
    if (!input.open(QFile::ReadOnly))
        throw HException(u"cannot open '%1': %2"_s.arg(source, input.errorString()));
    if (QFileInfo(target).canonicalFilePath() == QFileInfo(source).canonicalFilePath())
        throw HException(u"'%1' and '%2' are the same file"_s.arg(source, target));
    const mode_t mode = modeOf(source);
    makeDirectory(QFileInfo(target).path());
    if (QFileInfo::exists(target) && !QFileInfo(target).isWritable())
        setMode(target, modeOf(target) | S_IWUSR);
    SafeFile output(target);
    bool ok = output.open();
    while (ok && !input.atEnd()) {
        const QByteArray block = input.read(blockBytes);
        if (block.isEmpty())
            throw HException(u"cannot read '%1': %2"_s.arg(source, input.errorString()));
        ok = output.write(block);
    }
    if (!ok || !output.commit())
        throw HException(u"cannot write '%1': %2"_s.arg(target, output.errorString()));
    if (QFileInfo(target).isFile())
        setMode(target, mode);
}

// Links are copied as they are, whether what they name is there or not.
void copyFolder(const QString &source, const QString &target)
{
    const auto cleanPath = [](const QString &path) {
        return QDir::cleanPath(QFileInfo(path).absoluteFilePath()) + u'/';
    };
    if (cleanPath(target).startsWith(cleanPath(source)))
        throw HException(u"cannot copy '%1' into itself"_s.arg(source));
    makeDirectory(target);
    const QDir folder(QFileInfo(source).absoluteFilePath()); // seen from a relative one, a relative name stays as it is
    QDirIterator entry(folder.path(), QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                       QDirIterator::Subdirectories);
    while (entry.hasNext()) {
        const QFileInfo info(entry.next());
        const QString place = target + u'/' + folder.relativeFilePath(info.filePath());
        if (info.isSymLink()) {
            QFile::remove(place);
            std::error_code failure;
            std::filesystem::copy_symlink(QFile::encodeName(info.filePath()).constData(),
                                          QFile::encodeName(place).constData(), failure);
            if (failure)
                throw HException(u"cannot make the link '%1': %2"_s.arg(place, qt_error_string(failure.value())));
        } else if (info.isDir()) {
            makeDirectory(place);
        } else {
            copyFile(info.filePath(), place);
        }
    }
}

void copy(const QStringList &words)
{
    const ToolArguments arguments(words, {u"-r"_s, u"-R"_s, u"-f"_s, u"-p"_s});
    if (arguments.files.size() < 2)
        throw UsageError(u"a source and a target are needed"_s);
    const QStringList sources = arguments.files.first(arguments.files.size() - 1);
    const QString target = arguments.files.last();
    const bool intoFolder = QFileInfo(target).isDir() || target.endsWith(u'/');
    if (sources.size() > 1 && !intoFolder)
        throw HException(u"'%1' is no folder"_s.arg(target));
    for (const QString &source : sources) {
        const QFileInfo info(source);
        const QString place =
            intoFolder ? QDir(target).filePath(QFileInfo(QDir::cleanPath(source)).fileName()) : target;
        if (!info.isDir())
            copyFile(source, place);
        else if (arguments.has("-r") || arguments.has("-R"))
            copyFolder(source, place);
        else
            throw HException(u"'%1' is a folder; -r copies it"_s.arg(source));
    }
}

// A description whose faults end the copy.
class CopiedDescription : public XMLPP2
{
public:
    void reportError(const QString &message) override
    {
        const qsizetype place = message.lastIndexOf(u" : "_s);
        throw HException(place < 0 ? message : message.sliced(place + 3) + u": "_s + message.first(place));
    }
};

void copyDescription(const QStringList &words)
{
    const ToolArguments arguments(words, {u"-noexpand"_s}, {u"-macros"_s, u"-D"_s});
    if (arguments.files.size() != 2)
        throw UsageError(u"a source and a target are needed"_s);
    const QString source = arguments.files[0], target = arguments.files[1];
    if (!QFileInfo(source).isFile())
        throw HException(u"cannot open '%1': no such file"_s.arg(source));
    SystemMacroTable::instance().addInstallationMacros(QDir(installationDirectory()),
                                                       QDir(userDirectory(UserFiles::Data)));
    QStringList macros = arguments.values("-macros");
    for (QString definition : arguments.values("-D"))
        macros += definition.replace(u'\\', u"\\\\"_s).replace(u';', u"\\;"_s);
    CopiedDescription document;
    if (!document.load(source, macros.join(u';'), !arguments.has("-noexpand")))
        throw HException(u"%1:%2: %3"_s.arg(source, QString::number(document.errorLine() + 1),
                                            QString::fromUtf8(document.errorText())));
    if (!document.root())
        throw HException(u"'%1' has no element"_s.arg(source));
    makeDirectory(QFileInfo(target).path());
    document.setIndent(2);
    writeFileSafely(target, document.text());
}

// A file's name as a C name.
QString nameFor(const QString &path)
{
    QString name = QFileInfo(path).fileName();
    for (QChar &c : name)
        if (c.unicode() >= 128 || !c.isLetterOrNumber())
            c = u'_';
    return name.isEmpty() || name[0].isDigit() ? u'_' + name : name;
}

QByteArray numbersOf(const QByteArray &bytes)
{
    constexpr qsizetype bytesPerLine = 16;
    QByteArray text = "{";
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        text += i % bytesPerLine ? " " : "\n    ";
        text += "0x" + QByteArray(1, bytes[i]).toHex() + ',';
    }
    return text + "\n}";
}

// A line of the file a literal. Trigraphs and hexadecimal escapes could reach further than meant, so question
// marks and all that isn't printable are three octal digits.
QByteArray literalOf(const QByteArray &bytes)
{
    QByteArray text = "\n    \"";
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const char c = bytes[i];
        if (c == '\n')
            text += i + 1 < bytes.size() ? "\\n\"\n    \"" : "\\n";
        else if (c == '"' || c == '\\')
            text += '\\' + QByteArray(1, c);
        else if (c < ' ' || c > '~' || c == '?')
            text += '\\' + QByteArray::number(quint8(c), 8).rightJustified(3, '0');
        else
            text += c;
    }
    return text + '"';
}

void makeHeader(const QStringList &words)
{
    const ToolArguments arguments(words, {u"-text"_s}, {u"-name"_s});
    if (arguments.files.size() != 2)
        throw UsageError(u"a source and a target are needed"_s);
    const QString source = arguments.files[0], target = arguments.files[1];
    QFile file(source);
    if (!file.open(QFile::ReadOnly))
        throw HException(u"cannot open '%1': %2"_s.arg(source, file.errorString()));
    const QByteArray bytes = file.readAll();
    const QString name = arguments.values("-name").value(0, nameFor(source));
    if (nameFor(name) != name)
        throw HException(u"'%1' is no C name"_s.arg(name));
    if (bytes.isEmpty() && !arguments.has("-text"))
        throw HException(u"'%1' is empty, and C has no empty array"_s.arg(source));

    const QByteArray cName = name.toLatin1(), guard = cName.toUpper() + "_H";
    QByteArray text = "/* Made by mkhdr from " + QFileInfo(source).fileName().toUtf8() + ". */\n#ifndef " + guard +
                      "\n#define " + guard + "\n\n#define " + cName.toUpper() + "_SIZE " +
                      QByteArray::number(bytes.size()) + "\n\n";
    text += arguments.has("-text") ? "static const char " + cName + "[] =" + literalOf(bytes)
                                   : "static const unsigned char " + cName + "[] = " + numbersOf(bytes);
    makeDirectory(QFileInfo(target).path());
    writeFileSafely(target, text + ";\n\n#endif\n");
}

// "+w", "-w" and the like for r, w and x, or an octal number. "+w" gives what the user's umask lets through,
// "-w" takes it from everybody.
mode_t changedMode(const QString &change, mode_t mode)
{
    bool isOctal = false;
    const uint octal = change.toUInt(&isOctal, 8);
    if (isOctal && octal <= 07777 && !change.startsWith(u'+') && !change.startsWith(u'-'))
        return octal;
    const bool gives = change.startsWith(u'+');
    if (change.size() < 2 || (!gives && !change.startsWith(u'-')))
        throw UsageError(u"'%1' is no mode; +w and -w are"_s.arg(change));
    mode_t bits = 0;
    for (const QChar c : change.sliced(1)) {
        if (!QStringView(u"rwx").contains(c))
            throw UsageError(u"'%1' is no mode; +w and -w are"_s.arg(change));
        bits |= c == u'r' ? 0444 : c == u'w' ? 0222 : 0111;
    }
    const mode_t mask = umask(0);
    umask(mask);
    return gives ? mode | (bits & ~mask) : mode & ~bits;
}

void changeMode(const QStringList &arguments)
{
    if (arguments.size() < 2)
        throw UsageError(u"a mode and a file are needed"_s);
    changedMode(arguments.first(), 0); // a wrong one is told before a missing file
    for (const QString &path : arguments.sliced(1))
        setMode(path, changedMode(arguments.first(), modeOf(path)));
}

void removeFile(const QString &path, bool withFolders, bool force)
{
    const QFileInfo info(path);
    const QString clean = QDir::cleanPath(info.absoluteFilePath());
    if (!info.exists() && !info.isSymLink()) {
        if (!force)
            throw HException(u"no file '%1'"_s.arg(path));
    } else if (info.isDir() && !info.isSymLink()) {
        if (!withFolders)
            throw HException(u"'%1' is a folder; -r removes it"_s.arg(path));
        if ((QDir::currentPath() + u'/').startsWith(clean == u"/" ? clean : clean + u'/'))
            throw HException(u"'%1' holds the current folder"_s.arg(path));
        if (!QDir(path).removeRecursively())
            throw HException(u"cannot remove all of '%1'"_s.arg(path));
    } else if (::remove(QFile::encodeName(path).constData()) != 0) {
        throw HException(u"cannot remove '%1': %2"_s.arg(path, reason()));
    }
}

void removeFiles(const QStringList &words)
{
    const ToolArguments arguments(words, {u"-r"_s, u"-R"_s, u"-f"_s, u"-rf"_s, u"-fr"_s});
    const bool both = arguments.has("-rf") || arguments.has("-fr");
    const bool withFolders = both || arguments.has("-r") || arguments.has("-R"), force = both || arguments.has("-f");
    if (arguments.files.isEmpty() && !force)
        throw UsageError(u"a file is needed"_s);
    for (const QString &path : arguments.files)
        removeFile(path, withFolders, force);
}

} // namespace

const SmallTool copyTool = {"cp", "[-r] SOURCE... TARGET", copy};
const SmallTool copyDescriptionTool = {"xmlcp", "[-macros NAME=TEXT;...] [-D NAME=TEXT]... [-noexpand] SOURCE TARGET",
                                       copyDescription};
const SmallTool makeHeaderTool = {"mkhdr", "[-name NAME] [-text] SOURCE HEADER", makeHeader};
const SmallTool changeModeTool = {"chmod", "+w|-w FILE...", changeMode};
const SmallTool removeTool = {"rm", "[-r] [-f] FILE...", removeFiles};

int runSmallTool(const SmallTool &tool, std::span<char *const> arguments, const char *version)
{
    QStringList words;
    for (size_t i = 1; i < arguments.size(); ++i)
        words += QFile::decodeName(arguments[i]);
    if (words == QStringList{u"--help"_s} || words == QStringList{u"--version"_s}) {
        std::printf("%s %s\n", tool.name, words.first() == u"--help" ? tool.usage : version);
        return 0;
    }
    const auto tell = [&](const QString &message) {
        std::fprintf(stderr, "%s: error: %s\n", tool.name, message.toLocal8Bit().constData());
    };
    try {
        tool.run(words);
        return 0;
    } catch (const UsageError &error) {
        tell(error.message() + u"; usage: %1 %2"_s.arg(QLatin1StringView(tool.name), QLatin1StringView(tool.usage)));
        return 2;
    } catch (const HException &error) {
        tell(error.message());
    } catch (const std::bad_alloc &) {
        tell(u"out of memory"_s);
    }
    return 1;
}
