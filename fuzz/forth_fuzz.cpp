#include "forth/machine/FSContext.h"

#include <csignal>
#include <sys/time.h>

namespace {

FSContext *running = nullptr;

// Endless loops are interrupted, those that catch the interrupt are by the second one.
void interruptRegularly()
{
    std::signal(SIGVTALRM, [](int) {
        if (running)
            running->requestInterrupt();
    });
    const timeval interval = {0, 20000};
    const itimerval timer = {interval, interval};
    setitimer(ITIMER_VIRTUAL, &timer, nullptr);
}

} // namespace

// The input is a program, a line at a time, so that words after an error run too. The words that would touch
// files are taken away.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool started = (interruptRegularly(), true);
    Q_UNUSED(started);
    ForthLimits limits;
    limits.dictionaryBytes = limits.stringBytes = 4 << 20;
    FSContext context(nullptr, limits);
    running = &context;
    for (const char *word : {"OPEN-FILE", "CREATE-FILE", "DELETE-FILE", "INCLUDED", "INCLUDE"})
        context.makeConstant(word, Cell::ofInteger(0));
    const QStringList lines = QString::fromLatin1(reinterpret_cast<const char *>(data), qsizetype(size)).split(u'\n');
    for (const QString &line : lines) {
        StringSource source(QStringLiteral("fuzz"), line);
        context.interpret(source);
    }
    running = nullptr;
    return 0;
}
