#pragma once

#include "base/FileDescriptor.h"

#include <vector>

class Process;

// The children of a build, waited for together: one poll over all their pipes and ends, and over the user's
// interrupt. Belongs to one thread and outlives the processes that name it.
class ProcessPoller
{
public:
    ProcessPoller() = default;
    ProcessPoller(const ProcessPoller &) = delete;
    ProcessPoller &operator=(const ProcessPoller &) = delete;

    // Returns as soon as a child has written something or ended, an interrupt came, or the time is over. At once
    // when no child runs.
    void wait(int timeoutMs = 100);
    // Marks all processes as stopped and sends the signal to those that have a child (and to its children).
    void stopAll(int signal);
    int runningCount() const; // processes with a child

private:
    friend class Process;
    std::vector<Process *> m_processes; // all, with and without child
};

// While it lives SIGINT, SIGTERM, SIGHUP and SIGPIPE are counted in place of ending the program, and wake a waiting
// poller. SIGPIPE counts only as the first, since each further line for a reader that has gone brings another. SIGHUP
// stays ignored where it was ("nohup"). One at a time.
class InterruptCatcher
{
public:
    InterruptCatcher();
    ~InterruptCatcher();
    InterruptCatcher(const InterruptCatcher &) = delete;
    InterruptCatcher &operator=(const InterruptCatcher &) = delete;

    static int count();      // since one was made; 0 without one
    static void clear();     // begins to count anew
    static int descriptor(); // readable when one came; -1 without a catcher
};
