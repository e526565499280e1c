#include "base/CommandWords.h"

QStringList splitWords(const QString &command)
{
    QStringList words;
    QString word;
    bool isQuoted = false;
    const auto finish = [&] {
        if (!word.isEmpty())
            words += word;
        word.clear();
    };
    for (qsizetype i = 0; i < command.size(); ++i) {
        const QChar c = command[i];
        if (c == u'\\' && i + 1 < command.size() && command[i + 1] == u'"')
            word += command[++i];
        else if (c == u'"')
            isQuoted = !isQuoted;
        else if (!isQuoted && (c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'))
            finish();
        else
            word += c;
    }
    finish();
    return words;
}
