#include "build/log/CompilerDiagnosticParser.h"

#include "build/log/TextScan_p.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr auto buildCategory = "Build Results"_L1;

struct Phrase
{
    QLatin1StringView text;
    Severity severity;
};

// What stands behind the place and ": ", or at the start of a line.
constexpr Phrase tags[] = {
    {"fatal error: "_L1, Severity::Fatal},
    {"error: "_L1, Severity::Error},
    {"warning: "_L1, Severity::Warning},
    {"note: "_L1, Severity::Note},
    {"remark: "_L1, Severity::Note},
    {"internal compiler error: "_L1, Severity::Fatal},
    {"sorry, unimplemented: "_L1, Severity::Error},
    {"Error: "_L1, Severity::Error}, // from here on the assembler's
    {"Warning: "_L1, Severity::Warning},
    {"Info: "_L1, Severity::Note},
    {"Fatal error: "_L1, Severity::Fatal},
    {"Internal error: "_L1, Severity::Fatal},
};

// How messages without a tag begin; all others are errors.
constexpr Phrase untagged[] = {
    {"required from"_L1, Severity::None}, // where a template was used, ahead of the message
    {"required by"_L1, Severity::None},
    {"required for"_L1, Severity::None},
    {"recursively required"_L1, Severity::None},
    {"in requirements"_L1, Severity::None},
    {"in 'constexpr' expansion"_L1, Severity::None},
    {"first defined here"_L1, Severity::Note},
    {"skipping incompatible"_L1, Severity::Note},
    {"DWARF error"_L1, Severity::Note}, // the linker can't tell the line of what follows
    {"Dwarf Error"_L1, Severity::Note},
    {"creating "_L1, Severity::None},   // what an archiver is doing
    {"optimized: "_L1, Severity::Note}, // asked for by -fopt-info
    {"missed: "_L1, Severity::Note},
};

// What GNU ld and make say without a place, a tag or their name at the start.
constexpr QLatin1StringView bareErrors[] = {
    "' referenced in section `"_L1,
    ": file not recognized: "_L1,
    ": error adding symbols: "_L1,
    ": *** No rule to make target "_L1,
};

// What a tool says because another one has failed, or because it has had enough. It counts when nothing else did.
constexpr QLatin1StringView followUps[] = {
    " exit status"_L1,                    // "ld returned 1 exit status"
    " command failed with exit code "_L1, // "ld.lld command failed with exit code 1"
    "lto-wrapper failed"_L1,
    "final link failed"_L1,
    "too many errors emitted"_L1,
};

// GCC's name for what it hands to the assembler: "cc", six characters, ".s". It is gone when the command has ended.
bool isTemporaryAssembly(const QString &file)
{
    const QFileInfo info(file);
    return info.suffix() == u's' && info.baseName().startsWith("cc"_L1) && info.baseName().size() == 8 &&
           info.path() == QDir::cleanPath(QDir::tempPath());
}

// Programs that speak up only when something is wrong; with "-" and a version behind or a target in front too.
constexpr QLatin1StringView linkTools[] = {"ld"_L1,      "ld.bfd"_L1, "ld.gold"_L1, "ld.lld"_L1, "objcopy"_L1,
                                           "objdump"_L1, "strip"_L1,  "ar"_L1,      "ranlib"_L1};

constexpr QLatin1StringView noSources[] = {".o"_L1, ".a"_L1, ".so"_L1, ".obj"_L1, ".elf"_L1};

const Phrase *phraseAt(QStringView text, std::span<const Phrase> phrases)
{
    for (const Phrase &phrase : phrases)
        if (text.startsWith(phrase.text))
            return &phrase;
    return nullptr;
}

qsizetype skipBlanks(QStringView text, qsizetype at)
{
    while (at < text.size() && (text[at] == u' ' || text[at] == u'\t'))
        ++at;
    return at;
}

// "arm-none-eabi-ld", "/usr/bin/ld.lld-14": the name without folder, target and version.
bool isLinkTool(QStringView path)
{
    QStringView name = path.sliced(path.lastIndexOf(u'/') + 1);
    while (!name.isEmpty() && (isDigit(name.back()) || name.back() == u'.' || name.back() == u'-'))
        name.chop(1);
    return std::any_of(std::begin(linkTools), std::end(linkTools), [name](QLatin1StringView tool) {
        return name == tool ||
               (name.endsWith(tool) && name.size() > tool.size() && name[name.size() - tool.size() - 1] == u'-');
    });
}

