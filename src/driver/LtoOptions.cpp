#include "driver/LtoOptions.h"

namespace {

constexpr size_t minimumArguments = 5; // the program's name, the library, three files

struct Switch
{
    const char *name;
    bool LtoOptions::*flag;
};

constexpr Switch switches[] = {
    {"-fdata-sections", &LtoOptions::dataSections},
    {"-ffunction-sections", &LtoOptions::functionSections},
    {"-float-abi=hard", &LtoOptions::hardFloat},
    {"-fnoexceptions", &LtoOptions::noExceptions},
    {"-g", &LtoOptions::debug},
    {"-disable-inlining", &LtoOptions::disableInlining},
    {"-S", &LtoOptions::assembly},
};

} // namespace

const char *const LtoOptions::usage =
    "usage: ltollvm [options] 'LTO.dll' 'fileslistfile' 'ldfileslistfile' 'ltobjectfile' 'keep1' .. 'keepN'\n"
    " -fdata-sections      put data symbols in their own section\n"
    " -ffunction-sections  put function symbols in their own section\n"
    " -float-abi=hard      use hardware floating point registers\n"
    " -fnoexceptions       do not generate exception table\n"
    " -g                   include debugging information\n"
    " -mcpu=val            set cpu name to 'val'\n"
    " -O0|-O1|-O2|-O3      set optimization level\n"
    " -disable-inlining    disable inlining\n";

bool LtoOptions::parse(std::span<char *const> arguments)
{
    if (arguments.size() < minimumArguments)
        return false;
    size_t i = 1;
    for (; i < arguments.size(); ++i) {
        const QByteArray argument = arguments[i];
        const auto found = std::ranges::find_if(switches, [&](const Switch &row) { return argument == row.name; });
        if (found != std::end(switches)) {
            this->*found->flag = true;
        } else if (argument.size() == 3 && argument.startsWith("-O") && argument[2] >= '0' && argument[2] <= '3') {
            level = ' ' + argument;
        } else if (argument.startsWith("-mcpu=")) {
            hasCpu = true;
            cpu = argument.mid(6);
        } else if (argument == "-opts") {
            if (++i == arguments.size())
                return false;
            extra = QByteArray(" ") + arguments[i];
        } else {
            break;
        }
    }
    if (arguments.size() - i < minimumArguments - 1)
        return false;
    libraryPath = arguments[i];
    inputListPath = arguments[i + 1];
    linkerListPath = arguments[i + 2];
    objectPath = arguments[i + 3];
    for (const char *name : arguments.subspan(i + 4))
        keepNames.append(name);
    return true;
}

QList<QByteArray> LtoOptions::earlyWords() const
{
    QList<QByteArray> words;
    if (dataSections)
        words += "--data-sections";
    if (functionSections)
        words += "--function-sections";
    if (hardFloat)
        words += "--float-abi=hard";
    return words;
}

QByteArray LtoOptions::codeGeneratorText(bool hasEarlyWords) const
{
    QByteArray text = "-lto-freestanding --disable-llvm-verifier";
    if (!hasEarlyWords)
        for (const QByteArray &word : earlyWords())
            text += ' ' + word;
    return text + (noExceptions ? " -no-exceptions" : "") + level + (disableInlining ? " -disable-inlining" : "") +
           (assembly ? " --filetype=asm" : "") + extra;
}
