#include "build/report/BuildProgram.h"

int main(int count, char **words)
{
    return CommandLine("vnBuild", "Builds firmware.", buildProgram()).run(count, words, VN_VERSION);
}
