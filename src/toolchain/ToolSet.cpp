#include "toolchain/ToolSet.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <algorithm>
#include <span>

using namespace Qt::StringLiterals;

namespace {

const QString choiceOption = u"-toolchain="_s;

// Names of GCC's programs begin with this; the first that is there counts.
constexpr const char *armPrefixes[] = {"arm-none-eabi-"};
constexpr const char *riscVPrefixes[] = {"riscv64-unknown-elf-", "riscv32-unknown-elf-", "riscv-none-elf-"};

// Distributions that hold several versions name them so.
constexpr int newestLlvm = 22, oldestLlvm = 13;

} // namespace

ToolSet::ToolSet(const QStringList &options, const std::optional<Machine> &objects)
{
    for (const QString &option : options) {
        if (option.startsWith(choiceOption))
            choose(option.sliced(choiceOption.size()));
        else if (option.startsWith(u"--target="_s))
            m_target = option.sliced(9);
    }
    if (!m_isChosen && !m_target.isEmpty())
        m_isClang = m_isChosen = true;
    const QString variable = qEnvironmentVariable("VELDANE_TOOLCHAIN");
    for (const QString &text : variable.split(u';', Qt::SkipEmptyParts))
        choose(text);
    const std::optional<Machine::Architecture> chosen = architectureOf(options);
    m_architecture = chosen.value_or(objects ? objects->architecture : Machine::Arm);
    m_is64 = is64Bit(options) || (!chosen && objects && is64Bit(objects->options));
}

void ToolSet::choose(const QString &text)
{
    if (text.isEmpty())
        return;
    if (text != u"gcc" && text != u"clang") {
        m_directories += text;
    } else if (!m_isChosen) {
        m_isChosen = true;
        m_isClang = text == u"clang";
    }
}

QString ToolSet::find(const QString &name) const
{
    QStringList folders;
    for (const QString &directory : m_directories)
        folders << directory + u"/bin"_s << directory;
    QString path = folders.isEmpty() ? QString() : QStandardPaths::findExecutable(name, folders);
    if (path.isEmpty())
        path = QStandardPaths::findExecutable(name);
    return path;
}

QString ToolSet::program(const QString &name) const
{
    const QString path = find(name);
    // A name in the search path reads better in what is shown than its path.
    const bool isOwn = std::ranges::any_of(m_directories, [&](const QString &d) { return path.startsWith(d); });
    return path.isEmpty() || !isOwn ? name : path;
}

QString ToolSet::gcc() const
{
    const auto prefixes =
        isRiscV() ? std::span<const char *const>(riscVPrefixes) : std::span<const char *const>(armPrefixes);
    for (const char *prefix : prefixes) {
        const QString name = QString::fromLatin1(prefix) + u"gcc"_s;
        if (!find(name).isEmpty())
            return program(name);
    }
    return QString::fromLatin1(prefixes.front()) + u"gcc"_s;
}

// GCC keeps its files in folders named by version. Asking it would take as long as a small compilation does.
bool ToolSet::countsColumnsAsAsked() const
{
    constexpr int firstVersion = 11;
    const QFileInfo program(find(gcc()));
    if (m_isClang || !program.exists())
        return false;
    const QDir root(QFileInfo(program.canonicalFilePath()).path() + u"/../lib/gcc/"_s + program.fileName().chopped(4));
    const QStringList versions = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return !versions.isEmpty() && std::ranges::all_of(versions, [](const QString &version) {
        return version.section(u'.', 0, 0).toInt() >= firstVersion;
    });
}

QString ToolSet::clang() const
{
    if (find(u"clang"_s).isEmpty())
        for (int version = newestLlvm; version >= oldestLlvm; --version)
            if (const QString name = u"clang-%1"_s.arg(version); !find(name).isEmpty())
                return program(name);
    return program(u"clang"_s);
}

QStringList ToolSet::compiler() const
{
    if (!m_isClang)
        return {gcc()};
    QStringList words = {clang()};
    if (m_target.isEmpty())
        words += !isRiscV() ? u"--target=arm-none-eabi"_s
                 : m_is64   ? u"--target=riscv64-unknown-elf"_s
                            : u"--target=riscv32-unknown-elf"_s;
    // ld.lld has learned linker relaxation late. GCC's ABI for bare ARM has enumerations of the smallest size, and so
    // have the libraries that we link.
    return words << (isRiscV() ? u"-mno-relax"_s : u"-fshort-enums"_s);
}

QString ToolSet::archiver(const LinkInputs &members) const
{
    if (members.hasGccModules)
        return gcc() + u"-ar"_s;
    if (members.hasBitcode() || m_isClang) {
        const QString folder = QFileInfo(QFileInfo(find(clang())).canonicalFilePath()).path();
        const QString beside = QStandardPaths::findExecutable(u"llvm-ar"_s, {folder});
        if (!beside.isEmpty())
            return beside;
    }
    return gcc().chopped(3) + u"ar"_s;
}

QStringList ToolSet::libraryHeaders(bool cpp) const
{
    const QString compiler = find(gcc());
    if (compiler.isEmpty() || isRiscV())
        return {};
    const QDir root(QFileInfo(QFileInfo(compiler).canonicalFilePath()).path() + u"/.."_s);
    for (const QString &place : {u"arm-none-eabi/include"_s, u"include/newlib"_s, u"lib/arm-none-eabi/include"_s}) {
        if (!root.exists(place + u"/stdio.h"_s))
            continue;
        const QString folder = QDir::cleanPath(root.filePath(place));
        const QStringList versions = QDir(folder + u"/c++"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
        if (!cpp || versions.isEmpty())
            return {folder};
        const QString cppFolder = folder + u"/c++/"_s + versions.last();
        return {cppFolder, cppFolder + u"/arm-none-eabi"_s, folder};
    }
    return {};
}

QString ToolSet::ltoLibrary() const
{
    const QString program = QFileInfo(find(clang())).canonicalFilePath();
    const QDir folder(QFileInfo(program).path() + u"/../lib"_s);
    const QStringList names = folder.entryList({u"libLTO.so*"_s}, QDir::Files, QDir::Name);
    return names.isEmpty() ? QString() : QDir::cleanPath(folder.filePath(names.first()));
}

QStringList ToolSet::withoutChoice(const QStringList &options)
{
    QStringList rest;
    for (const QString &option : options)
        if (!option.startsWith(choiceOption))
            rest += option;
    return rest;
}
