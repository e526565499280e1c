#pragma once

#include <QString>
#include <span>

class LoadFileInterface;

// A kind of load file: the key that programs and project files name it by, and what file dialogs show
// and select.
struct LoadFileType
{
    const char *key;
    const char *filter;
    const char *displayName;
    LoadFileInterface *(*create)(const QString &path);
};

// Makes load files by their type.
class LoadFileFactory
{
public:
    virtual ~LoadFileFactory() = default;

    // Null for an unknown key. Throws what the reader throws. Given back with destroyLoadFile().
    virtual LoadFileInterface *createLoadFile(const QString &path, const QString &typeKey);
    virtual void destroyLoadFile(LoadFileInterface *file);
    // The type that the end of the name stands for, in lower or upper case throughout; null when there is none.
    virtual QString detectFileType(const QString &path);

    // In the order in which users see them.
    static std::span<const LoadFileType> types();
};

// Knows ELF files too (key "elf"), which it tells by their content.
class ElfLoadFileFactory : public LoadFileFactory
{
public:
    LoadFileInterface *createLoadFile(const QString &path, const QString &typeKey) override;
    QString detectFileType(const QString &path) override;
};
