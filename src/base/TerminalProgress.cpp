#include "base/TerminalProgress.h"

#include "base/HException.h"

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

constexpr int intervalMs = 200;

volatile std::sig_atomic_t isInterrupted = 0;

void noteInterrupt(int number)
{
    isInterrupted = 1;
    std::signal(number, SIG_DFL); // where a write blocks, a second one ends the program
}

// Gives what the signal did before. One that whoever started the program has it ignore (nohup, a job in the
// background of a script) stays ignored.
auto listenTo(int number)
{
    const auto before = std::signal(number, noteInterrupt);
    if (before == SIG_IGN)
        std::signal(number, SIG_IGN);
    return before;
}

} // namespace

TerminalProgress::TerminalProgress(bool quiet) : m_isQuiet(quiet || !::isatty(STDERR_FILENO))
{
    isInterrupted = 0;
    m_oldInterrupt = listenTo(SIGINT);
    m_oldTerminate = listenTo(SIGTERM);
    m_sinceShown.start();
}

TerminalProgress::~TerminalProgress()
{
    if (m_isShown)
        std::fputs("\r    \r", stderr);
    std::signal(SIGINT, m_oldInterrupt);
    std::signal(SIGTERM, m_oldTerminate);
}

void TerminalProgress::update(quint64 done, quint64 total)
{
    if (isInterrupted)
        throw StudioCancelException();
    if (m_isQuiet || !m_sinceShown.hasExpired(intervalMs))
        return;
    std::fprintf(stderr, "\r%3d%%", int(total ? done * 100 / total : 100));
    m_isShown = true;
    m_sinceShown.restart();
}
