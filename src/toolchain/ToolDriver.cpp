#include "toolchain/ToolDriver.h"

#include "base/Directories.h"
#include "base/HException.h"
#include "base/SafeFile.h"
#include "toolchain/ElfEdits.h"
#include "xml/macros/SystemMacroTable.h"

#include <QDir>
#include <QFileInfo>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

using Action = DriverOptions::Action;
using Language = DriverOptions::Language;

// Command lines longer than this are handed over in a file.
constexpr qsizetype longCommand = 32'768;

// Separate sections for each function and object, of which the linker leaves out what nobody needs.
const QStringList sectionOptions = {u"-ffunction-sections"_s, u"-fdata-sections"_s};

const char *languageName(Language language)
{
    switch (language) {
    case Language::C: return "c";
    case Language::Cpp: return "c++";
    case Language::Assembly: return "assembler-with-cpp";
    case Language::ByName: break;
    }
    return "none";
}

Language languageOf(const DriverOptions &options)
{
    if (options.language != Language::ByName)
        return options.language;
    const QString suffix = QFileInfo(options.inputs.first()).suffix();
    if (suffix == u"s" || suffix == u"S" || suffix == u"asm")
        return Language::Assembly;
    const bool isCpp = suffix == u"cpp" || suffix == u"cc" || suffix == u"cxx" || suffix == u"C" || suffix == u"c++";
    return isCpp ? Language::Cpp : Language::C;
}

void print(FILE *stream, const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
}

} // namespace

ToolDriver::ToolDriver(const DriverOptions &options) : m_options(options), m_runner(options.verbose, options.printOnly)
{
    for (const QString &path : {options.output, options.dependencyFile, loadFile()})
        if (!path.isEmpty() && !m_runner.isDry() && QFileInfo(path).isFile())
            m_runner.addOutput(path);
}

void ToolDriver::run()
{
    try {
        const bool isCompilation = m_options.action == Action::Compile;
        const ToolSet tools(isCompilation ? sourceOptions() : m_options.linkerOptions, std::nullopt);
        for (const QString &folder : tools.directories())
            if (!QFileInfo(folder).isDir())
                warn(u"no tool chain folder '%1'"_s.arg(folder));
        switch (m_options.action) {
        case Action::Compile: compile(); break;
        case Action::Archive: archive(); break;
        case Action::Link: link(); break;
        }
        m_runner.checkSignals(); // one that came while we wrote ourselves
    } catch (const HException &) {
        m_runner.removeOutputs();
        throw;
    }
}

const QStringList &ToolDriver::sourceOptions() const
{
    return languageOf(m_options) == Language::Assembly ? m_options.assemblerOptions : m_options.compilerOptions;
}

QStringList ToolDriver::compileCommand() const
{
    const Language language = languageOf(m_options);
    const QStringList &own = sourceOptions();
    const ToolSet tools(own, std::nullopt);
    QStringList command = tools.compiler();
    command << u"-c"_s << u"-x"_s << QString::fromLatin1(languageName(language)) << m_options.inputs.first();
    if (language != Language::Assembly)
        command += sectionOptions;
    if (language == Language::Cpp) {
        if (!m_options.exceptions)
            command += u"-fno-exceptions"_s;
        if (!m_options.rtti)
            command += u"-fno-rtti"_s;
    }
    if (m_options.debug)
        command += u"-g"_s;
    if (m_options.suppressWarnings)
        command += u"-w"_s;
    if (m_options.warningsAsErrors)
        command += language == Language::Assembly ? u"-Wa,--fatal-warnings"_s : u"-Werror"_s;
    command += m_options.preprocessor;
    if (!m_options.dependencyFile.isEmpty())
        command << u"-MD"_s << u"-MF"_s << m_options.dependencyFile;
    command += ToolSet::withoutChoice(own);
    if (tools.isClang() && language != Language::Assembly && m_options.standardLibraries)
        for (const QString &folder : tools.libraryHeaders(language == Language::Cpp))
            command << u"-isystem"_s << folder;
    command << u"-o"_s << objectFile();
    return command;
}

QString ToolDriver::objectFile() const
{
    return m_options.output.isEmpty() ? QFileInfo(m_options.inputs.first()).completeBaseName() + u".o"_s
                                      : m_options.output;
}

void ToolDriver::compile()
{
    for (const QString &option : m_options.preprocessor)
        if (option.startsWith(u"-I"_s) && !QFileInfo(option.sliced(2)).isDir())
            warn(u"no include folder '%1'"_s.arg(option.sliced(2)));
    const QString object = objectFile();
    QStringList command = compileCommand();
    if (ToolSet(sourceOptions(), std::nullopt).countsColumnsAsAsked())
        command.insert(1, u"-fdiagnostics-column-unit=byte"_s); // as clang does, and editors; else a tab counts as 8
    m_runner.addOutput(object);
    if (!m_options.dependencyFile.isEmpty())
        m_runner.addOutput(m_options.dependencyFile);
    m_runner.run(command);

    QList<SectionRename> renames;
    const auto rename = [&](const char *from, const QString &to) {
        if (!to.isEmpty() && to != QLatin1StringView(from))
            renames.append({QString::fromLatin1(from), to});
    };
    rename(".text", m_options.codeSection);
    rename(".data", m_options.dataSection);
    rename(".bss", m_options.zeroedSection);
    rename(".rodata", m_options.constSection);
    if (!renames.isEmpty() && !m_runner.isDry())
        renameSections(object, renames);
}

