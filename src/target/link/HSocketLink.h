#pragma once

#include "base/FileDescriptor.h"
#include "target/link/HDataLink.h"

#include <QString>

// A connected stream socket. The link's time-outs in milliseconds don't count here; those of the socket do, in
// whole seconds, none at first. A failed send never raises SIGPIPE.
class HSocketLink : public HDataLink
{
public:
    // All of the bytes. Throw HException: "HSocketLink read connection closed" and "HSocketLink read error" (the
    // time-out among them), or the same with "write".
    quint32 read(quint8 *buffer, quint32 count) override;
    quint32 write(const quint8 *buffer, quint32 count) override;

    bool bytesAvailable() const; // unread ones
    bool waitWritable(quint32 seconds) const;
    bool peerHasClosed() const; // and nothing is left to read

    // A line of at most `size` - 1 bytes without its line end (LF or CR LF), NUL-terminated. Gives its length, or -1
    // when reading failed. `size` is at least 1.
    int readLine(char *buffer, quint32 size);

    void setReceiveTimeout(quint32 seconds); // 0: none
    void setSendTimeout(quint32 seconds);
    void setNoDelay(bool on); // TCP_NODELAY
    // Ends our side and drops what comes until the peer ends its own, or the receive time-out is over.
    void closeGracefully();

    int descriptor() const { return m_socket.number(); }

protected:
    explicit HSocketLink(FileDescriptor socket) : m_socket(std::move(socket)) {}

private:
    void setTimeoutOption(int option, quint32 seconds);

    FileDescriptor m_socket;
    quint32 m_receiveTimeoutSeconds = 0;
    quint32 m_sendTimeoutSeconds = 0;
};

// A link to a server.
class HClientSocketLink : public HSocketLink
{
public:
    static constexpr quint32 onlyOnce = 0xFFFFFFFF;

    // Tries until it succeeds or more than `timeoutSeconds` have passed; onlyOnce: once. Each try waits at most a
    // second for the peer. Throws HException: "cannot create socket" or "unable to connect to HOST:PORT".
    HClientSocketLink(quint16 port, const QString &host, quint32 timeoutSeconds);
};

// A link to a client, over a descriptor from accept().
class HServerSocketLink : public HSocketLink
{
public:
    explicit HServerSocketLink(FileDescriptor socket) : HSocketLink(std::move(socket)) {}
};
