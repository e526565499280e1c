#include "LoaderProgram.h"
#include "base/Crc32.h"
#include "base/HException.h"
#include "support/QtPrinters.h"
#include "target/link/HSerialLink.h"
#include "target/link/HSocketLink.h"
#include "target/link/LoaderProtocol.h"

#include <QElapsedTimer>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace {

// A link that gives fixed bytes and keeps what is written and flushed.
class ScriptedLink : public HDataLink
{
public:
    explicit ScriptedLink(const QByteArray &hex) : replies(QByteArray::fromHex(hex)) {}

    quint32 read(quint8 *buffer, quint32 count) override
    {
        const QByteArray bytes = replies.first(std::min<qsizetype>(count, replies.size()));
        std::copy(bytes.begin(), bytes.end(), buffer);
        replies.remove(0, bytes.size());
        return quint32(bytes.size());
    }
    quint32 write(const quint8 *buffer, quint32 count) override
    {
        if (count > roomFor)
            return 0;
        written += QByteArray(reinterpret_cast<const char *>(buffer), count).toHex() + ' ';
        return count;
    }
    void flush() override { written += "flush "; }

    QByteArray replies, written;
    quint32 roomFor = 0xFFFFFFFF;
};

std::string errorOf(const std::function<void()> &action)
{
    try {
        action();
        return "";
    } catch (const HException &error) {
        return error.message().toStdString();
    }
}

const char *const timedOut = "hardware error: target JTAG adapter data link read timed out";

struct Operation
{
    const char *name;
    const char *request, *reply; // in hex, one transfer a word; a good reply
    void (*call)(HDataLink &);
};

quint8 fourBytes[4] = {0xA1, 0xA2, 0xA3, 0xA4};

const Operation operations[] = {
    {"connect", "flush 014d39eaf6", "fe01", [](HDataLink &link) { loaderConnect(link, true, 0); }},
    {"disconnect", "024d39eaf6 flush", "fd01", [](HDataLink &link) { loaderDisconnect(link); }},
    {"memory write", "034d39eaf60010002004000000 a1a2a3a4", "fc01",
     [](HDataLink &link) { loaderWriteMemory(link, 0x20001000, 4, fourBytes); }},
    {"memory read", "044d39eaf60010002004000000", "fb01a1a2a3a4",
     [](HDataLink &link) {
         quint8 bytes[4];
         loaderReadMemory(link, 0x20001000, 4, bytes);
         EXPECT_TRUE(std::ranges::equal(bytes, fourBytes));
     }},
    {"memory erase", "054d39eaf60010002000040000", "fa01",
     [](HDataLink &link) { loaderEraseRange(link, 0x20001000, 1024); }},
    {"memory erase all", "064d39eaf6", "f9010000", [](HDataLink &link) { loaderEraseAll(link); }},
    {"control", "094d39eaf601000000020000000300000004000000", "f678563412",
     [](HDataLink &link) { EXPECT_EQ(loaderControl(link, 1, 2, 3, 4), 0x12345678u); }},
};

TEST(LoaderProtocol, BytesOnTheWire)
{
    for (const Operation &operation : operations) {
        ScriptedLink link(operation.reply);
        operation.call(link);
        EXPECT_EQ(link.written.trimmed(), operation.request) << operation.name;
        EXPECT_TRUE(link.replies.isEmpty()) << operation.name;

        ScriptedLink wrongTag(QByteArray(operation.reply).replace(0, 2, "55"));
        EXPECT_EQ(errorOf([&] { operation.call(wrongTag); }),
                  operation.name + std::string(" failed, unexpected tag returned"));
        ScriptedLink cut(QByteArray(operation.reply).chopped(2));
        EXPECT_EQ(errorOf([&] { operation.call(cut); }), timedOut) << operation.name;
        ScriptedLink full("");
        full.roomFor = 0;
        EXPECT_EQ(errorOf([&] { operation.call(full); }), "write timed out") << operation.name;
        if (operation.reply != std::string("f678563412")) {
            ScriptedLink failed(QByteArray(operation.reply).replace(2, 2, "00"));
            EXPECT_EQ(errorOf([&] { operation.call(failed); }), operation.name + std::string(" failed"));
            EXPECT_EQ(failed.replies.size(), operation.name == std::string("memory read") ? 4 : 0);
        }
    }
}

TEST(LoaderProtocol, InfoAndCrc)
{
    QByteArray reply("f7");
    for (int i = 1; i < 77; ++i)
        reply += QByteArray(1, char(i)).toHex();
    ScriptedLink link(reply);
    LoaderInfo info;
    loaderGetInfo(link, info);
    EXPECT_EQ(link.written, "084d39eaf6 ");
    EXPECT_EQ(info.first, 0x0201);
    EXPECT_EQ(info.second, 0x0403);
    EXPECT_EQ(info.words[0], 0x08070605u);
    EXPECT_EQ(info.words[6], 0x201F1E1Du);
    EXPECT_EQ(info.tenth, 0x2221);
    EXPECT_EQ(info.eleventh, 0x2625);
    EXPECT_EQ(info.trailing[0], 41);
    EXPECT_EQ(info.trailing[35], 76);
    ScriptedLink wrongTag(QByteArray(reply).replace(0, 2, "f8"));
    EXPECT_EQ(errorOf([&] { loaderGetInfo(wrongTag, info); }), "get loader info failed, unexpected tag returned");

    ScriptedLink crc("000078563412"
                     "aa55"
                     "181989fc"); // the CRC of "123456789"
    EXPECT_EQ(loaderRangeCrc(crc, 0x100, 9), 0x12345678u);
    EXPECT_EQ(crc.written, "074d39eaf60001000009000000 ");
    EXPECT_TRUE(loaderVerifyRange(crc, 0x100, 9, "123456789"));
    ScriptedLink other("aa55181989fd");
    EXPECT_FALSE(loaderVerifyRange(other, 0x100, 9, "123456789"));
}

