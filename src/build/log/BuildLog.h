#pragma once

#include "build/log/BuildLogItem.h"
#include "build/log/LineTracker.h"

#include <QHash>
#include <functional>

class DiagnosticParser;

// What a build (or a search, or a tool) has said: a tree of rows with counters, a plain transcript, and the
// results that have a place in a file, to step through. The record alone; a window or a program shows it and
// listens to its signals.
//
// Jobs that run at a time write below parents of their own and give their number (`buildIndex`), which the
// transcript puts before their lines when it is 1 or more.
class BuildLog : public QObject
{
    Q_OBJECT

public:
    enum class Wording { Errors, Tags }; // of a build; of the other result windows

    explicit BuildLog(Wording wording = Wording::Errors, QObject *parent = nullptr);
    ~BuildLog() override;

    const std::vector<std::unique_ptr<BuildLogItem>> &items() const { return m_items; } // the top level
    const QString &transcript() const { return m_transcript; }
    FileLineTracker &tracker() { return m_tracker; }
    BuildLogItem::Counters counters() const; // over the top level
    int count() const { return m_count; }    // rows, groups included

    // The row that is selected, as stepping through the results sets it; null if none.
    BuildLogItem *selectedItem() const { return m_selected; }
    // Whether stepping takes every result in order instead of the worst first.
    void setCycleMode(bool on) { m_isCycleMode = on; }
    // For the output that comes without a parser; null: transcript only. Not owned.
    void setParser(DiagnosticParser *parser) { m_parser = parser; }
    // Tests shrink time.
    void setClock(std::function<qint64()> clock) { m_clock = std::move(clock); }
    qint64 now() const { return m_clock(); }
    // Programs that print the lines as they come need no copy of them.
    void setKeepsTranscript(bool keep) { m_keepsTranscript = keep; }

public Q_SLOTS:
    BuildLogItem *beginGroup(const QString &text, quint32 flags, int buildIndex = 0);
    BuildLogItem *beginGroup(BuildLogItem *parent, const QString &text, quint32 flags, int buildIndex = 0);
    void endGroup(const QString &text, const QString &badgeText);
    void endGroup(const QString &text);
    void endGroup();
    void endGroup(BuildLogItem *group, const Bookmark &associatedFile);
    void endGroup(BuildLogItem *group, const QString &text, const QString &badgeText);
    void endGroup(BuildLogItem *group, const QString &text);
    void endGroup(BuildLogItem *group);

    BuildLogItem *addError(const QString &text, quint32 flags = 0);
    BuildLogItem *addError(BuildLogItem *parent, const QString &text, quint32 flags = 0);
    BuildLogItem *addWarning(const QString &text, quint32 flags = 0);
    BuildLogItem *addWarning(BuildLogItem *parent, const QString &text, quint32 flags = 0);
    BuildLogItem *addNote(const QString &text, quint32 flags = 0);
    BuildLogItem *addNote(BuildLogItem *parent, const QString &text, quint32 flags = 0);
    BuildLogItem *addSuccess(const QString &text, quint32 flags = 0);
    BuildLogItem *addSuccess(BuildLogItem *parent, const QString &text, quint32 flags = 0);
    BuildLogItem *addSuccess(const QString &text, quint32 flags, qint64 startTime, int steps);
    BuildLogItem *addMessage(const QString &text, quint32 flags = 0);
    BuildLogItem *addMessage(BuildLogItem *parent, const QString &text, quint32 flags = 0);
    BuildLogItem *addMessage(int builderIndex, BuildLogItem *parent, const QString &text, quint32 flags = 0);
    BuildLogItem *groupItem() const { return m_group; }

    void processOutput(const QString &text, bool isErrorOuput);
    void processOutput(int buildIndex, DiagnosticParser *parser, BuildLogItem *parent, const QString &text,
                       bool isErrorOuput);
    BuildLogItem *addProcessedOutput(int buildIndex, BuildLogItem *parent, const Bookmark &data);
    void addPlainOutput(int buildIndex, const QString &text);
    BuildLogItem *addResult(const Bookmark &result, quint32 flags);
    BuildLogItem *addResult(const Bookmark &result, quint32 flags, int pos, int len);
    BuildLogItem *addResult(BuildLogItem *group, const Bookmark &result, quint32 flags, int pos, int len);
    void terminated(BuildLogItem *item);
    void setGradient(BuildLogItem *item, Gradient gradient);
    void clear();
    void fileLinesChanged(const QString &filename, int line, int delta);
    void locateNext();
    void locatePrevious();
    void locate(BuildLogItem *item); // the place of that row, as a double click does

Q_SIGNALS:
    void locateBookmark(const Bookmark &result);
    void message(const QString &text);
    void error(const QString &text);
    void warning(const QString &text);
    void note(const QString &text);

    // For who shows the log.
    void itemAdded(BuildLogItem *item);
    void itemChanged(BuildLogItem *item);
    void outputAdded(int buildIndex, const QString &text); // a line of the transcript
    void cleared();

private:
    BuildLogItem *addItem(BuildLogItem *parent, const QString &text, quint32 flags);
    BuildLogItem *addLeaf(int buildIndex, BuildLogItem *parent, const QString &text, quint32 flags, Severity severity);
    void setResult(BuildLogItem *item, const Bookmark &bookmark);
    void locateStep(int step);
    qsizetype nextLocated(int step) const; // in m_located; -1: there is none

    Wording m_wording;
    bool m_isCycleMode = false;
    bool m_keepsTranscript = true;
    DiagnosticParser *m_parser = nullptr;
    std::function<qint64()> m_clock;
    std::vector<std::unique_ptr<BuildLogItem>> m_items;
    QString m_transcript;
    FileLineTracker m_tracker;
    std::vector<BuildLogItem *> m_located; // rows with a result, in the order found
    qsizetype m_current = -1;              // in m_located
    BuildLogItem *m_group = nullptr;
    BuildLogItem *m_selected = nullptr;
    int m_count = 0;
    QHash<const DiagnosticParser *, BuildLogItem *> m_lastRecords; // the row that a continuation belongs to
};
