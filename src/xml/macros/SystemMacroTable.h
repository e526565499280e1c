#pragma once

#include "xml/macros/MacroExpansion.h"

#include <QDateTime>
#include <QList>
#include <optional>

class QDir;

// The macros that hold everywhere: the system's own and the user's global ones. The nine time macros have an
// entry like others, but their value is that of the moment at which they are expanded.
//
// One table serves the process; the program adds the macros of its installation to it and hands over the
// user's list whenever that changes.
class SystemMacroTable
{
public:
    // What the windows list, in the order in which it was added.
    struct Description
    {
        QString name;
        QString text;
    };

    // With the macros of the time and of the host.
    SystemMacroTable();
    // Assign a fresh table to it to start anew.
    static SystemMacroTable &instance();

    // Without a description the macro is in no list.
    void addSystemMacro(const QString &name, const QString &value, const QString &description);
    void addSystemMacro(const QString &name, const QDir &path, const QString &description);
    // The versions, names, directories and file extensions of the product. `studioDir` is the folder that the
    // product is installed in, `userDir` the one for the user's data.
    void addInstallationMacros(const QDir &studioDir, const QDir &userDir);
    // Each entry is "name=value".
    void setGlobalMacros(const QStringList &entries);

    const MacroMap &systemMacros() const { return m_system; }
    const MacroMap &globalMacros() const { return m_global; }
    const QList<Description> &descriptions() const { return m_descriptions; }

    // The value of a time macro now; none for other names.
    std::optional<QString> currentTime(const QString &name) const;
    using Clock = QDateTime (*)();
    void setClock(Clock clock) { m_clock = clock; }

    // Counts whatever may give a macro another value, in all tables there are.
    static quint64 changeCount() { return s_changeCount; }

private:
    // Notices that one table is assigned to another.
    struct Assignments
    {
        Assignments() = default;
        Assignments(const Assignments &) { ++s_changeCount; }
        Assignments &operator=(const Assignments &)
        {
            ++s_changeCount;
            return *this;
        }
    };
    static quint64 s_changeCount;

    MacroMap m_system, m_global;
    QList<Description> m_descriptions;
    Clock m_clock = QDateTime::currentDateTime;
    Assignments m_assignments;
};

// The version as one number: the major digit, two digits of the minor text, and two for the place in the
// alphabet of a letter behind them ("12a" gives 1201 behind the major digit). A minor text of one digit gets a
// zero before it.
QString versionNumber(const QString &major, const QString &minor);
