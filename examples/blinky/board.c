#include "board.h"

/* Registers, from the LM3S6965 data sheet and the ARMv7-M Architecture Reference Manual. */
#define REGISTER(address) (*(volatile uint32_t *)(address))

#define SYSCTL_RCGC1 REGISTER(0x400FE104) /* clock gates: bit 0 UART0 */
#define SYSCTL_RCGC2 REGISTER(0x400FE108) /* bit 5 GPIO port F */

#define UART0_DR REGISTER(0x4000C000)
#define UART0_FR REGISTER(0x4000C018)
#define UART0_IBRD REGISTER(0x4000C024)
#define UART0_FBRD REGISTER(0x4000C028)
#define UART0_LCRH REGISTER(0x4000C02C)
#define UART0_CTL REGISTER(0x4000C030)

/* Bits 2 to 9 of the address choose the pins that an access reaches. */
#define GPIO_F_PIN0 REGISTER(0x40025000 + (1 << 2))
#define GPIO_F_DIR REGISTER(0x40025400)
#define GPIO_F_DEN REGISTER(0x4002551C)

#define SYST_CSR REGISTER(0xE000E010)
#define SYST_RVR REGISTER(0xE000E014)
#define SYST_CVR REGISTER(0xE000E018)

enum {
    clock_hz = 12000000, /* the internal oscillator, which runs after reset */
    uart_fifo_full = 1 << 5,
    uart_enable = 1 << 0 | 1 << 8 | 1 << 9, /* with transmitter and receiver */
    uart_8_bits_fifo = 3 << 5 | 1 << 4,
    baud_rate = 115200,
};

static volatile uint32_t tick_count;

void SysTick_Handler(void)
{
    tick_count = tick_count + 1;
}

void board_init(void)
{
    SYSCTL_RCGC1 |= 1 << 0;
    SYSCTL_RCGC2 |= 1 << 5;

    GPIO_F_DIR |= 1;
    GPIO_F_DEN |= 1;

    /* The divisor has 6 fractional bits: clock / (16 * rate) * 64. */
    const uint32_t divisor = (clock_hz * 4 + baud_rate / 2) / baud_rate;
    UART0_IBRD = divisor >> 6;
    UART0_FBRD = divisor & 63;
    UART0_LCRH = uart_8_bits_fifo;
    UART0_CTL = uart_enable;

    SYST_RVR = clock_hz / ticks_per_second - 1;
    SYST_CVR = 0;
    SYST_CSR = 7; /* processor clock, interrupt, enabled */
}

void led_set(bool on)
{
    GPIO_F_PIN0 = on;
}

bool led_is_on(void)
{
    return GPIO_F_PIN0 & 1;
}

void serial_write(const char *text, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        while (UART0_FR & uart_fifo_full) {
        }
        UART0_DR = (uint8_t)text[i];
    }
}

uint32_t ticks(void)
{
    return tick_count;
}

void wait_ticks(uint32_t count)
{
    const uint32_t start = tick_count;
    while (tick_count - start < count)
        __asm__ volatile("wfi");
}
