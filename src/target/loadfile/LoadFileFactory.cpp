#include "target/loadfile/LoadFileFactory.h"

#include "elf/ElfFile.h"
#include "target/loadfile/ElfLoadFile.h"
#include "target/loadfile/TextLoadFiles.h"

using namespace Qt::StringLiterals;

namespace {

template <typename File>
LoadFileInterface *create(const QString &path)
{
    return new File(path);
}

constexpr LoadFileType fileTypes[] = {
    {"bin", "*.bin *.rom", "Binary", create<BinaryLoadFile>},
    {"ihex", "*.hex", "Intel Hex", create<IntelHexLoadFile>},
    {"hex", "*.lst", "Hex", create<HexLoadFile>},
    {"tihex", "*.txt", "TI Hex", create<TIHexLoadFile>},
    {"srec", "*.s19 *.srec", "Motorola S-Record", create<SRecordLoadFile>},
};

} // namespace

std::span<const LoadFileType> LoadFileFactory::types()
{
    return fileTypes;
}

LoadFileInterface *LoadFileFactory::createLoadFile(const QString &path, const QString &typeKey)
{
    for (const LoadFileType &type : fileTypes)
        if (typeKey == QLatin1StringView(type.key))
            return type.create(path);
    return nullptr;
}

void LoadFileFactory::destroyLoadFile(LoadFileInterface *file)
{
    delete file;
}

QString LoadFileFactory::detectFileType(const QString &path)
{
    for (const LoadFileType &type : fileTypes)
        for (const QString &pattern : QString::fromLatin1(type.filter).split(u' '))
            if (const QString ending = pattern.mid(1); path.endsWith(ending) || path.endsWith(ending.toUpper()))
                return QString::fromLatin1(type.key);
    return {};
}

LoadFileInterface *ElfLoadFileFactory::createLoadFile(const QString &path, const QString &typeKey)
{
    return typeKey == u"elf" ? new ElfLoadFile(path) : LoadFileFactory::createLoadFile(path, typeKey);
}

QString ElfLoadFileFactory::detectFileType(const QString &path)
{
    return ElfFile::isElfFile(path) ? u"elf"_s : LoadFileFactory::detectFileType(path);
}
