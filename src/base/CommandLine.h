#pragma once

#include <QString>
#include <QStringList>
#include <span>

class QCommandLineParser;

// The command line of a program as a table: its verbs, each with its arguments, its options and the function
// that does it. From the table come parsing, help and the messages for wrong usage.
//
// A program without verbs has one row whose name is empty.
struct CommandOption
{
    const char *names;               // "json" or "c,config": long ones, a letter for a short one
    const char *valueName = nullptr; // null for a switch
    const char *help = "";
};

// What the user gave, checked against the table.
class CommandArguments
{
public:
    bool has(const char *option) const;
    // The last value given, or `otherwise`.
    QString value(const char *option, const QString &otherwise = {}) const;
    QStringList values(const char *option) const; // each one given, in order
    const QStringList &positional() const { return m_positional; }

private:
    friend class CommandLine;
    const QCommandLineParser *m_parser = nullptr;
    QStringList m_positional;
};

struct CommandVerb
{
    const char *name;
    const char *arguments; // as the help shows them: "FILE ADDRESS..."
    const char *help;
    int minimumArguments;
    int maximumArguments; // -1: any number
    std::span<const CommandOption> options;
    int (*run)(const CommandArguments &); // gives the exit status
    bool endsAtArgument = false;          // what follows the first positional argument is no option of ours
};

// The user called the program wrongly: one line and exit status 2.
class UsageError
{
public:
    explicit UsageError(const QString &message) : m_message(message) {}
    const QString &message() const { return m_message; }

private:
    QString m_message;
};

class CommandLine
{
public:
    CommandLine(const char *program, const char *summary, std::span<const CommandVerb> verbs)
        : m_program(program), m_summary(summary), m_verbs(verbs)
    {}

    // Runs the verb that `arguments` (the program's name first) ask for. Gives the exit status: 0 done, 1 the
    // job failed (an HException has been shown, or standard output could not be written), 2 wrong usage.
    // A name of an option may be written after the positional arguments; "--" ends the options.
    int run(const QStringList &arguments, const char *version) const;
    // The same for what main() got.
    int run(int argumentCount, char **arguments, const char *version) const;

    // The help text of the program (verb null) or of one verb.
    QString help(const CommandVerb *verb) const;

private:
    int runVerb(const CommandVerb &verb, const QStringList &arguments) const;

    const char *m_program;
    const char *m_summary;
    std::span<const CommandVerb> m_verbs;
};

// The address that a user wrote ("0x8000", "32768"). Throws UsageError for anything else and above 32 bits.
quint32 parseAddress(const QString &text);

// Writes to standard output; what can't be written is found out by CommandLine::run at the end.
void printOut(QByteArrayView text);
void printOut(QStringView text);

// "0x" and 8 lower-case digits, the form of addresses everywhere.
QString addressText(quint32 address);
