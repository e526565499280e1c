/* The parts of a Stellaris LM3S6965 evaluation board that this program uses. */
#ifndef BOARD_H
#define BOARD_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum { ticks_per_second = 100 };

/* Clocks, pins, serial port and the tick. */
void board_init(void);
void led_set(bool on);
bool led_is_on(void);
void serial_write(const char *text, size_t length);

/* Ticks since board_init(). */
uint32_t ticks(void);
/* Sleeps until that many ticks have passed. */
void wait_ticks(uint32_t count);

#endif
