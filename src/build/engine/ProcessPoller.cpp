#include "build/engine/ProcessPoller.h"

#include "build/engine/Process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>

namespace {

// Systems without descriptors for processes are asked again after so long.
constexpr int blindWaitMs = 2;

constexpr std::array caughtSignals = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
volatile std::sig_atomic_t interruptCount = 0;
int interruptPipe[2] = {-1, -1};
std::array<struct sigaction, caughtSignals.size()> previousActions;

void countInterrupt(int signal)
{
    if (signal == SIGPIPE && interruptCount > 0)
        return;
    const int error = errno;
    interruptCount = interruptCount + 1;
    [[maybe_unused]] const ssize_t written = ::write(interruptPipe[1], "", 1);
    errno = error;
}

void drainInterruptPipe()
{
    char bytes[16];
    while (interruptPipe[0] >= 0 && ::read(interruptPipe[0], bytes, sizeof bytes) > 0) {
    }
}

} // namespace

void ProcessPoller::wait(int timeoutMs)
{
    std::vector<pollfd> watched;
    bool isAnyRunning = false;
    for (const Process *process : m_processes) {
        if (!process->isRunning())
            continue;
        isAnyRunning = true;
        for (const Process::Stream &stream : process->m_streams) {
            if (stream.descriptor.isOpen())
                watched.push_back({stream.descriptor.number(), POLLIN, 0});
        }
        if (process->m_end.isOpen())
            watched.push_back({process->m_end.number(), POLLIN, 0});
        else
            timeoutMs = std::min(timeoutMs, blindWaitMs);
    }
    if (!isAnyRunning)
        return;
    if (InterruptCatcher::descriptor() >= 0)
        watched.push_back({InterruptCatcher::descriptor(), POLLIN, 0});
    if (::poll(watched.data(), watched.size(), timeoutMs) < 0 && errno != EINTR)
        for (pollfd &entry : watched)
            entry.revents = POLLIN; // the reads will tell what is wrong
    drainInterruptPipe();           // the count stays
    // The same walk, in step with what was watched.
    auto seen = watched.begin();
    for (Process *process : m_processes) {
        if (!process->isRunning())
            continue;
        for (const Process::Stream &stream : process->m_streams) {
            if (stream.descriptor.isOpen() && (seen++)->revents)
                process->m_isReady = true;
        }
        if (!process->m_end.isOpen() || (seen++)->revents)
            process->m_isReady = true;
    }
}

void ProcessPoller::stopAll(int signal)
{
    for (Process *process : m_processes)
        process->stop(signal);
}

int ProcessPoller::runningCount() const
{
    return int(
        std::count_if(m_processes.begin(), m_processes.end(), [](auto *process) { return process->isRunning(); }));
}

InterruptCatcher::InterruptCatcher()
{
    clear();
    if (::pipe2(interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        interruptPipe[0] = interruptPipe[1] = -1; // an interrupt is then seen at the end of a wait
    struct sigaction action = {};
    action.sa_handler = countInterrupt;
    sigemptyset(&action.sa_mask);
    for (size_t index = 0; index < caughtSignals.size(); ++index) {
        sigaction(caughtSignals[index], &action, &previousActions[index]);
        if (caughtSignals[index] == SIGHUP && previousActions[index].sa_handler == SIG_IGN)
            sigaction(SIGHUP, &previousActions[index], nullptr);
    }
}

InterruptCatcher::~InterruptCatcher()
{
    for (size_t index = 0; index < caughtSignals.size(); ++index)
        sigaction(caughtSignals[index], &previousActions[index], nullptr);
    for (int &end : interruptPipe) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }
    interruptCount = 0;
}

int InterruptCatcher::count()
{
    return interruptCount;
}

void InterruptCatcher::clear()
{
    interruptCount = 0;
    drainInterruptPipe();
}

int InterruptCatcher::descriptor()
{
    return interruptPipe[0];
}
