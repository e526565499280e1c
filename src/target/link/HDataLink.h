#pragma once

#include <QtGlobal>

// A pipe of bytes. Both operations give the number of bytes that they moved.
class HIOInterface
{
public:
    HIOInterface() = default;
    HIOInterface(const HIOInterface &) = delete;
    HIOInterface &operator=(const HIOInterface &) = delete;
    virtual ~HIOInterface() = default;

    virtual quint32 read(quint8 *buffer, quint32 count) = 0;
    virtual quint32 write(const quint8 *buffer, quint32 count) = 0;
};

// A link to a target, usable from its construction to its end, by one thread at a time.
class HDataLink : public HIOInterface
{
public:
    virtual void flush() {} // drops what is buffered
    virtual void setTimeouts(quint32 readMs, quint32 writeMs)
    {
        m_readTimeoutMs = readMs;
        m_writeTimeoutMs = writeMs;
    }
    virtual void setTimeout(quint32 ms) { setTimeouts(ms, ms); }

    quint32 readTimeoutMs() const { return m_readTimeoutMs; }
    quint32 writeTimeoutMs() const { return m_writeTimeoutMs; }

private:
    quint32 m_readTimeoutMs = 0;
    quint32 m_writeTimeoutMs = 0;
};

// All the bytes or an HException: "hardware error: target JTAG adapter data link read timed out" or
// "write timed out".
void linkReadExact(HIOInterface &link, void *buffer, quint32 count);
void linkWriteExact(HIOInterface &link, const void *buffer, quint32 count);
