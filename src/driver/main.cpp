#include "base/HException.h"
#include "driver/LtoDriver.h"

#include <cstdio>
#include <new>

int main(int argumentCount, char **arguments)
{
    LtoOptions options;
    if (!options.parse({arguments, size_t(argumentCount)})) {
        std::fputs(LtoOptions::usage, stderr);
        return 1;
    }
    try {
        LtoDriver(options).run();
        return 0;
    } catch (const HException &error) {
        std::fprintf(stderr, "%s\n", error.message().toLocal8Bit().constData());
    } catch (const std::bad_alloc &) {
        std::fputs("ltollvm: out of memory\n", stderr);
    }
    return 1;
}
