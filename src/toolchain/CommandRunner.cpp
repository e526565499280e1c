#include "toolchain/CommandRunner.h"

#include "base/FileDescriptor.h"
#include "base/HException.h"

#include <QFileInfo>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <vector>

using namespace Qt::StringLiterals;

extern char **environ;

namespace {

// For the signal handlers: the tool that runs, and the signal that has arrived.
volatile sig_atomic_t runningTool = 0;
volatile sig_atomic_t arrivedSignal = 0;
timer_t handOnTimer;

// A Ctrl-C reaches the tool by itself, as all of the process group. A second signal would end it amid removing its
// temporary files, so it gets one from us only when it goes on.
void handleSignal(int signal)
{
    arrivedSignal = signal;
    constexpr itimerspec times = {.it_interval = {2, 0}, .it_value = {0, 500'000'000}}; // seconds, nanoseconds
    timer_settime(handOnTimer, 0, &times, nullptr);
}

void handOn(int)
{
    if (runningTool > 0)
        kill(runningTool, arrivedSignal);
}

constexpr int handledSignals[] = {SIGINT, SIGTERM, SIGHUP};

void catchSignals()
{
    struct sigaction action = {};
    action.sa_handler = handOn;
    sigaction(SIGALRM, &action, nullptr);
    timer_create(CLOCK_MONOTONIC, nullptr, &handOnTimer); // it sends SIGALRM
    action.sa_handler = handleSignal;
    for (const int signal : handledSignals) {
        struct sigaction before = {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) // as nohup wants it
            sigaction(signal, &action, nullptr);
    }
}

// Tools speak English, which is what build logs find errors by; characters stay as the user has them.
void speakEnglish()
{
    if (const QByteArray all = qgetenv("LC_ALL"); !all.isEmpty())
        qputenv("LC_CTYPE", all);
    qunsetenv("LC_ALL");
    qunsetenv("LANGUAGE");
    qputenv("LC_MESSAGES", "C");
}

int waitFor(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

CommandRunner::CommandRunner(bool isShown, bool isDry) : m_isShown(isShown || isDry), m_isDry(isDry)
{
    catchSignals();
    speakEnglish();
}

void CommandRunner::removeOutputs()
{
    for (const QString &path : m_outputs)
        if (!m_isDry && QFileInfo(path).isFile()) // and no device
            QFile::remove(path);
}

QString CommandRunner::quoted(const QStringList &command)
{
    QStringList words;
    for (QString word : command) {
        const bool isPlain = !word.isEmpty() && std::ranges::all_of(word, [](QChar c) {
            return c.isLetterOrNumber() || QStringView(u"_@%+=:,./-").contains(c);
        });
        words += isPlain ? word : u'\'' + word.replace(u'\'', u"'\\''"_s) + u'\'';
    }
    return words.join(u' ');
}

void CommandRunner::run(const QStringList &command)
{
    if (m_isShown) {
        std::printf("%s\n", quoted(command).toLocal8Bit().constData());
        std::fflush(stdout);
    }
    if (m_isDry)
        return;
    const int status = spawn(command, -1);
    checkSignals();
    if (status != 0) {
        removeOutputs();
        throw ToolFailure(status);
    }
}

QString CommandRunner::query(const QStringList &command)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return QString();
    FileDescriptor input(ends[0]), output(ends[1]);
    // What is asked for fits a pipe's buffer, so the tool ends before we read.
    try {
        if (spawn(command, output.number()) != 0)
            return QString();
    } catch (const HException &) { // clang links without GCC's libraries where there is no GCC
        return QString();
    }
    output.close();
    char buffer[4096];
    const ssize_t count = read(input.number(), buffer, sizeof buffer);
    checkSignals();
    return count <= 0 ? QString()
                      : QString::fromLocal8Bit(QByteArrayView(buffer, count)).section(u'\n', 0, 0).trimmed();
}

// Gives the exit status. With a descriptor the tool's standard output goes there and its messages nowhere.
int CommandRunner::spawn(const QStringList &command, int outputDescriptor)
{
    std::vector<QByteArray> words;
    for (const QString &word : command)
        words.push_back(QFile::encodeName(word));
    std::vector<char *> arguments;
    for (QByteArray &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (outputDescriptor >= 0) {
        posix_spawn_file_actions_adddup2(&actions, outputDescriptor, 1);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    }
    checkSignals();
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw HException(u"cannot run '%1': %2"_s.arg(command.first(), QString::fromLocal8Bit(strerror(error))));
    runningTool = child;
    const int status = waitFor(child);
    runningTool = 0;
    return status;
}

void CommandRunner::checkSignals()
{
    const int signal = arrivedSignal;
    if (!signal)
        return;
    m_outputs += m_reports;
    removeOutputs();
    ::signal(signal, SIG_DFL);
    raise(signal);
}
