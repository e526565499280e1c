#include "section_init.h"

#include <stdint.h>

/* Rows as the linker script writes them. Addresses and sizes are multiples of 4. */
struct copy_row {
    const uint32_t *source;
    volatile uint32_t *destination; /* volatile: the loops must not become calls of memcpy and memset */
    uint32_t bytes;
};
struct zero_row {
    volatile uint32_t *destination;
    uint32_t bytes;
};

extern const struct copy_row __copy_table_start__[], __copy_table_end__[];
extern const struct zero_row __zero_table_start__[], __zero_table_end__[];

typedef void (*constructor)(void);
extern const constructor __preinit_array_start[], __preinit_array_end[];
extern const constructor __init_array_start[], __init_array_end[];

void initialize_sections(void)
{
    for (const struct copy_row *row = __copy_table_start__; row < __copy_table_end__; ++row)
        for (uint32_t i = 0; i < row->bytes / 4; ++i)
            row->destination[i] = row->source[i];
    for (const struct zero_row *row = __zero_table_start__; row < __zero_table_end__; ++row)
        for (uint32_t i = 0; i < row->bytes / 4; ++i)
            row->destination[i] = 0;
}

void call_constructors(void)
{
    for (const constructor *call = __preinit_array_start; call < __preinit_array_end; ++call)
        (*call)();
    for (const constructor *call = __init_array_start; call < __init_array_end; ++call)
        (*call)();
}
