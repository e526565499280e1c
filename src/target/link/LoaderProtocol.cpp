#include "target/link/LoaderProtocol.h"

#include "base/Crc32.h"
#include "base/HException.h"
#include "target/link/HMessage.h"

#include <QThread>
#include <initializer_list>

using namespace Qt::StringLiterals;

namespace {

enum Request : quint8 {
    requestConnect = 1,
    requestDisconnect = 2,
    requestWriteMemory = 3,
    requestReadMemory = 4,
    requestEraseRange = 5,
    requestEraseAll = 6,
    requestRangeCrc = 7,
    requestInfo = 8,
    requestControl = 9,
};

constexpr quint32 magic = 0xF6EA394D; // as the bytes stand, low one first
constexpr quint8 statusFailed = 0, statusBusy = 0xFF;
constexpr int connectAttempts = 10;

void sendRequest(HDataLink &link, Request request, std::initializer_list<quint32> fields = {})
{
    HMessage message(quint32(5 + 4 * fields.size()));
    message.putU8(request);
    message.putU32(magic, false);
    for (const quint32 field : fields)
        message.putU32(field, false);
    linkWriteExact(link, message.bytes().data(), message.capacity());
}

// A reply of `size` bytes, its tag included, which the cursor has passed.
HMessage receive(HDataLink &link, quint32 size)
{
    QByteArray bytes(qsizetype(size), '\0');
    linkReadExact(link, bytes.data(), size);
    HMessage reply(std::move(bytes));
    reply.seek(1);
    return reply;
}

void checkTag(const HMessage &reply, Request request, const char *what)
{
    if (reply.getU8At(0) != quint8(~request))
        throw HException(QString::fromLatin1(what) + u" failed, unexpected tag returned"_s);
}

// The second byte of a reply is its status.
void checkStatus(const HMessage &reply, Request request, const char *what)
{
    checkTag(reply, request, what);
    if (reply.getU8At(1) == statusFailed)
        throw HException(QString::fromLatin1(what) + u" failed"_s);
}

} // namespace

void loaderConnect(HDataLink &link, bool waitForReply, quint32 busyDelayMs)
{
    for (int attempt = 1;; ++attempt) {
        link.flush();
        sendRequest(link, requestConnect);
        if (!waitForReply)
            return;
        const HMessage reply = receive(link, 2);
        checkStatus(reply, requestConnect, "connect");
        if (reply.getU8At(1) != statusBusy)
            return;
        if (attempt == connectAttempts)
            throw HException(u"connect failed"_s);
        QThread::msleep(busyDelayMs);
    }
}

void loaderDisconnect(HDataLink &link)
{
    sendRequest(link, requestDisconnect);
    const HMessage reply = receive(link, 2);
    link.flush();
    checkStatus(reply, requestDisconnect, "disconnect");
}

void loaderWriteMemory(HDataLink &link, quint32 address, quint32 length, const void *data)
{
    sendRequest(link, requestWriteMemory, {address, length});
    linkWriteExact(link, data, length);
    checkStatus(receive(link, 2), requestWriteMemory, "memory write");
}

void loaderReadMemory(HDataLink &link, quint32 address, quint32 length, void *dest)
{
    sendRequest(link, requestReadMemory, {address, length});
    checkStatus(receive(link, 2), requestReadMemory, "memory read");
    linkReadExact(link, dest, length);
}

void loaderEraseRange(HDataLink &link, quint32 address, quint32 length)
{
    sendRequest(link, requestEraseRange, {address, length});
    checkStatus(receive(link, 2), requestEraseRange, "memory erase");
}

void loaderEraseAll(HDataLink &link)
{
    sendRequest(link, requestEraseAll);
    checkStatus(receive(link, 4), requestEraseAll, "memory erase all");
}

void loaderGetInfo(HDataLink &link, LoaderInfo &info)
{
    sendRequest(link, requestInfo);
    HMessage reply = receive(link, 77);
    checkTag(reply, requestInfo, "get loader info");
    info.first = reply.getU16(false);
    info.second = reply.getU16(false);
    for (quint32 &word : info.words)
        word = reply.getU32(false);
    info.tenth = reply.getU16(false);
    info.eleventh = reply.getU16At(37, false);
    reply.getBytesAt(41, info.trailing, sizeof info.trailing);
}

quint32 loaderControl(HDataLink &link, quint32 a, quint32 b, quint32 c, quint32 d)
{
    sendRequest(link, requestControl, {a, b, c, d});
    HMessage reply = receive(link, 5);
    checkTag(reply, requestControl, "control");
    return reply.getU32(false);
}

quint32 loaderRangeCrc(HDataLink &link, quint32 address, quint32 length)
{
    sendRequest(link, requestRangeCrc, {address, length});
    return receive(link, 6).getU32At(2, false);
}

bool loaderVerifyRange(HDataLink &link, quint32 address, quint32 length, const void *data)
{
    sendRequest(link, requestRangeCrc, {address, length});
    const quint32 expected = crc32Bzip2({static_cast<const quint8 *>(data), length}); // while the target works
    return receive(link, 6).getU32At(2, false) == expected;
}
