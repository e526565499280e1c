#pragma once

#include <QStringList>
#include <functional>

// Decides which source lines stand before an instruction in a listing. It is told of the row that begins at an
// instruction's address, if one does, and of each instruction.
//
// The lines from behind the last one shown up to the row's are due, at most five of them. A header with the file and
// the line stands before them, and also before a row without lines (a jump back) when the last header is far away.
class SourceInterleaver
{
public:
    // `textOf` gives a line of a file; a null text when it can't be had, and it isn't shown.
    using TextOf = std::function<QString(const QString &path, int line)>;

    explicit SourceInterleaver(TextOf textOf) : m_textOf(std::move(textOf)) {}

    QStringList linesBefore(const QString &path, int line);
    void countInstruction() { ++m_instructions; }

private:
    TextOf m_textOf;
    QString m_path;
    int m_line = 0;         // of the row shown last
    int m_next = 1;         // the first line that hasn't been shown
    int m_instructions = 0; // since the last header
};
