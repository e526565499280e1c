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
    std::string text(maximumTextBytes + 1, '\0');
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    text.resize(size_t(qBound(0, length, maximumTextBytes)));
    if (flags & 1)
        text += '\n';
    currentSink(category, text.c_str());
}
