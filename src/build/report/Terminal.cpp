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

// The start of a text that fits into so many columns.
QString cutToWidth(const QString &text, int columns)
{
    qsizetype end = 0;
    for (const char32_t c : text.toUcs4()) {
        columns -= displayWidth(c);
        if (columns < 0)
            break;
        end += QChar::requiresSurrogates(c) ? 2 : 1;
    }
    return text.first(end);
}

} // namespace

// The wide and full-width ranges of Unicode's EastAsianWidth.txt, coarsely.
int displayWidth(char32_t c)
{
    static constexpr struct
    {
        char32_t first, last;
    } wide[] = {
        {0x1100, 0x115F}, {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97C},
        {0xAC00, 0xD7A3}, {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF01, 0xFF60},
        {0xFFE0, 0xFFE6}, {0x1F300, 0x1F64F}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD},
    };
    const auto category = QChar::category(c);
    if (category == QChar::Mark_NonSpacing || category == QChar::Mark_Enclosing || category == QChar::Other_Format)
        return 0;
    return 1 + std::any_of(std::begin(wide), std::end(wide),
                           [c](const auto &range) { return c >= range.first && c <= range.last; });
}

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
    const QString cut = cutToWidth(m_status, width(m_stream) - 1);
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
