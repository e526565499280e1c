#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>

// How bad a result line is. The numbers are what records, flags of rows and counters use.
enum class Severity { None = 0, Result = 1, Note = 2, Warning = 3, Error = 4, Fatal = 5 };

// A place in a source file with a message.
struct Bookmark
{
    QString file;    // path; empty when unknown
    QString text;    // the message
    int line = -1;   // from 1; -1 when unknown
    int column = -1; // from 1, in the units of the tool that told it; -1 when unknown
    Severity severity = Severity::None;
    QString category;    // "Build Results" for what a build prints
    qint64 time = 0;     // ms since 1970 when it entered a log; 0 before
    QStringList context; // the tool's lines before it that tell where it was: "a.c: In function 'main':"
    QStringList excerpt; // those behind it: the source line, the caret

    bool operator==(const Bookmark &) const = default;
};

Q_DECLARE_METATYPE(Bookmark)
