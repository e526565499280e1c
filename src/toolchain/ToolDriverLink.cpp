// The link: script, libraries, link-time optimisation, what happens to the image behind it.

#include "base/CommandWords.h"
#include "base/Directories.h"
#include "base/HException.h"
#include "base/SharedLibrary.h"
#include "target/loadfile/ElfLoadFile.h"
#include "target/memory/CodeBuffer.h"
#include "toolchain/ArchiveMembers.h"
#include "toolchain/CLibrary.h"
#include "toolchain/ElfEdits.h"
#include "toolchain/LinkerScript.h"
#include "toolchain/ToolDriver.h"
#include "xml/macros/SystemMacroTable.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

// Options of -Wl, that the compiler driver must see itself; all others go to the linker behind it.
bool isDriverOption(const QString &option)
{
    constexpr const char *prefixes[] = {"-Wl,", "-O", "-f", "-L", "-l", "--specs=", "-specs=", "-u"};
    constexpr const char *words[] = {"-nostdlib", "-nodefaultlibs", "-nostartfiles", "-static", "-g", "-s", "-v"};
    return isMachineOption(option) ||
           std::ranges::any_of(prefixes, [&](auto *p) { return option.startsWith(QLatin1StringView(p)); }) ||
           std::ranges::any_of(words, [&](auto *w) { return option == QLatin1StringView(w); });
}

// "--specs=rdimon.specs" says what system calls do.
bool isSpecs(const QString &option)
{
    return option.startsWith(u"--specs="_s) || option.startsWith(u"-specs="_s);
}

bool chooses(const QStringList &options, std::initializer_list<QStringView> prefixes)
{
    return std::ranges::any_of(options, [&](const QString &option) {
        return std::ranges::any_of(prefixes, [&](QStringView prefix) { return option.startsWith(prefix); });
    });
}

// In make's syntax, as compilers tell what they have read.
QByteArray dependencyRule(const QString &target, const QStringList &files)
{
    const auto escaped = [](QString name) {
        return QFile::encodeName(name.replace(u'$', u"$$"_s).replace(u' ', u"\\ "_s).replace(u'#', u"\\#"_s));
    };
    QByteArray text = escaped(target) + ':';
    for (const QString &file : files)
        text += " \\\n " + escaped(file);
    return text + '\n';
}

const QStringList smallTools = {u"cp"_s, u"xmlcp"_s, u"mkhdr"_s, u"chmod"_s, u"rm"_s};

// The triple that a bitcode module was compiled for; empty when the library can't read it.
QString bitcodeTriple(const QString &libraryPath, const QString &file)
{
    SharedLibrary library;
    if (libraryPath.isEmpty() || !library.load(libraryPath))
        return QString();
    const auto create = library.function<void *(const char *)>("lto_module_create");
    const auto triple = library.function<const char *(void *)>("lto_module_get_target_triple");
    const auto dispose = library.function<void(void *)>("lto_module_dispose");
    if (!create || !triple || !dispose)
        return QString();
    void *module = create(QFile::encodeName(file).constData());
    if (!module)
        return QString();
    const QString text = QString::fromLatin1(triple(module));
    dispose(module);
    library.release();
    return text;
}

// What bitcode can tell when no object of a machine is there, or only assembly that passes no floating-point numbers.
Machine machineOfTriple(const QString &triple)
{
    struct Row
    {
        const char *begin, *option;
    };
    constexpr Row rows[] = {{"thumbv6m", "-march=armv6-m"},
                            {"thumbv7m", "-march=armv7-m"},
                            {"thumbv7em", "-march=armv7e-m"},
                            {"thumbv8m.base", "-march=armv8-m.base"},
                            {"thumbv8m.main", "-march=armv8-m.main"}};
    if (triple.startsWith(u"riscv"_s))
        return {Machine::RiscV, {u"-march=rv32imac"_s, u"-mabi=ilp32"_s}, 0};
    Machine machine{Machine::Arm, {}, 0};
    const bool isHard = triple.endsWith(u"hf"); // "thumbv7em-none-unknown-eabihf": floating-point registers in calls
    for (const Row &row : rows)
        if (triple.section(u'-', 0, 0) == QLatin1StringView(row.begin))
            machine.options << QString::fromLatin1(row.option) + (isHard ? u"+fp"_s : QString()) << u"-mthumb"_s;
    if (isHard) {
        machine.options += u"-mfloat-abi=hard"_s;
        machine.rank = Machine::hardFloatRank;
    }
    return machine;
}

} // namespace

