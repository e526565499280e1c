#pragma once

#include "build/commands/CommandRecord.h"

#include <atomic>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

// Stamps of files that will be wanted, asked for by a second thread while the first has other things to do. It begins
// with the last, so that the two meet somewhere: whoever comes to a file first asks for it, and nobody waits.
class StampsAhead
{
public:
    // The thread begins with `gather`, which gives the paths, absolute and to outlive this. Throws std::system_error
    // when there is no thread to be had.
    explicit StampsAhead(std::function<std::vector<QStringView>()> gather);
    ~StampsAhead(); // ends the thread
    StampsAhead(const StampsAhead &) = delete;
    StampsAhead &operator=(const StampsAhead &) = delete;

    void waitForPaths() const;
    // Behind waitForPaths(). None when the thread hasn't got it; then, and the next time, the file is the caller's.
    std::optional<FileStamp> take(size_t index);

private:
    enum State : quint8 { Open, Asked, Known, Gone };
    struct File
    {
        QStringView path;
        FileStamp stamp = {};
        std::atomic<State> state = Open;
    };
    void ask();

    std::vector<File> m_files;
    std::atomic<bool> m_hasPaths = false;
    std::atomic<bool> m_isStopped = false;
    std::thread m_thread; // the last member: it uses the others
};