// "     12 | text", "        | ^", "    +++ |+text", "    ...": what GCC draws below a message.
bool isGutter(QStringView line)
{
    qsizetype at = skipBlanks(line, 0);
    while (at < line.size() && (isDigit(line[at]) || line[at] == u'+' || line[at] == u'.'))
        ++at;
    const qsizetype bar = skipBlanks(line, at);
    return bar > 0 && ((bar < line.size() && line[bar] == u'|') || (bar == line.size() && at > 0));
}

// What Clang draws below a source line, when it begins at the first column.
bool isUnderline(QStringView line)
{
    return !line.isEmpty() &&
           std::all_of(line.begin(), line.end(), [](QChar c) { return c == u'^' || c == u'~' || c == u' '; });
}

// A place, "FILE:LINE: " or "FILE:LINE:COLUMN: ", and what stands around it.
struct Place
{
    QStringView file; // with all that stands before it
    int line = -1;
    int column = -1;
    qsizetype end = -1; // behind the last digit; -1: no place
};

// The first place in the text that `stop` accepts the rest of.
template <typename Stop>
Place findPlace(QStringView text, Stop stop)
{
    for (qsizetype colon = text.indexOf(u':'); colon >= 0; colon = text.indexOf(u':', colon + 1)) {
        Place place{text.first(colon), -1, -1, colon + 1};
        place.line = readNumber(text, place.end);
        if (place.line <= 0)
            continue;
        if (place.end + 1 < text.size() && text[place.end] == u':' && isDigit(text[place.end + 1]))
            place.column = readNumber(text, ++place.end);
        if (stop(text.sliced(place.end)))
            return place;
    }
    return {};
}

bool setTagged(QStringView text, Bookmark &out)
{
    const Phrase *tag = phraseAt(text, tags);
    if (!tag)
        return false;
    out.text = text.sliced(tag->text.size()).toString();
    out.severity = tag->severity;
    return true;
}

// Behind which ": " a tag stands; -1 if none does.
qsizetype findTag(QStringView text)
{
    for (qsizetype colon = text.indexOf(": "_L1); colon >= 0; colon = text.indexOf(": "_L1, colon + 1))
        if (phraseAt(text.sliced(colon + 2), tags))
            return colon;
    return -1;
}

// The message behind a place, at `start`; the tag may stand before the place too ("ld.lld: error: a.ld:3: text"), which
// is part of the text when it can't be gone to.
void setMessage(QStringView line, qsizetype start, Bookmark &out)
{
    const QStringView message = line.sliced(start).trimmed();
    if (setTagged(message, out))
        return;
    if (const qsizetype tagged = findTag(line.first(start)); tagged >= 0) {
        setTagged(line.sliced(tagged + 2), out);
        if (!out.file.isEmpty())
            out.text = message.toString();
        return;
    }
    const Phrase *phrase = phraseAt(message, untagged);
    out.severity = phrase ? phrase->severity : Severity::Error;
    out.text = message.toString();
}

// "a.c: In function 'main':", "a.c: At top level:", "asm.s: Assembler messages:", "/bin/ld: x.o: in function `f':"
bool isContext(QStringView line)
{
    static constexpr QLatin1StringView starts[] = {": In "_L1, ": At "_L1, ": Assembler messages"_L1,
                                                   ": in function "_L1};
    return line.endsWith(u':') && std::any_of(std::begin(starts), std::end(starts),
                                              [line](QLatin1StringView start) { return line.contains(start); });
}

// Whether a line without a place reads as a tool's message and not as some source text with a tag in it.
bool beginsAsMessage(QStringView line)
{
    if (phraseAt(line, tags))
        return true;
    const QStringView name = line.first(qMax<qsizetype>(0, line.indexOf(": "_L1)));
    return !name.isEmpty() && std::all_of(name.begin(), name.end(), [](QChar c) {
        return c.isLetterOrNumber() || QStringView(u"/._-+:").contains(c);
    });
}

// "0.", "1." and a tabulator.
bool isStackDump(QStringView line)
{
    qsizetype at = 0;
    return readNumber(line, at) >= 0 && line.sliced(at).startsWith(".\t"_L1);
}

