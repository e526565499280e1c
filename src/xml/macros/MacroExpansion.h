#pragma once

#include <QMap>
#include <QString>
#include <optional>

class SystemMacroTable;

// Macros by name.
using MacroMap = QMap<QString, QString>;

// Replaces each $(name) in the text by its value: that in `macros`, else the user's global one, else the
// system's. A name that none has stays as it is. $(name:fallback) gives the fallback for it, and
// $(name::fallback) a fallback that isn't looked into any further. "$$" is a "$".
//
// A value isn't expanded again, except where some reference of the text holds a "$" within its brackets: the
// whole result is then expanded once more, at most 100 times. A reference without its closing bracket is
// dropped with all behind it. Should a pass make the text longer than maximumExpandedLength, or the passes
// together write more than four times that, the text stays as it was before that pass.
QString expandMacros(const SystemMacroTable &table, const MacroMap &macros, const QString &text, bool useGlobal,
                     bool useSystem);
constexpr qsizetype maximumExpandedLength = 1 << 20; // characters

// Where the names of a text are looked up, for who has more than a map.
class MacroSource
{
public:
    virtual ~MacroSource() = default;
    // None: there is no such macro. The name's text may end with the call.
    virtual std::optional<QString> value(const QString &name) = 0;
};
QString expandMacros(MacroSource &source, const QString &text);

// With the macros of the map alone.
QString expandWith(const MacroMap &macros, const QString &text);
// With the process's table: its system macros; its global and system macros.
QString expandSystem(const QString &text);
QString expandGlobal(const QString &text);

// "name=value;name=value": a backslash makes the next character stand for itself, empty entries are dropped,
// a value is all behind the first "=".
MacroMap readMacroString(const QString &text);
// The same entries not yet cut into name and value.
QStringList splitAtSemicolons(const QString &text);

// Whether a reference in the text has another one, or brackets, within its own: only then the values of macros are
// expanded, too.
bool hasNestedReference(const QString &text);
