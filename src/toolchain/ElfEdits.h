#pragma once

#include <QList>
#include <QString>

// Changes to ELF files that no tool option makes.

// Old name, new name: sections of the old name, those whose names begin with it and a dot, and their relocation
// sections get the new name in its place.
struct SectionRename
{
    QString from, to;
};
// Throws HException for a file that can't be read or written. A file that isn't ELF of 32 bits stays as it is.
void renameSections(const QString &path, const QList<SectionRename> &renames);

// Puts the symbols "__NAME_segment_..." of one segment behind each other in the symbol table, where linkers leave
// them in any order. Who lists a program's segments from its symbols reads them in that order. Throws as above.
void groupSegmentSymbols(const QString &path);
