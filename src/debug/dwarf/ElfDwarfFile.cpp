#include "debug/dwarf/ElfDwarfFile.h"

#include "target/loadfile/ElfLoadFile.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

ElfDwarfFile::~ElfDwarfFile() = default;

bool ElfDwarfFile::readSections()
{
    readElfSections(*m_elf, m_sections);
    return true;
}

std::unique_ptr<ElfFile> ElfDwarfFile::createElfFile()
{
    return std::make_unique<ElfFile>(true);
}

std::unique_ptr<DwarfFile> ElfDwarfFile::createDwarfFile()
{
    return std::make_unique<DwarfFile>();
}

void ElfDwarfFile::load(bool loadSymbols, quint32 loadOffset, const ElfDwarfOptions &options)
{
    m_sections.clear();
    m_sectionsRead = false;
    m_dwarf.reset();
    m_elf = createElfFile();
    m_elf->load(m_path);
    if (m_elf->header().e_entry) // 0 stands for no entry point
        setEntryPoint(m_elf->header().e_entry);
    m_dwarf = createDwarfFile();
    if (loadSymbols)
        loadDwarf(loadOffset, options, m_elf->header().e_type == ET_EXEC);
}

void ElfDwarfFile::loadDwarf(quint32 loadOffset, const ElfDwarfOptions &options, bool isExecutable)
{
    m_dwarf->load(*m_elf, loadOffset, options.ignoreAranges, options.ignoreFrames, isExecutable);
}

qint32 ElfDwarfFile::stackUsage(const ElfSymbol &symbol)
{
    const qint32 usage = m_dwarf->frames().stackUsage(symbol.value());
    return usage == -1 && m_stackUsageProvider ? m_stackUsageProvider->stackUsage(symbol) : usage;
}

std::unique_ptr<ElfDwarfFile> ElfDwarfFiles::createFile(const QString &path)
{
    return std::make_unique<ElfDwarfFile>(path);
}

ElfDwarfFile *ElfDwarfFiles::open(const QString &path, bool loadSymbols, quint32 loadOffset,
                                  const ElfDwarfOptions &options)
{
    const QDateTime modified = QFileInfo(path).lastModified();
    const auto found = std::ranges::find_if(m_entries, [&](const Entry &entry) {
        return entry.path == path && entry.modified == modified && entry.loadOffset == loadOffset &&
               entry.options == options;
    });
    if (found != m_entries.end()) {
        if (loadSymbols && !found->symbolsLoaded) {
            found->file->loadDwarf(loadOffset, options, true);
            found->symbolsLoaded = true;
        }
        ++found->references;
        return found->file.get();
    }
    auto file = createFile(path);
    file->load(loadSymbols, loadOffset, options);
    m_entries.push_front({path, modified, std::move(file), loadSymbols, loadOffset, options, 1});
    return m_entries.front().file.get();
}

void ElfDwarfFiles::close(ElfDwarfFile *file)
{
    const auto found = std::ranges::find_if(m_entries, [&](const Entry &entry) { return entry.file.get() == file; });
    if (found != m_entries.end() && --found->references == 0)
        m_entries.erase(found);
}

LoadFileInterface *ElfDwarfLoadFileFactory::createLoadFile(const QString &path, const QString &typeKey)
{
    return typeKey == u"elf" ? m_files.open(path) : LoadFileFactory::createLoadFile(path, typeKey);
}

void ElfDwarfLoadFileFactory::destroyLoadFile(LoadFileInterface *file)
{
    if (auto *program = dynamic_cast<ElfDwarfFile *>(file))
        m_files.close(program);
    else
        LoadFileFactory::destroyLoadFile(file);
}
