#include "board.h"

#include <stdio.h>

static const char *const builds[] = {"Release", "Debug"};

int main(void)
{
    board_init();
#ifdef DEBUG
    printf("blinky, %s build\n", builds[1]);
#else
    printf("blinky, %s build\n", builds[0]);
#endif
    for (unsigned blink = 1;; ++blink) {
        led_set(true);
        wait_ticks(ticks_per_second / 10);
        printf("blink %u: led %s at tick %lu\n", blink, led_is_on() ? "on" : "off", (unsigned long)ticks());
        led_set(false);
        wait_ticks(ticks_per_second / 10);
    }
}
