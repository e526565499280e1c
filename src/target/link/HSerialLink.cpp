#include "target/link/HSerialLink.h"

#include "base/HException.h"
#include "target/link/Poll_p.h"

#include <QFile>
#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 defaultTimeoutMs = 1000;
constexpr qint64 drainSilenceMs = 250;

struct BaudRate
{
    quint32 rate;
    speed_t speed;
};
constexpr BaudRate baudRates[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
};

bool setSpeeds(termios &attributes, quint32 baudRate)
{
    const auto row = std::ranges::find(baudRates, baudRate, &BaudRate::rate);
    const speed_t speed = row == std::end(baudRates) ? speed_t(baudRate) : row->speed;
    return ::cfsetispeed(&attributes, speed) == 0 && ::cfsetospeed(&attributes, speed) == 0;
}

[[noreturn]] void throwSystemError(const char *call)
{
    const int number = errno;
    throw HException(QString::asprintf("%s error %s(%d)", call, std::strerror(number), number));
}

termios attributesOf(int port)
{
    termios attributes;
    if (::tcgetattr(port, &attributes) != 0)
        throwSystemError("tcgetattr");
    return attributes;
}

} // namespace

HSerialLink::HSerialLink(const QString &device, const Settings &settings)
    : m_port(::open(QFile::encodeName(device).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    if (!m_port.isOpen())
        throwSystemError("open");
    setTimeout(defaultTimeoutMs);
    termios attributes = attributesOf(m_port.number());
    if (!applySettings(attributes, settings))
        throwSystemError("tcsetattr");
    setAttributes(attributes);
}

bool HSerialLink::applySettings(termios &attributes, const Settings &settings)
{
    ::cfmakeraw(&attributes);
    attributes.c_iflag &= ~tcflag_t(INPCK | IXON | IXOFF | IXANY);
    attributes.c_cc[VMIN] = attributes.c_cc[VTIME] = 0;
    attributes.c_cflag &= ~tcflag_t(CRTSCTS | HUPCL | CSTOPB | CSIZE | PARENB | PARODD);
    attributes.c_cflag |= CREAD | CLOCAL;
    switch (settings.byteSize) {
    case 5: attributes.c_cflag |= CS5; break;
    case 6: attributes.c_cflag |= CS6; break;
    case 7: attributes.c_cflag |= CS7; break;
    default: attributes.c_cflag |= CS8; break;
    }
    if (settings.parity != Parity::none)
        attributes.c_cflag |= settings.parity == Parity::odd ? PARENB | PARODD : PARENB;
    if (settings.twoStopBits)
        attributes.c_cflag |= CSTOPB;
    if (settings.flowControl == FlowControl::software)
        attributes.c_iflag |= IXON | IXOFF | IXANY;
    else if (settings.flowControl == FlowControl::hardware)
        attributes.c_cflag |= CRTSCTS;
    return setSpeeds(attributes, settings.baudRate);
}

void HSerialLink::setAttributes(const termios &attributes)
{
    if (::tcflush(m_port.number(), TCIFLUSH) != 0)
        throwSystemError("tcflush");
    if (::tcsetattr(m_port.number(), TCSANOW, &attributes) != 0)
        throwSystemError("tcsetattr");
}

void HSerialLink::setBaudRate(quint32 baudRate)
{
    termios attributes = attributesOf(m_port.number());
    if (!setSpeeds(attributes, baudRate))
        throwSystemError("tcsetattr");
    setAttributes(attributes);
}

// Calls transfer(offset) until `count` bytes have moved, the port has failed or hung up, or the time is up.
template <typename Transfer>
quint32 HSerialLink::move(quint32 count, short events, Transfer transfer)
{
    const QDeadlineTimer deadline(readTimeoutMs());
    bool isGone = false; // hung up: what it still holds can be read, and then nothing comes any more
    for (quint32 moved = 0;;) {
        const ssize_t result = moved < count ? transfer(moved) : 0;
        if (result < 0 && errno != EAGAIN && errno != EINTR)
            return moved;
        moved += quint32(std::max<ssize_t>(result, 0));
        if (moved == count || deadline.hasExpired())
            return moved;
        if (result <= 0) {
            if (isGone)
                return moved;
            isGone = waitForDescriptor(m_port.number(), events, deadline) & (POLLERR | POLLHUP | POLLNVAL);
        }
    }
}

quint32 HSerialLink::read(quint8 *buffer, quint32 count)
{
    return move(count, POLLIN, [&](quint32 moved) { return ::read(m_port.number(), buffer + moved, count - moved); });
}

quint32 HSerialLink::write(const quint8 *buffer, quint32 count)
{
    return move(count, POLLOUT, [&](quint32 moved) { return ::write(m_port.number(), buffer + moved, count - moved); });
}

void HSerialLink::flush()
{
    ::tcflush(m_port.number(), TCIOFLUSH);
}

quint32 HSerialLink::drain()
{
    quint32 dropped = 0;
    for (;;) {
        const short ready = waitForDescriptor(m_port.number(), POLLIN, QDeadlineTimer(drainSilenceMs));
        quint8 block[256];
        const ssize_t count = ready & POLLIN ? ::read(m_port.number(), block, sizeof block) : 0;
        if (count <= 0 && !(count < 0 && errno == EINTR))
            return dropped;
        dropped += quint32(std::max<ssize_t>(count, 0));
    }
}
