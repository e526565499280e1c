#include "script/engine/ESArena.h"

#include "script/engine/ESException.h"

#include <bit>
#include <new>
#include <sys/mman.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t largestChunk = 16 << 20, hugePage = 2 << 20;
constexpr size_t ownMapping = 256 * 1024; // blocks from here on are mapped, and unmapped, by themselves

} // namespace

ESArena::~ESArena()
{
    for (const Chunk &chunk : m_chunks)
        munmap(chunk.start, chunk.bytes);
}

void ESArena::checkLimit(size_t bytes) const
{
    if (bytes > m_limit - std::min(m_limit, m_used))
        throw ESFatalError(u"out of memory: the script needs more than %1 MiB"_s.arg(m_limit >> 20));
}

void *ESArena::fromSystem(size_t bytes)
{
    checkLimit(bytes);
    void *memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw ESFatalError(u"out of memory"_s);
    if (bytes >= hugePage)
        madvise(memory, bytes, MADV_HUGEPAGE);
    m_used += bytes;
    m_chunks.push_back({memory, bytes});
    return memory;
}

void *ESArena::allocateSlow(size_t bytes)
{
    if (bytes > m_chunkBytes / 4)
        return fromSystem((bytes + 4095) & ~size_t(4095));
    m_next = static_cast<char *>(fromSystem(m_chunkBytes));
    m_end = m_next + m_chunkBytes;
    m_chunkBytes = std::min(m_chunkBytes * 2, largestChunk);
    return allocate(bytes);
}

void *ESArena::allocateBlock(size_t &bytes)
{
    bytes = std::bit_ceil(std::max(bytes, sizeof(FreeBlock) * 4));
    if (bytes >= ownMapping)
        return fromSystem(bytes);
    FreeBlock *&free = m_free[std::countr_zero(bytes)];
    if (FreeBlock *block = free) {
        free = block->next;
        return block;
    }
    return allocate(bytes);
}

void *ESArena::growBlock(void *block, size_t oldBytes, size_t &bytes)
{
    if (oldBytes < ownMapping) {
        void *larger = allocateBlock(bytes);
        std::memcpy(larger, block, oldBytes);
        releaseBlock(block, oldBytes);
        return larger;
    }
    bytes = std::bit_ceil(bytes);
    checkLimit(bytes - oldBytes);
    void *larger = mremap(block, oldBytes, bytes, MREMAP_MAYMOVE);
    if (larger == MAP_FAILED)
        throw ESFatalError(u"out of memory"_s);
    m_used += bytes - oldBytes;
    *chunkAt(block) = {larger, bytes};
    return larger;
}

std::vector<ESArena::Chunk>::iterator ESArena::chunkAt(const void *start)
{
    return std::find_if(m_chunks.begin(), m_chunks.end(), [&](const Chunk &chunk) { return chunk.start == start; });
}

void ESArena::releaseBlock(void *block, size_t bytes)
{
    if (bytes >= ownMapping) {
        munmap(block, bytes);
        m_used -= bytes;
        *chunkAt(block) = m_chunks.back();
        m_chunks.pop_back();
        return;
    }
    FreeBlock *&free = m_free[std::countr_zero(bytes)];
    free = new (block) FreeBlock{free};
}
