/* The parts of QEMU's "virt" machine that this program uses. */
#ifndef VIRT_H
#define VIRT_H

#include <stdint.h>

enum { timer_ticks_per_second = 10000000 };

/* The serial port, a 16550. */
void serial_write(const char *text);
void serial_write_number(uint32_t number);

/* The machine timer counts up; its interrupt comes when it reaches the set time. */
uint64_t timer_now(void);
void timer_set(uint64_t time);

/* Ends the emulator with an exit status. */
void machine_exit(uint32_t status) __attribute__((noreturn));

#endif
