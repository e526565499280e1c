#include "base/ByteCursor.h"
#include "base/Crc32.h"

#include <benchmark/benchmark.h>

// Input: 1 MiB of zeros; time per byte as bytes_per_second.
static void crc32Bzip2OfAMebibyte(benchmark::State &state)
{
    const std::vector<quint8> bytes(1 << 20);
    for (auto round : state)
        benchmark::DoNotOptimize(crc32Bzip2(bytes));
    state.SetBytesProcessed(state.iterations() * qint64(bytes.size()));
}
BENCHMARK(crc32Bzip2OfAMebibyte);

// Input: 64 Ki numbers of one to three bytes; time per number as items_per_second.
static void readUleb128s(benchmark::State &state)
{
    std::vector<quint8> bytes;
    for (quint32 i = 0; i < 65536; ++i) {
        for (quint32 rest = i;; rest >>= 7) {
            bytes.push_back(quint8(rest < 0x80 ? rest : (rest & 0x7F) | 0x80));
            if (rest < 0x80)
                break;
        }
    }
    for (auto round : state) {
        ByteCursor cursor(bytes, false);
        quint64 sum = 0;
        while (!cursor.atEnd())
            sum += cursor.readUleb128();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * 65536);
}
BENCHMARK(readUleb128s);
