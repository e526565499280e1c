#pragma once

#include "build/engine/BuildEngine.h"

// Whether one output is as new as what it is made from. Times count in whole seconds, and equal ones are good: what
// makes it out of date is told to the builder, unless quiet or without one.
class UpToDate
{
public:
    UpToDate(BuildEngine &engine, Builder *builder, bool isQuiet)
        : m_engine(engine), m_builder(isQuiet ? nullptr : builder)
    {}

    // Names are relative to the directory or absolute, and are told as given. The first question: is it there?
    bool targetTime(const QString &path, const QString &name) { return targetTime(m_engine.times().id(path), name); }
    bool targetTime(FileTimes::Id target, const QString &name);
    const FileStamp &stamp() const { return m_target; }
    bool inputOlder(FileTimes::Id input, const QString &name);
    bool inputsOlder(const QString &directory, const QStringList &inputs);
    bool exists(const QString &directory, const QString &name); // of a further output
    // No property or file of options that goes into the tool's command was changed since.
    bool optionsUpToDate(const ProjectElement *element, const QString &configuration, ToolKind kind,
                         bool hasFiles = true);
    // The command with that hash made it, as far as is known. `known`: the one on record, 0 for none.
    bool commandUpToDate(const ProjectElement *element, const QString &configuration, quint64 hash);
    bool commandUpToDate(CommandRecord &record, quint64 known, quint64 hash);

private:
    void tell(const QString &text);

    BuildEngine &m_engine;
    Builder *m_builder;
    QString m_name;
    FileTimes::Id m_id = 0;
    FileStamp m_target;
};
