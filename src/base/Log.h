#pragma once

#include <QtGlobal>

// Messages about description files and schemas that a user may want to silence. A process-wide mask of 32
// bits gates them; the caller names the bit.
enum LogBit : quint32 {
    logErrors = 1 << 0,
    logWarnings = 1 << 1,
    logMemoryMap = 1 << 2,
};

// All bits are set until the program changes the mask.
quint32 logMask();
void setLogMask(quint32 mask);

// Writes "category: text" to the log's sink when `bit` is set in the mask. The text is made by printf's
// rules and cut at 65,536 bytes; bit 0 of `flags` adds a line feed.
void logMessage(LogBit bit, const char *category, quint32 flags, const char *format, ...)
    Q_ATTRIBUTE_FORMAT_PRINTF(4, 5);

// Where messages go: standard error unless something else is set (a window, a test); null restores it.
using LogSink = void (*)(const char *category, const char *text);
void setLogSink(LogSink sink);
