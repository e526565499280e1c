#include "script/engine/ESContext.h"

#include <QRegularExpression>

// Any text as a program, compiled, and run with a limit on instructions and memory. What can't loop or call
// itself also runs without the limit, which is another way through the decoder.
namespace {

constexpr quint64 memoryBytes = 64 << 20;

class LimitedContext : public ESContext
{
public:
    LimitedContext() : ESContext(memoryBytes) {}
    bool step() override { return ++m_steps < 20000; }

private:
    int m_steps = 0;
};

void evaluate(ESContext &&context, const QString &source)
{
    try {
        context.evaluate(QString(), source);
    } catch (const ESFatalError &) {
    } catch (const HException &) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QRegularExpression repeats(
        QStringLiteral("for|while|unction|eval|load|sort|length|Array|valueOf|toString"));
    const QString source = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    evaluate(LimitedContext(), source);
    if (!source.contains(repeats))
        evaluate(ESContext(memoryBytes), source);
    return 0;
}
