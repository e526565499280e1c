#include "toolchain/SmallTools.h"

int main(int argumentCount, char **arguments)
{
    return runSmallTool(changeModeTool, {arguments, size_t(argumentCount)}, VN_VERSION);
}
