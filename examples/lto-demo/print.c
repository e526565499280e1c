#include "print.h"

enum { SYS_WRITE0 = 4, SYS_EXIT = 0x18, ADP_Stopped_ApplicationExit = 0x20026, ADP_Stopped_InternalError = 0x20024 };

int semihost(int operation, const void *argument);

void print_text(const char *text)
{
    semihost(SYS_WRITE0, text);
}

void print_number(int number)
{
    char digits[12];
    char *place = digits + sizeof digits - 1;
    unsigned left = number < 0 ? 0u - (unsigned)number : (unsigned)number;
    *place = 0;
    do
        *--place = (char)('0' + left % 10);
    while (left /= 10);
    if (number < 0)
        *--place = '-';
    print_text(place);
}

void host_exit(int status)
{
    semihost(SYS_EXIT, (const void *)(status ? ADP_Stopped_InternalError : ADP_Stopped_ApplicationExit));
    for (;;)
        ;
}
