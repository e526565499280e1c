/* Not part of the unity build: its table is made with names that others use too. */

#include "command.h"
#include "mps2.h"

#include <stdint.h>

/* CRC-32 of IEEE 802.3, four bits at a time. */
static uint32_t sum(const char *text)
{
    static const uint32_t remainders[16] = {
        0x00000000, 0x1DB71064, 0x3B6E20C8, 0x26D930AC, 0x76DC4190, 0x6B6B51F4, 0x4DB26158, 0x5005713C,
        0xEDB88320, 0xF00F9344, 0xD6D6A3E8, 0xCB61B38C, 0x9B64C2B0, 0x86D3D2D4, 0xA00AE278, 0xBDBDF21C,
    };
    uint32_t crc = 0xFFFFFFFF;
    for (; *text; ++text) {
        crc = crc >> 4 ^ remainders[(crc ^ (uint8_t)*text) & 15];
        crc = crc >> 4 ^ remainders[(crc ^ (uint8_t)*text >> 4) & 15];
    }
    return ~crc;
}

static void crc(const char *text)
{
    serial_write_number(sum(text), 16);
    serial_write("\n");
}
COMMAND(crc, crc);
