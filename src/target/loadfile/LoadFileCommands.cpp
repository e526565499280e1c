#include "target/loadfile/LoadFileCommands.h"

#include "base/HException.h"
#include "base/JsonWriter.h"
#include "base/TerminalProgress.h"
#include "target/loadfile/LoadFile.h"
#include "target/loadfile/LoadFileComparison.h"
#include "target/loadfile/LoadFileFactory.h"
#include "target/memory/CodeBuffer.h"

#include <QFileInfo>
#include <zlib.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int exitEqual = 0, exitDifferent = 1;

// What can be written: the type's key, the endings of names that stand for it, its writer.
struct OutputType
{
    const char *key;
    const char *endings;
    std::unique_ptr<CodeBuffer> (*create)(const QString &path, const CommandArguments &arguments);
};

template <typename Buffer>
std::unique_ptr<CodeBuffer> createText(const QString &path, const CommandArguments &)
{
    return std::make_unique<Buffer>(path);
}

std::unique_ptr<CodeBuffer> createBinary(const QString &path, const CommandArguments &arguments)
{
    const quint32 base = parseAddress(arguments.value("base", u"0"_s));
    auto buffer = std::make_unique<BinaryBuffer>(path);
    buffer->setBase(base);
    return buffer;
}

std::unique_ptr<CodeBuffer> createUf2(const QString &path, const CommandArguments &arguments)
{
    const quint32 family = parseAddress(arguments.value("family", u"0"_s));
    auto buffer = std::make_unique<Uf2Buffer>(path);
    if (arguments.has("family"))
        buffer->setFamily(family);
    return buffer;
}

constexpr OutputType outputTypes[] = {
    {"bin", ".bin .rom", createBinary},
    {"ihex", ".hex", createText<IntelHexBuffer>},
    {"hex", ".lst", createText<HexBuffer>},
    {"tihex", ".txt", createText<TIHexBuffer>},
    {"srec", ".s19 .srec", createText<SRecordBuffer>},
    {"tekhex", ".tek", createText<TekHexBuffer>},
    {"uf2", ".uf2", createUf2},
};

QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}

// A load file that the user named, read to its sections.
class InputFile
{
public:
    // `typeKey` is asked for; without it, or when it is `onlyIfUnknown` and the file tells its type, the file's own.
    InputFile(const QString &name, const CommandArguments &arguments, bool typeOnlyIfUnknown = false) : m_name(name)
    {
        const QString path = name == u"-" ? u"/dev/stdin"_s : name;
        const QString given = arguments.value("type");
        if (given.isEmpty() || (typeOnlyIfUnknown && name != u"-"))
            m_type = name == u"-" ? QString() : m_factory.detectFileType(path);
        if (m_type.isEmpty())
            m_type = given;
        if (m_type.isEmpty()) {
            if (name != u"-" && !QFileInfo(path).isReadable())
                throw HException(u"cannot open "_s + path);
            throw UsageError(u"the type of '%1' can't be told from its name; --type TYPE says it"_s.arg(name));
        }
        try {
            m_file = m_factory.createLoadFile(path, m_type);
            if (!m_file)
                throw UsageError(u"'%1' is no type; the types are bin, ihex, hex, tihex, srec and elf"_s.arg(m_type));
            if (arguments.has("address") && !m_file->hasAddressInformation())
                m_file->setLoadAddress(parseAddress(arguments.value("address")));
            m_file->sections();
        } catch (const HException &error) {
            destroy();
            throw error.message().contains(path) ? error : HException(path + u": "_s + error.message());
        } catch (const UsageError &) {
            destroy();
            throw;
        }
    }
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;
    ~InputFile() { destroy(); }

    LoadFileInterface *operator->() const { return m_file; }
    const LoadFileSections::List &sections() const { return m_file->sections().primary(); }
    const QString &name() const { return m_name; }
    const QString &type() const { return m_type; }
    QString typeName() const
    {
        for (const LoadFileType &type : LoadFileFactory::types())
            if (m_type == QLatin1StringView(type.key))
                return text(type.displayName);
        return u"ELF"_s;
    }

private:
    void destroy() { m_factory.destroyLoadFile(m_file); }