TEST(LoaderProtocol, ABusyLoaderIsAskedTenTimes)
{
    ScriptedLink ready("feff"
                       "feff"
                       "fe02");
    loaderConnect(ready, true, 0);
    EXPECT_EQ(ready.written.count("flush"), 3);
    ScriptedLink busy(QByteArray("feff").repeated(11));
    EXPECT_EQ(errorOf([&] { loaderConnect(busy, true, 0); }), "connect failed");
    EXPECT_EQ(busy.written.count("014d39eaf6"), 10);
    ScriptedLink unasked("");
    loaderConnect(unasked, false);
    EXPECT_EQ(unasked.written, "flush 014d39eaf6 ");
}

// A host link and the loader program at its other end.
struct Connection
{
    std::unique_ptr<LoaderProgram> program; // ends after the link
    std::unique_ptr<HDataLink> link;
};

constexpr quint32 patientMs = 20000; // however busy the machine is

Connection overSerialPort(std::vector<Answer> plan)
{
    PseudoTerminal terminal;
    Connection connection;
    connection.link =
        std::make_unique<HSerialLink>(QString::fromLatin1(terminal.device), HSerialLink::Settings{.baudRate = 115200});
    connection.link->setTimeout(patientMs);
    connection.program = std::make_unique<LoaderProgram>(std::move(terminal.master), std::move(plan));
    return connection;
}

Connection overSocket(std::vector<Answer> plan)
{
    const FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *const name = reinterpret_cast<sockaddr *>(&address);
    EXPECT_TRUE(::bind(listener.number(), name, size) == 0 && ::listen(listener.number(), 1) == 0 &&
                ::getsockname(listener.number(), name, &size) == 0);
    Connection connection;
    auto link = std::make_unique<HClientSocketLink>(ntohs(address.sin_port), u"127.0.0.1"_s, 5);
    link->setReceiveTimeout(patientMs / 1000);
    link->setNoDelay(true);
    connection.link = std::move(link);
    FileDescriptor accepted(::accept(listener.number(), nullptr, nullptr));
    connection.program = std::make_unique<LoaderProgram>(std::move(accepted), std::move(plan));
    return connection;
}

// From now on a reply that doesn't come is given up soon.
void losePatience(HDataLink &link)
{
    link.setTimeout(50);
    if (auto *socket = dynamic_cast<HSocketLink *>(&link))
        socket->setReceiveTimeout(1);
}

constexpr Connection (*transports[])(std::vector<Answer>) = {overSerialPort, overSocket};

TEST(LoaderProtocol, AWholeSessionInSpiteOfDelaysAndSignals)
{
    const InterruptingSignals signalsOn;
    QByteArray image(1024, '\0');
    for (int i = 0; i < image.size(); ++i)
        image[i] = char(i * 7);
    for (const auto connect : transports) {
        for (const Answer how : {Answer::prompt, Answer::delayed, Answer::split}) {
            const Connection connection = connect(std::vector<Answer>(20, how));
            HDataLink &link = *connection.link;
            loaderConnect(link, true);
            LoaderInfo info;
            loaderGetInfo(link, info);
            EXPECT_EQ(info.words[6], 0x201F1E1Du);
            loaderEraseAll(link);
            loaderWriteMemory(link, 0x400, quint32(image.size()), image.constData());
            QByteArray back(image.size(), '\0');
            loaderReadMemory(link, 0x400, quint32(back.size()), back.data());
            EXPECT_EQ(back, image);
            EXPECT_TRUE(loaderVerifyRange(link, 0x400, quint32(image.size()), image.constData()));
            loaderEraseRange(link, 0x400, 1);
            EXPECT_FALSE(loaderVerifyRange(link, 0x400, quint32(image.size()), image.constData()));
            EXPECT_EQ(loaderControl(link, 1, 2, 3, 40), 41u);
            loaderDisconnect(link);
        }
    }
    EXPECT_GT(InterruptingSignals::count(), 100);
}

TEST(LoaderProtocol, BadPeersEndInTheirMessage)
{
    struct Row
    {
        Answer how;
        const char *serial, *socket;
    };
    const Row rows[] = {
        {Answer::wrongTag, "memory write failed, unexpected tag returned",
         "memory write failed, unexpected tag returned"},
        {Answer::failed, "memory write failed", "memory write failed"},
        {Answer::half, timedOut, "HSocketLink read error"},
        {Answer::silent, timedOut, "HSocketLink read error"},
        {Answer::closed, timedOut, "HSocketLink read connection closed"},
    };
    for (const auto connect : transports) {
        for (const Row &row : rows) {
            const Connection connection = connect({Answer::prompt, row.how});
            loaderConnect(*connection.link, true);
            if (row.how == Answer::half || row.how == Answer::silent)
                losePatience(*connection.link);
            QElapsedTimer timer;
            timer.start();
            EXPECT_EQ(errorOf([&] { loaderWriteMemory(*connection.link, 0, 4, fourBytes); }),
                      connect == overSerialPort ? row.serial : row.socket);
            EXPECT_LT(timer.elapsed(), patientMs / 2);
            for (int i = 0; i < 1000 && connection.program->requestCount() < 2; ++i)
                ::poll(nullptr, 0, 10); // the program may come to it late
            EXPECT_EQ(connection.program->requestCount(), 2);
        }
    }
}

} // namespace
