#include "driver/LtoDriver.h"

#include "base/HException.h"
#include "base/SafeFile.h"

#include <QFile>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

// A line of the input list is read through a buffer of this size, its NUL included; a longer one is several.
constexpr qsizetype lineBufferBytes = 32768;
constexpr size_t maximumInputBytes = 0x7FFFFFFF;

// llvm-c/lto.h: the definition field of a symbol's attributes
constexpr int definitionMask = 0x700, definitionRegular = 0x100, definitionTentative = 0x200, definitionWeak = 0x300,
              definitionUndefined = 0x400, definitionWeakUndefined = 0x500;
constexpr int debugModelDwarf = 1;

// The library may end the process while it has control (it does so for options that it doesn't know). Then
// this handler says whose doing it was. Empty while we have control.
QByteArray libraryInControl;

void explainExit()
{
    if (!libraryInControl.isEmpty())
        std::fprintf(stderr,
                     "ltollvm: the LTO library %s ended the process; libraries of LLVM 13 and newer refuse "
                     "-fnoexceptions, -disable-inlining and unknown -opts\n",
                     libraryInControl.constData());
}

class LibraryControl
{
public:
    explicit LibraryControl(const QByteArray &path) { libraryInControl = path; }
    ~LibraryControl() { libraryInControl.clear(); }
};

QByteArray messageOf(const HException &error)
{
    return error.message().toLocal8Bit();
}

HException failure(const QByteArray &line)
{
    return HException(QString::fromLocal8Bit(line));
}

} // namespace

void LtoDriver::run()
{
    m_library.load(m_options.libraryPath);
    std::atexit(explainExit);
    const LibraryControl control(m_options.libraryPath);
    m_library.lto_get_version();
    const QList<QByteArray> paths = readInputList();
    createCodeGenerator();
    for (QByteArray path : paths) {
        path.replace("\"", "");
        Input &input = m_inputs.emplace_back();
        input.path = path;
        input.image = ByteImage::load(path);
        try {
            classify(input);
        } catch (const ElfArchiveError &) {
            throw;
        } catch (const HException &error) {
            throw failure("Error " + messageOf(error) + " processing " + path);
        }
    }
    for (const QByteArrayView name : m_resolver.resolve())
        m_library.lto_codegen_add_must_preserve_symbol(m_codeGenerator, name.toByteArray().constData());
    for (const QByteArray &name : m_options.keepNames)
        m_library.lto_codegen_add_must_preserve_symbol(m_codeGenerator, name.constData());
    size_t length = 0;
    const void *object = m_library.lto_codegen_compile(m_codeGenerator, &length);
    if (!object)
        throw failure("the LTO library compiled nothing" + m_library.reason());
    writeOutputs({static_cast<const char *>(object), qsizetype(length)});
}

QList<QByteArray> LtoDriver::readInputList() const
{
    ByteImage list;
    try {
        list = ByteImage::load(m_options.inputListPath);
    } catch (const HException &) {
        throw failure("cannot access " + m_options.inputListPath);
    }
    QByteArrayView rest(list.data(), qsizetype(list.size()));
    QList<QByteArray> lines;
    while (!rest.isEmpty()) {
        const QByteArrayView piece = rest.first(std::min(rest.size(), lineBufferBytes - 1));
        const qsizetype end = piece.indexOf('\n');
        const QByteArrayView line = end < 0 ? piece : piece.first(end);
        lines.append(line.first(qsizetype(qstrnlen(line.data(), size_t(line.size())))).toByteArray());
        rest = rest.sliced(end < 0 ? piece.size() : end + 1);
    }
    return lines;
}

void LtoDriver::createCodeGenerator()
{
    const QList<QByteArray> words = m_options.earlyWords();
    if (m_library.lto_set_debug_options && !words.isEmpty()) {
        std::vector<const char *> pointers;
        for (const QByteArray &word : words)
            pointers.push_back(word.constData());
        m_library.lto_set_debug_options(pointers.data(), int(pointers.size()));
    }
    m_codeGenerator = m_library.lto_codegen_create();
    if (m_options.debug)
        m_library.lto_codegen_set_debug_model(m_codeGenerator, debugModelDwarf);
    if (m_options.hasCpu)
        m_library.lto_codegen_set_cpu(m_codeGenerator, m_options.cpu.constData());
    const QByteArray text = m_options.codeGeneratorText(m_library.lto_set_debug_options);
    m_library.lto_codegen_debug_options(m_codeGenerator, text.constData());
}

void LtoDriver::classify(Input &input)
{
    if (input.image.size() > maximumInputBytes)
        throw HException(u"file of 2 GiB or more"_s);
    const std::span<const quint8> bytes = input.image.bytes();
    if (ElfFile::isElf(bytes)) {
        input.object = std::make_unique<ElfFile>();
        input.object->parse(ByteImage::view(input.image.bytes()));
        m_resolver.addObject(*input.object, input.path);
        m_linkerFiles.append(input.path);
    } else if (ElfArchive::isArchive(bytes)) {
        auto archive = std::make_unique<ElfArchive>();
        archive->parse(ByteImage::view(input.image.bytes()));
        m_resolver.addArchive(std::move(archive));
        m_linkerFiles.append(input.path);
    } else if (ElfArchive::isThinArchive(bytes)) {
        throw HException(u"thin archive (its members are other files; make a regular one)"_s);
    } else if (m_library.lto_module_is_object_file_in_memory(bytes.data(), bytes.size())) {
        addModule(input);
    }
}

void LtoDriver::addModule(const Input &input)
{
    LtoModule *module = m_library.lto_module_create_from_memory(input.image.data(), input.image.size());
    if (!module)
        throw failure("cannot create LTO module" + m_library.reason());
    const unsigned int count = m_library.lto_module_get_num_symbols(module);
    for (unsigned int i = 0; i < count; ++i) {
        const LtoSymbol symbol{m_library.lto_module_get_symbol_name(module, i), input.path};
        switch (m_library.lto_module_get_symbol_attribute(module, i) & definitionMask) {
        case definitionRegular: m_resolver.irStrong.append(symbol); break;
        case definitionWeak: m_resolver.irWeak.append(symbol); break;
        case definitionUndefined:
        case definitionWeakUndefined: m_resolver.irUndefined.append(symbol); break;
        case definitionTentative: std::puts("TENTATIVE"); break;
        }
    }
    if (m_library.lto_codegen_add_module(m_codeGenerator, module))
        throw failure("cannot add LTO module" + m_library.reason());
}

void LtoDriver::writeOutputs(QByteArrayView object) const
{
    const auto write = [](const QByteArray &path, QByteArrayView bytes) {
        SafeFile file(QFile::decodeName(path));
        if (!file.open())
            throw failure("cannot access " + path);
        if (!file.write(bytes) || !file.commit())
            throw failure("cannot write " + path);
    };
    write(m_options.objectPath, object);
    QByteArray list;
    for (const QByteArray &path : m_linkerFiles)
        list += '"' + path + "\"\n";
    write(m_options.linkerListPath, list);
}
