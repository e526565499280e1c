#include "build/log/BuildLog.h"

#include "build/log/CompilerDiagnosticParser.h"

#include <QDateTime>

using namespace Qt::StringLiterals;

namespace {

constexpr auto buildCategory = "Build Results"_L1;

} // namespace

BuildLog::BuildLog(Wording wording, QObject *parent)
    : QObject(parent), m_wording(wording), m_clock(QDateTime::currentMSecsSinceEpoch)
{}

BuildLog::~BuildLog() = default;

BuildLogItem::Counters BuildLog::counters() const
{
    BuildLogItem::Counters total;
    for (const auto &item : m_items) {
        const auto &counters = item->counters();
        total.fatals += counters.fatals;
        total.errors += counters.errors;
        total.warnings += counters.warnings;
        total.notes += counters.notes;
        total.successes += counters.successes;
    }
    return total;
}

BuildLogItem *BuildLog::addItem(BuildLogItem *parent, const QString &text, quint32 flags)
{
    ++m_count;
    if (parent)
        return parent->add(text, flags, now());
    m_items.push_back(std::make_unique<BuildLogItem>(nullptr, text, flags, now()));
    return m_items.back().get();
}

BuildLogItem *BuildLog::beginGroup(const QString &text, quint32 flags, int buildIndex)
{
    return beginGroup(m_group, text, flags, buildIndex);
}

BuildLogItem *BuildLog::beginGroup(BuildLogItem *parent, const QString &text, quint32 flags, int buildIndex)
{
    addPlainOutput(buildIndex, text);
    m_group = addItem(parent, text, flags | logCanOpen);
    Q_EMIT itemAdded(m_group);
    return m_group;
}

void BuildLog::endGroup(const QString &text, const QString &badgeText)
{
    endGroup(m_group, text, badgeText);
}

void BuildLog::endGroup(const QString &text)
{
    endGroup(m_group, text, {});
}

void BuildLog::endGroup()
{
    endGroup(m_group, QString(), {});
}

void BuildLog::endGroup(BuildLogItem *group, const Bookmark &associatedFile)
{
    if (group)
        group->setBookmark(associatedFile);
    endGroup(group);
}

void BuildLog::endGroup(BuildLogItem *group, const QString &text)
{
    endGroup(group, text, {});
}

void BuildLog::endGroup(BuildLogItem *group)
{
    endGroup(group, QString(), {});
}

// An empty text leaves the one that the group began with.
void BuildLog::endGroup(BuildLogItem *group, const QString &text, const QString &badgeText)
{
    if (!group)
        return;
    if (!text.isEmpty())
        group->setText(text);
    group->setBadge(badgeText);
    group->complete(now());
    if (group == m_group)
        m_group = group->parent();
    Q_EMIT itemChanged(group);
}

BuildLogItem *BuildLog::addLeaf(int buildIndex, BuildLogItem *parent, const QString &text, quint32 flags,
                                Severity severity)
{
    addPlainOutput(buildIndex, text);
    BuildLogItem *item = addItem(parent, text, (flags & ~logSeverityMask) | quint32(severity));
    item->count(severity);
    Q_EMIT itemAdded(item);
    return item;
}

BuildLogItem *BuildLog::addError(const QString &text, quint32 flags)
{
    return addError(m_group, text, flags);
}

BuildLogItem *BuildLog::addError(BuildLogItem *parent, const QString &text, quint32 flags)
{
    BuildLogItem *item = addLeaf(0, parent, text, flags, Severity::Error);
    Q_EMIT error(text);
    return item;
}

BuildLogItem *BuildLog::addWarning(const QString &text, quint32 flags)
{
    return addWarning(m_group, text, flags);
}

BuildLogItem *BuildLog::addWarning(BuildLogItem *parent, const QString &text, quint32 flags)
{
    BuildLogItem *item = addLeaf(0, parent, text, flags, Severity::Warning);
    Q_EMIT warning(text);
    return item;
}

