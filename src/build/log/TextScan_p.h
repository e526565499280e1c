#pragma once

#include <QStringView>

inline bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// The decimal digits at `at`, which moves behind them; -1 when there are none or more than an int holds.
inline int readNumber(QStringView text, qsizetype &at)
{
    const qsizetype start = at;
    qint64 value = 0;
    for (; at < text.size() && isDigit(text[at]); ++at)
        value = qMin<qint64>(value * 10 + text[at].digitValue(), qint64(1) << 32);
    return at == start || value > INT_MAX ? -1 : int(value);
}
