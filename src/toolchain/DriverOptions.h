#pragma once

#include <QStringList>
#include <optional>

// The command line of `cc`, as the build engine writes it. It is a table in DriverOptions.cpp: each option with the
// form of its argument and what it does.
struct DriverOptions
{
    enum class Action { Link, Compile, Archive };
    enum class Language { ByName, C, Cpp, Assembly };

    Action action = Action::Link;
    Language language = Language::ByName;
    bool verbose = false;   // the underlying commands are shown
    bool printOnly = false; // and nothing else is done
    bool help = false, version = false;
    bool warningsAsErrors = false, suppressWarnings = false;
    bool debug = false;
    bool exceptions = false, rtti = false;
    bool standardLibraries = true;
    bool map = false;

    QStringList inputs;
    QString inputsFile; // one input a line
    QString output;

    QStringList preprocessor; // -I, -D and -U with their values, in the order of the command line
    QStringList compilerOptions, assemblerOptions, linkerOptions;
    QString dependencyFile;
    QString codeSection, dataSection, zeroedSection, constSection; // empty: the compiler's own

    QString linkerScript;
    QString memoryMap, memoryMapMacros;
    QString placement, placementMacros, placementSegments;
    QString printfCode, scanfCode;
    QString outputFormat;
    QStringList symbolDefinitions; // name=value
    QStringList keepSymbols;
    QString patchCommand;

    // `arguments` without the program's name. Throws HException for what isn't in the table, an option without
    // its argument, and what doesn't make a whole (a compilation of two sources, a link without an output).
    static DriverOptions parse(const QStringList &arguments);
    // What --help prints.
    static QString helpText();
};
