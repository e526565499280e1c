#include "virt.h"

enum {
    interrupts_wanted = 3,
    mstatus_mie = 1 << 3,
    mie_mtie = 1 << 7,
};

static const uint32_t machine_timer_interrupt = 0x80000007;
static const uint64_t period = timer_ticks_per_second / 20;

static uint64_t next_interrupt;
static volatile uint32_t interrupt_count;

/* Takes the place of the weak one in the start-up code. */
__attribute__((interrupt, aligned(4))) void trap_entry(void)
{
    uint32_t cause;
    __asm__ volatile("csrr %0, mcause" : "=r"(cause));
    if (cause != machine_timer_interrupt)
        machine_exit(1);
    ++interrupt_count;
    next_interrupt += period;
    timer_set(next_interrupt);
}

int main(void)
{
    serial_write("hello from RV32\n");
    next_interrupt = timer_now() + period;
    timer_set(next_interrupt);
    __asm__ volatile("csrs mie, %0" : : "r"(mie_mtie));
    __asm__ volatile("csrs mstatus, %0" : : "r"(mstatus_mie));

    for (uint32_t shown = 0; shown < interrupts_wanted;) {
        __asm__ volatile("wfi");
        if (shown == interrupt_count)
            continue;
        serial_write("timer interrupt ");
        serial_write_number(++shown);
        serial_write("\n");
    }
    serial_write("done\n");
    machine_exit(0);
}
