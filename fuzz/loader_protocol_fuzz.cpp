#include "base/HException.h"
#include "target/link/HMessage.h"
#include "target/link/LoaderProtocol.h"

#include <algorithm>
#include <cstdlib>

namespace {

// Gives the fuzzer's bytes as what the loader replies.
class ReplyLink : public HDataLink
{
public:
    explicit ReplyLink(std::span<const quint8> bytes) : m_bytes(bytes) {}

    quint32 read(quint8 *buffer, quint32 count) override
    {
        const size_t moved = std::min<size_t>(count, m_bytes.size());
        std::copy_n(m_bytes.begin(), moved, buffer);
        m_bytes = m_bytes.subspan(moved);
        return quint32(moved);
    }
    quint32 write(const quint8 *, quint32 count) override { return count; }

private:
    std::span<const quint8> m_bytes;
};

void talk(quint8 request, HDataLink &link)
{
    quint8 data[64] = {};
    LoaderInfo info;
    switch (request % 9) {
    case 0: return loaderConnect(link, true, 0);
    case 1: return loaderDisconnect(link);
    case 2: return loaderWriteMemory(link, 0, sizeof data, data);
    case 3: return loaderReadMemory(link, 0, sizeof data, data);
    case 4: return loaderEraseRange(link, 0, 1);
    case 5: return loaderEraseAll(link);
    case 6: return loaderGetInfo(link, info);
    case 7: loaderControl(link, 1, 2, 3, 4); return;
    case 8: loaderVerifyRange(link, 0, sizeof data, data); return;
    }
}

// The bytes are a program: each picks a getter or a move of the cursor on a message over the rest.
void takeApart(std::span<const quint8> program, const QByteArray &bytes)
{
    HMessage message(bytes);
    char text[16];
    quint32 number = 0;
    qint32 signedNumber = 0;
    for (const quint8 step : program) {
        const quint32 argument = step >> 4;
        switch (step & 15) {
        case 0: message.getU32(argument & 1); break;
        case 1: message.getU16At(argument, argument & 1); break;
        case 2: message.getU8(); break;
        case 3: message.getBytes(text, argument); break;
        case 4: message.getString(text, argument); break;
        case 5: message.getULEB(number); break;
        case 6: message.getSLEB(signedNumber); break;
        case 7: message.seek(qint32(argument) - 1); break;
        case 8: message.seek(message.getS32(argument & 1)); break;
        case 9: message.setEndMark(message.getU32(argument & 1)); break;
        case 10: message.getStringAt(message.getU32(false), text, argument); break;
        case 11: message.getBytesAt(message.getU32(false), text, argument); break;
        case 12: message.putString("text"); break;
        case 13: message.putU32(argument, argument & 1); break;
        case 14: message.putBytes(text, argument); break;
        }
        if (message.capacity() != quint32(bytes.size()))
            std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    try {
        ReplyLink link({data + 1, size - 1});
        talk(data[0], link);
    } catch (const HException &) {
    }
    const size_t half = size / 2;
    takeApart({data, half}, QByteArray(reinterpret_cast<const char *>(data + half), qsizetype(size - half)));
    return 0;
}
