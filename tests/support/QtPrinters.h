#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <ostream>

// GoogleTest shows the Qt text types as text.
inline void PrintTo(const QString &text, std::ostream *stream)
{
    *stream << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QByteArray &bytes, std::ostream *stream)
{
    *stream << '"' << bytes.toStdString() << '"';
}
inline void PrintTo(const QStringList &list, std::ostream *stream)
{
    *stream << '[' << list.join(QString::fromLatin1(", ")).toStdString() << ']';
}
