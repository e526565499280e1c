#pragma once

#include <QByteArray>
#include <QStringList>
#include <sys/types.h>

// A program of the build tree that a test talks to while it runs: at the other end of a pseudo-terminal, where the
// test is the user who types and sees, or of a pipe from its standard output.
class RunningProgram
{
public:
    enum Connection { Terminal, Pipe };
    RunningProgram(const QString &program, const QStringList &arguments, Connection connection = Terminal,
                   const char *terminalType = "dumb");
    ~RunningProgram();
    RunningProgram(const RunningProgram &) = delete;
    RunningProgram &operator=(const RunningProgram &) = delete;

    // Reads up to and with `text`; what it said before is gone then. False, and a failure of the test that shows
    // what came instead, when the program ends or says nothing for long.
    bool waitFor(const QByteArray &text);
    void type(const QByteArray &text);
    // Until a line editor has the terminal: what is typed before is echoed as well, but isn't in its line yet.
    void waitForEditor();
    void interrupt(); // SIGINT
    // Reads on until the program ends and gives its exit status; -1 when a signal ended it, also ours after long.
    int end();

private:
    bool readMore();

    pid_t m_child = -1;
    int m_output = -1;
    QByteArray m_seen;
};
