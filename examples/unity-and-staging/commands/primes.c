#include "command.h"
#include "mps2.h"

#include <stdbool.h>
#include <stdlib.h>

static bool is_prime(uint32_t number)
{
    for (uint32_t divisor = 2; divisor * divisor <= number; ++divisor)
        if (number % divisor == 0)
            return false;
    return number > 1;
}

/* The primes up to a number. */
static void primes(const char *limit)
{
    const uint32_t last = strtoul(limit, NULL, 0);
    for (uint32_t number = 2; number <= last; ++number) {
        if (!is_prime(number))
            continue;
        serial_write_number(number, 10);
        serial_write(" ");
    }
    serial_write("\n");
}
COMMAND(primes, primes);
