#include "build/engine/FileTimes.h"

#include <algorithm>
#include <ctime>
#include <system_error>
#include <unistd.h>

namespace {

constexpr qint64 nanoseconds = 1'000'000'000;

qint64 clockTime(clockid_t clock)
{
    timespec time;
    clock_gettime(clock, &time);
    return time.tv_sec * nanoseconds + time.tv_nsec;
}

} // namespace

FileTimes::Id FileTimes::id(const QString &path)
{
    const qsizetype known = m_ids.size();
    Id &id = m_ids[path];
    if (m_ids.size() > known) {
        id = Id(m_files.size());
        m_files.push_back({path, {}, false, false});
    }
    return id;
}

void FileTimes::reserve(qsizetype count)
{
    m_ids.reserve(m_ids.size() + count);
    m_files.reserve(m_files.size() + size_t(count));
}

void FileTimes::askFor(Id id)
{
    File &file = m_files[id];
    const auto ahead = m_ahead ? m_ahead->take(id) : std::nullopt;
    file.stamp = ahead ? *ahead : m_reader.read(file.path);
    file.isKnown = true;
    file.isWritten |= file.stamp.time > m_began && file.stamp.time <= now();
}

void FileTimes::askAhead(const std::function<void()> &note, bool isWorthAThread)
{
    if (isWorthAThread && std::thread::hardware_concurrency() > 1) {
        try {
            m_ahead = std::make_unique<StampsAhead>([this, note] {
                note();
                std::vector<QStringView> paths;
                paths.reserve(m_files.size());
                for (const File &file : m_files)
                    paths.push_back(file.path);
                return paths;
            });
            return;
        } catch (const std::system_error &) { // no thread: each is asked for when it is wanted
        }
    }
    note();
}

void FileTimes::waitForIds()
{
    if (m_ahead)
        m_ahead->waitForPaths();
}

void FileTimes::forget(const QString &path)
{
    const Id file = id(path);
    m_files[file].isKnown = false;
    if (m_ahead)
        m_ahead->take(file); // what it knows is of before
}

void FileTimes::forgetAll()
{
    m_ahead.reset();
    m_reader.clear();
    for (File &file : m_files)
        file.isKnown = false;
}

void FileTimes::setWritten(const QString &path)
{
    forget(path);
    m_files[id(path)].isWritten = true;
}

void FileTimes::clear()
{
    m_ahead.reset();
    m_reader.clear();
    m_ids.clear();
    m_files.clear();
    m_now = 0;
    m_began = clockTime(CLOCK_REALTIME);
}

void FileTimes::leaveFirstInstant() const
{
    constexpr int mostTurns = 40; // the clock may have been set back
    for (int turn = 0; turn < mostTurns && clockTime(CLOCK_REALTIME_COARSE) <= m_began; ++turn)
        ::usleep(500);
}

qint64 FileTimes::now()
{
    m_now = std::max(m_now, clockTime(CLOCK_REALTIME));
    return m_now;
}
