#include "base/Log.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

constexpr int maximumTextBytes = 65536;

void writeToStandardError(const char *category, const char *text)
{
    std::fprintf(stderr, "%s: %s", category, text);
}

quint32 currentMask = 0xFFFFFFFF;
LogSink currentSink = writeToStandardError;

} // namespace

quint32 logMask()
{
    return currentMask;
}

void setLogMask(quint32 mask)
{
    currentMask = mask;
}

void setLogSink(LogSink sink)
{
    currentSink = sink ? sink : writeToStandardError;
}

void logMessage(LogBit bit, const char *category, quint32 flags, const char *format, ...)
{
    if (!(currentMask & bit))
        return;
    char usual[1024];
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = qBound(0, std::vsnprintf(usual, sizeof usual, format, arguments), maximumTextBytes);
    std::string text(usual, std::min(size_t(length), sizeof usual - 1));
    if (size_t(length) >= sizeof usual) {
        text.resize(size_t(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    va_end(arguments);
    if (flags & 1)
        text += '\n';
    currentSink(category, text.c_str());
}
