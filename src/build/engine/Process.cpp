#include "build/engine/Process.h"

#include "build/engine/ProcessPoller.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int readSize = 1 << 16; // what a pipe holds; then others, and the user, have their turn

struct Redirection
{
    const char *word;
    bool output, error, append;
};
constexpr Redirection redirections[] = {
    {">", true, false, false},  {"1>", true, false, false}, {">>", true, false, true}, {"1>>", true, false, true},
    {"2>", false, true, false}, {"2>>", false, true, true}, {"&>", true, true, false}, {"&>>", true, true, true},
};

const Redirection *redirectionNamed(const QString &word)
{
    for (const Redirection &row : redirections) {
        if (word == QLatin1StringView(row.word))
            return &row;
    }
    return nullptr;
}

// What is done in the child before it runs the program.
class SpawnSetup
{
public:
    SpawnSetup()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        sigset_t set;
        sigfillset(&set);
        for (const int kept : {SIGKILL, SIGSTOP, SIGHUP}) // under nohup it stays ignored
            sigdelset(&set, kept);
        posix_spawnattr_setsigdefault(&attributes, &set);
        sigemptyset(&set);
        posix_spawnattr_setsigmask(&attributes, &set);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    SpawnSetup(const SpawnSetup &) = delete;
    SpawnSetup &operator=(const SpawnSetup &) = delete;
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

QString systemError(int number)
{
    return QString::fromLocal8Bit(strerror(number));
}

} // namespace

// A command line taken apart, with the files that the child's streams go to; closed when that doesn't come.
struct Process::Command
{
    std::vector<QByteArray> words;
    FileDescriptor files[2]; // output, error; those not open become pipes
    bool isBothInOne = false;
    bool isRedirected[2] = {false, false};

    bool redirect(const Redirection &kind, const QString &path, QString &error);
};

bool Process::Command::redirect(const Redirection &kind, const QString &path, QString &error)
{
    const bool takesOutput = kind.output && !isRedirected[0];
    const bool takesError = kind.error && !isRedirected[1];
    if (!takesOutput && !takesError)
        return true;
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (kind.append ? O_APPEND : O_TRUNC);
    FileDescriptor file(::open(QFile::encodeName(path).constData(), flags, 0666));
    if (!file.isOpen()) {
        error = u"cannot open "_s + path + u": "_s + systemError(errno);
        return false;
    }
    isBothInOne = takesOutput && takesError;
    isRedirected[0] |= takesOutput;
    isRedirected[1] |= takesError;
    files[takesOutput ? 0 : 1] = std::move(file);
    return true;
}

Process::Process(ProcessPoller *poller) : m_poller(poller)
{
    if (m_poller)
        m_poller->m_processes.push_back(this);
}

