#pragma once

#include "target/link/HSocketLink.h"

#include <memory>
#include <vector>

// A TCP server on one thread: waits on its clients in turn and lets a subclass serve the one that has data.
class HSynchronousServer
{
public:
    // Listens on all addresses. Port 0 takes a free one. Throws HException: "cannot create accept socket",
    // "cannot bind socket" or "cannot listen on socket". `idleSeconds` 0 waits for ever.
    explicit HSynchronousServer(quint16 port, bool noDelay = false, quint32 idleSeconds = 0);
    HSynchronousServer(const HSynchronousServer &) = delete;
    HSynchronousServer &operator=(const HSynchronousServer &) = delete;
    virtual ~HSynchronousServer() = default;

    virtual void reportError(const QString &) {}
    virtual quint32 idleSeconds() const { return m_idleSeconds; }
    // One request on a link that has data. An HException ends the link and goes to reportError().
    virtual void serve(HServerSocketLink &link) = 0;
    virtual void idle() {} // nothing came for idleSeconds()
    virtual std::unique_ptr<HServerSocketLink> createLink(FileDescriptor socket);

    // Serves until stop(), which an operation above calls.
    void run();
    void stop() { m_isRunning = false; }

    quint16 port() const { return m_port; }
    const std::vector<std::unique_ptr<HServerSocketLink>> &links() const { return m_links; }

private:
    void waitAndServe();
    void acceptLink();
    bool serveLink(HServerSocketLink &link);

    quint16 m_port;
    bool m_noDelay;
    quint32 m_idleSeconds;
    FileDescriptor m_listener;
    std::vector<std::unique_ptr<HServerSocketLink>> m_links;
    bool m_isRunning = false;
};