BuildLogItem *BuildLog::addNote(const QString &text, quint32 flags)
{
    return addNote(m_group, text, flags);
}

BuildLogItem *BuildLog::addNote(BuildLogItem *parent, const QString &text, quint32 flags)
{
    BuildLogItem *item = addLeaf(0, parent, text, flags, Severity::Note);
    Q_EMIT note(text);
    return item;
}

BuildLogItem *BuildLog::addSuccess(const QString &text, quint32 flags)
{
    return addSuccess(m_group, text, flags);
}

BuildLogItem *BuildLog::addSuccess(BuildLogItem *parent, const QString &text, quint32 flags)
{
    BuildLogItem *item = addLeaf(0, parent, text, flags, Severity::None);
    item->countSuccess();
    Q_EMIT itemChanged(item);
    return item;
}

BuildLogItem *BuildLog::addSuccess(const QString &text, quint32 flags, qint64 startTime, int steps)
{
    BuildLogItem *item = addSuccess(text, flags);
    item->setStarted(startTime);
    item->setSteps(steps);
    item->complete(now());
    Q_EMIT itemChanged(item);
    return item;
}

BuildLogItem *BuildLog::addMessage(const QString &text, quint32 flags)
{
    return addMessage(m_group, text, flags);
}

BuildLogItem *BuildLog::addMessage(BuildLogItem *parent, const QString &text, quint32 flags)
{
    return addMessage(0, parent, text, flags);
}

BuildLogItem *BuildLog::addMessage(int builderIndex, BuildLogItem *parent, const QString &text, quint32 flags)
{
    const auto severity = Severity(qMin<quint32>(flags & logSeverityMask, quint32(Severity::Fatal)));
    return addLeaf(builderIndex, parent, text, flags, severity);
}

void BuildLog::processOutput(const QString &text, bool isErrorOuput)
{
    processOutput(0, m_parser, m_group, text, isErrorOuput);
}

void BuildLog::processOutput(int buildIndex, DiagnosticParser *parser, BuildLogItem *parent, const QString &text,
                             bool isErrorOuput)
{
    if (parser && parser->filter(text))
        return;
    addPlainOutput(buildIndex, text);
    if (!parser)
        return;
    Bookmark bookmark;
    if (parser->parse(text, bookmark, isErrorOuput)) {
        m_lastRecords[parser] = addProcessedOutput(buildIndex, parent, bookmark);
    } else if (parser->isContinuation()) {
        if (BuildLogItem *item = m_lastRecords.value(parser))
            item->addExcerpt(withoutColours(text)); // shown once more, where a colour would go on
    }
}

BuildLogItem *BuildLog::addProcessedOutput(int, BuildLogItem *parent, const Bookmark &data)
{
    BuildLogItem *item = addItem(parent, data.text, quint32(data.severity));
    Bookmark bookmark = data;
    bookmark.category = buildCategory;
    bookmark.time = now();
    setResult(item, bookmark);
    const bool staysClosed = (parent && parent->text().startsWith("Linking"_L1)) || data.text.startsWith("Info:"_L1);
    if (!staysClosed)
        item->setOpen(true);
    if (data.severity != Severity::Note)
        for (BuildLogItem *above = parent; above; above = above->parent())
            above->setOpen(true);
    Q_EMIT itemAdded(item);
    return item;
}

// Stores a result on its row, counts it, notes its line and makes it one to step to.
void BuildLog::setResult(BuildLogItem *item, const Bookmark &bookmark)
{
    item->setBookmark(bookmark);
    item->count(bookmark.severity);
    if (!bookmark.file.isEmpty() && bookmark.line > 0)
        m_tracker.track(bookmark.file, bookmark.line);
    if (bookmark.severity >= Severity::Result)
        m_located.push_back(item);
}

