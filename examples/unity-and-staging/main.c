/* Runs the commands of a script that the project "assets" has made a C header of. */

#include "banner.h"
#include "command.h"
#include "mps2.h"
#include "script.h"

#include <stdbool.h>
#include <stddef.h>
#include <string.h>

extern const struct command __commands_start__[], __commands_end__[];

static void run_line(char *line)
{
    char *argument = strchr(line, ' ');
    if (argument)
        *argument++ = 0;
    for (const struct command *command = __commands_start__; command < __commands_end__; ++command) {
        if (strcmp(command->name, line) == 0) {
            command->run(argument ? argument : "");
            return;
        }
    }
    serial_write("no command '");
    serial_write(line);
    serial_write("'\n");
}

int main(void)
{
    serial_open();
    serial_write(banner);
    for (const char *line = script; *line;) {
        const size_t length = strcspn(line, "\n");
        char copy[80];
        if (length > 0 && length < sizeof copy) {
            memcpy(copy, line, length);
            copy[length] = 0;
            run_line(copy);
        }
        line += length + (line[length] == '\n');
    }
    machine_exit();
}
