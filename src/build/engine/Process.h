#pragma once

#include "base/FileDescriptor.h"

#include <QByteArray>
#include <QStringList>
#include <sys/types.h>

class ProcessPoller;

// A child process whose output comes back in lines. No shell is in between: the first word is looked for in the
// search path, the others are its arguments, up to a redirection:
//
//     >  1>  >>  1>>     standard output into the file named by the next word (>> adds to it)
//     2>  2>>            standard error
//     &>  &>>            both into one file
//
// Files count from the working directory; of several for one stream the first counts. Standard input is empty.
// The child leads a process group of its own, so that a signal reaches what it started too, and a Ctrl-C of the
// terminal reaches it by way of us alone.
//
// A line ends at LF or CR. A CR takes the byte behind it along, whatever it is.
class Process
{
public:
    // With a poller the children of all its processes are waited for together.
    explicit Process(ProcessPoller *poller = nullptr);
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;
    virtual ~Process(); // kills and reaps

    // False when it can't be started; errorString() tells why. With wait it returns when the child has ended.
    bool start(const QStringList &arguments, const QString &directory, bool wait = false);
    // Takes in what the child has written, waiting for it as long as told; true when there is no child (any more).
    // With a poller it never waits and costs nothing while that has seen nothing of this child.
    bool poll(int timeoutMs = 100);
    bool pollAlone(int timeoutMs = 100); // waits for this child in any case; an interrupt ends the wait

    bool isRunning() const { return m_pid > 0; }
    int exitStatus() const { return m_status; } // of the last child; 128 + signal when one ended it
    int endSignal() const { return m_signal; }  // that signal; 0 when it ended by itself
    QString errorString() const { return m_error; }

    // Marks this as stopped, until clearStop(), and sends the signal to the child and its children.
    void stop(int signal);
    bool isStopped() const { return m_isStopped; }
    void clearStop() { m_isStopped = false; }

protected:
    virtual void output(bool isStdout, const QByteArray &line);
    virtual void idle() {} // between the polls of a start that waits

private:
    friend class ProcessPoller;
    struct Stream
    {
        FileDescriptor descriptor;
        QByteArray line; // begun, its end not yet seen
        bool swallowsNext = false;
    };
    struct Command;

    bool spawn(Command &command, const QString &directory);
    void read(int stream);
    void take(int stream, QByteArrayView bytes);
    bool takeIn();
    bool reap();
    void closeStream(int stream);

    ProcessPoller *m_poller;
    pid_t m_pid = -1;
    FileDescriptor m_end; // readable when the child has ended, where the system has such descriptors
    Stream m_streams[2];  // output, error
    bool m_isReady = false;
    bool m_isStopped = false;
    int m_status = 0;
    int m_signal = 0;
    QString m_error;
};
