#include "target/link/HSynchronousServer.h"

#include "base/HException.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int backlog = 128;
constexpr int pauseAfterFailedAcceptMs = 100;

} // namespace

HSynchronousServer::HSynchronousServer(quint16 port, bool noDelay, quint32 idleSeconds)
    : m_port(port),
      m_noDelay(noDelay),
      m_idleSeconds(idleSeconds),
      m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (!m_listener.isOpen())
        throw HException(u"cannot create accept socket"_s);
    const int on = 1;
    ::setsockopt(m_listener.number(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    socklen_t size = sizeof address;
    if (::bind(m_listener.number(), reinterpret_cast<sockaddr *>(&address), size) != 0)
        throw HException(u"cannot bind socket"_s);
    if (::listen(m_listener.number(), backlog) != 0)
        throw HException(u"cannot listen on socket"_s);
    if (::getsockname(m_listener.number(), reinterpret_cast<sockaddr *>(&address), &size) == 0)
        m_port = ntohs(address.sin_port);
}

std::unique_ptr<HServerSocketLink> HSynchronousServer::createLink(FileDescriptor socket)
{
    return std::make_unique<HServerSocketLink>(std::move(socket));
}

void HSynchronousServer::run()
{
    m_isRunning = true;
    while (m_isRunning) {
        try {
            waitAndServe();
        } catch (const HException &error) {
            reportError(error.message());
        }
    }
}

void HSynchronousServer::waitAndServe()
{
    std::vector<pollfd> waiting{{m_listener.number(), POLLIN, 0}};
    for (const auto &link : m_links)
        waiting.push_back({link->descriptor(), POLLIN, 0});
    const quint32 seconds = idleSeconds();
    const int count = ::poll(waiting.data(), waiting.size(), seconds ? int(std::min(seconds, 1000000u) * 1000) : -1);
    if (count < 0)
        return; // a signal; or the system is short of memory
    if (count == 0) {
        idle();
        return;
    }
    // The ready links as they stand now: a link that is accepted below waits for the next pass.
    for (size_t i = waiting.size() - 1; i > 0 && m_isRunning; --i)
        if (waiting[i].revents && !serveLink(*m_links[i - 1]))
            m_links.erase(m_links.begin() + qptrdiff(i - 1));
    if (waiting.front().revents && m_isRunning)
        acceptLink();
}

void HSynchronousServer::acceptLink()
{
    FileDescriptor socket(::accept4(m_listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket.isOpen()) {
        if (errno != EMFILE && errno != ENFILE && errno != ENOMEM && errno != ENOBUFS)
            return;                                   // the client has gone
        ::poll(nullptr, 0, pauseAfterFailedAcceptMs); // the connection stays ready; don't turn in circles
        throw HException(u"cannot accept a connection"_s);
    }
    std::unique_ptr<HServerSocketLink> link = createLink(std::move(socket));
    if (m_noDelay)
        link->setNoDelay(true);
    m_links.push_back(std::move(link));
}

// False when the link has ended.
bool HSynchronousServer::serveLink(HServerSocketLink &link)
{
    try {
        if (link.bytesAvailable())
            serve(link);
        return !link.peerHasClosed();
    } catch (const HException &error) {
        reportError(error.message());
        return false;
    }
}
