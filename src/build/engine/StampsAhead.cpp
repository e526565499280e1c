#include "build/engine/StampsAhead.h"

#include "build/engine/StampReader.h"

#include <pthread.h>
#include <sched.h>

// The scheduler leaves a new thread on the processor of its maker, behind it, and looks for another one at its next
// tick, which may come when all is done.
static void moveToOtherProcessor(std::thread &thread)
{
    cpu_set_t all;
    if (::sched_getaffinity(0, sizeof all, &all) != 0)
        return;
    cpu_set_t others = all;
    CPU_CLR(::sched_getcpu(), &others);
    if (CPU_COUNT(&others) == 0 || ::pthread_setaffinity_np(thread.native_handle(), sizeof others, &others) != 0)
        return;
    ::pthread_setaffinity_np(thread.native_handle(), sizeof all, &all); // it stays there, but need not
}

StampsAhead::StampsAhead(std::function<std::vector<QStringView>()> gather)
{
    m_thread = std::thread([this, gather = std::move(gather)] {
        const std::vector<QStringView> paths = gather();
        m_files = std::vector<File>(paths.size());
        for (size_t i = 0; i < paths.size(); ++i)
            m_files[i].path = paths[i];
        m_hasPaths = true;
        ask();
    });
    moveToOtherProcessor(m_thread);
}

// They come soon; whoever sleeps meanwhile is woken late.
void StampsAhead::waitForPaths() const
{
    while (!m_hasPaths)
        std::this_thread::yield();
}

StampsAhead::~StampsAhead()
{
    m_isStopped = true;
    m_thread.join();
}

void StampsAhead::ask()
{
    StampReader reader;
    for (auto file = m_files.rbegin(); file != m_files.rend() && !m_isStopped; ++file) {
        State state = Open;
        if (!file->state.compare_exchange_strong(state, Asked))
            continue;
        file->stamp = reader.read(file->path);
        state = Asked;
        file->state.compare_exchange_strong(state, Known, std::memory_order_release);
    }
}

std::optional<FileStamp> StampsAhead::take(size_t index)
{
    if (index >= m_files.size())
        return std::nullopt;
    File &file = m_files[index];
    const State state = file.state.exchange(Gone, std::memory_order_acquire);
    return state == Known ? std::optional(file.stamp) : std::nullopt;
}
