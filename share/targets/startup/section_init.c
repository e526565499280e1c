#include "section_init.h"

#include <stdint.h>

/* Rows as the linker script writes them. Addresses have 32 bits on 64-bit machines too; they and the sizes are
   multiples of 4. */
struct copy_row {
    uint32_t source, destination, bytes;
};
struct zero_row {
    uint32_t destination, bytes;
};

extern const struct copy_row __copy_table_start__[], __copy_table_end__[];
extern const struct zero_row __zero_table_start__[], __zero_table_end__[];

typedef void (*constructor)(void);
extern const constructor __preinit_array_start[], __preinit_array_end[];
extern const constructor __init_array_start[], __init_array_end[];

#ifdef __riscv
/* Tables by which C++ exceptions find their way. Those of ARM are found by symbols; here the unwinder, if the program
   has it, must be told. The record is its own; six words of it are used. */
extern const char __eh_frame_start__[] __attribute__((weak)); /* linker scripts by others may not have it */
void __register_frame_info(const void *frames, void *record) __attribute__((weak));
static void *frame_record[8];
#endif

/* A word of memory. Volatile: the loops below must not become calls of memcpy and memset. */
static volatile uint32_t *word_at(uint32_t address)
{
    return (volatile uint32_t *)(uintptr_t)address;
}

void initialize_sections(void)
{
    for (const struct copy_row *row = __copy_table_start__; row < __copy_table_end__; ++row)
        for (uint32_t i = 0; i < row->bytes; i += 4)
            *word_at(row->destination + i) = *word_at(row->source + i);
    for (const struct zero_row *row = __zero_table_start__; row < __zero_table_end__; ++row)
        for (uint32_t i = 0; i < row->bytes; i += 4)
            *word_at(row->destination + i) = 0;
}

void call_constructors(void)
{
#ifdef __riscv
    if (__register_frame_info)
        __register_frame_info(__eh_frame_start__, frame_record);
#endif
    for (const constructor *call = __preinit_array_start; call < __preinit_array_end; ++call)
        (*call)();
    for (const constructor *call = __init_array_start; call < __init_array_end; ++call)
        (*call)();
}
