#include "toolchain/ToolDriver.h"

int main(int argumentCount, char **arguments)
{
    return runToolDriver({arguments, size_t(argumentCount)}, VN_VERSION);
}
