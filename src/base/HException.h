#pragma once

#include <QByteArray>
#include <QString>
#include <exception>

// The general failure of the system: one sentence for the user. File formats, links and targets throw it
// by value; the operation that the user started catches it by const reference and shows the message.
class HException : public std::exception
{
public:
    explicit HException(const QString &message) : m_message(message), m_utf8(message.toUtf8()) {}

    const QString &message() const { return m_message; }
    const char *what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_message;
    QByteArray m_utf8;
};

// The user cancelled the operation; it ends without a message.
class StudioCancelException : public std::exception
{
public:
    const char *what() const noexcept override { return "cancelled"; }
};
