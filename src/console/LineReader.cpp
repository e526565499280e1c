#include "console/LineReader.h"

#include "base/CommandLine.h"
#include "base/HException.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <histedit.h>
#include <poll.h>
#include <unistd.h>

struct LineReader::Editor
{
    explicit Editor(const char *program) : lines(history_init()), editLine(el_init(program, stdin, stdout, stderr))
    {
        constexpr int keptLines = 1000;
        HistEvent event;
        history(lines, &event, H_SETSIZE, keptLines);
        history(lines, &event, H_SETUNIQUE, 1);
        el_set(editLine, EL_CLIENTDATA, this);
        el_set(
            editLine, EL_PROMPT, +[](EditLine *line) {
                Editor *editor = nullptr;
                el_get(line, EL_CLIENTDATA, &editor);
                return editor->prompt.data();
            });
        el_set(editLine, EL_GETCFN, readKey);
        el_set(editLine, EL_EDITOR, "emacs");
        // A Ctrl-D that is typed between two lines, when the terminal isn't the editor's, reaches it as NUL.
        el_set(editLine, EL_BIND, "^@", "em-delete-or-list", nullptr);
        el_set(editLine, EL_HIST, history, lines);
        el_source(editLine, nullptr); // the user's ~/.editrc
    }
    // Signals are held back until a key is waited for: one between two waits would be heard at the line's end only.
    static int readKey(EditLine *line, wchar_t *key)
    {
        Editor *editor = nullptr;
        el_get(line, EL_CLIENTDATA, &editor);
        std::mbstate_t state{};
        for (;;) {
            pollfd input = {STDIN_FILENO, POLLIN, 0};
            if (ppoll(&input, 1, nullptr, &editor->usualSignals) < 0)
                return -1;
            char byte;
            const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
            if (count <= 0)
                return int(count);
            const size_t length = std::mbrtowc(key, &byte, 1, &state);
            if (length == 0 || length == 1)
                return 1;
            if (length == size_t(-1)) // no character of this locale
                state = {};
        }
    }
    const char *readLine(int &count)
    {
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        pthread_sigmask(SIG_BLOCK, &interrupt, &usualSignals);
        errno = 0;
        const char *line = el_gets(editLine, &count);
        const int error = errno;
        pthread_sigmask(SIG_SETMASK, &usualSignals, nullptr);
        errno = error;
        return line;
    }
    ~Editor()
    {
        el_end(editLine);
        history_end(lines);
    }

    QByteArray prompt;
    sigset_t usualSignals;
    History *lines;
    EditLine *editLine;
};

LineReader::LineReader(const char *program)
{
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO))
        return;
    std::setlocale(LC_CTYPE, ""); // what a character is; the editor asks
    m_editor = std::make_unique<Editor>(program);
}

LineReader::~LineReader() = default;

std::optional<QString> LineReader::read(const QString &prompt)
{
    if (m_editor) {
        m_editor->prompt = prompt.toUtf8();
        int count = 0;
        const char *line = m_editor->readLine(count);
        if (!line && count < 0 && errno == EINTR) {
            std::fputc('\n', stdout);
            return QString();
        }
        if (!line || count <= 0)
            return {};
        HistEvent event;
        if (count > 1)
            history(m_editor->lines, &event, H_ENTER, line);
        const QString text = QString::fromUtf8(line, count);
        return text.endsWith(u'\n') ? text.chopped(1) : text;
    }
    printOut(prompt);
    std::fflush(stdout);
    char *line = nullptr;
    size_t capacity = 0;
    const ssize_t length = getline(&line, &capacity, stdin);
    const std::unique_ptr<char, void (*)(void *)> owner(line, std::free);
    if (length < 0 && std::ferror(stdin) && errno != EINTR)
        throw HException(QStringLiteral("cannot read standard input: %1").arg(qt_error_string(errno)));
    if (length < 0)
        return {};
    const QString text = QString::fromUtf8(line, length);
    return text.endsWith(u'\n') ? text.chopped(1) : text;
}
