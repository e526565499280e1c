#include "packages/archive/ArchiveCommands.h"

int main(int argumentCount, char **arguments)
{
    return CommandLine("vnPack", "makes, lists, extracts and checks packages", archiveVerbs())
        .run(argumentCount, arguments, VN_VERSION);
}
