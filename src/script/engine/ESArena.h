#pragma once

#include <QtGlobal>
#include <cstddef>
#include <vector>

// The memory of a context: nothing is given back before its end, but blocks of values that were outgrown are
// used again. Throws ESFatalError when the context would grow beyond its limit.
class ESArena
{
public:
    explicit ESArena(quint64 limitBytes) : m_limit(limitBytes) {}
    ~ESArena();
    ESArena(const ESArena &) = delete;
    ESArena &operator=(const ESArena &) = delete;

    // Uninitialised memory, aligned to 8 bytes.
    void *allocate(size_t bytes)
    {
        bytes = (bytes + 7) & ~size_t(7);
        if (bytes > size_t(m_end - m_next)) [[unlikely]]
            return allocateSlow(bytes);
        void *result = m_next;
        m_next += bytes;
        return result;
    }
    template <typename T>
    T *make()
    {
        return new (allocate(sizeof(T))) T();
    }
    template <typename T>
    T *array(size_t count)
    {
        return static_cast<T *>(allocate(count * sizeof(T)));
    }

    // A block that will be outgrown: its size goes up to a power of two (`bytes` is updated).
    void *allocateBlock(size_t &bytes);
    void releaseBlock(void *block, size_t bytes); // with the size that allocateBlock gave
    // A larger block (`bytes` is updated) that begins with what `block` held; `block` is released.
    void *growBlock(void *block, size_t oldBytes, size_t &bytes);

private:
    struct Chunk
    {
        void *start;
        size_t bytes;
    };
    void *allocateSlow(size_t bytes);
    void checkLimit(size_t bytes) const;
    std::vector<Chunk>::iterator chunkAt(const void *start);
    void *fromSystem(size_t bytes);

    char *m_next = nullptr, *m_end = nullptr;
    quint64 m_used = 0, m_limit;
    size_t m_chunkBytes = 32 * 1024;
    std::vector<Chunk> m_chunks;
    struct FreeBlock
    {
        FreeBlock *next;
    };
    FreeBlock *m_free[48] = {}; // by the power of two
};
