/* The parts of an MPS2 board that this program uses. */
#ifndef MPS2_H
#define MPS2_H

#include <stdint.h>

void serial_open(void);
void serial_write(const char *text);
void serial_write_number(uint32_t number, uint32_t radix);

/* Ends a debugger's or emulator's run, by semihosting. */
void machine_exit(void) __attribute__((noreturn));

#endif
