#include "project/model/FileType.h"

#include "xml/tree/XMLDocument.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace BuildType {
const QString c = u"C"_s;
const QString cpp = u"C++"_s;
const QString header = u"Header"_s;
const QString assembly = u"Assembly"_s;
const QString objectFile = u"Object file"_s;
const QString library = u"Library"_s;
const QString executable = u"Executable"_s;
const QString linkerScript = u"Linker Script"_s;
const QString memoryMap = u"Memory Map"_s;
const QString sectionPlacement = u"Section Placement"_s;
const QString registerDefinitions = u"Register Definitions"_s;
} // namespace BuildType

namespace {

struct BuildTypeRow
{
    QLatin1StringView key; // ending or doctype
    const QString &type;
};
const BuildTypeRow endingRows[] = {
    {"c"_L1, BuildType::c},        {"cpp"_L1, BuildType::cpp},         {"cxx"_L1, BuildType::cpp},
    {"cc"_L1, BuildType::cpp},     {"h"_L1, BuildType::header},        {"hpp"_L1, BuildType::header},
    {"hxx"_L1, BuildType::header}, {"hh"_L1, BuildType::header},       {"asm"_L1, BuildType::assembly},
    {"s"_L1, BuildType::assembly}, {"ld"_L1, BuildType::linkerScript},
};
const BuildTypeRow doctypeRows[] = {
    {"Board_Memory_Definition_File"_L1, BuildType::memoryMap},
    {"Linker_Placement_File"_L1, BuildType::sectionPlacement},
    {"Register_Definition_File"_L1, BuildType::registerDefinitions},
};

template <size_t count>
QString find(const BuildTypeRow (&rows)[count], QStringView key, Qt::CaseSensitivity sensitivity)
{
    for (const BuildTypeRow &row : rows)
        if (key.compare(row.key, sensitivity) == 0)
            return row.type;
    return QString();
}

QStringView endingOf(QStringView path)
{
    const qsizetype dot = path.lastIndexOf(u'.');
    return dot > path.lastIndexOf(u'/') ? path.sliced(dot + 1) : QStringView();
}

constexpr quint32 bit(FileAction action)
{
    return 1u << int(action);
}
constexpr quint32 basic =
    bit(FileAction::Open) | bit(FileAction::OpenAsText) | bit(FileAction::OpenAsBinary) | bit(FileAction::AddToProject);
constexpr quint32 source = basic | bit(FileAction::Compile);
constexpr quint32 page = basic | bit(FileAction::OpenInBrowser);
constexpr quint32 script = basic | bit(FileAction::Run);
constexpr quint32 project = basic | bit(FileAction::Build);
constexpr quint32 image = basic | bit(FileAction::Download);
constexpr quint32 executable = image | bit(FileAction::Debug);

// Of two rows for one ending the first whose doctype fits counts.
constexpr FileType::Row typeRows[] = {
    {"ProjectFileType", "Veldane Studio Project File", false, project, "project", "vnproject", nullptr},
    {"CFileType", "C source file", false, source, "c", "c", nullptr},
    {"CppFileType", "C++ source file", false, source, "cpp", "cpp cxx cc", nullptr},
    {"HFileType", "C include file", false, basic, "header", "h hpp hxx hh", nullptr},
    {"AsmFileType", "Assembly source file", false, source, "assembly", "s asm", nullptr},
    {"IncFileType", "Assembly include file", false, basic, "header", "inc", nullptr},
    {"HtmlFileType", "HTML file", false, page, "html", "html htm", nullptr},
    {"JavaScriptFileType", "JavaScript File", false, script, "script", "js", nullptr},
    {"PythonFileType", "Python source file", false, script, "script", "py", nullptr},
    {"MemoryMapFileType", "Memory Map File", false, basic, "memory", "xml", "Board_Memory_Definition_File"},
    {"XmlFileType", "XML File", false, page, "xml", "xml", nullptr},
    {"PackageFileType", "Package file", true, basic, "package", "vnpackage vnarchive", nullptr},
    {"ElfObjectFileType", "ELF Object File", true, basic, "object", "o", nullptr},
    {"ElfExecutableFileType", "ELF Executable File", true, executable, "executable", "elf axf", nullptr},
    {"ElfArchiveFileType", "ELF Archive File", true, basic, "library", "a", nullptr},
    {"BinaryLoadFileType", "Binary load file", true, image, "image", "bin", nullptr},
    {"IntelHexLoadFileType", "Intel Hex load file", false, image, "image", "ihex ihx", nullptr},
    {"HexLoadFileType", "Hex load file", false, image, "image", "hex", nullptr},
    {"TIHexLoadFileType", "TI Hex load file", false, image, "image", "txt tihex", nullptr},
    {"SRecordLoadFileType", "Motorola S-Record load file", false, image, "image", "srec s19 s28 s37 mot", nullptr},
    {"STAPLScriptFileType", "STAPL script file", false, script, "script", "stp stapl jam", nullptr},
    {"BinaryFileType", "Binary File", true, basic, "binary", "dat", nullptr},
};

} // namespace

QString buildTypeOfFile(const QString &path)
{
    const QStringView ending = endingOf(path);
    if (ending.compare("xml"_L1, Qt::CaseInsensitive) == 0)
        return find(doctypeRows, QString::fromLatin1(readDoctype(path)), Qt::CaseSensitive);
    return find(endingRows, ending, Qt::CaseInsensitive);
}

QStringList FileType::extensions() const
{
    return QString::fromLatin1(m_row.extensions).split(u' ');
}

bool FileType::perform(FileAction action, const QString &path) const
{
    static constexpr void (FileTypeHandler::*operations[])(const QString &) = {
        &FileTypeHandler::open,          &FileTypeHandler::openAsText, &FileTypeHandler::openAsBinary,
        &FileTypeHandler::openInBrowser, &FileTypeHandler::run,        &FileTypeHandler::compile,
        &FileTypeHandler::build,         &FileTypeHandler::download,   &FileTypeHandler::debug,
        &FileTypeHandler::addToProject,
    };
    if (!m_handler || !offers(action))
        return false;
    const auto operation = operations[size_t(action)];
    FileTypeHandler &handler = *m_handler;
    (handler.*operation)(path);
    return true;
}

FileTypes::FileTypes()
{
    for (const FileType::Row &row : typeRows)
        m_types.emplace_back(row);
}

FileType *FileTypes::typeWithId(const QString &id)
{
    const auto found =
        std::find_if(m_types.begin(), m_types.end(), [&id](const FileType &type) { return type.id() == id; });
    return found == m_types.end() ? nullptr : &*found;
}

const FileType *FileTypes::typeOf(const QString &path) const
{
    const QString ending = endingOf(path).toString().toLower();
    if (ending.isEmpty())
        return nullptr;
    const QString doctype = ending == "xml"_L1 ? QString::fromLatin1(readDoctype(path)) : QString();
    const auto found = std::find_if(m_types.begin(), m_types.end(), [&](const FileType &type) {
        return type.extensions().contains(ending) &&
               (!type.m_row.doctype || doctype == QLatin1StringView(type.m_row.doctype));
    });
    return found == m_types.end() ? nullptr : &*found;
}