QStringList ToolDriver::readInputs() const
{
    QStringList inputs = m_options.inputs;
    if (m_options.inputsFile.isEmpty())
        return inputs;
    QFile file(m_options.inputsFile);
    if (!file.open(QFile::ReadOnly))
        throw HException(u"cannot open '%1': %2"_s.arg(m_options.inputsFile, file.errorString()));
    for (const QByteArray &line : file.readAll().split('\n'))
        if (!line.trimmed().isEmpty())
            inputs += QFile::decodeName(line.endsWith('\r') ? line.chopped(1) : line);
    return inputs;
}

QString ToolDriver::intermediate(const char *ending) const
{
    const QFileInfo info(m_options.inputsFile.isEmpty() ? m_options.output : m_options.inputsFile);
    const QString name = info.completeBaseName() + QLatin1StringView(ending);
    return info.path() == u"." ? name : info.path() + u'/' + name;
}

QString ToolDriver::besideOutput(const QString &ending) const
{
    const QFileInfo info(m_options.output);
    return info.path() + u'/' + info.completeBaseName() + u'.' + ending;
}

QString ToolDriver::loadFile() const
{
    return m_options.outputFormat.isEmpty() ? QString() : besideOutput(m_options.outputFormat);
}

void ToolDriver::writeOwnFile(const QString &path, const QByteArray &text) const
{
    if (!m_runner.isDry())
        writeFileSafely(path, text);
}

QStringList ToolDriver::filesAsWords(const QStringList &files, const char *ending) const
{
    qsizetype length = 0;
    for (const QString &file : files)
        length += file.size() + 1;
    if (length < longCommand)
        return files;
    QByteArray text;
    for (QString file : files)
        text += QFile::encodeName(u'"' + file.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s) + u"\"\n"_s);
    const QString list = intermediate(ending);
    writeOwnFile(list, text);
    return {u'@' + list};
}

// A new archive beside the old one takes its place when it is whole.
void ToolDriver::archive()
{
    if (const QFileInfo old(m_options.output); old.exists() && !old.isFile())
        throw HException(u"cannot replace '%1': it is no file"_s.arg(m_options.output));
    const QStringList files = readInputs();
    const LinkInputs inputs = LinkInputs::read(files);
    const ToolSet tools(m_options.linkerOptions, inputs.machine);
    const QString fresh = m_options.output + u".new"_s;
    m_runner.addOutput(fresh);
    if (!m_runner.isDry())
        QFile::remove(fresh);
    // D: no times and owners in it, so that equal objects make equal archives.
    m_runner.run(QStringList{tools.archiver(inputs), u"rcsD"_s, fresh} + filesAsWords(files, ".ar-inputs"));
    if (!m_runner.isDry() &&
        rename(QFile::encodeName(fresh).constData(), QFile::encodeName(m_options.output).constData()) != 0)
        throw HException(u"cannot replace '%1': %2"_s.arg(m_options.output, qt_error_string(errno)));
}

void ToolDriver::warn(const QString &text)
{
    if (m_options.suppressWarnings)
        return;
    const QString line = text.contains(u": warning: "_s) ? text : u"cc: warning: "_s + text;
    if (m_options.warningsAsErrors)
        throw HException(QString(line).replace(u": warning: "_s, u": error: "_s));
    print(stderr, line + u'\n');
}

int runToolDriver(std::span<char *const> arguments, const char *version)
{
    QStringList words;
    for (size_t i = 1; i < arguments.size(); ++i)
        words += QFile::decodeName(arguments[i]);
    DriverOptions options;
    try {
        options = DriverOptions::parse(words);
    } catch (const HException &error) {
        print(stderr, u"cc: error: %1\n"_s.arg(error.message()));
        return 2;
    }
    if (options.help || options.version) {
        print(stdout, options.help ? DriverOptions::helpText() : u"cc %1\n"_s.arg(QLatin1StringView(version)));
        return 0;
    }
    try {
        ToolDriver(options).run();
        return 0;
    } catch (const ToolFailure &failure) {
        return failure.status(); // the tool has said why
    } catch (const HException &error) {
        // A fault in a document says its place and severity itself.
        const bool isLocated = error.message().contains(u": error: "_s);
        print(stderr, (isLocated ? QString() : u"cc: error: "_s) + error.message() + u'\n');
    } catch (const std::bad_alloc &) {
        print(stderr, u"cc: error: out of memory\n"_s);
    }
    return 1;
}