// LLD's messages whose place comes with the next line.
bool awaitsReference(const Bookmark &record)
{
    return record.file.isEmpty() && record.severity >= Severity::Warning &&
           (record.text.startsWith("duplicate symbol: "_L1) ||
            (record.text.startsWith("undefined "_L1) && record.text.contains(" symbol: "_L1)));
}

bool isFollowUp(const Bookmark &record)
{
    return record.severity >= Severity::Error &&
           std::any_of(std::begin(followUps), std::end(followUps),
                       [&record](QLatin1StringView phrase) { return record.text.contains(phrase); });
}

bool isMessageBehind(QStringView rest)
{
    return rest.startsWith(": "_L1);
}

bool isEndOrComma(QStringView rest)
{
    return rest.isEmpty() || rest == ":"_L1 || rest.startsWith(u',');
}

} // namespace

QString withoutColours(const QString &line)
{
    if (!line.contains(u'\x1B'))
        return line;
    QString plain;
    for (qsizetype at = 0; at < line.size(); ++at) {
        if (line[at] != u'\x1B') {
            plain += line[at];
            continue;
        }
        const QChar kind = at + 1 < line.size() ? line[++at] : QChar();
        if (kind == u'[')
            do
                ++at;
            while (at < line.size() && !(line[at] >= u'@' && line[at] <= u'~'));
        else if (kind == u']')
            do
                ++at;
            while (at < line.size() && line[at] != u'\a' && !(line[at] == u'\\' && line[at - 1] == u'\x1B'));
    }
    return plain;
}

// The file at the end of what stands before a place: "/bin/ld: x.o:/x/a.c" names /x/a.c.
QString CompilerDiagnosticParser::sourceFile(QStringView named) const
{
    constexpr int maximumPieces = 8;
    qsizetype colon = named.size();
    for (int piece = 0; piece < maximumPieces && colon > 0; ++piece) {
        colon = named.first(colon).lastIndexOf(u':');
        const QString name = named.sliced(colon + 1).trimmed().toString();
        QString path = m_entered.isEmpty() ? QString() : existingFile(QDir(m_entered.last()).filePath(name));
        if (path.isEmpty())
            path = existingFile(name);
        if (!path.isEmpty() && QFileInfo(path).isFile())
            return QDir::cleanPath(path);
    }
    return {};
}

// "make[1]: Entering directory '/x/sub'" and "ninja: Entering directory `sub'": names count from there, until make
// leaves it.
bool CompilerDiagnosticParser::followDirectory(QStringView line)
{
    constexpr qsizetype deepest = 100;
    constexpr auto entering = ": Entering directory "_L1, leaving = ": Leaving directory "_L1;
    if (!line.endsWith(u'\''))
        return false;
    const qsizetype at = line.indexOf(entering);
    if (at >= 0 && m_entered.size() < deepest)
        m_entered += line.sliced(at + entering.size() + 1).chopped(1).toString();
    else if (at < 0 && line.contains(leaving) && !m_entered.isEmpty())
        m_entered.removeLast();
    return at >= 0 || line.contains(leaving);
}

// A file that isn't there leaves no place at all, and an object file is none to show.
void CompilerDiagnosticParser::setPlace(Bookmark &out, QStringView named, int line, int column) const
{
    const QString file = sourceFile(named);
    const auto endsFile = [&file](QLatin1StringView ending) { return file.endsWith(ending); };
    if (file.isEmpty() || std::any_of(std::begin(noSources), std::end(noSources), endsFile) ||
        isTemporaryAssembly(file))
        return;
    out.file = file;
    out.line = line;
    out.column = column;
}

// "In file included from a.h:2," and "                 from b.c:1:", also with a column behind the line.
bool CompilerDiagnosticParser::parseInclusion(QStringView line, Bookmark &out) const
{
    constexpr auto first = "In file included from "_L1, next = "from "_L1;
    const qsizetype blanks = skipBlanks(line, 0);
    const bool isFirst = line.startsWith(first);
    if (!isFirst && !(blanks > 0 && line.sliced(blanks).startsWith(next)))
        return false;
    const QStringView text = line.sliced(blanks), where = text.sliced(isFirst ? first.size() : next.size());
    const Place place = findPlace(where, isEndOrComma);
    if (place.end < 0)
        return false;
    out.text = text.first(text.size() - where.size() + place.end).toString();
    setPlace(out, place.file, place.line, place.column);
    return true;
}

