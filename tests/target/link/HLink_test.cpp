#include "LoaderProgram.h"
#include "base/HException.h"
#include "support/QtPrinters.h"
#include "target/link/HSerialLink.h"
#include "target/link/HSynchronousServer.h"

#include <QElapsedTimer>
#include <sys/socket.h>
#include <termios.h>

using namespace Qt::StringLiterals;

namespace {

std::string linkError(const std::function<void()> &action)
{
    try {
        action();
        return "";
    } catch (const HException &error) {
        return error.message().toStdString();
    }
}

HSerialLink openTerminal(const PseudoTerminal &terminal)
{
    return HSerialLink(QString::fromLatin1(terminal.device), {});
}

TEST(HSerialLink, SettingsBecomeAttributes)
{
    using Parity = HSerialLink::Parity;
    using Flow = HSerialLink::FlowControl;
    struct Row
    {
        HSerialLink::Settings settings;
        tcflag_t control, input;
        speed_t speed;
    };
    const Row rows[] = {
        {{}, CS8, 0, B9600},
        {{115200, 7, Parity::even, false, Flow::none}, CS7 | PARENB, 0, B115200},
        {{4000000, 6, Parity::odd, true, Flow::hardware}, CS6 | PARENB | PARODD | CSTOPB | CRTSCTS, 0, B4000000},
        {{50, 5, Parity::none, false, Flow::software}, CS5, IXON | IXOFF | IXANY, B50},
        {{B38400, 9, Parity::none, false, Flow::none}, CS8, 0, B38400}, // the platform's own number
    };
    for (const Row &row : rows) {
        termios attributes;
        std::memset(&attributes, 0xFF, sizeof attributes); // whatever the port had before
        EXPECT_TRUE(HSerialLink::applySettings(attributes, row.settings));
        const tcflag_t control = CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS | HUPCL | CREAD | CLOCAL;
        EXPECT_EQ(attributes.c_cflag & control, row.control | CREAD | CLOCAL);
        EXPECT_EQ(attributes.c_iflag & (IXON | IXOFF | IXANY | INPCK | ICRNL), row.input);
        EXPECT_EQ(attributes.c_lflag & (ICANON | ECHO | ISIG), 0u);
        EXPECT_EQ(attributes.c_cc[VMIN] + attributes.c_cc[VTIME], 0);
        EXPECT_EQ(::cfgetispeed(&attributes), row.speed);
        EXPECT_EQ(::cfgetospeed(&attributes), row.speed);
    }
}

TEST(HSerialLink, FailuresCarryTheSystemsMessage)
{
    EXPECT_EQ(linkError([] { HSerialLink(u"/no/such/port"_s, {}); }), "open error No such file or directory(2)");
    EXPECT_EQ(linkError([] { HSerialLink(u"/dev/null"_s, {}); }), "tcgetattr error Inappropriate ioctl for device(25)");
    const PseudoTerminal terminal;
    HSerialLink link = openTerminal(terminal);
    EXPECT_EQ(linkError([&] { link.setBaudRate(12345678); }), "tcsetattr error Invalid argument(22)");
    link.setBaudRate(57600);
    termios attributes;
    ASSERT_EQ(::tcgetattr(terminal.master.number(), &attributes), 0);
    EXPECT_EQ(::cfgetospeed(&attributes), speed_t(B57600));
}

TEST(HSerialLink, TransfersEndWithTheTimeOrThePort)
{
    PseudoTerminal terminal;
    HSerialLink link = openTerminal(terminal);
    EXPECT_EQ(link.readTimeoutMs(), 1000u);
    link.setTimeout(30);
    quint8 buffer[16];
    terminal.send(QByteArray("\n\0\x11q", 4)); // raw: nothing is eaten or changed
    EXPECT_EQ(link.read(buffer, sizeof buffer), 4u);
    EXPECT_EQ(QByteArray(reinterpret_cast<char *>(buffer), 4), QByteArray("\n\0\x11q", 4));
    const QByteArray much(1 << 20, 'x'); // nobody reads it
    QElapsedTimer timer;
    timer.start();
    const quint32 written = link.write(reinterpret_cast<const quint8 *>(much.constData()), quint32(much.size()));
    EXPECT_LT(written, quint32(much.size()));
    EXPECT_LT(timer.elapsed(), 10000);

    link.setTimeout(60000);
    timer.restart();
    terminal.master.close();
    EXPECT_EQ(link.read(buffer, sizeof buffer), 0u);
    link.write(buffer, sizeof buffer);
    EXPECT_LT(timer.elapsed(), 10000);
}

TEST(HSerialLink, FlushAndDrainDropInput)
{
    const PseudoTerminal terminal;
    HSerialLink link = openTerminal(terminal);
    link.setTimeout(0);
    quint8 byte;
    terminal.send("abc");
    link.flush();
    EXPECT_EQ(link.read(&byte, 1), 0u);
    terminal.send("abc");
    EXPECT_EQ(link.drain(), 3u);
    EXPECT_EQ(link.read(&byte, 1), 0u);
}

// A client link and a server link that are connected.
struct SocketPair
{
    SocketPair()
    {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        here = std::make_unique<HServerSocketLink>(FileDescriptor(ends[0]));
        there = std::make_unique<HServerSocketLink>(FileDescriptor(ends[1]));
    }
    void send(const QByteArray &bytes) const
    {
        there->write(reinterpret_cast<const quint8 *>(bytes.constData()), quint32(bytes.size()));
    }
    std::unique_ptr<HServerSocketLink> here, there;
};

TEST(HSocketLink, ReadsLines)
{
    const SocketPair pair;
    pair.send("one\r\ntwo\n\n\r\nlonger than it may be\n\rx\n");
    char line[8];
    const std::pair<int, const char *> expected[] = {{3, "one"},     {3, "two"},     {0, ""}, {0, ""},   {7, "longer "},
                                                     {7, "than it"}, {7, " may be"}, {0, ""}, {2, "\rx"}};
    for (const auto &[length, text] : expected) {
        EXPECT_EQ(pair.here->readLine(line, sizeof line), length);
        EXPECT_STREQ(line, text);
    }
    pair.send("cut");
    ::shutdown(pair.there->descriptor(), SHUT_WR);
    EXPECT_EQ(pair.here->readLine(line, sizeof line), -1);
    EXPECT_STREQ(line, "cut");
    EXPECT_EQ(pair.here->readLine(line, 1), 0);
}

TEST(HSocketLink, ClosedAndDeadPeersAreTold)
{
    SocketPair pair;
    quint8 bytes[4] = {};
    EXPECT_FALSE(pair.here->bytesAvailable());
    EXPECT_FALSE(pair.here->peerHasClosed());
    EXPECT_TRUE(pair.here->waitWritable(1));
    EXPECT_EQ(pair.here->write(bytes, 0), 0u);
    pair.send("abcdef");
    EXPECT_TRUE(pair.here->bytesAvailable());
    EXPECT_EQ(pair.here->read(bytes, 4), 4u);
    EXPECT_EQ(bytes[3], 'd');

    pair.here->setReceiveTimeout(1);
    pair.here->setSendTimeout(1);
    EXPECT_EQ(linkError([&] { pair.here->read(bytes, 4); }), "HSocketLink read error"); // two of four came
    const QByteArray much(1 << 20, 'x');
    EXPECT_EQ(
        linkError([&] { pair.here->write(reinterpret_cast<const quint8 *>(much.constData()), quint32(much.size())); }),
        "HSocketLink write error");
    EXPECT_FALSE(pair.here->waitWritable(0));

    pair.there.reset();
    EXPECT_TRUE(pair.here->peerHasClosed());
    EXPECT_EQ(linkError([&] { pair.here->write(bytes, 4); }), "HSocketLink write error"); // no SIGPIPE
}

TEST(HSocketLink, ClosesGracefully)
{
    SocketPair pair;
    pair.send(QByteArray(5000, 'x'));
    ::shutdown(pair.there->descriptor(), SHUT_WR);
    pair.here->closeGracefully();
    EXPECT_TRUE(pair.there->peerHasClosed());
    EXPECT_TRUE(pair.here->peerHasClosed()); // all has been dropped
    quint8 byte;
    EXPECT_EQ(linkError([&] { pair.here->read(&byte, 1); }), "HSocketLink read connection closed");
}

// Answers each line with its length; "bad" throws, "stop" stops.
class CountingServer : public HSynchronousServer
{
public:
    using HSynchronousServer::HSynchronousServer;