ToolDriver::Link ToolDriver::planLink(const QStringList &files) const
{
    LinkInputs inputs = LinkInputs::read(files);
    if (!inputs.bitcode.isEmpty()) {
        const QString library = ToolSet(m_options.linkerOptions, std::nullopt).ltoLibrary();
        const Machine machine = machineOfTriple(bitcodeTriple(library, inputs.bitcode.first()));
        if (!inputs.machine || machine.rank > inputs.machine->rank)
            inputs.machine = machine;
    }
    Link link{inputs, ToolSet(m_options.linkerOptions, inputs.machine), {}, {}, inputs.entry};
    link.userOptions = ToolSet::withoutChoice(m_options.linkerOptions);
    for (const QString &option : link.userOptions)
        if (isMachineOption(option))
            link.machine += option;
    // Options that name a processor are whole; others only add to what the objects tell.
    if (inputs.machine && !chooses(link.machine, {u"-mcpu=", u"-march="}))
        link.machine = inputs.machine->options + link.machine;
    if (link.entry.isEmpty())
        link.entry = link.tools.isRiscV() ? u"_start"_s : u"Reset_Handler"_s;
    return link;
}

void ToolDriver::link()
{
    const QStringList files = readInputs();
    const Link link = planLink(files);
    m_runner.addOutput(m_options.output);
    if (m_options.map)
        m_runner.addReport(besideOutput(u"map"_s));

    const QStringList script = linkScript(link);
    const QStringList objects = link.inputs.hasBitcode() ? optimizeBitcode(link, files) : files;
    const Libraries libraries = planLibraries(link);
    QStringList command = link.tools.compiler() + startOptions(link, !script.isEmpty()) + link.machine + script +
                          linkerFlags() + filesAsWords(objects, ".link-inputs");
    for (const QString &option : link.userOptions)
        if (!isMachineOption(option) && !(link.tools.isClang() && isSpecs(option)))
            command += isDriverOption(option) ? option : u"-Wl,"_s + option;
    command += libraryOptions(link, libraries);
    command << u"-o"_s << m_options.output;
    try {
        m_runner.run(command);
    } catch (const ToolFailure &) {
        if (libraries.wantsCpp && !libraries.hasCpp)
            std::fprintf(stderr, "cc: note: this tool chain has no C++ library (libstdc++.a) for %s\n",
                         qPrintable(link.machine.join(u' ')));
        throw;
    }

    if (!m_runner.isDry())
        groupSegmentSymbols(m_options.output);
    runPatch();
    writeLoadFile(link);
}

// What a compiler must be told that links such a program.
QStringList ToolDriver::startOptions(const Link &link, bool hasScript)
{
    QStringList words;
    if (link.tools.isClang())
        words << u"-fuse-ld=lld"_s << u"-nostdlib"_s << u"-static"_s;
    else if (hasScript)
        words += u"-nostartfiles"_s; // the start-up code is the program's own
    if (link.tools.isClang() && !link.tools.isRiscV())
        words += u"-Wl,--target2=rel"_s; // how GCC's C++ library for bare ARM reads the types of catch clauses
    for (const QString &symbol : link.inputs.lateSymbols)
        words += u"-Wl,--undefined="_s + symbol;
    return words;
}