// ">>> referenced by a.c:3 (/x/a.c:3)" and ">>> defined at b.c:1": the places of the linker message before.
bool CompilerDiagnosticParser::parseReference(QStringView line, Bookmark &out) const
{
    const QStringView text = line.sliced(3).trimmed();
    for (const auto verb : {"referenced by "_L1, "defined at "_L1}) {
        if (!text.startsWith(verb))
            continue;
        QStringView where = text.sliced(verb.size());
        if (const qsizetype open = where.indexOf(" ("_L1); open >= 0 && where.endsWith(u')'))
            where = where.sliced(open + 2).chopped(1);
        if (where.endsWith(":0"_L1)) // a line that link-time optimisation has lost
            where.chop(2);
        const Place place = findPlace(where, isEndOrComma);
        out.text = text.toString();
        out.severity = Severity::Note;
        setPlace(out, place.end < 0 ? where : place.file, place.line, place.column);
        return place.end >= 0 || !out.file.isEmpty();
    }
    return false;
}

// A message behind a place: with a tag, or one that the linker or a template's chain gives without.
bool CompilerDiagnosticParser::parsePlaced(QStringView line, Bookmark &out)
{
    const Place place = findPlace(line, isMessageBehind);
    if (place.end < 0)
        return false;
    const QStringView message = line.sliced(place.end + 2).trimmed();
    setPlace(out, place.file, place.line, place.column);
    const bool isTool = isLinkTool(place.file.first(qMax<qsizetype>(0, place.file.indexOf(u':'))));
    if (out.file.isEmpty() && !isTool && !phraseAt(message, tags) && !phraseAt(message, untagged))
        return false; // some other tool's line, for the general parser
    setMessage(line, place.end + 2, out);
    m_mayBeSource = place.column > 0 && out.severity != Severity::None;
    return true;
}

// "und.c:(.text+0x8): undefined reference to `g'": a place in a section, with no line known. Of an object that doesn't
// name its source there is no file: "(.text+0x8): ", with the linker's name before from the second message on.
bool CompilerDiagnosticParser::parseSectionOffset(QStringView line, Bookmark &out) const
{
    const qsizetype offset = line.indexOf("+0x"_L1), open = offset < 0 ? -1 : line.first(offset).lastIndexOf(u'('),
                    close = open < 0 ? -1 : line.indexOf("): "_L1, offset);
    if (close < 0)
        return false;
    const QStringView named = line.first(open);
    if (named.endsWith(u':'))
        setPlace(out, named.chopped(1), -1, -1);
    else if (!named.isEmpty() && !(named.endsWith(": "_L1) && isLinkTool(named.chopped(2))))
        return false;
    setMessage(line, close + 3, out);
    return true;
}

// "error: text", "cc1: error: text", and what a linker says without a tag or ltollvm in its own form.
bool CompilerDiagnosticParser::parseUnplaced(QStringView line, Bookmark &out) const
{
    if (setTagged(line, out))
        return true;
    if (line.startsWith("Error "_L1) && line.contains(" processing "_L1)) {
        out.severity = Severity::Error;
        out.text = line.sliced(6).toString();
        return true;
    }
    if (const qsizetype colon = findTag(line); colon >= 0) {
        setTagged(line.sliced(colon + 2), out);
        const QStringView name = line.first(colon);
        setPlace(out, name, -1, -1);
        if (QFileInfo(out.file).isExecutable()) // the tool itself is no place
            out.file.clear();
        else if (out.file.isEmpty() && name.sliced(name.lastIndexOf(u'/') + 1).contains(u'.') && !isLinkTool(name))
            out.text.prepend(line.first(colon + 2)); // a file, though it can't be gone to: "app.ld: no such file"
        return true;
    }
    const qsizetype colon = line.indexOf(u':'); // "ld: text" and "ld:FILE: text"
    if (colon >= 0 && line.indexOf(": "_L1) >= 0 && isLinkTool(line.first(colon)) && !isContext(line)) {
        setMessage(line, colon + 1, out);
        return out.severity != Severity::None;
    }
    if (std::none_of(std::begin(bareErrors), std::end(bareErrors),
                     [line](QLatin1StringView phrase) { return line.contains(phrase); }))
        return false;
    out.severity = Severity::Error;
    out.text = line.toString();
    return true;
}

