/* Vectors and start-up for a Cortex-M3. */
#include <stdint.h>

extern uint32_t stack_top, data_load_start, data_start, data_end, bss_start, bss_end;

int main(void);
void host_exit(int status);

void Reset_Handler(void)
{
    const uint32_t *from = &data_load_start;
    for (uint32_t *to = &data_start; to < &data_end;)
        *to++ = *from++;
    for (uint32_t *to = &bss_start; to < &bss_end;)
        *to++ = 0;
    host_exit(main());
}

void Default_Handler(void)
{
    host_exit(99);
}

void __attribute__((weak, alias("Default_Handler"))) NMI_Handler(void);
void __attribute__((weak, alias("Default_Handler"))) HardFault_Handler(void);
void __attribute__((weak, alias("Default_Handler"))) SysTick_Handler(void);

const void *const vectors[16] __attribute__((section(".vectors"), used)) = {
    &stack_top, Reset_Handler, NMI_Handler, HardFault_Handler, [15] = SysTick_Handler,
};
