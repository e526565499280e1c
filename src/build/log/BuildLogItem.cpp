#include "build/log/BuildLogItem.h"

using namespace Qt::StringLiterals;

BuildLogItem::BuildLogItem(BuildLogItem *parent, const QString &text, quint32 flags, qint64 now)
    : m_parent(parent),
      m_text(text),
      m_flags(flags),
      m_severity(Severity(qMin<quint32>(flags & logSeverityMask, quint32(Severity::Fatal)))),
      m_gradient(flags & logFailed      ? Gradient::Failure
                 : flags & logSucceeded ? Gradient::Success
                                        : Gradient::None),
      m_isOpen(flags & logOpen),
      m_start(now)
{
    if (flags & logComplete)
        complete(now);
}

BuildLogItem *BuildLogItem::add(const QString &text, quint32 flags, qint64 now)
{
    m_children.push_back(std::make_unique<BuildLogItem>(this, text, flags, now));
    return m_children.back().get();
}

BuildLogItem::Icon BuildLogItem::icon() const
{
    return m_counters.errors      ? Icon::Error
           : m_counters.warnings  ? Icon::Warning
           : m_counters.successes ? Icon::Success
           : m_counters.notes     ? Icon::Note
                                  : Icon::None;
}

void BuildLogItem::count(Severity severity)
{
    m_severity = severity;
    for (BuildLogItem *item = this; item; item = item->m_parent) {
        switch (severity) {
        case Severity::Fatal: ++item->m_counters.fatals; [[fallthrough]];
        case Severity::Error: ++item->m_counters.errors; break;
        case Severity::Warning: ++item->m_counters.warnings; break;
        case Severity::Note: ++item->m_counters.notes; break;
        case Severity::Result:
        case Severity::None: return;
        }
        if (m_flags & logNotCounted)
            return;
    }
}

void BuildLogItem::countSuccess()
{
    for (BuildLogItem *item = this; item; item = item->m_parent) {
        ++item->m_counters.successes;
        if (m_flags & logNotCounted)
            return;
    }
}

QString BuildLogItem::badge(int column) const
{
    if (column == 0 && !m_badge.isEmpty())
        return m_badge;
    const struct
    {
        int count;
        QString one, many;
    } columns[] = {{m_counters.errors, u"1 Error"_s, u"%1 Errors"_s},
                   {m_counters.warnings, u"1 Warning"_s, u"%1 Warnings"_s},
                   {m_counters.notes, u"1 Note"_s, u"%1 Notes"_s}};
    if (column < 0 || column >= int(std::size(columns)) || m_children.empty() || columns[column].count == 0)
        return {};
    return columns[column].count == 1 ? columns[column].one : columns[column].many.arg(columns[column].count);
}

void BuildLogItem::complete(qint64 now)
{
    if (!m_isComplete)
        m_end = now;
    m_isComplete = true;
}

QString BuildLogItem::elapsedText(qint64 now) const
{
    if (!(m_flags & logTimed))
        return {};
    if (m_isComplete)
        return u"Completed"_s;
    const qint64 elapsed = qMax<qint64>(0, now - m_start);
    if (m_steps > 1)
        return durationText(elapsed / (m_stepsDone + 1) * qMax(0, m_steps - m_stepsDone));
    return durationText(elapsed);
}

QString BuildLogItem::rateText() const
{
    static constexpr struct
    {
        quint32 flag;
        const char *text;
    } units[] = {{logBytes, "%1 bytes/s"},
                 {logTargets, "%1 targets/s"},
                 {logFiles, "%1 files/s"},
                 {logProjects, "%1 projects/s"},
                 {logFolders, "%1 folders/s"}};
    const qint64 elapsed = m_end - m_start;
    if (!m_isComplete || !(m_flags & logTimed) || m_steps == 0 || elapsed <= 0)
        return {};
    for (const auto &unit : units)
        if (m_flags & unit.flag)
            return QString::fromLatin1(unit.text).arg(qRound64(double(m_steps) * 1000 / double(elapsed)));
    return {};
}

QString durationText(qint64 ms)
{
    if (ms < 10000)
        return QString::number(double(ms) / 1000, 'f', 1) + u's';
    if (ms < 60000)
        return QString::number(ms / 1000) + u's';
    return QString::asprintf("%d:%02ds", int(ms / 60000), int(ms / 1000 % 60));
}