QStringList ToolDriver::linkScript(const Link &link)
{
    const QString script = intermediate(".ld"), documents = script + u".d"_s;
    if (!m_runner.isDry())
        QFile::remove(documents);
    if (!m_options.linkerScript.isEmpty())
        return {u"-T"_s, m_options.linkerScript};
    if (m_options.memoryMap.isEmpty() && m_options.placementSegments.isEmpty()) {
        warn(u"no memory map and no segments: the linker's own layout is used"_s);
        return {};
    }
    SystemMacroTable::instance().addInstallationMacros(QDir(installationDirectory()),
                                                       QDir(userDirectory(UserFiles::Data)));
    const QString placementPath = m_options.placement.isEmpty()
                                      ? installationDirectory() + u"/targets/section_placement.xml"_s
                                      : m_options.placement;
    QStringList read;
    const SectionPlacement placement(
        m_options.memoryMap.isEmpty()
            ? SectionPlacement::readSegmentList(m_options.placementSegments)
            : SectionPlacement::readMemoryMap(m_options.memoryMap, m_options.memoryMapMacros, &read),
        placementPath, m_options.placementMacros);
    for (const QString &warning : placement.warnings())
        warn(warning);
    writeOwnFile(script, LinkerScript(placement, link.entry).text());
    writeOwnFile(documents, dependencyRule(m_options.output, read + placement.files()));
    QStringList words = {u"-T"_s, script, u"-Wl,--orphan-handling=warn"_s};
    // Constructors' tables and thread-local data count as writable, and in flash they lie beside code. Linkers before
    // binutils 2.39 neither warn of that nor know the option.
    const QString quiet = u"-Wl,--no-warn-rwx-segments"_s;
    if (!link.tools.isClang() &&
        !m_runner.query({link.tools.gcc(), u"-nostdlib"_s, quiet, u"-Wl,--version"_s}).isEmpty())
        words += quiet;
    return words;
}

QStringList ToolDriver::linkerFlags() const
{
    // -n: segments aren't aligned to pages, so that file headers get no place in the target's memory.
    QStringList words = {u"-Wl,--gc-sections"_s, u"-Wl,-n"_s, u"-Wl,-z,noexecstack"_s};
    if (m_options.warningsAsErrors)
        words += u"-Wl,--fatal-warnings"_s;
    if (m_options.map)
        words += u"-Wl,-Map="_s + besideOutput(u"map"_s);
    for (const QString &definition : m_options.symbolDefinitions)
        words += u"-Wl,--defsym="_s + definition;
    for (const QString &symbol : m_options.keepSymbols)
        words += u"-Wl,--undefined="_s + symbol;
    return words;
}

// Where GCC has no C library (RISC-V on many systems) a program is linked with the compiler's support functions alone.
// clang for bare targets brings no libraries: it links those of GCC, where that is installed.
ToolDriver::Libraries ToolDriver::planLibraries(const Link &link)
{
    QStringList specs;
    std::ranges::copy_if(link.userOptions, std::back_inserter(specs), isSpecs);
    const auto folderOf = [&](const QString &question) {
        const QString path =
            m_runner.query(QStringList{link.tools.gcc()} + link.machine + specs + QStringList{question});
        return path.startsWith(u'/') ? QFileInfo(path).path() : QString();
    };
    const auto has = [&](const QString &name) { return !folderOf(u"-print-file-name="_s + name).isEmpty(); };
    Libraries libraries;
    if (link.tools.isClang())
        libraries.compilerFolder = folderOf(u"-print-libgcc-file-name"_s);
    libraries.cFolder = m_options.standardLibraries ? folderOf(u"-print-file-name=libc.a"_s) : QString();
    if (libraries.cFolder.isEmpty())
        return libraries;
    libraries.c = CLibrary::forCodes(m_options.printfCode, m_options.scanfCode);
    libraries.wantsCpp = link.inputs.hasCpp || m_options.exceptions || m_options.rtti;
    libraries.hasCpp = libraries.wantsCpp && has(u"libstdc++.a"_s);
    // The small C++ library is compiled without tables for unwinding: a throw in it or through it ends the program.
    if (!has(u"libc_nano.a"_s) || (libraries.hasCpp && m_options.exceptions))
        libraries.c.isFull = true;
    // System calls that the program doesn't have itself fail and are warned of, unless it says who has them.
    if (specs.isEmpty() && !chooses(link.userOptions, {u"-nostdlib", u"-nodefaultlibs"}))
        specs += u"--specs=nosys.specs"_s;
    for (const QString &option : specs) // "rdimon"
        if (const QString name = option.section(u'=', 1).section(u'.', 0, 0); has(u"lib%1.a"_s.arg(name)))
            libraries.system = name;
    return libraries;
}

