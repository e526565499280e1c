#include "build/commands/CommandRecord.h"

#include <cstdlib>

// The input is a record whose checksums are yet to be put right. What is accepted must come back from being written.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    CommandRecord record, again;
    if (record.fromBytes(CommandRecord::withChecksums(input)) && !again.fromBytes(record.toBytes()))
        std::abort();
    return 0;
}
