#include "build/report/TextReport.h"

#include "base/CommandLine.h"
#include "build/engine/StudioBuilder.h"
#include "project/model/ProjectElement.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t mostProblemsShown = 50;
constexpr int barWidth = 30;

QString counted(int count, const QString &what)
{
    return u"%1 %2"_s.arg(count).arg(count == 1 ? what : what + u's');
}

QByteArray lineOfFile(const QString &path, int number)
{
    constexpr qint64 longest = 1000; // bytes; more help nobody
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    for (int line = 1; line < number; ++line) {
        while (!file.atEnd()) // a long line comes in pieces
            if (file.readLine(longest).endsWith('\n'))
                break;
        if (file.atEnd())
            return {};
    }
    QByteArray bytes = file.readLine(longest);
    while (bytes.endsWith('\n') || bytes.endsWith('\r'))
        bytes.chop(1);
    return bytes;
}

// Whether a step's title names the project: "Linking app.elf" and "Combining app", not "Compiling mapping.c".
bool tells(const QString &title, const QString &project)
{
    const qsizetype at = title.indexOf(u' ' + project), end = at + 1 + project.size();
    return at >= 0 && !title.startsWith("Compiling "_L1) && !title.startsWith("Assembling "_L1) &&
           (end == title.size() || title[end] == u'.');
}

} // namespace

QString shownPath(const QString &path)
{
    const QString here = QDir::currentPath() + u'/';
    return path.startsWith(here) ? path.sliced(here.size()) : path;
}

QStringList sourceExcerpt(const Bookmark &bookmark)
{
    if (!bookmark.excerpt.isEmpty())
        return bookmark.excerpt;
    const bool hasPlace = bookmark.line > 0 && !bookmark.file.isEmpty();
    const QByteArray source = hasPlace ? lineOfFile(bookmark.file, bookmark.line) : QByteArray();
    if (source.trimmed().isEmpty())
        return {};
    QStringList lines{u"%1 | "_s.arg(bookmark.line, 5) + QString::fromUtf8(source)};
    if (bookmark.column > 0 && bookmark.column <= source.size() + 1) {
        QString blanks; // as wide as the text above; columns count bytes
        for (const char32_t c : QString::fromUtf8(source.first(bookmark.column - 1)).toUcs4())
            blanks += c == U'\t' ? u"\t"_s : QString(displayWidth(c), u' ');
        lines += u"      | "_s + blanks + u'^';
    }
    return lines;
}

TextReport::TextReport(const Options &options)
    : m_options(options), m_error(stderr, options.colors), m_out(stdout, options.colors)
{}

void TextReport::started(const QString &, const QString &, int steps)
{
    m_steps = steps;
}

void TextReport::stepCounted()
{
    ++m_stepsDone;
}

void TextReport::stepBegan(const BuildPlace &place, const QString &title)
{
    const int steps = qMax(m_steps, m_stepsDone); // an external build has none that are known
    QString line = steps ? u"[%1/%2] "_s.arg(m_stepsDone).arg(steps) + title : title;
    if (const QString project = place.project(); !project.isEmpty() && !tells(title, project))
        line += u" ("_s + project + u')';
    if (m_error.isTerminal() && m_options.detail != Detail::All)
        m_error.setStatus(line);
    else if (m_options.detail != Detail::Quiet)
        m_error.print(line);
}

void TextReport::commandStarted(const BuildPlace &, const QString &, const QStringList &arguments, const QString &)
{
    if (m_options.showsCommands)
        m_error.print(commandText(arguments));
}

void TextReport::commandFailed(const BuildPlace &, const QString &title, int exitStatus)
{
    m_error.print(m_error.colored(Terminal::Red, u"Failed: "_s) + title + u" (exit status %1)"_s.arg(exitStatus));
}

void TextReport::output(const BuildPlace &, const QString &line, Stream stream)
{
    if (stream != Stream::Echo || m_options.showsCommands || m_options.detail == Detail::All)
        m_error.print(line);
}

void TextReport::diagnostic(const BuildPlace &place, const BuildLogItem &item, bool isOfTool)
{
    const bool isFile = place.element && place.element->type() == ProjectElement::Type::File;
    const Problem problem{place.project(), isFile ? place.element->displayName() : QString(), &item};
    if (!isOfTool)
        printProblem(problem);
    if (item.severity() >= (isOfTool ? Severity::Error : Severity::Warning))
        m_problems.push_back(problem);
}

