#pragma once

#include "base/FileDescriptor.h"

#include <QByteArray>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

// How a LoaderProgram answers one request.
enum class Answer {
    prompt,
    delayed, // after 20 ms, in which signals reach the host
    split,   // byte by byte with a signal to the host before each
    wrongTag,
    failed, // status 0
    busy,   // status 0xFF
    half,   // the first byte only
    silent,
    closed, // the connection ends
};

// A loader program as it runs on a target: 64 KiB of memory behind a descriptor, on a thread of its own. The first
// requests are answered as the plan says, one each, all others promptly.
class LoaderProgram
{
public:
    // Signals go to the thread that constructs the program.
    LoaderProgram(FileDescriptor descriptor, std::vector<Answer> plan);
    ~LoaderProgram();

    QByteArray memory; // only while no request is under way
    int requestCount() const { return m_requestCount; }

private:
    void run();
    bool readExact(char *buffer, qsizetype count);
    bool answer();
    void send(Answer how, const QByteArray &reply);
    void signalHost() { ::pthread_kill(m_host, SIGUSR1); }

    FileDescriptor m_descriptor;
    std::vector<Answer> m_plan;
    pthread_t m_host;
    std::atomic<int> m_requestCount = 0;
    FileDescriptor m_stopReader, m_stopWriter;
    std::thread m_thread;
};

// A pseudo-terminal: the path of the end that a serial link opens, and the other end.
struct PseudoTerminal
{
    PseudoTerminal();
    // Writes to the other end, in raw mode, and waits until it has arrived there: the system hands it over some
    // time later, which may be long on a busy machine.
    void send(const QByteArray &bytes) const;

    FileDescriptor master;
    QByteArray device;
};

// Lets SIGUSR1 interrupt system calls as long as it lives.
class InterruptingSignals
{
public:
    InterruptingSignals();
    ~InterruptingSignals();
    static int count();
};
