#pragma once

#include "debug/verbs/CompiledProgram.h"

// A row of readelf's interpreted frames, "00008004 r7+24 c-8 c-4" below "LOC CFA r7 ra".
struct FrameRow
{
    QString address, cfa;
    QStringList saved; // "r7 c-8"
};

// The rows of .debug_frame. Registers go by the number that readelf has in their name, ra of Arm is 14; for a machine
// whose registers have other names they are "c-8" alone.
inline std::vector<FrameRow> readelfsFrames(const QString &elf, bool isArm)
{
    static const QRegularExpression row(u"^([0-9a-f]{8}) (\\w+)([+-]\\d+) ?(.*)$"_s);
    std::vector<FrameRow> rows;
    QStringList columns;
    bool isDescription = false, isDebugFrame = false;
    for (const QString &line : lines(runProgram(tool("readelf"), {u"--debug-dump=frames-interp"_s, u"-wN"_s, elf}))) {
        if (line.startsWith(u"Contents of"))
            isDebugFrame = line.contains(u"debug_frame");
        if (line.contains(u" CIE ") || line.contains(u" FDE "))
            isDescription = line.contains(u" FDE ") && !line.contains(u"pc=00000000");
        if (line.trimmed().startsWith(u"LOC"))
            columns = line.simplified().split(u' ').mid(2);
        const auto match = row.match(line.simplified());
        if (!isDescription || !isDebugFrame || !match.hasMatch())
            continue;
        const QString offset = QString(match.captured(3)).remove(u'+');
        FrameRow found = {u"0x"_s + match.captured(1), isArm ? match.captured(2) + u' ' + offset : offset, {}};
        const QStringList cells = match.captured(4).split(u' ', Qt::SkipEmptyParts);
        for (qsizetype i = 0; i < std::min(cells.size(), columns.size()); ++i) {
            if (cells[i].startsWith(u'c'))
                found.saved += (!isArm ? QString() : columns[i] == u"ra"_s ? u"r14 "_s : columns[i] + u' ') + cells[i];
        }
        rows.push_back(found);
    }
    return rows;
}

inline void expectReadelfsFrames(const QString &elf, bool isArm)
{
    const std::vector<FrameRow> rows = readelfsFrames(elf, isArm);
    ASSERT_GT(rows.size(), 3u);
    QStringList arguments = {u"frame"_s, u"--json"_s, elf};
    for (const FrameRow &row : rows)
        arguments += row.address;
    const QJsonArray answers = json(arguments);
    for (size_t i = 0; i < rows.size(); ++i) {
        const QJsonValue answer = answers[qsizetype(i)];
        const QString offset = QString::number(answer[u"cfa"][u"offset"].toInt());
        const QString base = u'r' + QString::number(answer[u"cfa"][u"register"].toInt()) + u' ';
        EXPECT_EQ(isArm ? base + offset : offset, rows[i].cfa) << rows[i].address.toStdString();
        QStringList saved;
        for (const QJsonValue &rule : answer[u"registers"].toArray()) {
            if (rule[u"rule"].toString() == u"offset")
                saved += (isArm ? u"r%1 "_s.arg(rule[u"register"].toInt()) : QString()) +
                         u"c%1"_s.arg(rule[u"offset"].toInt());
        }
        EXPECT_EQ(saved, rows[i].saved) << rows[i].address.toStdString();
    }
}
