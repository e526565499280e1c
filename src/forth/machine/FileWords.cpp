// Files: an identifier is an index from 1 into the context's open files, a result 0 or errno.
#include "forth/machine/FSContext.h"
#include "forth/machine/ForthWords.h"

#include <QDir>
#include <QFile>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 readMethod = 2, writeMethod = 4, binaryMethod = 1;

// By access method. There is no mode for reading and writing.
constexpr const char *openModes[] = {"r", "rb", "r", "rb", "w", "wb", "w", "wb"};
constexpr const char *createModes[] = {"w", "wb"};

// Null and errno when it can't be opened; a folder can't.
std::FILE *openFileAt(const QString &name, const char *mode)
{
    std::FILE *file = std::fopen(QFile::encodeName(name).constData(), mode);
    struct stat status;
    if (file && fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode)) {
        std::fclose(file);
        errno = EISDIR;
        return nullptr;
    }
    return file;
}

// `columns` modes in the table, by the method's low bits. Pops method and name, pushes identifier and result.
void openByTable(FSContext &context, const char *const *modes, qint64 columns)
{
    const qint64 method = context.popInteger();
    const QString name = context.popString();
    const bool isKnown = method >= 0 && method < qint64(std::size(openModes));
    std::FILE *file = isKnown ? openFileAt(name, modes[method & (columns - 1)]) : nullptr;
    const int error = isKnown ? errno : -1;
    if (!file) {
        context.pushInteger(0);
        context.pushInteger(error);
        return;
    }
    auto source = std::make_unique<FileSource>(name, file);
    source->isBinary = method & binaryMethod;
    context.pushInteger(context.addFile(std::move(source)));
    context.pushInteger(0);
}

// Opens a source file for reading: as named, else in the folders of the search path.
int openSource(FSContext &context, const QString &name)
{
    std::FILE *file = openFileAt(name, "r");
    const int error = errno;
    for (const QString &folder : context.includePath) {
        if (!file && error == ENOENT && QDir::isRelativePath(name))
            file = openFileAt(QDir(folder).filePath(name), "r");
    }
    if (!file)
        throw ForthException(ForthError::Abort, u"i/o error %1"_s.arg(error));
    return context.addFile(std::make_unique<FileSource>(name, file));
}

struct Reading
{
    QByteArray bytes;
    bool isLineEnd = false; // stopped at a line feed, which was passed over
    int error = 0;
};
// Up to `count` characters, or to the end of the line.
Reading readCharacters(FSContext &context, FileSource *source, qint64 count, bool line)
{
    if (!source)
        return {{}, false, EBADF};
    if (count < 0)
        throw ForthException(ForthError::InvalidArgument);
    Reading reading;
    std::FILE *file = source->file();
    std::clearerr(file);
    errno = 0;
    for (int c; (c = getc_unlocked(file)) != EOF;) {
        if (line && c == '\n') {
            reading.isLineEnd = true;
            break;
        }
        const bool startsCharacter = source->isBinary || (c & 0xC0) != 0x80;
        if (startsCharacter && count-- == 0) {
            std::ungetc(c, file);
            break;
        }
        if (reading.bytes.size() == context.longestString())
            throw ForthException(ForthError::StringOverflow);
        reading.bytes += char(c);
    }
    if (std::ferror(file))
        reading.error = errno;
    if (reading.isLineEnd && !source->isBinary && reading.bytes.endsWith('\r'))
        reading.bytes.chop(1);
    return reading;
}

QString decode(const FileSource *source, const QByteArray &bytes)
{
    return source && source->isBinary ? QString::fromLatin1(bytes) : QString::fromUtf8(bytes);
}

void write(FSContext &context, const char *end)
{
    const FileSource *source = context.file(context.popInteger());
    const QString text = context.popString();
    int error = EBADF;
    if (source) {
        const QByteArray bytes = (source->isBinary ? text.toLatin1() : text.toUtf8()) + end;
        errno = 0;
        const bool isWritten =
            std::fwrite(bytes.constData(), 1, size_t(bytes.size()), source->file()) == size_t(bytes.size());
        error = isWritten ? 0 : errno;
    }
    context.pushInteger(error);
}

