#include "mps2.h"

/* UART 0, Arm Cortex-M System Design Kit, "APB UART". */
#define REGISTER(address) (*(volatile uint32_t *)(address))
#define UART0_DATA REGISTER(0x40004000)
#define UART0_STATE REGISTER(0x40004004)   /* bit 0: the transmit buffer is full */
#define UART0_CTRL REGISTER(0x40004008)    /* bit 0: transmitter on */
#define UART0_BAUDDIV REGISTER(0x40004010) /* 16 at least */

enum { clock_hz = 25000000, baud_rate = 115200 };

void serial_open(void)
{
    UART0_BAUDDIV = clock_hz / baud_rate;
    UART0_CTRL = 1;
}

void serial_write(const char *text)
{
    for (; *text; ++text) {
        while (UART0_STATE & 1) {
        }
        UART0_DATA = (uint8_t)*text;
    }
}

void serial_write_number(uint32_t number, uint32_t radix)
{
    char digits[33];
    char *start = digits + sizeof digits - 1;
    *start = 0;
    do {
        *--start = "0123456789abcdef"[number % radix];
        number /= radix;
    } while (number);
    serial_write(start);
}

void machine_exit(void)
{
    /* SYS_EXIT with ADP_Stopped_ApplicationExit: Semihosting for AArch32 and AArch64. */
    register uint32_t operation __asm__("r0") = 0x18;
    register uint32_t reason __asm__("r1") = 0x20026;
    __asm__ volatile("bkpt 0xAB" : : "r"(operation), "r"(reason) : "memory");
    for (;;) {
    }
}