void BuildLog::addPlainOutput(int buildIndex, const QString &text)
{
    if (text == "Idle"_L1) // what a builder says to itself while it waits
        return;
    if (m_keepsTranscript) {
        if (buildIndex >= 1)
            m_transcript += QString::number(buildIndex) + "> "_L1;
        m_transcript += text + u'\n';
    }
    Q_EMIT outputAdded(buildIndex, text);
}

BuildLogItem *BuildLog::addResult(const Bookmark &result, quint32 flags)
{
    return addResult(m_group, result, flags, 0, 0);
}

BuildLogItem *BuildLog::addResult(const Bookmark &result, quint32 flags, int pos, int len)
{
    return addResult(m_group, result, flags, pos, len);
}

BuildLogItem *BuildLog::addResult(BuildLogItem *group, const Bookmark &result, quint32 flags, int pos, int len)
{
    addPlainOutput(0, result.text);
    BuildLogItem *item = addItem(group, result.text, flags);
    item->setHighlight(pos, len);
    setResult(item, result);
    Q_EMIT itemAdded(item);
    return item;
}

void BuildLog::terminated(BuildLogItem *item)
{
    for (; item; item = item->parent()) {
        item->complete(now());
        setGradient(item, Gradient::Failure);
    }
}

void BuildLog::setGradient(BuildLogItem *item, Gradient gradient)
{
    item->setGradient(gradient);
    Q_EMIT itemChanged(item);
}

void BuildLog::clear()
{
    m_items.clear();
    m_transcript.clear();
    m_located.clear();
    m_tracker.clear();
    m_lastRecords.clear();
    m_count = 0;
    m_current = -1;
    m_group = nullptr;
    m_selected = nullptr;
    Q_EMIT cleared();
}

void BuildLog::fileLinesChanged(const QString &filename, int line, int delta)
{
    m_tracker.changed(filename, line, delta);
}

void BuildLog::locateNext()
{
    locateStep(1);
}

void BuildLog::locatePrevious()
{
    locateStep(-1);
}

// Forward the worst come first, each severity in the order found; backward the same road the other way.
qsizetype BuildLog::nextLocated(int step) const
{
    const qsizetype count = qsizetype(m_located.size());
    if (count == 0)
        return -1;
    if (m_isCycleMode)
        return m_current < 0 ? (step > 0 ? 0 : count - 1) : (m_current + step + count) % count;
    const int first = int(Severity::Result), last = int(Severity::Fatal);
    int severity = step > 0 ? last : first;
    qsizetype at = step > 0 ? -1 : count;
    if (m_current >= 0) {
        severity = int(m_located[size_t(m_current)]->bookmark().severity);
        at = m_current;
    }
    for (; severity >= first && severity <= last; severity -= step) {
        for (at += step; at >= 0 && at < count; at += step) {
            const Bookmark &bookmark = m_located[size_t(at)]->bookmark();
            if (int(bookmark.severity) == severity && !bookmark.text.isEmpty())
                return at;
        }
        at = step > 0 ? -1 : count;
    }
    return -1;
}

void BuildLog::locateStep(int step)
{
    const qsizetype found = nextLocated(step);
    if (found < 0) {
        if (!m_located.empty())
            m_current = -1;
        m_selected = nullptr;
        const QString what = m_wording == Wording::Errors ? u"errors"_s : u"tags"_s;
        Q_EMIT message((step > 0 ? u"No more "_s : u"No previous "_s) + what);
        return;
    }
    m_current = found;
    locate(m_located[size_t(found)]);
}

void BuildLog::locate(BuildLogItem *item)
{
    m_selected = item;
    for (BuildLogItem *above = item->parent(); above; above = above->parent())
        above->setOpen(true);
    Bookmark bookmark = item->bookmark();
    const int line = m_tracker.current(bookmark.file, bookmark.line);
    bookmark.line = qMax(line, 0);
    if (line <= 0)
        bookmark.column = -1;
    Q_EMIT locateBookmark(bookmark);
}