int popClosableFile(FSContext &context, int *error)
{
    const qint64 identifier = context.popInteger();
    const FileSource *source = context.file(identifier);
    *error = !source ? EBADF : source->isRunning ? EBUSY : 0;
    return int(identifier);
}

} // namespace

void ForthWords::readOnly(FSContext &context)
{
    context.pushInteger(readMethod);
}

void ForthWords::writeOnly(FSContext &context)
{
    context.pushInteger(writeMethod);
}

void ForthWords::readWrite(FSContext &context)
{
    context.pushInteger(readMethod | writeMethod);
}

void ForthWords::bin(FSContext &context)
{
    context.pushInteger(context.popInteger() | binaryMethod);
}

void ForthWords::openFile(FSContext &context)
{
    openByTable(context, openModes, std::size(openModes));
}

void ForthWords::createFile(FSContext &context)
{
    openByTable(context, createModes, std::size(createModes));
}

void ForthWords::deleteFile(FSContext &context)
{
    const QByteArray name = QFile::encodeName(context.popString());
    context.pushInteger(unlink(name.constData()) == 0 ? 0 : errno);
}

void ForthWords::closeFile(FSContext &context)
{
    int error = 0;
    const int identifier = popClosableFile(context, &error);
    context.pushInteger(error ? error : context.closeFile(identifier));
}

void ForthWords::readFile(FSContext &context)
{
    FileSource *source = context.file(context.popInteger());
    const Reading reading = readCharacters(context, source, context.popInteger(), false);
    context.pushString(decode(source, reading.bytes));
    context.pushInteger(reading.error);
}

void ForthWords::readLine(FSContext &context)
{
    FileSource *source = context.file(context.popInteger());
    const Reading reading = readCharacters(context, source, context.popInteger(), true);
    context.pushString(decode(source, reading.bytes));
    context.pushFlag(reading.isLineEnd || !reading.bytes.isEmpty());
    context.pushInteger(reading.error);
}

void ForthWords::writeFile(FSContext &context)
{
    write(context, "");
}

void ForthWords::writeLine(FSContext &context)
{
    write(context, "\n");
}

void ForthWords::filePosition(FSContext &context)
{
    const FileSource *source = context.file(context.popInteger());
    const long position = source ? std::ftell(source->file()) : -1;
    context.pushInteger(std::max(position, 0L));
    context.pushInteger(position >= 0 ? 0 : source ? errno : EBADF);
}

void ForthWords::repositionFile(FSContext &context)
{
    const FileSource *source = context.file(context.popInteger());
    const qint64 position = context.popInteger();
    const bool isDone = source && std::fseek(source->file(), position, SEEK_SET) == 0;
    context.pushInteger(isDone ? 0 : source ? errno : EBADF);
}

void ForthWords::resizeFile(FSContext &context)
{
    const FileSource *source = context.file(context.popInteger());
    const qint64 size = context.popInteger();
    const bool isDone = source && std::fflush(source->file()) == 0 && ftruncate(fileno(source->file()), size) == 0;
    context.pushInteger(isDone ? 0 : source ? errno : EBADF);
}

void ForthWords::includeFile(FSContext &context)
{
    int error = 0;
    const int identifier = popClosableFile(context, &error);
    if (error)
        throw ForthException(error == EBUSY ? ForthError::InvalidRecursion : ForthError::FileError);
    context.includeFile(identifier);
}

void ForthWords::included(FSContext &context)
{
    context.includeFile(openSource(context, context.popString()));
}

void ForthWords::include(FSContext &context)
{
    const std::string_view name = context.parseWord(false);
    const QString path = QString::fromUtf8(name.data(), qsizetype(name.size()));
    context.includeFile(openSource(context, path));
}