    void serve(HServerSocketLink &link) override
    {
        char line[64];
        const int length = link.readLine(line, sizeof line);
        served += QByteArray(line) + ' ';
        if (QByteArrayView(line) == "bad")
            throw HException(u"a bad line"_s);
        if (QByteArrayView(line) == "stop")
            stop();
        const QByteArray answer = QByteArray::number(length) + '\n';
        link.write(reinterpret_cast<const quint8 *>(answer.constData()), quint32(answer.size()));
    }
    void reportError(const QString &message) override { errors += message; }
    void idle() override
    {
        ++idleCount;
        stop();
    }

    QByteArray served;
    QStringList errors;
    int idleCount = 0;
};

QByteArray lineFrom(HSocketLink &link)
{
    char line[64];
    return link.readLine(line, sizeof line) < 0 ? "closed" : QByteArray(line);
}

void sendLine(HSocketLink &link, const QByteArray &line)
{
    link.write(reinterpret_cast<const quint8 *>(line.constData()), quint32(line.size()));
}

TEST(HSynchronousServer, ServesItsClientsAndDropsBadOnes)
{
    CountingServer server(0, true, 60); // were a client lost, it would end idle
    HClientSocketLink first(server.port(), u"127.0.0.1"_s, 5), second(server.port(), u"localhost"_s, 5);
    HClientSocketLink gone(server.port(), u"127.0.0.1"_s, HClientSocketLink::onlyOnce);
    for (HClientSocketLink *link : {&first, &second, &gone})
        link->setReceiveTimeout(5);
    sendLine(first, "hello\nworld\n"); // two requests at once
    sendLine(second, "bad\nnever\n");
    sendLine(gone, "last");
    ::shutdown(gone.descriptor(), SHUT_WR);
    std::thread stopper([&] {
        EXPECT_EQ(lineFrom(first), "5");
        EXPECT_EQ(lineFrom(first), "5");
        EXPECT_EQ(lineFrom(second), "closed");
        EXPECT_EQ(lineFrom(gone), "-1");
        sendLine(first, "stop\n");
    });
    server.run();
    stopper.join();
    EXPECT_EQ(server.errors, QStringList{u"a bad line"_s});
    EXPECT_EQ(server.links().size(), 1u);
    EXPECT_FALSE(server.served.contains("never"));
    EXPECT_EQ(lineFrom(first), "4");
}

TEST(HSynchronousServer, IdlesAndRefusesATakenPort)
{
    CountingServer server(0, false, 1);
    EXPECT_EQ(linkError([&] { CountingServer other(server.port()); }), "cannot bind socket");
    server.run();
    EXPECT_EQ(server.idleCount, 1);
}

TEST(HClientSocketLink, TellsWhomItCannotReach)
{
    quint16 port = 0;
    {
        const CountingServer server(0);
        port = server.port();
    }
    const std::string expected = "unable to connect to 127.0.0.1:" + std::to_string(port);
    EXPECT_EQ(linkError([&] { HClientSocketLink(port, u"127.0.0.1"_s, HClientSocketLink::onlyOnce); }), expected);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(linkError([&] { HClientSocketLink(port, u"127.0.0.1"_s, 1); }), expected);
    EXPECT_GE(timer.elapsed(), 1000); // it kept trying
    EXPECT_LT(timer.elapsed(), 20000);
    EXPECT_EQ(linkError([&] { HClientSocketLink(port, u"no..host"_s, HClientSocketLink::onlyOnce); }),
              "unable to connect to no..host:" + std::to_string(port));
}

} // namespace
