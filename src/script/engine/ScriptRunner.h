#pragma once

#include <QStringList>
#include <functional>
#include <optional>

// What a program is asked to do with JavaScript: one of a file ("-": standard input), a text, or a console.
struct ScriptRunOptions
{
    std::optional<QString> text; // its value is printed
    QString file;
    QStringList arguments;   // what scripts see as Script.Arguments
    QStringList searchPaths; // where load looks for names that aren't below the current folder
    bool listsOnly = false;  // compile, print the bytecode and run nothing
    bool warns = true;       // of what compiles but does nothing, on standard error
    bool isTerminal = false; // the console shows prompts, and Ctrl-C stops what runs, not the program
    // Reads the console's lines after showing a prompt; none ends it.
    std::function<std::optional<QString>(const QString &prompt)> readLine;
};

// Runs JavaScript on standard output and standard error; Ctrl-C ends the process with status 130. Gives the exit
// status: 1 when a script ended in an error, which has been shown (message, file:line, source line). Throws
// HException when the file can't be read or the engine can't go on.
int runJavaScript(const ScriptRunOptions &options);

// Tells whether the lines of a console make a whole or wait for more: an open bracket or comment.
class ScriptLineScanner
{
public:
    void add(QStringView line);
    bool isOpen() const { return m_depth > 0 || m_inComment; }

private:
    int m_depth = 0;
    bool m_inComment = false;
};
