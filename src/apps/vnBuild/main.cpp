#include "build/report/BuildProgram.h"

#include <malloc.h>

int main(int count, char **words)
{
    ::mallopt(M_TOP_PAD, 4 << 20); // a large solution takes that at once: it need not be asked for page by page
    return CommandLine("vnBuild", "Builds firmware.", buildProgram()).run(count, words, VN_VERSION);
}
