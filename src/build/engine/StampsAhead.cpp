#include "build/engine/StampsAhead.h"

#include "build/engine/StampReader.h"

StampsAhead::StampsAhead(const std::vector<QStringView> &paths) : m_files(paths.size())
{
    for (size_t i = 0; i < paths.size(); ++i)
        m_files[i].path = paths[i];
    m_thread = std::thread([this] { ask(); });
}

StampsAhead::~StampsAhead()
{
    m_isStopped = true;
    m_thread.join();
}

void StampsAhead::ask()
{
    StampReader reader;
    for (File &file : m_files) {
        if (m_isStopped)
            return;
        State expected = Open;
        if (!file.state.compare_exchange_strong(expected, Claimed))
            continue;
        file.stamp = reader.read(file.path);
        file.state.store(Known, std::memory_order_release);
    }
}

std::optional<FileStamp> StampsAhead::take(size_t index)
{
    if (index >= m_files.size())
        return std::nullopt;
    File &file = m_files[index];
    State state = Open;
    if (file.state.compare_exchange_strong(state, Claimed) || state == Claimed)
        return std::nullopt;
    return file.stamp;
}
