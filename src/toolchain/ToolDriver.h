#pragma once

#include "toolchain/CLibrary.h"
#include "toolchain/CommandRunner.h"
#include "toolchain/DriverOptions.h"
#include "toolchain/LinkInputs.h"
#include "toolchain/ToolSet.h"

#include <span>

// What the program `cc` does: turns one command line of the build engine into commands of GCC or clang and runs
// them. docs/toolchain.md tells which become which.
class ToolDriver
{
public:
    explicit ToolDriver(const DriverOptions &options);

    // Throws HException for what is wrong with documents and files, ToolFailure when a tool has failed. Outputs
    // are gone then.
    void run();
    // The command of the compiler by which run() would compile or assemble, without what only shapes its messages.
    QStringList compileCommand() const;

private:
    const QStringList &sourceOptions() const; // of -Wc, or -Wa,
    QString objectFile() const;
    void compile();
    void archive();
    void link();

    // Inputs of the command line and of the inputs file.
    QStringList readInputs() const;
    // A file of our own beside the inputs file, or beside the output when there is none.
    QString intermediate(const char *ending) const;
    // `files` as words of a command: themselves, or "@" and a file with their names when they are many.
    QStringList filesAsWords(const QStringList &files, const char *ending) const;
    void writeOwnFile(const QString &path, const QByteArray &text) const;
    // What is made beside the output: its name with another ending.
    QString besideOutput(const QString &ending) const;
    QString loadFile() const; // empty if none is made

    // What a link is made with.
    struct Link
    {
        LinkInputs inputs;
        ToolSet tools;
        QStringList machine;     // options that choose processor and libraries
        QStringList userOptions; // of -Wl,
        QString entry;
    };
    Link planLink(const QStringList &files) const;
    static QStringList startOptions(const Link &link, bool hasScript);
    // The options that give the linker its script, which is made from the documents unless there is one.
    QStringList linkScript(const Link &link);
    QStringList linkerFlags() const;
    // What of a tool chain's libraries it is linked with.
    struct Libraries
    {
        QString cFolder;        // empty: none
        QString compilerFolder; // of the support functions; looked for where the compiler doesn't know it
        CLibrary c;
        bool wantsCpp = false, hasCpp = false;
        QString system; // the library of system calls: "nosys", "rdimon"; empty: the program has them
    };
    Libraries planLibraries(const Link &link);
    static QStringList libraryOptions(const Link &link, const Libraries &libraries);
    // Compiles the bitcode among the files into one object and gives what the linker has to read in their place.
    QStringList optimizeBitcode(const Link &link, const QStringList &files);
    QStringList withoutBitcodeArchives(const Link &link, const QStringList &files);
    void runPatch();
    void writeLoadFile(const Link &link);
    void copyLoadFile(const ToolSet &tools, const QString &path);
    // A warning of ours, by the rules of -w and -we.
    void warn(const QString &text);

    const DriverOptions m_options;
    CommandRunner m_runner;
};

// The program: `arguments` with its name first. Gives the exit status: 0, 1 when something of ours failed, 2 for a
// wrong command line, else that of the tool which failed.
int runToolDriver(std::span<char *const> arguments, const char *version);
