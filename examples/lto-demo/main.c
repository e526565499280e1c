#include "app.h"
#include "print.h"

static Motor motor;
volatile unsigned ticks;

void SysTick_Handler(void)
{
    ticks++;
}

int main(void)
{
    int speed = 0;
    motor_start(&motor, 1000);
    for (int i = 0; i < 20; i++)
        speed = motor_step(&motor);
    print_text("hello from the firmware: speed ");
    print_number(speed);
    print_text(", motor ");
    print_text(motor_state(&motor));
    print_text("\n");
    return speed == 996 ? 0 : 1;
}
