#include "base/ByteCursor.h"

#include <cstdlib>

// The input is a program: each byte picks an operation on a cursor over the rest. Offsets must stay inside.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const size_t half = size / 2;
    ByteCursor cursor({data + half, size - half}, data[0] & 1);
    for (size_t i = 1; i < half; ++i) {
        const quint8 argument = data[i] >> 3;
        switch (data[i] & 7) {
        case 0: cursor.readUnsigned(argument); break;
        case 1: cursor.readUleb128(); break;
        case 2: cursor.readSleb128(); break;
        case 3: cursor.readString(); break;
        case 4: cursor.readBytes(argument); break;
        case 5: cursor.seek(argument); break;
        case 6: cursor = cursor.take(cursor.readU8()); break;
        case 7: cursor.skip(argument); break;
        }
        if (cursor.offset() < 0 || size_t(cursor.offset()) > size - half)
            std::abort();
    }
    return 0;
}
