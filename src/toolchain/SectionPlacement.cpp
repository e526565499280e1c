#include "toolchain/SectionPlacement.h"

#include "base/HException.h"
#include "base/IntegerReader.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// What compilers put into sections of these names, for a document that doesn't say it. A section of any other
// name takes the input sections of its name and those whose names begin with it and a dot.
struct InputRow
{
    const char *section;
    const char *patterns;
};
constexpr InputRow knownInputs[] = {
    {".text", "*(.text .text.* .gnu.linkonce.t.* .glue_7 .glue_7t .stub)"},
    {".rodata", "*(.rodata .rodata.* .srodata .srodata.* .gnu.linkonce.r.*)"},
    {".data", "*(.data .data.* .sdata .sdata.* .gnu.linkonce.d.* .gnu.linkonce.s.*)"},
    {".bss", "*(.sbss .sbss.* .bss .bss.* .scommon COMMON .gnu.linkonce.b.* .gnu.linkonce.sb.*)"},
    {".tdata", "*(.tdata .tdata.* .gnu.linkonce.td.*)"},
    {".tbss", "*(.tbss .tbss.* .tcommon .gnu.linkonce.tb.*)"},
    {".init_array", "*(SORT_BY_INIT_PRIORITY(.init_array.*)) *(SORT_BY_INIT_PRIORITY(.ctors.*)) *(.init_array .ctors)"},
    {".fini_array", "*(SORT_BY_INIT_PRIORITY(.fini_array.*)) *(SORT_BY_INIT_PRIORITY(.dtors.*)) *(.fini_array .dtors)"},
    {".ARM.exidx", "*(.ARM.exidx .ARM.exidx.* .gnu.linkonce.armexidx.*)"},
    {".ARM.extab", "*(.ARM.extab .ARM.extab.* .gnu.linkonce.armextab.*)"},
};

constexpr const char *sectionAttributes[] = {
    "name",        "load",   "keep",          "start",          "size",       "alignment",
    "runin",       "fill",   "inputsections", "address_symbol", "end_symbol", "size_symbol",
    "description", "access", "addressSpace",  "endian",         "runoffset",
};

QString inputsOf(const QString &section)
{
    for (const InputRow &row : knownInputs)
        if (section == QLatin1StringView(row.section))
            return QString::fromLatin1(row.patterns);
    return u"*(%1 %1.*)"_s.arg(section);
}

// Words of a linker script: anything else in the document could end the script's statement.
bool isName(const QString &text)
{
    return !text.isEmpty() && std::ranges::all_of(text, [](QChar c) {
        return c.unicode() < 128 && (c.isLetterOrNumber() || QStringView(u"_.$").contains(c));
    });
}

bool isPattern(const QString &text)
{
    int depth = 0;
    for (const QChar c : text) {
        depth += c == u'(' ? 1 : c == u')' ? -1 : 0;
        if (depth < 0 || QStringView(u"{};=\"").contains(c))
            return false;
    }
    return depth == 0 && text.contains(u'(');
}

void addSegment(std::vector<MemorySegment> &segments, const MemorySegment &segment)
{
    if (segment.name.isEmpty())
        throw HException(segment.place.error(u"segment without a name"_s));
    if (quint64(segment.start) + segment.size > quint64(1) << 32)
        throw HException(segment.place.error(u"segment '%1' ends behind the address space"_s.arg(segment.name)));
    for (const MemorySegment &other : segments)
        if (other.name == segment.name)
            throw HException(segment.place.error(u"a second segment '%1'"_s.arg(segment.name)));
    segments.push_back(segment);
}

// The segments among the element's descendants. Starts with a "+" count from the segment around.
void collectSegments(const PlacementDocument &document, const XMLElement &top, std::vector<MemorySegment> &segments)
{
    struct Open
    {
        const XMLElement *element;
        quint32 base;
    };
    std::vector<Open> open = {{&top, 0}};
    while (!open.empty()) {
        auto [element, base] = open.back();
        open.pop_back();
        if (const XMLElement *next = element->nextSiblingElement(); next && element != &top)
            open.push_back({next, base});
        if (element->name() == "MemorySegment") {
            const quint32 start = document.number(*element, "start", base).value_or(base);
            const quint32 size = document.number(*element, "size").value_or(0);
            if (size)
                addSegment(segments, {document.text(*element, "name"), start, size,
                                      document.text(*element, "access") == u"ReadOnly", document.placeOf(*element)});
            base = start;
        } else if (element->name() == "RegisterGroup") {
            continue; // thousands of registers, and no segment among them
        }
        if (const XMLElement *child = element->firstChildElement())
            open.push_back({child, base});
    }
}

} // namespace

