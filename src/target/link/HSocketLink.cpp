#include "target/link/HSocketLink.h"

#include "base/HException.h"
#include "target/link/Poll_p.h"

#include <array>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 attemptMs = 1000, pauseBetweenAttemptsMs = 50;

// False, with the socket closed, when the peer doesn't accept it in time.
bool connectSocket(FileDescriptor &socket, const addrinfo &address)
{
    const int flags = ::fcntl(socket.number(), F_GETFL);
    ::fcntl(socket.number(), F_SETFL, flags | O_NONBLOCK);
    const bool isStarted = ::connect(socket.number(), address.ai_addr, address.ai_addrlen) == 0 || errno == EINPROGRESS;
    ::fcntl(socket.number(), F_SETFL, flags);
    int error = 0;
    socklen_t size = sizeof error;
    if (!isStarted || !waitForDescriptor(socket.number(), POLLOUT, QDeadlineTimer(attemptMs)) ||
        ::getsockopt(socket.number(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0)
        socket.close();
    return socket.isOpen();
}

// One try at all the addresses of the host: a connected socket, or a closed one. Throws "cannot create socket"
// when the system has none for any of them; for some it hasn't where it knows no IPv6.
FileDescriptor connectOnce(const QByteArray &host, const QByteArray &port)
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (::getaddrinfo(host.constData(), port.constData(), &hints, &found) != 0)
        return FileDescriptor();
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, &::freeaddrinfo);
    bool hadSocket = false;
    for (const addrinfo *address = found; address; address = address->ai_next) {
        FileDescriptor socket(::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
        hadSocket = hadSocket || socket.isOpen();
        if (socket.isOpen() && connectSocket(socket, *address))
            return socket;
    }
    if (!hadSocket)
        throw HException(u"cannot create socket"_s);
    return FileDescriptor();
}

FileDescriptor connectWithin(quint16 port, const QString &host, quint32 timeoutSeconds)
{
    const QDeadlineTimer deadline(timeoutSeconds == HClientSocketLink::onlyOnce ? 0 : qint64(timeoutSeconds) * 1000);
    for (;;) {
        QString error = u"unable to connect to %1:%2"_s.arg(host, QString::number(port));
        try {
            if (FileDescriptor socket = connectOnce(host.toUtf8(), QByteArray::number(port)); socket.isOpen())
                return socket;
        } catch (const HException &failure) {
            error = failure.message();
        }
        if (timeoutSeconds == HClientSocketLink::onlyOnce || deadline.hasExpired())
            throw HException(error);
        ::poll(nullptr, 0, pauseBetweenAttemptsMs); // a refused connection fails at once
    }
}

// Repeats a call that a signal cut short, but not beyond the time-out that would have ended it.
template <typename Call>
ssize_t repeatInterrupted(quint32 timeoutSeconds, Call call)
{
    const QDeadlineTimer deadline =
        timeoutSeconds ? QDeadlineTimer(qint64(timeoutSeconds) * 1000) : QDeadlineTimer(QDeadlineTimer::Forever);
    for (;;) {
        const ssize_t result = call();
        if (result >= 0 || errno != EINTR || deadline.hasExpired())
            return result;
    }
}

} // namespace

quint32 HSocketLink::read(quint8 *buffer, quint32 count)
{
    for (quint32 moved = 0; moved < count;) {
        const qint64 result = repeatInterrupted(m_receiveTimeoutSeconds,
                                                [&] { return ::recv(descriptor(), buffer + moved, count - moved, 0); });
        if (result == 0)
            throw HException(u"HSocketLink read connection closed"_s);
        if (result < 0)
            throw HException(u"HSocketLink read error"_s);
        moved += quint32(result);
    }
    return count;
}

quint32 HSocketLink::write(const quint8 *buffer, quint32 count)
{
    for (quint32 moved = 0; moved < count;) {
        const ssize_t result = repeatInterrupted(
            m_sendTimeoutSeconds, [&] { return ::send(descriptor(), buffer + moved, count - moved, MSG_NOSIGNAL); });
        if (result == 0)
            throw HException(u"HSocketLink write connection closed"_s);
        if (result < 0)
            throw HException(u"HSocketLink write error"_s);
        moved += quint32(result);
    }
    return count;
}

bool HSocketLink::bytesAvailable() const
{
    int count = 0;
    return ::ioctl(descriptor(), FIONREAD, &count) == 0 && count > 0;
}

bool HSocketLink::waitWritable(quint32 seconds) const
{
    return waitForDescriptor(descriptor(), POLLOUT, QDeadlineTimer(qint64(seconds) * 1000)) & POLLOUT;
}

bool HSocketLink::peerHasClosed() const
{
    quint8 byte;
    const ssize_t count = ::recv(descriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

int HSocketLink::readLine(char *buffer, quint32 size)
{
    quint32 length = 0;
    try {
        for (; length + 1 < size; ++length) {
            read(reinterpret_cast<quint8 *>(buffer) + length, 1);
            if (buffer[length] != '\n')
                continue;
            if (length > 0 && buffer[length - 1] == '\r')
                --length;
            break;
        }
    } catch (const HException &) {
        buffer[length] = 0;
        return -1;
    }
    buffer[length] = 0;
    return int(length);
}

void HSocketLink::setTimeoutOption(int option, quint32 seconds)
{
    timeval time{};
    time.tv_sec = seconds;
    ::setsockopt(descriptor(), SOL_SOCKET, option, &time, sizeof time);
}

void HSocketLink::setReceiveTimeout(quint32 seconds)
{
    m_receiveTimeoutSeconds = seconds;
    setTimeoutOption(SO_RCVTIMEO, seconds);
}

void HSocketLink::setSendTimeout(quint32 seconds)
{
    m_sendTimeoutSeconds = seconds;
    setTimeoutOption(SO_SNDTIMEO, seconds);
}

void HSocketLink::setNoDelay(bool on)
{
    const int value = on;
    ::setsockopt(descriptor(), IPPROTO_TCP, TCP_NODELAY, &value, sizeof value);
}

void HSocketLink::closeGracefully()
{
    ::shutdown(descriptor(), SHUT_WR);
    std::array<quint8, 1024> dropped;
    while (repeatInterrupted(m_receiveTimeoutSeconds,
                             [&] { return ::recv(descriptor(), dropped.data(), dropped.size(), 0); }) > 0)
        ;
}

HClientSocketLink::HClientSocketLink(quint16 port, const QString &host, quint32 timeoutSeconds)
    : HSocketLink(connectWithin(port, host, timeoutSeconds))
{}
