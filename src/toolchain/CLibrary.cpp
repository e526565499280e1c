#include "toolchain/CLibrary.h"

#include "base/HException.h"

using namespace Qt::StringLiterals;

namespace {

struct LevelRow
{
    const char *code;
    bool isFull, hasFloat;
};
constexpr LevelRow levels[] = {
    {"", false, false}, {"i", false, false}, {"l", false, false}, {"ll", true, false},
    {"d", false, true}, {"f", false, true},  {"dll", true, true}, {"fll", true, true},
};

// The code's level; letters behind it are taken off and found in `flags`.
LevelRow levelOf(QString code, const char *flags, bool &needsFull, const char *option)
{
    const QString whole = code;
    while (!code.isEmpty() && QLatin1StringView(flags).contains(code.back())) {
        needsFull = needsFull || code.back() == u'w';
        code.chop(1);
    }
    for (const LevelRow &row : levels)
        if (code == QLatin1StringView(row.code))
            return row;
    throw HException(u"unknown code '%1' behind %2"_s.arg(whole, QLatin1StringView(option)));
}

} // namespace

CLibrary CLibrary::forCodes(const QString &printfCode, const QString &scanfCode)
{
    CLibrary library;
    const LevelRow print = levelOf(printfCode, "pw", library.isFull, "-printf=");
    const LevelRow scan = levelOf(scanfCode, "c", library.isFull, "-scanf=");
    library.isFull = library.isFull || print.isFull || scan.isFull;
    library.printfFloat = print.hasFloat;
    library.scanfFloat = scan.hasFloat;
    return library;
}

QStringList CLibrary::wantedSymbols() const
{
    QStringList symbols;
    if (!isFull && printfFloat)
        symbols += u"_printf_float"_s;
    if (!isFull && scanfFloat)
        symbols += u"_scanf_float"_s;
    return symbols;
}
