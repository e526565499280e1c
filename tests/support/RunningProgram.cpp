#include "support/RunningProgram.h"

#include <QDeadlineTimer>
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

constexpr int patienceMs = 30000;

RunningProgram::RunningProgram(const QString &program, const QStringList &arguments, Connection connection,
                               const char *terminalType)
{
    QByteArrayList words = {QByteArray(VN_BIN "/") + program.toUtf8()};
    for (const QString &argument : arguments)
        words += argument.toUtf8();
    std::vector<char *> argv;
    for (QByteArray &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    int ends[2] = {-1, -1};
    if (connection == Pipe && pipe(ends) != 0)
        ADD_FAILURE() << "no pipe";
    m_child = connection == Pipe ? fork() : forkpty(&ends[0], nullptr, nullptr, nullptr);
    if (m_child == 0) {
        if (connection == Pipe)
            dup2(ends[1], STDOUT_FILENO);
        setenv("TERM", terminalType, 1);
        execv(argv[0], argv.data());
        _exit(99);
    }
    EXPECT_GT(m_child, 0);
    m_output = ends[0];
    if (connection == Pipe)
        close(ends[1]);
}

RunningProgram::~RunningProgram()
{
    close(m_output);
    if (m_child > 0) {
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }
}

// False when nothing comes any more.
bool RunningProgram::readMore()
{
    char buffer[4096];
    pollfd input = {m_output, POLLIN, 0};
    if (poll(&input, 1, patienceMs) <= 0)
        return false;
    const ssize_t count = read(m_output, buffer, sizeof buffer);
    if (count > 0)
        m_seen.append(buffer, count);
    return count > 0;
}

bool RunningProgram::waitFor(const QByteArray &text)
{
    while (!m_seen.contains(text) && readMore())
        ;
    const qsizetype at = m_seen.indexOf(text);
    EXPECT_GE(at, 0) << text.toStdString() << " in " << m_seen.toStdString();
    if (at >= 0)
        m_seen.remove(0, at + text.size());
    return at >= 0;
}

void RunningProgram::type(const QByteArray &text)
{
    EXPECT_EQ(write(m_output, text.constData(), size_t(text.size())), text.size());
}

void RunningProgram::waitForEditor()
{
    termios state = {};
    const QDeadlineTimer deadline(patienceMs);
    while ((tcgetattr(m_output, &state) != 0 || state.c_lflag & ICANON) && !deadline.hasExpired())
        poll(nullptr, 0, 5);
    EXPECT_FALSE(state.c_lflag & ICANON);
}

void RunningProgram::interrupt()
{
    kill(m_child, SIGINT);
}

// A program's streams close a while before it is gone.
int RunningProgram::end()
{
    while (readMore())
        ;
    int status = 0;
    for (const QDeadlineTimer deadline(patienceMs); waitpid(m_child, &status, WNOHANG) != m_child;
         poll(nullptr, 0, 5)) {
        if (!deadline.hasExpired())
            continue;
        kill(m_child, SIGKILL);
        waitpid(m_child, &status, 0);
        break;
    }
    m_child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
