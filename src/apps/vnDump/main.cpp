#include "base/CommandLine.h"
#include "debug/verbs/DisassembleVerb.h"
#include "debug/verbs/LookupVerbs.h"
#include "debug/verbs/PrintVerb.h"
#include "debug/verbs/TypeVerbs.h"
#include "elf/dump/ElfListing.h"

namespace {

constexpr CommandOption listing[] = {{"json", nullptr, "print one JSON document"}};
constexpr CommandOption elfOptions[] = {
    {"header", nullptr, "the file header"},
    {"segments", nullptr, "the program headers"},
    {"sections", nullptr, "the section headers"},
    {"symbols", nullptr, "the symbol table"},
    {"all", nullptr, "all of these; without any option all but the symbols"},
    {"demangle", nullptr, "C++ names as declarations"},
    {"json", nullptr, "print one JSON document"},
};
constexpr CommandOption frameOptions[] = {
    {"stack-usage", nullptr, "the stack that functions need, in bytes; without addresses of all functions"},
    {"json", nullptr, "print one JSON document"},
};
constexpr CommandOption disassembleOptions[] = {
    {"function", "NAME", "the code of this function"},
    {"range", "A-B", "the code from address A to address B, both included"},
    {"source", nullptr, "source lines between the instructions"},
    {"json", nullptr, "print one JSON document"},
};
constexpr CommandOption printOptions[] = {
    {"at", "ADDRESS", "names as they are in scope there"},
    {"depth", "N", "levels of members and elements; 0: the value's own row"},
    {"pointers", "N", "levels of pointers that are followed; default 0"},
    {"elements", "N", "at most that many elements of each array"},
    {"hex", nullptr, "integers in hexadecimal"},
    {"memory", "FILE@ADDRESS", "bytes of FILE lie in memory at ADDRESS, over those of the program; may be repeated"},
    {"types", "FILE", "type descriptions in place of those for the GNU C++ library"},
    {"raw", nullptr, "containers as they are made, without type descriptions"},
    {"json", nullptr, "print one JSON document"},
};

constexpr CommandVerb verbs[] = {
    {"elf", "FILE", "lists the tables of an ELF file", 1, 1, elfOptions, dumpElf},
    {"text", "FILE", "the full text dump, ELF and DWARF", 1, 1, {}, dumpText},
    {"symbol", "FILE NAME|ADDRESS...", "symbols by their names and addresses", 2, -1, listing, dumpSymbols},
    {"line", "FILE ADDRESS...", "function, return type, file, line, start and end of the row", 2, -1, listing,
     dumpLines},
    {"address", "FILE SOURCE:LINE...", "addresses of source lines", 2, -1, listing, dumpAddresses},
    {"type", "FILE NAME...", "layout: members, offsets, sizes, bit fields", 2, -1, listing, dumpTypes},
    {"variables", "FILE ADDRESS", "parameters, locals and globals in scope with their location expressions", 2, 2,
     listing, dumpVariables},
    {"print", "FILE EXPRESSION...", "values of expressions over the program's variables, as the file has them", 2, -1,
     printOptions, dumpValues},
    {"frame", "FILE ADDRESS...", "rules for the canonical frame address and the registers", 1, -1, frameOptions,
     dumpFrames},
    {"disassemble", "FILE", "code as instructions; without options that of all executable sections", 1, 1,
     disassembleOptions, dumpCode},
};

} // namespace

int main(int argumentCount, char **arguments)
{
    return CommandLine("vnDump", "lists and looks things up in ELF files and their debug information", verbs)
        .run(argumentCount, arguments, VN_VERSION);
}
