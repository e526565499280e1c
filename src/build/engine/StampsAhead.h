#pragma once

#include "build/commands/CommandRecord.h"

#include <QString>
#include <atomic>
#include <optional>
#include <thread>
#include <vector>

struct stat;
FileStamp stampOf(const struct stat &status);

// Stamps of files that will be wanted, asked for by a second thread while the first has other things to do. Whoever
// comes to a file first asks for it; nobody waits.
class StampsAhead
{
public:
    explicit StampsAhead(std::vector<QString> paths); // absolute; std::system_error when there is no thread to be had
    ~StampsAhead();                                   // ends the thread
    StampsAhead(const StampsAhead &) = delete;
    StampsAhead &operator=(const StampsAhead &) = delete;

    // None when the thread hasn't got it; then it leaves the file to the caller.
    std::optional<FileStamp> take(size_t index);

private:
    enum State : quint8 { Open, Claimed, Known };
    struct File
    {
        QString path;
        FileStamp stamp = {};
        std::atomic<State> state = Open;
    };
    void ask();

    std::vector<File> m_files;
    std::atomic<bool> m_isStopped = false;
    std::thread m_thread; // the last member: it uses the others
};
