/* What the C library asks of the board: printf ends up at the serial port, the rest has nothing to do here. */

#include "board.h"

#include <errno.h>
#include <sys/stat.h>

int _write(int file, const char *text, int length)
{
    (void)file;
    serial_write(text, (size_t)length);
    return length;
}

int _read(int file, char *text, int length)
{
    (void)file, (void)text, (void)length;
    return 0;
}

int _close(int file)
{
    (void)file;
    return -1;
}

int _lseek(int file, int offset, int from)
{
    (void)file, (void)offset, (void)from;
    return 0;
}

/* A terminal: output is written line by line. */
int _fstat(int file, struct stat *status)
{
    (void)file;
    status->st_mode = S_IFCHR;
    return 0;
}

int _isatty(int file)
{
    (void)file;
    return 1;
}

/* The heap is what the section placement gives it (HEAP_SIZE). */
void *_sbrk(ptrdiff_t increment)
{
    extern char __heap_start__, __heap_end__;
    static char *end = &__heap_start__;
    if (increment > &__heap_end__ - end) {
        errno = ENOMEM;
        return (void *)-1;
    }
    char *block = end;
    end += increment;
    return block;
}