    ElfLoadFileFactory m_factory;
    LoadFileInterface *m_file = nullptr;
    QString m_name;
    QString m_type;
};

// An address goes to files without addresses; it is a mistake when there is none.
void checkAddressIsUsed(const CommandArguments &arguments, bool isUsed)
{
    if (arguments.has("address") && !isUsed)
        throw UsageError(u"--address is for binary files; this one has its own addresses"_s);
}

quint32 crcOf(std::span<const quint8> bytes, quint32 before = 0)
{
    return quint32(::crc32_z(before, bytes.data(), bytes.size()));
}

int showInfo(const CommandArguments &arguments)
{
    const InputFile file(arguments.positional().first(), arguments);
    checkAddressIsUsed(arguments, !file->hasAddressInformation());
    quint64 size = 0;
    quint32 crc = crcOf({});
    for (const auto &section : file.sections()) {
        size += section->size();
        crc = crcOf(section->bytes(), crc);
    }
    if (arguments.has("json")) {
        JsonWriter json;
        json.beginObject();
        json.field("file", file.name());
        json.field("type", file.type());
        file->hasEntryPoint() ? json.addressField("entry", file->entryPoint()) : json.nullField("entry");
        json.field("size", qint64(size));
        json.addressField("crc", crc);
        json.beginArray("sections");
        for (const auto &section : file.sections()) {
            json.beginObject();
            json.field("name", QString::fromUtf8(section->name()));
            json.addressField("start", section->startAddress());
            section->size() ? json.addressField("end", quint32(section->endAddress() - 1)) : json.nullField("end");
            json.field("size", section->size());
            json.addressField("crc", crcOf(section->bytes()));
            json.end();
        }
        json.end();
        json.end();
        printOut(json.text());
        return 0;
    }
    printOut(u"file   %1\ntype   %2 (%3)\nentry  %4\nsize   %5\ncrc    %6\n"_s.arg(
        file.name(), file.type(), file.typeName(), file->hasEntryPoint() ? addressText(file->entryPoint()) : u"none"_s,
        QString::number(size), addressText(crc)));
    if (!file.sections().empty())
        printOut(u"\nstart      end              size  crc         name\n"_s);
    for (const auto &section : file.sections()) {
        const QString end = section->size() ? addressText(quint32(section->endAddress() - 1)) : u"-         "_s;
        const QString line = u"%1 %2 %3  %4  %5"_s.arg(addressText(section->startAddress()), end)
                                 .arg(section->size(), 10)
                                 .arg(addressText(crcOf(section->bytes())), QString::fromUtf8(section->name()));
        printOut((line.trimmed() + u'\n'));
    }
    return 0;
}

const OutputType &outputTypeFor(const QString &path, const CommandArguments &arguments)
{
    const QString key = arguments.value("out-type");
    for (const OutputType &type : outputTypes) {
        if (arguments.has("out-type") ? key == QLatin1StringView(type.key)
                                      : std::ranges::any_of(text(type.endings).split(u' '), [&](const QString &ending) {
                                            return path.endsWith(ending) || path.endsWith(ending.toUpper());
                                        }))
            return type;
    }
    if (arguments.has("out-type"))
        throw UsageError(u"'%1' is no type to write; those are bin, ihex, hex, tihex, srec, tekhex and uf2"_s.arg(key));
    throw UsageError(u"the type of '%1' can't be told from its name; --out-type TYPE says it"_s.arg(path));
}

void writeSections(const LoadFileSections::List &sections, CodeBuffer &buffer, TerminalProgress &progress)
{
    constexpr size_t blockBytes = 1 << 20;
    quint64 done = 0, total = 0;
    for (const auto &section : sections)
        total += section->size();
    for (const auto &section : sections) {
        buffer.setAddress(section->startAddress());
        for (auto bytes = section->bytes(); !bytes.empty() && !buffer.failed();) {
            const auto block = bytes.first(std::min(blockBytes, bytes.size()));
            buffer.putBytes(block);
            bytes = bytes.subspan(block.size());
            progress.update(done += block.size(), total);
        }
    }
}

