#pragma once

#include <QByteArray>
#include <QString>
#include <array>
#include <cstdio>
#include <string_view>

// Where the outer interpreter reads from, a line at a time. Lines are bytes of UTF-8.
class Source
{
public:
    static constexpr size_t maximumLineLength = 255;

    explicit Source(const QString &name) : m_name(name) {}
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    virtual ~Source() = default;

    // Reads the next line; false when there is none. A line that is too long throws -17, unread text stays.
    virtual bool refill() = 0;

    const QString &name() const { return m_name; }
    int lineNumber() const { return m_lineNumber; } // of line(), from 1; 0 before the first
    std::string_view line() const { return {m_buffer.data(), m_length}; }

protected:
    // Throws -17 when a line of `length` has no room.
    static void checkLength(size_t length);

    std::array<char, maximumLineLength + 1> m_buffer{}; // NUL-terminated
    size_t m_length = 0;
    int m_lineNumber = 0;

private:
    QString m_name;
};

// One line.
class StringSource final : public Source
{
public:
    StringSource(const QString &name, const QString &text) : Source(name), m_text(text.toUtf8()) {}
    bool refill() override;

private:
    QByteArray m_text;
};

// A stream, which it closes. Lines end at line feed, carriage return, both together, or the end.
class FileSource final : public Source
{
public:
    FileSource(const QString &name, std::FILE *file) : Source(name), m_file(file) {}
    ~FileSource() override { close(); }
    bool refill() override;
    // 0, or errno when what was written did not all arrive.
    int close();

    std::FILE *file() const { return m_file; }

    // What READ-FILE and its like need to know about an open file.
    bool isBinary = false;  // one character a byte; otherwise UTF-8
    bool isRunning = false; // being interpreted: neither closed nor run again

private:
    std::FILE *m_file;
};
