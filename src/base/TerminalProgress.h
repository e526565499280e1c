#pragma once

#include <QElapsedTimer>

// How far a long operation is, in percent on standard error when that is a terminal, and its end when the user
// interrupts it (SIGINT, SIGTERM): update() then throws StudioCancelException, so that what is half done is
// cleaned up; a second one ends the program. One at a time; before and behind its life the signals act as they did.
class TerminalProgress
{
public:
    explicit TerminalProgress(bool quiet);
    TerminalProgress(const TerminalProgress &) = delete;
    TerminalProgress &operator=(const TerminalProgress &) = delete;
    ~TerminalProgress();

    void update(quint64 done, quint64 total);

private:
    using SignalHandler = void (*)(int);

    SignalHandler m_oldInterrupt, m_oldTerminate;
    QElapsedTimer m_sinceShown;
    bool m_isQuiet;
    bool m_isShown = false;
};
