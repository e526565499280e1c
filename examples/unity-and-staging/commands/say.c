#include "command.h"
#include "mps2.h"

static void say(const char *text)
{
    serial_write(text);
    serial_write("\n");
}
COMMAND(say, say);
