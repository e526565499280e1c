#include "command.h"
#include "mps2.h"

#include <stdlib.h>

/* The sum of numbers with blanks between them. */
static void sum(const char *numbers)
{
    uint32_t total = 0;
    for (char *end; *numbers; numbers = end) {
        total += strtoul(numbers, &end, 0);
        if (end == numbers)
            break;
    }
    serial_write_number(total, 10);
    serial_write("\n");
}
COMMAND(sum, sum);
