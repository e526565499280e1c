#include "build/engine/StampsAhead.h"

#include <QFile>
#include <sys/stat.h>

FileStamp stampOf(const struct stat &status)
{
    constexpr qint64 nanoseconds = 1'000'000'000;
    const qint64 time = status.st_mtim.tv_sec * nanoseconds + status.st_mtim.tv_nsec;
    return {time ? time : 1, status.st_size}; // the first instant of 1970 is a time too
}

StampsAhead::StampsAhead(std::vector<QString> paths) : m_files(paths.size())
{
    for (size_t i = 0; i < paths.size(); ++i)
        m_files[i].path = std::move(paths[i]);
    m_thread = std::thread([this] { ask(); });
}

StampsAhead::~StampsAhead()
{
    m_isStopped = true;
    m_thread.join();
}

void StampsAhead::ask()
{
    for (File &file : m_files) {
        if (m_isStopped)
            return;
        State expected = Open;
        if (!file.state.compare_exchange_strong(expected, Claimed))
            continue;
        struct stat status;
        if (::stat(QFile::encodeName(file.path).constData(), &status) == 0)
            file.stamp = stampOf(status);
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
