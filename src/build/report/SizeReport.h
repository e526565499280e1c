#pragma once

#include <QString>
#include <vector>

class JsonWriter;
class ProjectElement;
class StandardProjectSystem;

// How much of a segment of the target's memory a program takes.
struct SegmentUse
{
    QString name;
    quint32 start = 0;
    quint64 size = 0; // bytes; up to 2^32
    quint64 used = 0;

    double percent() const { return size ? double(used) * 100 / double(size) : 0; }
};

// What a linked program takes, as `size` counts it: text is what is only read, data what is written and has a
// value at start-up, bss what is written and has none.
struct ProgramSize
{
    QString project, configuration, file;
    quint64 text = 0, data = 0, bss = 0;
    std::vector<SegmentUse> segments; // of the memory map; empty without one

    quint64 total() const { return text + data + bss; }
};

// Of the file that a project links to; none when it isn't there or no ELF file. What can't be read of the memory
// map is told by `problem`, one line.
std::optional<ProgramSize> programSize(const StandardProjectSystem &system, const ProjectElement *project,
                                       const QString &configuration, const QString &file, QString &problem);

void writeSize(JsonWriter &json, const ProgramSize &size); // an object
// Lines for people. A bar shows each segment when `barWidth` is above 0.
QString sizeText(const ProgramSize &size, int barWidth);
