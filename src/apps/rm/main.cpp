#include "toolchain/SmallTools.h"

int main(int argumentCount, char **arguments)
{
    return runSmallTool(removeTool, {arguments, size_t(argumentCount)}, VN_VERSION);
}