// "1.\ta.c:3:5: current parser token 'x'": where Clang was when it crashed.
bool CompilerDiagnosticParser::parseStackDump(QStringView line, Bookmark &out) const
{
    const QStringView text = line.sliced(line.indexOf(u'\t') + 1);
    const Place place = findPlace(text, isMessageBehind);
    if (place.end < 0)
        return false;
    setPlace(out, place.file, place.line, place.column);
    out.severity = Severity::Note;
    out.text = text.sliced(place.end + 2).toString();
    return !out.file.isEmpty();
}

bool CompilerDiagnosticParser::parseMessage(QStringView line, Bookmark &out)
{
    return parsePlaced(line, out) || parseSectionOffset(line, out) || parseUnplaced(line, out);
}

// Linkers say the same for each use of a name in a line, and for each attempt at a layout. LLD says of a region that is
// full how much is too much with each section that still was to come, part by part.
bool CompilerDiagnosticParser::isNew(const Bookmark &record)
{
    if (record.severity < Severity::Warning)
        return true;
    QStringView text = record.text;
    if (const qsizetype region = text.indexOf(" will not fit in region "_L1),
        amount = text.indexOf(": overflowed by "_L1);
        region >= 0 && amount > region)
        text = text.sliced(region, amount - region);
    const auto before = m_told.size();
    m_told.insert(
        u"%1:%2:%3:%4:%5"_s.arg(int(record.severity)).arg(record.line).arg(record.column).arg(record.file, text));
    return m_told.size() > before;
}

// A record may have to wait for the line behind it, which then gives it in place of its own.
bool CompilerDiagnosticParser::parse(const QString &rawLine, Bookmark &out, bool isErrorOutput)
{
    // What the driver has to say on its standard output is the commands that it runs, with any text in them.
    if (!isErrorOutput && QFileInfo(tool()).fileName() == "cc"_L1) {
        m_isContinuation = false;
        return false;
    }
    const QString line = withoutColours(rawLine);
    if (followDirectory(line)) {
        m_isContinuation = m_isBehindRecord = m_mayBeSource = false;
        return false;
    }
    Bookmark result;
    bool isRecord = parseLine(line, result, isErrorOutput);
    if (m_waiting) {
        std::swap(*m_waiting, result);
        if (line.startsWith(">>>"_L1)) {
            result.file = m_waiting->file;
            result.line = m_waiting->line;
            isRecord = false;
        }
        if (!isRecord)
            m_waiting.reset();
        isRecord = true;
        m_isContinuation = false;
        m_isBehindRecord = true;
    } else if (isRecord && awaitsReference(result)) {
        m_waiting = result;
        return false;
    }
    if (!isRecord) {
        m_isContinuation = m_isContinuation && !m_isRepeated;
        return false;
    }
    m_isRepeated = (isFollowUp(result) && m_hasError) || !isNew(result);
    if (m_isRepeated)
        return false;
    m_hasError = m_hasError || result.severity >= Severity::Error;
    m_hasPlace = !result.file.isEmpty();
    out = result;
    return true;
}

bool CompilerDiagnosticParser::parseLine(const QString &line, Bookmark &out, bool isErrorOutput)
{
    const bool mayBeSource = std::exchange(m_mayBeSource, false);
    const bool isReference = line.startsWith(">>>"_L1),
               isDrawing = m_isBehindRecord && (isGutter(line) || isUnderline(line));
    m_isContinuation = false;

    out.category = buildCategory;
    if (isStackDump(line))
        return parseStackDump(line, out);
    bool isRecord = isReference ? parseReference(line, out) : parseInclusion(line, out);
    if (!isReference && !isRecord && !isDrawing)
        isRecord = parseMessage(line, out) &&
                   (!mayBeSource || !out.file.isEmpty() || beginsAsMessage(line) || line.startsWith(u'<'));
    if (isRecord) {
        out.context = std::exchange(m_context, {});
        m_isBehindRecord = true;
        return true;
    }
    m_mayBeSource = false;
    if (m_isBehindRecord &&
        (mayBeSource || isDrawing || isReference || line.startsWith(u' ') || line.startsWith(u'\t'))) {
        m_isContinuation = !(isReference && m_hasPlace); // the source line tells more than names of objects
        return false;
    }
    m_isBehindRecord = false;
    if (isContext(line)) {
        m_context = {line};
        return false;
    }
    return StandardDiagnosticParser::parse(line, out, isErrorOutput);
}
