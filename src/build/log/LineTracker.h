#pragma once

#include <QObject>
#include <list>
#include <map>
#include <memory>
#include <utility>
#include <vector>

// Where lines of a file have gone since they were noted, while the file is being edited.
class LineTracker : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString Path READ path)

public:
    LineTracker(const QString &path, bool logsChanges, QObject *parent = nullptr);

    const QString &path() const { return m_path; }
    // Each edit as (line, delta), in order, when they are logged.
    const std::list<std::pair<int, int>> &changes() const { return m_changes; }
    // -1 for a line that was deleted or never noted.
    int current(int line) const;

public Q_SLOTS:
    void clear();
    void track(int line); // notes a line; one noted before starts anew
    // From `line` on `delta` lines were inserted; below 0: that many were removed.
    void changed(int line, int delta);

private:
    QString m_path;
    bool m_logsChanges;
    std::list<std::pair<int, int>> m_changes;
    std::map<int, int> m_current; // by original line; -1: deleted
};

// The same for all files that have noted lines.
class FileLineTracker : public QObject
{
    Q_OBJECT

public:
    explicit FileLineTracker(bool logsChanges = false, QObject *parent = nullptr);

    // -1 for a line that was deleted or never noted.
    int current(const QString &filename, int line) const;
    // Null when no line of the file was noted.
    const LineTracker *tracker(const QString &filename) const;

public Q_SLOTS:
    void clear();
    void track(const QString &filename, int line);
    void changed(const QString &filename, int line, int delta);

private:
    qsizetype position(const QString &filename) const; // of the first tracker that isn't before the file
    LineTracker *find(const QString &filename) const;

    bool m_logsChanges;
    std::vector<std::unique_ptr<LineTracker>> m_trackers; // sorted by path
};
