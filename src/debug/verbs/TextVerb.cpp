#include "base/CommandLine.h"
#include "debug/verbs/LookupVerbs.h"
#include "debug/verbs/ReportingFile.h"

int dumpText(const CommandArguments &arguments)
{
    ReportingFile file(arguments.positional().first());
    file.elf().dump(stdout);
    file.dwarf().dump(stdout);
    return 0;
}
