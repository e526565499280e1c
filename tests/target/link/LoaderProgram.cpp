#include "LoaderProgram.h"

#include "base/ByteOrder.h"
#include "base/Crc32.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t signalCount = 0;

quint32 littleWord(const QByteArray &bytes, int index)
{
    return quint32(extractInteger(bytes.constData(), 4 * index, 4, false));
}

} // namespace

LoaderProgram::LoaderProgram(FileDescriptor descriptor, std::vector<Answer> plan)
    : memory(65536, '\0'), m_descriptor(std::move(descriptor)), m_plan(std::move(plan)), m_host(::pthread_self())
{
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    m_stopReader = FileDescriptor(ends[0]);
    m_stopWriter = FileDescriptor(ends[1]);
    m_thread = std::thread([this] { run(); });
}

LoaderProgram::~LoaderProgram()
{
    m_stopWriter.close();
    m_thread.join();
}

void LoaderProgram::run()
{
    while (answer())
        ;
}

bool LoaderProgram::readExact(char *buffer, qsizetype count)
{
    while (count > 0) {
        pollfd waiting[] = {{m_descriptor.number(), POLLIN, 0}, {m_stopReader.number(), POLLIN, 0}};
        if (::poll(waiting, 2, -1) < 0)
            continue;
        if (waiting[1].revents)
            return false;
        const ssize_t result = ::read(m_descriptor.number(), buffer, size_t(count));
        if (result <= 0)
            return false;
        buffer += result;
        count -= result;
    }
    return true;
}

bool LoaderProgram::answer()
{
    QByteArray head(5, '\0');
    if (!readExact(head.data(), head.size()))
        return false;
    EXPECT_EQ(head.mid(1), QByteArray::fromHex("4D39EAF6"));
    const int code = head[0];
    const qsizetype fieldBytes = code == 9 ? 16 : code == 3 || code == 4 || code == 5 || code == 7 ? 8 : 0;
    QByteArray fields(fieldBytes, '\0');
    if (!readExact(fields.data(), fields.size()))
        return false;
    const qsizetype address = fieldBytes ? littleWord(fields, 0) : 0, length = fieldBytes ? littleWord(fields, 1) : 0;
    if (code == 3 && !readExact(memory.data() + address, length))
        return false;

    const size_t number = size_t(m_requestCount++);
    const Answer how = number < m_plan.size() ? m_plan[number] : Answer::prompt;
    QByteArray reply(1, char(~code));
    reply += how == Answer::failed ? '\0' : how == Answer::busy ? '\xFF' : '\1';
    switch (code) {
    case 4:
        if (how != Answer::failed)
            reply += memory.mid(address, length);
        break;
    case 5: memory.replace(address, length, QByteArray(length, '\xFF')); break;
    case 6:
        memory.fill('\xFF');
        reply += "??";
        break;
    case 7: {
        const quint32 crc =
            crc32Bzip2({reinterpret_cast<const quint8 *>(memory.constData()) + address, size_t(length)});
        reply.resize(6);
        insertInteger(reply.data(), 2, crc, 4, false);
        break;
    }
    case 8:
        reply.resize(1);
        for (int i = 1; i < 77; ++i)
            reply += char(i);
        break;
    case 9:
        reply.resize(5);
        insertInteger(reply.data(), 1, littleWord(fields, 0) + littleWord(fields, 3), 4, false);
        break;
    }
    send(how, reply);
    return how != Answer::closed;
}

void LoaderProgram::send(Answer how, const QByteArray &reply)
{
    QByteArray bytes = reply;
    switch (how) {
    case Answer::silent: return;
    case Answer::closed: m_descriptor.close(); return;
    case Answer::half: bytes.resize(1); break;
    case Answer::wrongTag: bytes[0] = '\x55'; break;
    case Answer::delayed:
        for (int i = 0; i < 10; ++i) {
            ::poll(nullptr, 0, 2);
            signalHost();
        }
        break;
    default: break;
    }
    for (qsizetype sent = 0, step = how == Answer::split ? 1 : bytes.size(); sent < bytes.size();) {
        if (how == Answer::split)
            signalHost();
        const ssize_t count = ::write(m_descriptor.number(), bytes.constData() + sent, size_t(step));
        if (count <= 0)
            return;
        sent += count;
        step = std::min(step, bytes.size() - sent);
    }
}

PseudoTerminal::PseudoTerminal() : master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    EXPECT_TRUE(::grantpt(master.number()) == 0 && ::unlockpt(master.number()) == 0);
    device = ::ptsname(master.number());
}

void PseudoTerminal::send(const QByteArray &bytes) const
{
    const FileDescriptor other(::open(device.constData(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_EQ(::write(master.number(), bytes.constData(), size_t(bytes.size())), bytes.size());
    int arrived = 0;
    for (int tries = 0; tries < 2000 && arrived < bytes.size(); ++tries) {
        ::ioctl(other.number(), FIONREAD, &arrived);
        if (arrived < bytes.size())
            ::poll(nullptr, 0, 10);
    }
    EXPECT_EQ(arrived, bytes.size());
}

InterruptingSignals::InterruptingSignals()
{
    signalCount = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { signalCount = signalCount + 1; };
    ::sigaction(SIGUSR1, &action, nullptr); // without SA_RESTART
}

InterruptingSignals::~InterruptingSignals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGUSR1, &action, nullptr);
}

int InterruptingSignals::count()
{
    return signalCount;
}