std::vector<MemorySegment> SectionPlacement::readMemoryMap(const QString &path, const QString &macros,
                                                           QStringList *files)
{
    const PlacementDocument document(path, macros);
    if (files)
        *files += document.files();
    std::vector<MemorySegment> segments;
    collectSegments(document, *document.root(), segments);
    if (segments.empty())
        throw HException(SourcePlace{path}.error(u"memory map without a segment"_s));
    return segments;
}

std::vector<MemorySegment> SectionPlacement::readSegmentList(const QString &text)
{
    std::vector<MemorySegment> segments;
    const SourcePlace place{u"-placementsegments"_s};
    for (const QString &entry : splitAtSemicolons(text)) {
        const QStringList fields = entry.split(u' ', Qt::SkipEmptyParts);
        const auto number = [&fields](qsizetype i) { // too large for what is no number
            return fields[i].front().isDigit() ? readInteger(fields[i]) : ~quint64(0);
        };
        if (fields.size() != 4 || number(2) > 0xFFFFFFFF || number(3) > 0xFFFFFFFF || number(3) == 0)
            throw HException(place.error(u"'%1' is no NAME RWX START SIZE"_s.arg(entry)));
        addSegment(segments,
                   {fields[0], quint32(number(2)), quint32(number(3)), fields[1] == u"R" || fields[1] == u"RX", place});
    }
    return segments;
}

SectionPlacement::SectionPlacement(std::vector<MemorySegment> segments, const QString &path, const QString &macros)
    : m_segments(std::move(segments)), m_isUsed(m_segments.size())
{
    const PlacementDocument document(path, macros);
    m_files = document.files();
    for (const XMLElement *child = document.root()->firstChildElement(); child; child = child->nextSiblingElement())
        readElement(document, *child, std::nullopt);
    if (m_sections.empty())
        throw HException(SourcePlace{path}.error(u"no section is placed"_s));
    checkRunSections();
    placeUnwindingTables();
}

// Sections stand in segments; roots of imported files are passed through.
void SectionPlacement::readElement(const PlacementDocument &document, const XMLElement &element,
                                   std::optional<size_t> segment)
{
    const SourcePlace place = document.placeOf(element);
    const QByteArrayView tag = element.name();
    if (tag == "ProgramSection") {
        if (!segment)
            throw HException(place.error(u"section outside of a memory segment"_s));
        readSection(document, element, *segment);
        return;
    }
    const bool isSegment = tag == "MemorySegment";
    const bool isRoot = tag.compare("root", Qt::CaseInsensitive) == 0 || tag == "Processor";
    if (segment || (!isSegment && !isRoot)) {
        m_warnings += place.warning(u"'%1' means nothing here"_s.arg(QString::fromUtf8(tag)));
        return;
    }
    if (isSegment) {
        segment = segmentFor(document, element);
        m_isUsed[*segment] = true;
    }
    for (const XMLElement *child = element.firstChildElement(); child; child = child->nextSiblingElement())
        if (isSegment || child->name() == "MemorySegment")
            readElement(document, *child, segment);
}

// The first of the names that the target has.
size_t SectionPlacement::segmentFor(const PlacementDocument &document, const XMLElement &element) const
{
    const QString names = document.text(element, "name");
    for (const QString &name : names.split(u';', Qt::SkipEmptyParts))
        for (size_t i = 0; i < m_segments.size(); ++i)
            if (m_segments[i].name == name.trimmed())
                return i;
    QStringList known;
    for (const MemorySegment &segment : m_segments)
        known += segment.name;
    throw HException(document.placeOf(element).error(
        u"the target has no memory segment '%1'; it has %2"_s.arg(names, known.join(u", "_s))));
}

