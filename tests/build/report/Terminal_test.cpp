#include "build/report/Terminal.h"

#include "support/QtPrinters.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// The two ends of a pseudo terminal of 20 columns.
class PseudoTerminal
{
public:
    PseudoTerminal() : m_master(::posix_openpt(O_RDWR | O_NOCTTY))
    {
        if (m_master < 0 || ::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
            return;
        m_stream = std::fopen(::ptsname(m_master), "w");
        const winsize size{24, 20, 0, 0};
        ::ioctl(m_master, TIOCSWINSZ, &size);
    }
    ~PseudoTerminal()
    {
        if (m_stream)
            std::fclose(m_stream);
        ::close(m_master);
    }
    FILE *stream() const { return m_stream; }
    // All that was written, up to an end mark of our own: the system hands it over in pieces, some time later.
    QByteArray written() const
    {
        constexpr char endMark = '\x01';
        constexpr int patienceMs = 20000;
        std::fputc(endMark, m_stream);
        std::fflush(m_stream);
        QByteArray seen;
        char bytes[4096];
        for (pollfd other = {m_master, POLLIN, 0}; !seen.endsWith(endMark) && ::poll(&other, 1, patienceMs) > 0;) {
            const ssize_t count = ::read(m_master, bytes, sizeof bytes);
            if (count <= 0)
                break;
            seen.append(bytes, count);
        }
        EXPECT_TRUE(seen.endsWith(endMark));
        seen.chop(1);
        return seen.replace("\r\n", "\n");
    }

private:
    int m_master;
    FILE *m_stream = nullptr;
};

} // namespace

TEST(Terminal, KeepsOneLineAtTheBottomAndCutsIt)
{
    qputenv("TERM", "xterm");
    const PseudoTerminal pseudo;
    if (!pseudo.stream())
        GTEST_SKIP() << "no pseudo terminals here";
    {
        constexpr int hourMs = 3600 * 1000;
        Terminal terminal(pseudo.stream(), ColorMode::Never, hourMs);
        EXPECT_TRUE(terminal.isTerminal());
        terminal.setStatus(QStringLiteral("[1/2] Compiling a_long_name.c"));
        terminal.setStatus(QStringLiteral("[2/2] at once")); // too soon to be shown
        terminal.print(QStringLiteral("stays"));
        terminal.refresh();
    }
    EXPECT_EQ(pseudo.written(), "\r[1/2] Compiling a_l\x1b[K"
                                "\r\x1b[K"
                                "stays\n"
                                "\r[2/2] at once\x1b[K"
                                "\r\x1b[K");
}

// A character may be two columns wide, or none; a line that wraps would be left behind.
TEST(Terminal, CutsByColumns)
{
    qputenv("TERM", "xterm");
    const PseudoTerminal pseudo;
    if (!pseudo.stream())
        GTEST_SKIP() << "no pseudo terminals here";
    Terminal(pseudo.stream(), ColorMode::Never)
        .setStatus(QStringLiteral("[1/2] e\u0301\u6587\u6587\U0001F600ab\u6587\u6587\u6587z"));
    EXPECT_EQ(pseudo.written(), QByteArray("\r[1/2] e\u0301\u6587\u6587\U0001F600ab\u6587\u6587\x1b[K\r\x1b[K"));
}

TEST(Terminal, ColoursOnATerminalUnlessTheUserSaysOtherwise)
{
    qputenv("TERM", "xterm");
    const PseudoTerminal pseudo;
    if (!pseudo.stream())
        GTEST_SKIP() << "no pseudo terminals here";
    const auto isColoured = [](FILE *stream, ColorMode mode) {
        return Terminal(stream, mode).colored(Terminal::Red, QStringLiteral("x")) != QStringLiteral("x");
    };
    FILE *file = std::tmpfile();
    qunsetenv("NO_COLOR");
    EXPECT_TRUE(isColoured(pseudo.stream(), ColorMode::Auto));
    EXPECT_FALSE(isColoured(pseudo.stream(), ColorMode::Never));
    EXPECT_FALSE(isColoured(file, ColorMode::Auto));
    EXPECT_TRUE(isColoured(file, ColorMode::Always));
    qputenv("NO_COLOR", "1");
    EXPECT_FALSE(isColoured(pseudo.stream(), ColorMode::Auto));
    qunsetenv("NO_COLOR");
    std::fclose(file);
}
