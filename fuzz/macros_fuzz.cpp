#include "xml/macros/SystemMacroTable.h"

#include <cstdlib>

// The input up to the first NUL is a macro string, the rest the text that is expanded with it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView input(data, qsizetype(size));
    const qsizetype nul = qMax(input.indexOf('\0'), 0);
    const MacroMap macros = readMacroString(QString::fromUtf8(input.first(nul)));
    const QString text = QString::fromUtf8(input.sliced(nul));
    const QString result = expandMacros(SystemMacroTable::instance(), macros, text, true, true);
    if (result.size() > qMax(text.size(), maximumExpandedLength))
        std::abort();
    return 0;
}