void SectionPlacement::readSection(const PlacementDocument &document, const XMLElement &element, size_t segment)
{
    PlacedSection section;
    section.place = document.placeOf(element);
    const auto fail = [&](const QString &message) { throw HException(section.place.error(message)); };
    const auto symbol = [&](const char *attribute) {
        const QString name = document.text(element, attribute);
        if (!name.isEmpty() && !isName(name))
            fail(u"%1 '%2' is no symbol name"_s.arg(QLatin1StringView(attribute), name));
        return name;
    };

    section.name = document.text(element, "name");
    if (!isName(section.name))
        fail(section.name.isEmpty() ? u"section without a name"_s : u"'%1' is no section name"_s.arg(section.name));
    for (const PlacedSection &other : m_sections)
        if (other.name == section.name)
            fail(u"section '%1' is placed a second time"_s.arg(section.name));
    section.segment = segment;
    section.isLoaded = document.isYes(element, "load");
    section.isKept = document.isYes(element, "keep");
    section.start = document.number(element, "start", m_segments[segment].start);
    const MemorySegment &memory = m_segments[segment];
    if (section.start && (*section.start < memory.start || *section.start - memory.start >= memory.size))
        fail(u"section '%1' starts outside of segment '%2'"_s.arg(section.name, memory.name));
    section.size = document.number(element, "size");
    section.alignment = document.number(element, "alignment").value_or(4);
    if (section.alignment == 0 || (section.alignment & (section.alignment - 1)) != 0)
        fail(u"alignment %1 is no power of two"_s.arg(section.alignment));
    section.runIn = symbol("runin");
    section.inputSections = document.text(element, "inputsections");
    if (section.inputSections.isEmpty())
        section.inputSections = inputsOf(section.name);
    else if (!isPattern(section.inputSections))
        fail(u"inputsections '%1' is no list of patterns like \"*(.text .text.*)\""_s.arg(section.inputSections));
    if (const auto fill = document.number(element, "fill")) {
        if (!section.isLoaded && *fill != 0)
            fail(u"a section that isn't loaded can only be filled with 0"_s);
        // Linkers differ in what they make of fewer than four bytes.
        const quint32 pattern = *fill <= 0xFF ? *fill * 0x01010101 : *fill;
        section.fill = u"0x%1"_s.arg(pattern, 8, 16, QChar(u'0'));
    }
    section.startSymbol = symbol("address_symbol");
    section.endSymbol = symbol("end_symbol");
    section.sizeSymbol = symbol("size_symbol");
    if (element.hasAttribute("runoffset"))
        fail(u"'runoffset' can't be placed; 'runin' names the section that this one runs in"_s);
    for (const XMLAttribute &attribute : element.attributes())
        if (std::ranges::find(sectionAttributes, attribute.name(), [](auto *name) { return QByteArrayView(name); }) ==
            std::end(sectionAttributes))
            m_warnings +=
                section.place.warning(u"attribute '%1' means nothing here"_s.arg(QString::fromUtf8(attribute.name())));
    m_sections.push_back(section);
}

// Compilers make them without being asked. Where the document doesn't say it they go behind .text, or else behind the
// first loaded section.
void SectionPlacement::placeUnwindingTables()
{
    auto before = std::ranges::find(m_sections, u".text"_s, &PlacedSection::name);
    if (before == m_sections.end() || !before->isLoaded)
        before = std::ranges::find_if(m_sections, &PlacedSection::isLoaded);
    if (before == m_sections.end())
        return;
    PlacedSection section;
    section.segment = before->segment;
    section.isLoaded = true;
    section.place = before->place;
    for (const QString &name : {u".ARM.extab"_s, u".ARM.exidx"_s, u".gcc_except_table"_s, u".eh_frame"_s}) {
        if (std::ranges::find(m_sections, name, &PlacedSection::name) != m_sections.end())
            continue;
        section.name = name;
        section.isKept = name == u".eh_frame";
        section.inputSections = inputsOf(name);
        before = m_sections.insert(before + 1, section);
    }
}

void SectionPlacement::checkRunSections() const
{
    for (const PlacedSection &section : m_sections) {
        if (section.runIn.isEmpty())
            continue;
        const auto named = [&](const PlacedSection &other) { return other.name == section.runIn; };
        const auto run = std::ranges::find_if(m_sections, named);
        if (run == m_sections.end())
            throw HException(section.place.error(
                u"section '%1' runs in '%2', which isn't placed"_s.arg(section.name, section.runIn)));
        if (!section.isLoaded || run->isLoaded || !run->runIn.isEmpty())
            throw HException(section.place.error(
                u"section '%1' must be loaded and '%2' must not"_s.arg(section.name, section.runIn)));
        const auto runsThere = [&](const PlacedSection &other) { return other.runIn == section.runIn; };
        if (std::ranges::count_if(m_sections, runsThere) > 1)
            throw HException(section.place.error(u"a second section that runs in '%1'"_s.arg(section.runIn)));
    }
}
