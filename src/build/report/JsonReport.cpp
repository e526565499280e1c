#include "build/report/JsonReport.h"

#include "base/CommandLine.h"
#include "base/JsonWriter.h"
#include "build/engine/StudioBuilder.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void textOrNull(JsonWriter &json, const char *key, const QString &text)
{
    if (text.isEmpty())
        json.nullField(key);
    else
        json.field(key, text);
}

void numberOrNull(JsonWriter &json, const char *key, int number)
{
    if (number < 0)
        json.nullField(key);
    else
        json.field(key, number);
}

void begin(JsonWriter &json, QLatin1StringView event, const BuildPlace &place, const QString &text)
{
    json.beginObject();
    json.field("event", event);
    textOrNull(json, "project", place.project());
    textOrNull(json, "configuration", place.configuration);
    textOrNull(json, "node", place.node());
    json.field("text", text);
}

// Whoever reads the stream sees each event when it happens.
void print(JsonWriter &json)
{
    json.end();
    printOut(QByteArrayView(oneLine(json)));
    std::fflush(stdout);
}

} // namespace

// Line feeds within texts are escaped, so each of the document's own begins a line with its indentation.
QByteArray oneLine(const JsonWriter &json)
{
    const QByteArray text = json.text();
    QByteArray line;
    line.reserve(text.size());
    for (qsizetype at = 0; at < text.size(); ++at) {
        if (text[at] != '\n') {
            line += text[at];
            continue;
        }
        while (at + 1 < text.size() && text[at + 1] == ' ')
            ++at;
        if (line.endsWith(','))
            line += ' ';
    }
    return line + '\n';
}

QString severityName(Severity severity)
{
    static constexpr QLatin1StringView names[] = {"none"_L1,    "result"_L1, "note"_L1,
                                                  "warning"_L1, "error"_L1,  "fatal"_L1};
    return names[int(severity)];
}

void JsonReport::started(const QString &solution, const QString &configuration, int steps)
{
    JsonWriter json;
    begin(json, "start"_L1, {nullptr, configuration}, solution);
    json.field("steps", steps);
    print(json);
}

void JsonReport::stepBegan(const BuildPlace &place, const QString &title)
{
    JsonWriter json;
    begin(json, "step"_L1, place, title);
    print(json);
}

void JsonReport::commandStarted(const BuildPlace &place, const QString &directory, const QStringList &arguments,
                                const QString &output)
{
    JsonWriter json;
    begin(json, "command"_L1, place, commandText(arguments));
    json.field("directory", directory);
    json.beginArray("arguments");
    for (const QString &argument : arguments)
        json.value(argument);
    json.end();
    textOrNull(json, "output", output);
    print(json);
}

void JsonReport::output(const BuildPlace &place, const QString &line, Stream stream)
{
    JsonWriter json;
    begin(json, "output"_L1, place, line);
    json.field("stream", stream == Stream::Error ? u"stderr" : u"stdout");
    print(json);
}

void JsonReport::diagnostic(const BuildPlace &place, const BuildLogItem &item, bool)
{
    const Bookmark &bookmark = item.bookmark();
    JsonWriter json;
    begin(json, "diagnostic"_L1, place, item.text());
    textOrNull(json, "file", bookmark.file);
    numberOrNull(json, "line", bookmark.line);
    numberOrNull(json, "column", bookmark.column);
    json.field("severity", severityName(item.severity()));
    print(json);
}

void JsonReport::note(const BuildPlace &place, NoteKind kind, const QString &text)
{
    if (kind == NoteKind::UpToDate && !m_tellsAll)
        return;
    JsonWriter json;
    begin(json, "note"_L1, place, text);
    print(json);
}

void JsonReport::finished(const BuildOutcome &outcome)
{
    JsonWriter json;
    json.beginObject();
    json.field("event", u"finished");
    json.field("result", outcome.word());
    json.field("errors", outcome.counters.errors);
    json.field("warnings", outcome.counters.warnings);
    json.field("commands", outcome.commands);
    json.field("seconds", double(outcome.milliseconds) / 1000);
    json.beginArray("sizes");
    for (const ProgramSize &size : outcome.sizes)
        writeSize(json, size);
    json.end();
    print(json);
}
