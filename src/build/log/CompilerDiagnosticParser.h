#pragma once

#include "build/log/DiagnosticParser.h"

#include <QSet>
#include <optional>

// What GCC, Clang, the GNU assembler, GNU ld and LLD print. A line of no form of theirs gets the general parser.
//
//     a.c: In function 'main':                          context of the next record
//     In file included from a.h:2,                      a record without severity
//     a.c:4:19: warning: unused variable 'p' [-Wall]    a record
//         4 |     int p;                                excerpt of the record before (Clang: without "4 |")
//           |         ^
//     /bin/ld: x.o: in function `f':                    context of the next record
//     a.c:12: undefined reference to `g'                an error, though nothing says so
//     ld.lld: error: undefined symbol: g                given with the next line, which has the place
//     >>> referenced by a.c:3                           that; then a note
//     collect2: error: ld returned 1 exit status        an error if there was none before
//     a.c:12: undefined reference to `g'                the same a second time: nothing
//
// A record whose file doesn't exist (the temporary file of an assembler, "<stdin>") has no position at all. Each
// line costs time linear in its length.
class CompilerDiagnosticParser : public StandardDiagnosticParser
{
public:
    using StandardDiagnosticParser::StandardDiagnosticParser;
    bool parse(const QString &line, Bookmark &out, bool isErrorOutput) override;

private:
    bool parseLine(const QString &line, Bookmark &out, bool isErrorOutput);
    bool isNew(const Bookmark &record);
    bool parseMessage(QStringView line, Bookmark &out);
    bool parsePlaced(QStringView line, Bookmark &out);
    bool parseSectionOffset(QStringView line, Bookmark &out) const;
    bool parseUnplaced(QStringView line, Bookmark &out) const;
    bool parseInclusion(QStringView line, Bookmark &out) const;
    bool parseReference(QStringView line, Bookmark &out) const;
    bool parseStackDump(QStringView line, Bookmark &out) const;
    bool followDirectory(QStringView line);
    void setPlace(Bookmark &out, QStringView named, int line, int column) const;
    QString sourceFile(QStringView named) const;

    QStringList m_entered;             // folders that make has gone to, the inmost last
    QStringList m_context;             // lines that belong to the next record
    std::optional<Bookmark> m_waiting; // read, and not yet given
    QSet<QString> m_told;              // warnings and errors given
    bool m_isRepeated = false;         // the last record wasn't given, for it said nothing new
    bool m_hasError = false;           // some record was an error
    bool m_hasPlace = false;           // the last record has a file
    bool m_isBehindRecord = false;     // nothing but excerpts since the last record
    bool m_mayBeSource = false;        // the line before had a column: Clang's source line would come now
};

// Without the sequences that colour a terminal: ESC "[" ... letter, and ESC "]" ... ESC "\" around links.
QString withoutColours(const QString &line);
