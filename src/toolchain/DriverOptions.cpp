#include "toolchain/DriverOptions.h"

#include "base/HException.h"

using namespace Qt::StringLiterals;

namespace {

// Where the text of an option's argument stands.
enum Form {
    Flag,     // there is none
    Joined,   // in the same word: -Idirectory
    Separate, // in the next word
};

using Options = DriverOptions;

struct OptionRow
{
    const char *name;
    Form form;
    const char *argument; // as the help shows it
    void (*apply)(Options &, const QString &text);
    const char *help;
};

template <bool Options::*field, bool value = true>
void set(Options &options, const QString &)
{
    options.*field = value;
}

template <QString Options::*field>
void store(Options &options, const QString &text)
{
    options.*field = text;
}

template <QStringList Options::*field>
void add(Options &options, const QString &text)
{
    options.*field += text;
}

template <Options::Action action>
void act(Options &options, const QString &)
{
    options.action = action;
}

template <Options::Language language>
void speak(Options &options, const QString &)
{
    options.language = language;
}

template <char letter>
void preprocess(Options &options, const QString &text)
{
    options.preprocessor += u'-' + (QChar(QLatin1Char(letter)) + text);
}

// Flags and options with a separate argument are compared whole, so that "-depend" is no "-d" of "epend".
const OptionRow rows[] = {
    {"-c", Flag, "", act<Options::Action::Compile>, "compile or assemble one source"},
    {"-ar", Flag, "", act<Options::Action::Archive>, "make an archive"},
    {"-o", Separate, "FILE", store<&Options::output>, "output"},
    {"-inputfiles", Separate, "FILE", store<&Options::inputsFile>, "text file of inputs, one a line"},
    {"-v", Flag, "", set<&Options::verbose>, "show the underlying commands"},
    {"-###", Flag, "", set<&Options::printOnly>, "show the underlying commands and run none"},
    {"-we", Flag, "", set<&Options::warningsAsErrors>, "warnings are errors"},
    {"-w", Flag, "", set<&Options::suppressWarnings>, "no warnings"},

    {"-xc", Flag, "", speak<Options::Language::C>, "the source is C"},
    {"-xc++", Flag, "", speak<Options::Language::Cpp>, "the source is C++"},
    {"-xasm", Flag, "", speak<Options::Language::Assembly>, "the source is assembly, to be preprocessed"},
    {"-exceptions", Flag, "", set<&Options::exceptions>, "C++ with exceptions"},
    {"-rtti", Flag, "", set<&Options::rtti>, "C++ with run-time type information"},
    {"-g", Flag, "", set<&Options::debug>, "debug information"},
    {"-I", Joined, "DIRECTORY", preprocess<'I'>, "search headers there"},
    {"-D", Joined, "NAME[=TEXT]", preprocess<'D'>, "define a macro"},
    {"-U", Joined, "NAME", preprocess<'U'>, "undefine a macro"},
    {"-depend", Separate, "FILE", store<&Options::dependencyFile>, "write what was read, in make's syntax"},
    {"-Rc,", Joined, "NAME", store<&Options::codeSection>, "section of code in place of .text"},
    {"-Rd,", Joined, "NAME", store<&Options::dataSection>, "section of initialised data in place of .data"},
    {"-Rz,", Joined, "NAME", store<&Options::zeroedSection>, "section of zeroed data in place of .bss"},
    {"-Rk,", Joined, "NAME", store<&Options::constSection>, "section of constants in place of .rodata"},
    {"-Wc,", Joined, "OPTION", add<&Options::compilerOptions>, "option for the compiler"},
    {"-Wa,", Joined, "OPTION", add<&Options::assemblerOptions>, "option for the assembler"},

    {"-Wl,", Joined, "OPTION", add<&Options::linkerOptions>, "option for the linker"},
    {"-memorymap", Separate, "FILE", store<&Options::memoryMap>, "memory map"},
    {"-memorymapmacros", Separate, "NAME=TEXT;...", store<&Options::memoryMapMacros>, "macros for the memory map"},
    {"-placement", Separate, "FILE", store<&Options::placement>, "section placement"},
    {"-placementmacros", Separate, "NAME=TEXT;...", store<&Options::placementMacros>, "macros for the placement"},
    {"-placementsegments", Separate, "NAME RWX START SIZE;...", store<&Options::placementSegments>,
     "segments, when there is no memory map"},
    {"-T", Joined, "FILE", store<&Options::linkerScript>, "linker script in place of map and placement"},
    {"-printf=", Joined, "CODE", store<&Options::printfCode>, "what printf can: i l ll, d dll f fll; then p, w"},
    {"-scanf=", Joined, "CODE", store<&Options::scanfCode>, "what scanf can: i l ll, d dll; then c"},
    {"-l-", Flag, "", set<&Options::standardLibraries, false>, "no C library"},
    {"-M", Flag, "", set<&Options::map>, "write a map file beside the output"},
    {"-d", Joined, "NAME=VALUE", add<&Options::symbolDefinitions>, "define a symbol"},
    {"-K", Joined, "NAME", add<&Options::keepSymbols>, "keep a symbol that nothing refers to"},
    {"-F", Joined, "FORMAT", store<&Options::outputFormat>, "load file beside the output: bin, hex, srec, lst, txt"},
    {"-patch", Separate, "COMMAND", store<&Options::patchCommand>, "run on the output before the load file is made"},

    {"--help", Flag, "", set<&Options::help>, "this text"},
    {"--version", Flag, "", set<&Options::version>, "version"},
};

// The row whose option `argument` is or begins with; null when there is none.
const OptionRow *rowFor(const QString &argument)
{
    for (const OptionRow &row : rows)
        if (row.form != Joined && argument == QLatin1StringView(row.name))
            return &row;
    for (const OptionRow &row : rows)
        if (row.form == Joined && argument.startsWith(QLatin1StringView(row.name)))
            return &row;
    return nullptr;
}

void check(const Options &options)
{
    if (options.output.isEmpty() && options.action != Options::Action::Compile)
        throw HException(u"no output: -o FILE names it"_s);
    if (options.action == Options::Action::Compile && options.inputs.size() > 1)
        throw HException(u"one source at a time, not '%1' and '%2'"_s.arg(options.inputs[0], options.inputs[1]));
    if (options.inputs.isEmpty() && (options.action == Options::Action::Compile || options.inputsFile.isEmpty()))
        throw HException(u"no input files"_s);
}

} // namespace