void TextReport::note(const BuildPlace &, NoteKind kind, const QString &text)
{
    const Detail needed = kind == NoteKind::UpToDate ? Detail::All : Detail::Reasons;
    if (m_options.detail >= needed)
        m_error.print(text);
}

// "main.c:3:5: error: text", in the form that terminals and editors know as a link.
void TextReport::printProblem(const Problem &problem)
{
    const BuildLogItem &item = *problem.item;
    const Bookmark &bookmark = item.bookmark();
    QString place = problem.node;
    if (!bookmark.file.isEmpty()) {
        place = shownPath(bookmark.file);
        for (const int number : {bookmark.line, bookmark.column})
            if (number > 0)
                place += u':' + QString::number(number);
    }
    if (!place.isEmpty())
        place += u": "_s;
    const bool isError = item.severity() >= Severity::Error, isWarning = item.severity() == Severity::Warning;
    const QString kind = isError ? u"error: "_s : isWarning ? u"warning: "_s : u"note: "_s;
    const auto color = isError ? Terminal::Red : isWarning ? Terminal::Magenta : Terminal::Cyan;
    m_error.print(m_error.colored(Terminal::Bold, place) + m_error.colored(color, kind) + item.text());
}

void TextReport::printProblems()
{
    if (m_problems.empty())
        return;
    m_error.print({});
    QString project;
    for (size_t i = 0; i < qMin(m_problems.size(), mostProblemsShown); ++i) {
        const Problem &problem = m_problems[i];
        if (i == 0 || problem.project != project) {
            project = problem.project;
            const bool hasError = std::any_of(m_problems.begin(), m_problems.end(), [&](const Problem &other) {
                return other.project == project && other.item->severity() >= Severity::Error;
            });
            const QString what = hasError ? u"Errors"_s : u"Warnings"_s;
            m_error.print(
                m_error.colored(Terminal::Bold, project.isEmpty() ? what + u':' : u"%1 in %2:"_s.arg(what, project)));
        }
        const Bookmark &bookmark = problem.item->bookmark();
        for (const QString &line : bookmark.context) // the object and the function may be all that tells where it is
            if (bookmark.file.isEmpty() && !line.endsWith("Assembler messages:"_L1))
                m_error.print(line);
        printProblem(problem);
        for (const QString &line : sourceExcerpt(bookmark))
            m_error.print(line);
    }
    if (m_problems.size() > mostProblemsShown)
        m_error.print(u"and %1 more"_s.arg(m_problems.size() - mostProblemsShown));
}

void TextReport::finished(const BuildOutcome &outcome)
{
    m_error.setStatus({});
    m_error.clearStatus();
    std::stable_sort(m_problems.begin(), m_problems.end(),
                     [](const Problem &a, const Problem &b) { return a.project < b.project; });
    printProblems();
    std::fflush(stderr);

    const bool hasConfigurations = // some program of a batch is there more than once
        std::any_of(outcome.sizes.begin(), outcome.sizes.end(),
                    [&](const ProgramSize &size) { return size.configuration != outcome.sizes.front().configuration; });
    if (m_options.detail != Detail::Quiet)
        for (ProgramSize size : outcome.sizes) {
            if (hasConfigurations)
                size.project += u" (%1)"_s.arg(size.configuration);
            printOut(sizeText(size, m_out.isTerminal() ? barWidth : 0));
        }
    const QString word = outcome.word();
    QStringList facts;
    if (outcome.commands > 0)
        facts += counted(outcome.commands, u"command"_s);
    if (outcome.counters.errors > 0)
        facts += counted(outcome.counters.errors, u"error"_s);
    if (outcome.counters.warnings > 0)
        facts += counted(outcome.counters.warnings, u"warning"_s);
    if (outcome.failures > 0)
        facts += counted(outcome.failures, u"failed job"_s);
    facts += u"%1 s"_s.arg(double(outcome.milliseconds) / 1000, 0, 'f', 1);
    if (m_options.detail == Detail::Quiet && outcome.isDone())
        return;
    const QString result = word == "cleaned"_L1 ? u"Cleaned"_s : u"Build "_s + word;
    printOut(m_out.colored(outcome.isDone() ? Terminal::Green : Terminal::Red, result) + u": "_s + facts.join(u", "_s) +
             u'\n');
}
