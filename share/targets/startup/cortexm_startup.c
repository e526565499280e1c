/* Start-up of a Cortex-M: the vector table of the system exceptions and what runs before main. A program that uses
   interrupts of its device places their vectors behind these, in the section ".vectors.device". */

#include "section_init.h"

#include <stdint.h>

int main(void);
extern uint32_t __stack_end__; /* where the stack begins: it grows down */

void Reset_Handler(void)
{
#ifdef __ARM_FP /* compiled for a floating-point unit, which is off after reset */
    *(volatile uint32_t *)0xE000ED88 |= 0xF << 20; /* CPACR: full access to coprocessors 10 and 11 */
    __asm__ volatile("dsb\n\tisb");
#endif
    initialize_sections();
    call_constructors();
    main();
    for (;;) {
    }
}

/* Where code finds thread-local variables: in a program without threads there is one block of them. It may change r0
   and nothing else. */
__attribute__((naked, weak)) void *__aeabi_read_tp(void)
{
    __asm__("ldr r0, =__tls_arm_pointer__\n\tbx lr");
}

/* An interrupt that nobody handles stops here, where a debugger finds it. */
void Default_Handler(void)
{
    for (;;) {
    }
}

#define UNLESS_DEFINED __attribute__((weak, alias("Default_Handler")))
void NMI_Handler(void) UNLESS_DEFINED;
void HardFault_Handler(void) UNLESS_DEFINED;
void MemManage_Handler(void) UNLESS_DEFINED;
void BusFault_Handler(void) UNLESS_DEFINED;
void UsageFault_Handler(void) UNLESS_DEFINED;
void SVC_Handler(void) UNLESS_DEFINED;
void DebugMon_Handler(void) UNLESS_DEFINED;
void PendSV_Handler(void) UNLESS_DEFINED;
void SysTick_Handler(void) UNLESS_DEFINED;

typedef void (*vector)(void);

/* ARMv6-M, ARMv7-M and ARMv8-M: the initial stack pointer, then the handlers of exceptions 1 to 15. */
__attribute__((section(".vectors"), used)) const vector vectors[16] = {
    (vector)&__stack_end__,
    Reset_Handler,
    NMI_Handler,
    HardFault_Handler,
    MemManage_Handler,
    BusFault_Handler,
    UsageFault_Handler,
    0,
    0,
    0,
    0,
    SVC_Handler,
    DebugMon_Handler,
    0,
    PendSV_Handler,
    SysTick_Handler,
};
