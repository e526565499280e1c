#pragma once

#include "toolchain/LinkInputs.h"

// The programs of one tool chain for one architecture, and what they need to be told.
//
// Options choose it, here and in this order of weight:
//     -toolchain=gcc, -toolchain=clang     the family
//     -toolchain=DIRECTORY                 where to look for the programs first: DIRECTORY/bin, DIRECTORY
//     --target=TRIPLE                      clang, and the architecture
//     -march= -mcpu= -mabi= ...            the architecture
// then the environment variable VELDANE_TOOLCHAIN ("clang", a directory, or both with a ";" between), then what
// the objects of a link were compiled for. Without any of these it is GCC for ARM.
class ToolSet
{
public:
    ToolSet(const QStringList &options, const std::optional<Machine> &objects);

    bool isClang() const { return m_isClang; }
    Machine::Architecture architecture() const { return m_architecture; }
    bool isRiscV() const { return m_architecture == Machine::RiscV; }

    // Where programs are looked for ahead of the search path.
    const QStringList &directories() const { return m_directories; }

    // The compiler with the options that always go with it. For clang the target is among them.
    QStringList compiler() const;
    // GCC of the architecture: the compiler itself, or the one whose libraries clang links.
    QString gcc() const;
    // Whether the compiler takes -fdiagnostics-column-unit=. False when it isn't known, and for clang, which always
    // counts bytes.
    bool countsColumnsAsAsked() const;
    // The archiver whose archives have an index of these objects' symbols: that of modules for link-time optimisation
    // takes GCC's plug-in, or for bitcode LLVM's archiver, where it is installed.
    QString archiver(const LinkInputs &members) const;
    // Folders of the library headers beside GCC, for clang; GCC finds them itself. Empty when there are none.
    QStringList libraryHeaders(bool cpp) const;
    // LLVM's LTO library; empty when there is none.
    QString ltoLibrary() const;

    // The path of a program of that name, first in the tool chain's directory; the bare name when it isn't found.
    QString program(const QString &name) const;

    // The options without those that only choose a tool chain.
    static QStringList withoutChoice(const QStringList &options);

private:
    void choose(const QString &text);
    QString find(const QString &name) const;
    QString clang() const;

    bool m_isClang = false;
    bool m_isChosen = false; // by name
    Machine::Architecture m_architecture = Machine::Arm;
    bool m_is64 = false;
    QString m_target;
    QStringList m_directories;
};
