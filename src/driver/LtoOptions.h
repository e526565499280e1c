#pragma once

#include <QByteArray>
#include <QList>
#include <span>

// The command line of ltollvm: options, then the library, three files and the names to keep. Text is taken
// as the system's bytes.
struct LtoOptions
{
    bool dataSections = false;
    bool functionSections = false;
    bool hardFloat = false;
    bool noExceptions = false;
    bool debug = false;
    bool disableInlining = false;
    bool assembly = false;
    bool hasCpu = false;
    QByteArray cpu;
    QByteArray level = " -O0";
    QByteArray extra; // of -opts

    QByteArray libraryPath;
    QByteArray inputListPath;
    QByteArray linkerListPath;
    QByteArray objectPath;
    QList<QByteArray> keepNames;

    // False when the command line is none: too few arguments, or "-opts" with nothing behind it.
    bool parse(std::span<char *const> arguments);

    // The pieces for the library's code generator, in a fixed order whatever the order of the options.
    // Newer libraries have taken their target options before they read the text of lto_codegen_debug_options,
    // so that some pieces have an effect only as words given ahead of the generator; and a piece given in both
    // ways ends the process. So with `hasEarlyWords` those pieces are words and no part of the text.
    QList<QByteArray> earlyWords() const;
    QByteArray codeGeneratorText(bool hasEarlyWords) const;

    static const char *const usage;
};
