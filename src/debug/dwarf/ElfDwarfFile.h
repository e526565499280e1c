#pragma once

#include "debug/dwarf/DwarfFile.h"
#include "elf/ElfFile.h"
#include "target/loadfile/LoadFile.h"
#include "target/loadfile/LoadFileFactory.h"

#include <QDateTime>
#include <list>

// Tells the stack use of functions without call-frame information.
class StackUsageProvider
{
public:
    virtual ~StackUsageProvider() = default;
    virtual qint32 stackUsage(const ElfSymbol &symbol) = 0; // bytes, -1 when unknown
};

struct ElfDwarfOptions
{
    bool ignoreAranges = false;
    bool ignoreFrames = false;
    bool flag = false; // the owner's; files that differ in it are kept apart

    bool operator==(const ElfDwarfOptions &) const = default;
};

// One program: its ELF file and its debug information. It is a load file, too: what a loader writes comes from the
// image that the debugger reads.
class ElfDwarfFile : public StandardLoadFile
{
public:
    explicit ElfDwarfFile(const QString &path) : m_path(path) {}
    ~ElfDwarfFile() override;

    bool hasAddressInformation() const override { return true; }
    bool hasDebugInformation() const override { return true; }
    // After load(). Throws what readElfSections() throws.
    bool readSections() override;

    virtual std::unique_ptr<ElfFile> createElfFile(); // with demangled names
    virtual std::unique_ptr<DwarfFile> createDwarfFile();

    // Throws what ElfFile::load() throws. Without symbols the debug information stays empty.
    void load(bool loadSymbols = true, quint32 loadOffset = 0, const ElfDwarfOptions &options = {});
    void loadDwarf(quint32 loadOffset, const ElfDwarfOptions &options, bool isExecutable);

    const QString &path() const { return m_path; }
    ElfFile &elf() { return *m_elf; }
    DwarfFile &dwarf() { return *m_dwarf; }

    void setStackUsageProvider(StackUsageProvider *provider) { m_stackUsageProvider = provider; }
    // By the frame table, else by the provider; -1 when neither knows.
    qint32 stackUsage(const ElfSymbol &symbol);

private:
    QString m_path;
    std::unique_ptr<ElfFile> m_elf;
    std::unique_ptr<DwarfFile> m_dwarf; // refers to m_elf's bytes
    StackUsageProvider *m_stackUsageProvider = nullptr;
};

// Programs that are open, so that opening one again costs nothing. A file that has changed on the disk is
// opened anew beside the old one, which stays as long as somebody holds it.
class ElfDwarfFiles
{
public:
    virtual ~ElfDwarfFiles() = default;

    virtual std::unique_ptr<ElfDwarfFile> createFile(const QString &path);

    // Throws what ElfFile::load() throws. Each open() is matched by a close().
    ElfDwarfFile *open(const QString &path, bool loadSymbols = true, quint32 loadOffset = 0,
                       const ElfDwarfOptions &options = {});
    // The last close drops the file.
    void close(ElfDwarfFile *file);

private:
    struct Entry
    {
        QString path;
        QDateTime modified;
        std::unique_ptr<ElfDwarfFile> file;
        bool symbolsLoaded;
        quint32 loadOffset;
        ElfDwarfOptions options;
        int references;
    };

    std::list<Entry> m_entries; // the newest first
};

// Opens ELF files (key "elf") as programs of `files`, where a debugger finds them open.
class ElfDwarfLoadFileFactory : public ElfLoadFileFactory
{
public:
    // `files` must outlive the factory.
    explicit ElfDwarfLoadFileFactory(ElfDwarfFiles &files) : m_files(files) {}

    LoadFileInterface *createLoadFile(const QString &path, const QString &typeKey) override;
    void destroyLoadFile(LoadFileInterface *file) override;

private:
    ElfDwarfFiles &m_files;
};
