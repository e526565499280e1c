#include "virt.h"

#define BYTE(address) (*(volatile uint8_t *)(address))
#define WORD(address) (*(volatile uint32_t *)(address))

/* 16550: transmit register and line status, whose bit 5 says that it takes a byte. */
#define UART_THR BYTE(0x10000000)
#define UART_LSR BYTE(0x10000005)

/* CLINT: two words each, the lower one first. */
#define CLINT_MTIMECMP 0x02004000
#define CLINT_MTIME 0x0200BFF8

/* The test device ends the machine: 0x5555 for success, 0x3333 and a status above it for failure. */
#define TEST_DEVICE WORD(0x00100000)

void serial_write(const char *text)
{
    for (; *text; ++text) {
        while (!(UART_LSR & 1 << 5)) {
        }
        UART_THR = (uint8_t)*text;
    }
}

void serial_write_number(uint32_t number)
{
    char digits[11];
    char *start = digits + sizeof digits - 1;
    *start = 0;
    do {
        *--start = (char)('0' + number % 10);
        number /= 10;
    } while (number);
    serial_write(start);
}

uint64_t timer_now(void)
{
    uint32_t high, low;
    do { /* the upper half may count on between the two reads */
        high = WORD(CLINT_MTIME + 4);
        low = WORD(CLINT_MTIME);
    } while (high != WORD(CLINT_MTIME + 4));
    return (uint64_t)high << 32 | low;
}

void timer_set(uint64_t time)
{
    WORD(CLINT_MTIMECMP + 4) = 0xFFFFFFFF; /* no interrupt from a time half written */
    WORD(CLINT_MTIMECMP) = (uint32_t)time;
    WORD(CLINT_MTIMECMP + 4) = (uint32_t)(time >> 32);
}

void machine_exit(uint32_t status)
{
    TEST_DEVICE = status ? status << 16 | 0x3333 : 0x5555;
    for (;;) {
    }
}