DriverOptions DriverOptions::parse(const QStringList &arguments)
{
    DriverOptions options;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        if (!argument.startsWith(u'-') || argument == u"-") {
            options.inputs += argument;
            continue;
        }
        const OptionRow *row = rowFor(argument);
        if (!row)
            throw HException(u"unknown option '%1'; -Wc, -Wa, and -Wl, hand options to the tools"_s.arg(argument));
        QString text = row->form == Joined ? argument.sliced(qstrlen(row->name)) : QString();
        const bool isLetter = qstrlen(row->name) == 2; // "-I directory" is as good as "-Idirectory"
        if (row->form == Separate || (row->form == Joined && isLetter && text.isEmpty())) {
            if (i + 1 == arguments.size())
                throw HException(
                    u"option '%1' needs %2"_s.arg(QLatin1StringView(row->name), QLatin1StringView(row->argument)));
            text = arguments[++i];
        }
        row->apply(options, text);
    }
    if (!options.help && !options.version)
        check(options);
    return options;
}

QString DriverOptions::helpText()
{
    QString text = u"cc: compiles, archives and links by GCC or clang for ARM and RISC-V\n\n"
                   "  cc -c -xc|-xc++|-xasm SOURCE [options] -o OBJECT\n"
                   "  cc -ar -inputfiles FILE -o ARCHIVE\n"
                   "  cc -inputfiles FILE -memorymap FILE -placement FILE [options] -o PROGRAM\n\n"_s;
    for (const OptionRow &row : rows) {
        const QString name = QString::fromLatin1(row.name) + QLatin1StringView(row.form == Separate ? " " : "") +
                             QLatin1StringView(row.argument);
        text += u"  %1 %2\n"_s.arg(name, -42).arg(QLatin1StringView(row.help));
    }
    return text;
}
