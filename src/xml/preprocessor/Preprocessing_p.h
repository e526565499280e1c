#pragma once

#include "xml/macros/MacroExpansion.h"

#include <QStringList>

// What both preprocessors share.

constexpr int maximumInclusion = 64; // includes and placed fragments inside each other
constexpr const char *messagePrefix = "XmlPP::processConditionals(): ";

// Where the elements of a chain come from.
struct Origin
{
    QString file;      // relative names of includes count from here
    QString writtenIn; // for messages; differs from `file` in a placed fragment
    int inclusion = 0; // how many includes and placed fragments it is inside
};

// "message : file:line", the line counted from 1.
QString located(const QString &message, const Origin &origin, quint32 lineFromZero);

// The parts of a comma-separated list, empty ones dropped.
QStringList conditionList(const QString &text);

// The current macros with those of a `macros` attribute over them.
MacroMap overriddenBy(MacroMap macros, QString macroString);

// An include's name as a path: relative ones count from the folder of the including file.
QString includePath(const QString &name, const Origin &origin);