QStringList ToolDriver::libraryOptions(const Link &link, const Libraries &libraries)
{
    const bool hasC = !libraries.cFolder.isEmpty(), isClang = link.tools.isClang();
    const QString small = libraries.c.isFull ? QString() : u"_nano"_s;
    QStringList words;
    if (hasC)
        for (const QString &symbol : libraries.c.wantedSymbols())
            words += u"-Wl,--undefined="_s + symbol;
    const QStringList cpp = libraries.hasCpp ? QStringList{u"-lstdc++"_s + small} : QStringList();
    if (!isClang) {
        if (!hasC)
            return {u"-nostdlib"_s, u"-lgcc"_s};
        if (!libraries.c.isFull)
            words += u"--specs=nano.specs"_s;
        if (libraries.system == u"nosys" && !chooses(link.userOptions, {u"--specs=", u"-specs="}))
            words += u"--specs=nosys.specs"_s;
        return words + cpp + QStringList{u"-lm"_s};
    }
    for (const QString &folder : {libraries.cFolder, libraries.compilerFolder})
        if (!folder.isEmpty())
            words += u"-L"_s + folder;
    words += u"-Wl,--start-group"_s;
    words += cpp;
    if (hasC)
        words << u"-lc"_s + small << u"-lm"_s;
    if (!libraries.system.isEmpty())
        words += u"-l"_s + libraries.system + (libraries.system == u"rdimon" ? small : QString());
    if (!libraries.compilerFolder.isEmpty())
        words += u"-lgcc"_s;
    return words << u"-Wl,--end-group"_s;
}

// ltollvm takes bitcode from files, not from archives: each module of an archive becomes a file, and what else it
// holds an archive of its own. A module that nothing needs goes away again when all are compiled.
QStringList ToolDriver::withoutBitcodeArchives(const Link &link, const QStringList &files)
{
    QStringList result;
    for (const QString &file : files) {
        if (!link.inputs.bitcodeArchives.contains(file) || m_runner.isDry()) {
            result += file;
            continue;
        }
        const ByteImage archive = ByteImage::load(file);
        const QString stem = intermediate(".lto-") + QFileInfo(file).completeBaseName();
        QStringList objects;
        int count = 0;
        for (const std::span<const quint8> member : archiveMembers(archive.bytes())) {
            const bool isModule = isBitcode(member);
            const QString path = stem + u'-' + QString::number(++count) + (isModule ? u".bc"_s : u".o"_s);
            writeOwnFile(
                path, QByteArray::fromRawData(reinterpret_cast<const char *>(member.data()), qsizetype(member.size())));
            (isModule ? result : objects) += path;
        }
        if (objects.isEmpty())
            continue;
        QFile::remove(stem + u".a"_s);
        m_runner.run(QStringList{link.tools.archiver({}), u"rcsD"_s, stem + u".a"_s} + objects);
        result += stem + u".a"_s;
    }
    return result;
}

QStringList ToolDriver::optimizeBitcode(const Link &link, const QStringList &files)
{
    const QString library = link.tools.ltoLibrary();
    if (library.isEmpty())
        throw HException(u"'%1' is bitcode, and LLVM's LTO library isn't beside clang"_s.arg(
            (link.inputs.bitcode + link.inputs.bitcodeArchives).first()));
    const QString inputList = intermediate(".lto-in"), linkerList = intermediate(".lto-out"),
                  object = intermediate(".lto.o");
    QByteArray lines;
    for (const QString &file : withoutBitcodeArchives(link, files))
        lines += '"' + QFile::encodeName(file) + "\"\n";
    writeOwnFile(inputList, lines);

    QStringList command = {installationDirectory() + u"/bin/ltollvm"_s, u"-fdata-sections"_s, u"-ffunction-sections"_s};
    QString level = u"-O2"_s;
    for (const QString &option : link.userOptions + link.machine) {
        if (option.startsWith(u"-O"_s)) // of sizes the functions tell, too
            level = option == u"-Os" || option == u"-Oz" ? u"-O2"_s : option;
        else if (option.startsWith(u"-mcpu="_s))
            command += option;
        else if (option == u"-mfloat-abi=hard")
            command += u"-float-abi=hard"_s;
        else if (option.startsWith(u"-march=rv"_s) && option.section(u'_', 0, 0).endsWith(u'c'))
            // The functions know their extensions; the object's flags are made from this. The library takes one.
            command << u"-opts"_s << u"--mattr=+c"_s;
    }
    command += level;
    command << library << inputList << linkerList << object << link.entry << m_options.keepSymbols;
    for (const char *name : libraryCallbacks)
        command += QString::fromLatin1(name);
    m_runner.addOutput(object);
    try {
        m_runner.run(command);
    } catch (const ToolFailure &failure) {
        // Its own messages don't read as errors.
        std::fprintf(stderr, "cc: error: ltollvm returned %d exit status\n", failure.status());
        throw;
    }
    return {object, u'@' + linkerList};
}

