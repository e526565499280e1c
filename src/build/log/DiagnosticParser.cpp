#include "build/log/DiagnosticParser.h"

#include "build/log/TextScan_p.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr auto buildCategory = "Build Results"_L1;

struct Tag
{
    QLatin1StringView text;
    Severity severity;
};
constexpr Tag tags[] = {
    // the first that a line holds decides
    {"error: "_L1, Severity::Error},     {"Error: "_L1, Severity::Error}, {"warning: "_L1, Severity::Warning},
    {"Warning: "_L1, Severity::Warning}, {"note: "_L1, Severity::Note},   {"Info: "_L1, Severity::Note},
};

// The first word that begins as a path does, else the start of the line.
qsizetype pathStart(QStringView line)
{
    for (qsizetype at = 0; at < line.size(); ++at) {
        if (at > 0 && line[at - 1] != u' ' && line[at - 1] != u'\t')
            continue;
        const QStringView word = line.sliced(at);
        if (word.startsWith(u'/') || word.startsWith("./"_L1))
            return at;
    }
    return 0;
}

} // namespace

QString DiagnosticParser::existingFile(QStringView name) const
{
    constexpr qsizetype longestPath = 4096; // PATH_MAX of Linux
    if (name.isEmpty() || name.size() > longestPath || name.contains(QChar()))
        return {};
    const bool isWhole = name.startsWith(u'/') || m_directory.isEmpty();
    const QString path = isWhole ? name.toString() : m_directory + u'/' + name.toString();
    return QFileInfo::exists(path) ? path : QString();
}

bool StandardDiagnosticParser::parse(const QString &line, Bookmark &out, bool)
{
    const QStringView text = line;
    Bookmark result;
    result.category = buildCategory;
    bool isRecognised = false;

    const qsizetype start = pathStart(text), colon = text.indexOf(u':', start);
    if (colon >= 0) {
        qsizetype at = colon + 1;
        result.file = existingFile(text.sliced(start, colon - start));
        result.line = readNumber(text, at);
        if (result.line != -1 && at + 1 < text.size() && text[at] == u':' && isDigit(text[at + 1])) {
            ++at;
            result.column = readNumber(text, at);
        }
        while (at < text.size() && (isDigit(text[at]) || text[at] == u',' || text[at] == u':'))
            ++at;
        const QStringView rest = text.sliced(at).trimmed();
        if (result.line > 0 && !rest.isEmpty()) {
            result.text = rest.toString();
            result.severity = Severity::Error;
            isRecognised = true;
        } else if (rest.isEmpty() && (result.line > 0 || !result.file.isEmpty())) {
            isRecognised = true;
        }
    }
    for (const Tag &tag : tags) {
        const qsizetype at = text.indexOf(tag.text);
        if (at < 0)
            continue;
        result.text = text.sliced(at + tag.text.size()).toString();
        result.severity = tag.severity;
        isRecognised = true;
        break;
    }
    if (isRecognised)
        out = result;
    return isRecognised;
}

RegexpDiagnosticParser::RegexpDiagnosticParser(const QString &directory, const QString &tool,
                                               const QStringList &patterns)
    : DiagnosticParser(directory, tool)
{
    for (const QString &text : patterns.first(qMin<qsizetype>(patterns.size(), maximumPatterns)))
        if (QRegularExpression pattern(text); !text.isEmpty() && pattern.isValid())
            m_patterns.push_back(pattern);
}

bool RegexpDiagnosticParser::parse(const QString &line, Bookmark &out, bool)
{
    for (const QRegularExpression &pattern : m_patterns) {
        const auto match = pattern.match(line);
        if (!match.hasMatch())
            continue;
        qsizetype at = 0;
        out = {};
        out.file = existingFile(match.capturedView(1));
        out.line = readNumber(match.capturedView(2), at);
        out.text = match.captured(3);
        out.severity = Severity::Note;
        out.category = buildCategory;
        return true;
    }
    return false;
}

// "(.*)\(([0-9]*)\): error: (.*)$" with each part as short as can be, from the start of the line.
bool STAPLDiagnosticParser::parse(const QString &line, Bookmark &out, bool)
{
    constexpr auto mark = "): error: "_L1;
    const QStringView text = line;
    for (qsizetype open = text.indexOf(u'('); open >= 0; open = text.indexOf(u'(', open + 1)) {
        qsizetype at = open + 1;
        const int number = readNumber(text, at);
        if (!text.sliced(at).startsWith(mark))
            continue;
        out = {};
        out.file = existingFile(text.first(open));
        out.line = number;
        out.text = text.sliced(at + mark.size()).toString();
        out.severity = Severity::Error;
        out.category = buildCategory;
        return true;
    }
    return false;
}
