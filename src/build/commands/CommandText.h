#pragma once

#include "xml/macros/MacroExpansion.h"

#include <QStringList>

// Appends the lines of a file of options, each with `prefix` before it. Options are taken whole, blanks
// included. Lines that begin with "#" or "//", lines from one with "/*" to the next with "*/", and lines of
// fewer than two bytes, the line feed not counted, are no options. False only when the file can't be opened.
bool loadOptionsFile(const QString &path, QStringList &options, const QString &prefix = QString());

// What a dependency file in make's syntax names: the prerequisites of its rules, the first of which, the source
// itself, is left out. Blanks, number signs and dollars may be escaped as make asks for it.
QStringList parseDependencies(QByteArrayView text);
// Of a file; empty for one that isn't there.
QStringList readDependencyFile(const QString &path);

// DEFINES and INCLUDES for the command of an external tool, from a file's language arguments: its "-D" options,
// and its "-I" and "-isystem" options, joined by blanks, double quotes with a backslash before them.
MacroMap externalToolMacros(const QStringList &languageArguments);
