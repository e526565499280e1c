/* Start-up of a RISC-V without an operating system. All harts begin at _start; those but number 0 sleep. */

    .section .init, "ax"
    .globl _start
    .type _start, @function
_start:
    csrr t0, mhartid
    bnez t0, sleep

    .option push
    .option norelax /* gp isn't there yet for the linker to count from */
    la gp, __global_pointer$
    .option pop
    la sp, __stack_end__
    .weak __tls_start__ /* linker scripts by others may not have it */
    la tp, __tls_start__ /* the block of thread-local variables */
    la t0, trap_entry
    csrw mtvec, t0

    call initialize_sections
    call call_constructors
    call main
sleep:
    wfi
    j sleep
    .size _start, . - _start

/* A trap that the program doesn't handle stops here, where a debugger finds it. The address has its lower two bits
   clear: mtvec has the mode there. */
    .section .text.trap_entry, "ax"
    .weak trap_entry
    .balign 4
    .type trap_entry, @function
trap_entry:
    j trap_entry
    .size trap_entry, . - trap_entry
