#include "target/loadfile/LoadFileCommands.h"

int main(int argumentCount, char **arguments)
{
    return CommandLine("vnLoad", "reads, converts and compares load files", loadFileVerbs())
        .run(argumentCount, arguments, VN_VERSION);
}
