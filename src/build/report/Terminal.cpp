#include "build/report/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

int width(FILE *stream)
{
    winsize size{};
    return ::ioctl(::fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

} // namespace

Terminal::Terminal(FILE *stream, ColorMode mode, int intervalMs)
    : m_stream(stream),
      m_intervalMs(intervalMs),
      m_isTerminal(::isatty(::fileno(stream)) && qgetenv("TERM") != "dumb"),
      m_hasColors(mode == ColorMode::Always ||
                  (mode == ColorMode::Auto && m_isTerminal && qEnvironmentVariableIsEmpty("NO_COLOR")))
{
    m_sinceShown.start();
}

QString Terminal::colored(Color color, const QString &text) const
{
    static constexpr QLatin1StringView codes[] = {""_L1, "1"_L1, "1;31"_L1, "1;35"_L1, "1;36"_L1, "1;32"_L1};
    if (!m_hasColors || color == Plain)
        return text;
    return u"\x1b["_s + codes[color] + u'm' + text + u"\x1b[0m"_s;
}

void Terminal::print(const QString &line)
{
    clearStatus();
    std::fputs((line + u'\n').toLocal8Bit().constData(), m_stream);
    m_isPending = !m_status.isEmpty();
}

void Terminal::setStatus(const QString &line)
{
    if (!m_isTerminal || line == m_status)
        return;
    m_status = line;
    m_isPending = true;
    refresh();
}

void Terminal::refresh()
{
    if (!m_isTerminal || !m_isPending || (m_isShown && !m_sinceShown.hasExpired(m_intervalMs)))
        return;
    m_isPending = false;
    m_isShown = true;
    m_sinceShown.restart();
    const QString cut = m_status.left(width(m_stream) - 1);
    std::fputs((u'\r' + cut + u"\x1b[K"_s).toLocal8Bit().constData(), m_stream);
    std::fflush(m_stream);
}

void Terminal::clearStatus()
{
    if (m_isShown) {
        std::fputs("\r\x1b[K", m_stream);
        std::fflush(m_stream);
    }
    m_isShown = false;
}
