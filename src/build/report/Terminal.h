#pragma once

#include <QElapsedTimer>
#include <QString>
#include <cstdio>

// How many columns of a terminal a character takes: 0, 1 or 2.
int displayWidth(char32_t c);

enum class ColorMode { Auto, Always, Never };

// A stream that a person may be looking at: colours, and one line at the bottom that is written over and over.
class Terminal
{
public:
    enum Color { Plain, Bold, Red, Magenta, Cyan, Green };

    // Colours are used on a terminal, unless $NO_COLOR is set (https://no-color.org) or the mode says otherwise.
    // The line at the bottom is written at most every `intervalMs`.
    Terminal(FILE *stream, ColorMode mode, int intervalMs = 50);
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal() { clearStatus(); }

    bool isTerminal() const { return m_isTerminal; } // one that can go back in its line
    QString colored(Color color, const QString &text) const;
    // A line that stays.
    void print(const QString &line);
    // The line at the bottom, cut to the terminal's width. Nothing happens elsewhere, and when the last one is too
    // young; refresh() shows it then.
    void setStatus(const QString &line);
    void refresh();
    void clearStatus();

private:
    FILE *m_stream;
    int m_intervalMs;
    bool m_isTerminal, m_hasColors;
    QString m_status;
    bool m_isShown = false;   // something stands in the bottom line
    bool m_isPending = false; // but not what m_status says
    QElapsedTimer m_sinceShown;
};
