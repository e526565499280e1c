#pragma once

#include <QStringList>

// The words of a command, which blanks separate. Double quotes keep a word together and are dropped; one behind
// a backslash stands for itself. Empty words are dropped.
QStringList splitWords(const QString &command);
