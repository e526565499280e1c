#include "base/Pattern.h"

using namespace Qt::StringLiterals;

namespace {

QRegularExpression compiled(const QString &body, Qt::CaseSensitivity sensitivity)
{
    QRegularExpression::PatternOptions options = QRegularExpression::DotMatchesEverythingOption;
    if (sensitivity == Qt::CaseInsensitive)
        options |= QRegularExpression::CaseInsensitiveOption;
    return QRegularExpression(body, options);
}

} // namespace

QRegularExpression wildcardPattern(const QString &text, Qt::CaseSensitivity sensitivity)
{
    // What stands between the stars is of fixed length, so that its first place is as good as any other, but for the
    // last piece: without the atomic groups a text that doesn't match would be tried in every way.
    QStringList pieces;
    QString body;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'*') {
            pieces += std::exchange(body, {});
        } else if (c == u'?') {
            body += u'.';
        } else if (c == u'[') {
            // A set goes to the regular expression as it stands, up to its "]"; one that comes first is a member.
            qsizetype end = i + 1;
            if (end < text.size() && text[end] == u'^')
                ++end;
            end = text.indexOf(u']', end + 1);
            const QString set = end < 0 ? text.mid(i) : text.mid(i, end - i + 1);
            body += QString(set).replace(u"\\"_s, u"\\\\"_s);
            i += set.size() - 1;
        } else {
            body += QRegularExpression::escape(QStringView(&c, 1));
        }
    }
    if (pieces.isEmpty())
        return compiled(body, sensitivity);
    for (const QString &piece : pieces.sliced(1))
        pieces.front() += u"(?>.*?"_s + piece + u')';
    return compiled(pieces.front() + u".*"_s + body, sensitivity);
}

QRegularExpression literalPattern(const QString &text, Qt::CaseSensitivity sensitivity)
{
    return compiled(QRegularExpression::escape(text), sensitivity);
}

bool matchesWholly(const QRegularExpression &pattern, const QString &text)
{
    if (!pattern.isValid())
        return false;
    const QRegularExpression whole(QRegularExpression::anchoredPattern(pattern.pattern()), pattern.patternOptions());
    return whole.match(text).hasMatch();
}