int convert(const CommandArguments &arguments)
{
    const QString outPath = arguments.positional()[1];
    const OutputType &type = outputTypeFor(outPath, arguments);
    for (const auto &[option, key] : {std::pair("base", "bin"), std::pair("family", "uf2")})
        if (arguments.has(option) && type.key != QByteArrayView(key))
            throw UsageError(u"--%1 is for files of type %2"_s.arg(text(option), text(key)));
    bool isByte = false;
    const quint32 fill = arguments.value("fill", u"0"_s).toUInt(&isByte, 0);
    if (!isByte || fill > 0xFF)
        throw UsageError(u"'%1' is no byte"_s.arg(arguments.value("fill")));

    const InputFile input(arguments.positional().first(), arguments);
    checkAddressIsUsed(arguments, !input->hasAddressInformation());
    if (arguments.has("fill"))
        input->makeContiguous(quint8(fill));
    if (arguments.has("base"))
        for (const auto &section : input.sections())
            if (section->size() && section->startAddress() < parseAddress(arguments.value("base")))
                throw HException(u"a section at %1 lies below the base"_s.arg(addressText(section->startAddress())));

    const QString outName = outPath == u"-" ? u"standard output"_s : outPath;
    TerminalProgress progress(arguments.has("quiet"));
    const std::unique_ptr<CodeBuffer> buffer = type.create(outPath, arguments);
    if (buffer->failed())
        throw HException(u"cannot open %1: %2"_s.arg(outName, buffer->errorString()));
    writeSections(input.sections(), *buffer, progress);
    buffer->finish(input->entryPoint());
    if (buffer->failed())
        throw HException(u"cannot write %1: %2"_s.arg(outName, buffer->errorString()));
    return 0;
}

int compare(const CommandArguments &arguments)
{
    const InputFile a(arguments.positional()[0], arguments, true), b(arguments.positional()[1], arguments, true);
    checkAddressIsUsed(arguments, !a->hasAddressInformation() || !b->hasAddressInformation());
    const std::vector<LoadFileDifference> differences = compareLoadFiles(a->sections(), b->sections());
    if (arguments.has("json")) {
        JsonWriter json;
        json.beginObject();
        json.field("equal", differences.empty());
        json.beginArray("differences");
        for (const LoadFileDifference &difference : differences) {
            json.beginObject();
            json.addressField("address", difference.address);
            json.field("size", qint64(difference.size));
            json.end();
        }
        json.end();
        json.end();
        printOut(json.text());
    } else {
        for (const auto &[address, size] : differences)
            printOut(u"%1 - %2  %3\n"_s.arg(addressText(address), addressText(quint32(address + size - 1))).arg(size));
    }
    return differences.empty() ? exitEqual : exitDifferent;
}

constexpr CommandOption infoOptions[] = {
    {"type", "TYPE", "bin, ihex, hex (listing), tihex, srec or elf; default: by content for ELF, else by the name"},
    {"address", "ADDRESS", "where a binary file lies; default: 0"},
    {"json", nullptr, "print one JSON document"},
};
constexpr CommandOption convertOptions[] = {
    {"type", "TYPE", "type of IN: bin, ihex, hex (listing), tihex, srec or elf"},
    {"out-type", "TYPE", "type of OUT: bin, ihex, hex, tihex, srec, tekhex or uf2; default: by its name"},
    {"address", "ADDRESS", "where a binary IN lies; default: 0"},
    {"fill", "BYTE", "join the sections first, with this byte between them"},
    {"base", "ADDRESS", "the address of the first byte of a binary OUT; default: 0"},
    {"family", "ID", "the family of chips that a UF2 file is for"},
    {"q,quiet", nullptr, "show no progress"},
};
constexpr CommandOption compareOptions[] = {
    {"type", "TYPE", "type of a file whose name doesn't tell it"},
    {"address", "ADDRESS", "where a binary file lies; default: 0"},
    {"json", nullptr, "print one JSON document"},
};

constexpr CommandVerb verbs[] = {
    {"info", "FILE", "tells sections, entry point, size and CRC", 1, 1, infoOptions, showInfo},
    {"convert", "IN OUT", "writes a load file in another format", 2, 2, convertOptions, convert},
    {"compare", "A B", "tells the addresses at which the bytes of two files differ; exit 1 when they do", 2, 2,
     compareOptions, compare},
};

} // namespace

std::span<const CommandVerb> loadFileVerbs()
{
    return verbs;
}
