#pragma once

#include "build/engine/StampReader.h"
#include "build/engine/StampsAhead.h"

#include <QHash>
#include <functional>
#include <memory>
#include <vector>

// Times of files, each asked of the system once in a build. What a build writes is forgotten and so asked again.
//
// What this build has written counts as newer than what was there when it began, however quickly: setWritten() says
// so, and of what a command wrote without telling it is seen by the time.
class FileTimes
{
public:
    using Id = quint32;

    // Of an absolute path; stays valid until clear().
    Id id(const QString &path);
    const QString &path(Id id) const { return m_files[id].path; }
    void reserve(qsizetype count); // for that many more ids
    // Time 0: no such file.
    FileStamp stamp(Id id)
    {
        if (!m_files[id].isKnown)
            askFor(id);
        return m_files[id].stamp;
    }
    FileStamp stamp(const QString &path) { return stamp(id(path)); }
    bool exists(const QString &path) { return stamp(path).time != 0; }

    // Begins to ask for all files that `note` gives ids to, beside the caller if that is worth a thread; what the
    // caller leaves alone before waitForIds(), `note` may use. What a command has written counts when it says so, by
    // setWritten() or forgetAll(); something else that it changed may have been asked for before.
    void askAhead(const std::function<void()> &note, bool isWorthAThread);
    void waitForIds();

    void forget(const QString &path); // it was deleted or may have changed
    void forgetAll();
    void setWritten(const QString &path);
    // Before a command that may write anything: waits until the clock that stamps files, which many systems move on
    // every few milliseconds only, has passed the beginning of the build.
    void leaveFirstInstant() const;
    bool isWritten(Id id) const { return m_files[id].isWritten; }

    // For a new build, which begins now.
    void clear();
    // Nanoseconds since 1970, at least as late as the last call.
    qint64 now();
    qint64 lastNow() const { return m_now; }

private:
    struct File
    {
        QString path;
        FileStamp stamp;
        bool isKnown = false;
        bool isWritten = false;
    };

    void askFor(Id id);

    StampReader m_reader;
    QHash<QString, Id> m_ids;
    std::vector<File> m_files;
    std::unique_ptr<StampsAhead> m_ahead; // of the first files, by their ids
    qint64 m_now = 0;
    qint64 m_began = 0;
};