Process::~Process()
{
    if (isRunning()) {
        ::kill(-m_pid, SIGKILL);
        while (::waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    if (m_poller)
        std::erase(m_poller->m_processes, this);
}

bool Process::start(const QStringList &arguments, const QString &directory, bool wait)
{
    Q_ASSERT(!isRunning());
    m_status = m_signal = 0;
    m_error.clear();
    Command command;
    command.words.reserve(size_t(arguments.size()));
    for (qsizetype index = 0; index < arguments.size(); ++index) {
        const Redirection *redirection = redirectionNamed(arguments[index]);
        if (!redirection) {
            command.words.push_back(QFile::encodeName(arguments[index]));
            continue;
        }
        if (++index == arguments.size()) {
            m_error = u"no file behind "_s + arguments[index - 1];
            return false;
        }
        const QString &name = arguments[index];
        if (!command.redirect(*redirection, name.startsWith(u'/') ? name : directory + u'/' + name, m_error))
            return false;
    }
    if (command.words.empty() || command.words.front().isEmpty()) {
        m_error = u"no command"_s;
        return false;
    }
    if (!spawn(command, directory))
        return false;
    while (wait && !pollAlone())
        idle();
    return true;
}

bool Process::spawn(Command &command, const QString &directory)
{
    SpawnSetup setup;
    posix_spawn_file_actions_addopen(&setup.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    FileDescriptor ends[2]; // the child's
    for (int stream = 0; stream < 2; ++stream) {
        m_streams[stream] = {};
        int number = command.files[stream].number();
        if (stream == 1 && command.isBothInOne) {
            number = command.files[0].number();
        } else if (!command.isRedirected[stream]) {
            int pipe[2];
            if (::pipe2(pipe, O_CLOEXEC) != 0) {
                m_error = u"pipe: "_s + systemError(errno);
                closeStream(0);
                return false;
            }
            m_streams[stream].descriptor = FileDescriptor(pipe[0]);
            ends[stream] = FileDescriptor(pipe[1]);
            ::fcntl(pipe[0], F_SETFL, O_NONBLOCK);
            number = pipe[1];
        }
        posix_spawn_file_actions_adddup2(&setup.actions, number, stream + 1);
    }
    const QByteArray folder = QFile::encodeName(directory);
    if (!folder.isEmpty())
        posix_spawn_file_actions_addchdir_np(&setup.actions, folder.constData());

    std::vector<char *> words;
    words.reserve(command.words.size() + 2);
    for (QByteArray &word : command.words)
        words.push_back(word.data());
    words.push_back(nullptr);
    pid_t pid = -1;
    int error = posix_spawnp(&pid, words[0], &setup.actions, &setup.attributes, words.data(), environ);
    if (error == ENOEXEC) { // a script that doesn't name its interpreter
        QByteArray script = command.words.front();
        if (!script.contains('/'))
            script = QFile::encodeName(QStandardPaths::findExecutable(QFile::decodeName(script)));
        words[0] = script.data();
        char shell[] = "/bin/sh";
        words.insert(words.begin(), shell);
        error = posix_spawn(&pid, shell, &setup.actions, &setup.attributes, words.data(), environ);
    }
    if (error != 0) {
        const bool hasDirectory = directory.isEmpty() || QFileInfo(directory).isDir();
        m_error = hasDirectory ? systemError(error) : u"no directory "_s + directory;
        closeStream(0);
        closeStream(1);
        return false;
    }
    m_pid = pid;
    m_end = FileDescriptor(int(::syscall(SYS_pidfd_open, pid, 0)));
    m_isReady = false;
    return true;
}

bool Process::poll(int timeoutMs)
{
    if (!m_poller)
        return pollAlone(timeoutMs);
    if (isRunning() && !std::exchange(m_isReady, false))
        return false;
    return takeIn();
}

bool Process::pollAlone(int timeoutMs)
{
    if (isRunning()) {
        ProcessPoller alone;
        alone.m_processes.push_back(this);
        alone.wait(timeoutMs);
        m_isReady = false;
    }
    return takeIn();
}

bool Process::takeIn()
{
    if (!isRunning())
        return true;
    read(0);
    read(1);
    return reap();
}

// Takes in what is there, so that a child that writes without end doesn't keep others waiting.
void Process::read(int stream)
{
    if (!m_streams[stream].descriptor.isOpen())
        return;
    char buffer[readSize];
    const ssize_t size = ::read(m_streams[stream].descriptor.number(), buffer, sizeof buffer);
    if (size > 0)
        take(stream, QByteArrayView(buffer, size));
    else if (size == 0 || (errno != EAGAIN && errno != EINTR))
        closeStream(stream);
}

void Process::take(int stream, QByteArrayView bytes)
{
    Stream &state = m_streams[stream];
    qsizetype begin = 0;
    if (std::exchange(state.swallowsNext, false))
        begin = 1;
    for (qsizetype position = begin; position < bytes.size(); ++position) {
        const char byte = bytes[position];
        if (byte != '\n' && byte != '\r')
            continue;
        state.line += bytes.sliced(begin, position - begin);
        output(stream == 0, std::exchange(state.line, {}));
        if (byte == '\r' && ++position == bytes.size())
            state.swallowsNext = true;
        begin = position + 1;
    }
    if (begin < bytes.size())
        state.line += bytes.sliced(begin);
}

// What the child leaves running may hold the pipes open; when the child has ended, that is no longer its output.
bool Process::reap()
{
    int status = 0;
    const pid_t ended = ::waitpid(m_pid, &status, WNOHANG);
    if (ended == 0 || (ended < 0 && errno == EINTR))
        return false;
    if (ended < 0)
        std::fprintf(stderr, "waitpid error: %d\n", errno);
    for (int stream : {0, 1}) {
        read(stream);
        closeStream(stream);
    }
    m_pid = -1;
    m_end.close();
    m_signal = ended > 0 && WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    m_status = ended < 0 ? -1 : m_signal ? 128 + m_signal : WEXITSTATUS(status);
    return true;
}

void Process::closeStream(int stream)
{
    Stream &state = m_streams[stream];
    state.descriptor.close();
    if (!state.line.isEmpty())
        output(stream == 0, std::exchange(state.line, {}));
}

void Process::stop(int signal)
{
    m_isStopped = true;
    if (isRunning())
        ::kill(-m_pid, signal);
}

void Process::output(bool, const QByteArray &) {}
