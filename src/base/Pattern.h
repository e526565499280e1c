#pragma once

#include <QRegularExpression>

// Patterns that users write in project files and search boxes, as regular expressions. Neither is anchored:
// matchesWholly() asks for a match of the whole text, QRegularExpression::match finds one inside it. In both
// a dot or a wildcard matches line feeds too.

// "*" is any run of characters ("/" included), "?" any one, "[a-z]" a set ("[^a-z]" its complement); an
// open bracket without its end makes the pattern invalid, which matches nothing.
QRegularExpression wildcardPattern(const QString &text, Qt::CaseSensitivity sensitivity = Qt::CaseSensitive);

// Every character stands for itself.
QRegularExpression literalPattern(const QString &text, Qt::CaseSensitivity sensitivity = Qt::CaseSensitive);

bool matchesWholly(const QRegularExpression &pattern, const QString &text);
