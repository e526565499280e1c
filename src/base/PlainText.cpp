#include "base/PlainText.h"

using namespace Qt::StringLiterals;

QString plainText(QString text)
{
    for (QChar &c : text)
        if (c.category() == QChar::Other_Control && c != u'\t')
            c = u'?';
    return text;
}

QString shownLine(const QString &line)
{
    constexpr qsizetype longest = 500;
    return line.size() <= longest ? plainText(line) : plainText(line.first(longest)) + u"..."_s;
}
