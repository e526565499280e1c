#pragma once

#include <QStringList>
#include <functional>
#include <optional>

// What a program is asked to do with Forth: one of a file ("-": standard input), a text, or a console.
struct ForthRunOptions
{
    std::optional<QString> text;
    QString file;
    QStringList arguments;   // pushed as strings before the file or text runs, the first one deepest
    QStringList includePath; // where INCLUDE looks for names that aren't below the current folder
    bool showsBanner = false;
    // Reads the console's lines after showing a prompt; none ends it.
    std::function<std::optional<QString>(const QString &prompt)> readLine;
};

// Runs Forth on standard output and standard error, Ctrl-C interrupting the running words. Gives the exit
// status: 1 when a file or text ended in an error, which has been shown. The cells that a text leaves are
// printed behind it. Throws HException when the file can't be opened.
int runForth(const ForthRunOptions &options);
