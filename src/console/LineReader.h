#pragma once

#include <QString>
#include <memory>
#include <optional>

// Lines from standard input for a console: with editing and history on a terminal, as they come from a file
// or a pipe. The prompt is shown in both cases.
class LineReader
{
public:
    explicit LineReader(const char *program);
    ~LineReader();

    // The next line without its end; none at the end of the input. A line that a signal broke off (Ctrl-C) is
    // dropped: on a terminal it gives an empty one, elsewhere it ends the input. Throws HException "cannot read
    // standard input: REASON".
    std::optional<QString> read(const QString &prompt);
    bool isTerminal() const { return m_editor != nullptr; }

private:
    struct Editor;
    std::unique_ptr<Editor> m_editor;
};
