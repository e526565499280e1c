#pragma once

#include <QString>

// Foreign text as it is shown to the user: "?" for control characters, which could steer the terminal. A tab stays.
QString plainText(QString text);
// The same for a line of a source; of a very long one the start.
QString shownLine(const QString &line);
