#include "build/log/LineTracker.h"

LineTracker::LineTracker(const QString &path, bool logsChanges, QObject *parent)
    : QObject(parent), m_path(path), m_logsChanges(logsChanges)
{
    setObjectName(QStringLiteral("line-tracker"));
}

int LineTracker::current(int line) const
{
    const auto entry = m_current.find(line);
    return entry == m_current.end() ? -1 : entry->second;
}

void LineTracker::clear()
{
    m_changes.clear();
    m_current.clear();
}

void LineTracker::track(int line)
{
    m_current[line] = line;
}

void LineTracker::changed(int line, int delta)
{
    if (m_logsChanges)
        m_changes.emplace_back(line, delta);
    for (auto &[original, current] : m_current) {
        if (current == -1 || current < line)
            continue;
        const bool isRemoved = delta < 0 && current < qint64(line) - delta;
        current = isRemoved ? -1 : current + delta;
    }
}

FileLineTracker::FileLineTracker(bool logsChanges, QObject *parent) : QObject(parent), m_logsChanges(logsChanges) {}

qsizetype FileLineTracker::position(const QString &filename) const
{
    const auto isBefore = [](const std::unique_ptr<LineTracker> &tracker, const QString &name) {
        return tracker->path() < name;
    };
    return std::lower_bound(m_trackers.begin(), m_trackers.end(), filename, isBefore) - m_trackers.begin();
}

LineTracker *FileLineTracker::find(const QString &filename) const
{
    const size_t at = size_t(position(filename));
    return at < m_trackers.size() && m_trackers[at]->path() == filename ? m_trackers[at].get() : nullptr;
}

const LineTracker *FileLineTracker::tracker(const QString &filename) const
{
    return find(filename);
}

int FileLineTracker::current(const QString &filename, int line) const
{
    const LineTracker *tracker = find(filename);
    return tracker ? tracker->current(line) : -1;
}

void FileLineTracker::clear()
{
    m_trackers.clear();
}

void FileLineTracker::track(const QString &filename, int line)
{
    LineTracker *tracker = find(filename);
    if (!tracker) {
        const auto place = m_trackers.begin() + position(filename);
        tracker = m_trackers.insert(place, std::make_unique<LineTracker>(filename, m_logsChanges))->get();
    }
    tracker->track(line);
}

void FileLineTracker::changed(const QString &filename, int line, int delta)
{
    if (LineTracker *tracker = find(filename))
        tracker->changed(line, delta);
}
