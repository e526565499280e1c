#pragma once

#include "driver/LtoSymbols.h"
#include "elf/ElfArchive.h"

#include <functional>
#include <unordered_set>

// Resolves symbols across ELF objects, archives and bitcode as a linker would, to tell which bitcode symbols
// must survive optimisation: those that ELF code needs and those that bitcode takes from ELF code. A weak
// bitcode definition gives way to a strong one in ELF. Archive members enter only when bitcode asks for them,
// directly or through other such members.
class LtoResolver
{
public:
    LtoSymbolTable irStrong{"IR strong"};
    LtoSymbolTable irWeak{"IR weak"};
    LtoSymbolTable irUndefined{"IR undefined"};

    // An ELF object on the command line. The image and the name stay alive as long as the resolver.
    void addObject(const ElfFile &object, QByteArrayView name);
    void addArchive(std::unique_ptr<ElfArchive> archive) { m_archives.push_back(std::move(archive)); }

    // The names to preserve, in the order in which they are found; a name may occur more than once.
    std::vector<QByteArrayView> resolve();

private:
    void collectElfSymbols(const ElfFile &file, QByteArrayView name, const std::function<void(LtoSymbol)> &undefined);
    bool pullFromArchives(QByteArrayView name);

    LtoSymbolTable m_elfStrong{"EXEC strong"};
    LtoSymbolTable m_elfWeak{"EXEC weak"};
    LtoSymbolTable m_elfUndefined{"EXEC undefined"};
    std::vector<std::unique_ptr<ElfArchive>> m_archives;
    std::unordered_set<const ElfFile *> m_loadedMembers;
};