// The command's "&&" part it as those of the build do; the small tools' names mean ours.
void ToolDriver::runPatch()
{
    const MacroMap macros = {{u"TargetPath"_s, QFileInfo(m_options.output).absoluteFilePath()},
                             {u"RelTargetPath"_s, m_options.output}};
    for (const QString &piece : m_options.patchCommand.split(u"&&"_s, Qt::SkipEmptyParts)) {
        QStringList words = splitWords(expandWith(macros, piece));
        if (words.isEmpty())
            continue;
        if (smallTools.contains(words.first()))
            words.first() = installationDirectory() + u"/bin/"_s + words.first();
        try {
            m_runner.run(words);
        } catch (const ToolFailure &failure) {
            // It may have said nothing, or nothing that reads as an error.
            std::fprintf(stderr, "cc: error: patch command '%s' returned %d exit status\n",
                         qPrintable(CommandRunner::quoted(words)), failure.status());
            throw;
        }
    }
}

// Load files of 64-bit programs, which our own writers don't read.
void ToolDriver::copyLoadFile(const ToolSet &tools, const QString &path)
{
    const QString format = m_options.outputFormat;
    const QString target = format == u"hex" ? u"ihex"_s : format == u"bin" ? u"binary"_s : format;
    m_runner.addOutput(path);
    m_runner.run(
        {tools.gcc().chopped(3) + u"objcopy"_s, u"-O"_s, target, u"--gap-fill"_s, u"0xFF"_s, m_options.output, path});
}

void ToolDriver::writeLoadFile(const Link &link)
{
    const QString format = m_options.outputFormat;
    if (format.isEmpty() || m_runner.isDry())
        return;
    const QString path = loadFile();
    if (is64Bit(link.machine))
        return copyLoadFile(link.tools, path);
    ElfLoadFile program(m_options.output);
    std::unique_ptr<CodeBuffer> buffer;
    if (format == u"bin") {
        // From the first byte that is loaded to the last, with what erased flash holds between them.
        program.sections();
        program.makeContiguous(0xFF);
        auto binary = std::make_unique<BinaryBuffer>(path);
        if (!program.sections().primary().empty())
            binary->setBase(program.sections().primary().front()->startAddress());
        buffer = std::move(binary);
    } else {
        buffer = createCodeBuffer(format, path);
    }
    if (!buffer)
        throw HException(u"unknown output format '%1'; there are bin, hex, srec, lst and txt"_s.arg(format));
    m_runner.addOutput(path);
    std::vector<const LoadFileSectionInterface *> sections; // those that read load files like ascending addresses
    for (const auto &section : program.sections().primary())
        sections.push_back(section.get());
    std::ranges::stable_sort(sections, {}, &LoadFileSectionInterface::startAddress);
    for (const LoadFileSectionInterface *section : sections) {
        buffer->setAddress(section->startAddress());
        buffer->putBytes(section->bytes());
    }
    buffer->finish(program.elfFile().header().e_entry);
    if (buffer->failed())
        throw HException(u"cannot write '%1': %2"_s.arg(path, buffer->errorString()));
}
