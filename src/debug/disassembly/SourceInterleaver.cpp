#include "debug/disassembly/SourceInterleaver.h"

#include <algorithm>

using namespace Qt::StringLiterals;

QStringList SourceInterleaver::linesBefore(const QString &path, int line)
{
    constexpr int maximumLines = 5, instructionsWithoutHeader = 10, headerLength = 60;
    QStringList lines;
    if (path == m_path && line == m_line)
        return lines;
    if (path != m_path)
        m_next = 1;
    m_path = path;
    m_line = line;
    if (m_instructions > instructionsWithoutHeader || m_next <= line) {
        const QString file = path.mid(path.lastIndexOf(u'/') + 1);
        lines += (u"--- "_s + file + u" -- "_s + QString::number(line) + u' ' + QString(50, u'-')).left(headerLength);
        m_instructions = 0;
    }
    for (int due = std::max(m_next, line - maximumLines + 1); due <= line; ++due) {
        if (const QString text = m_textOf(path, due); !text.isNull())
            lines += text.simplified();
    }
    m_next = line + 1;
    return lines;
}
