#include "toolchain/LinkerScript.h"

#include "base/HException.h"

using namespace Qt::StringLiterals;

namespace {

// A name as a symbol or region may have it.
QString identifier(QString name)
{
    for (QChar &c : name)
        if (c.unicode() >= 128 || !c.isLetterOrNumber())
            c = u'_';
    return name;
}

QString hex(quint64 value)
{
    return u"0x%1"_s.arg(value, 8, 16, QChar(u'0'));
}

QString bare(const QString &section)
{
    return section.startsWith(u'.') ? section.sliced(1) : section;
}

QString assignment(const QString &symbol, const QString &value)
{
    return u"  %1 = %2;\n"_s.arg(symbol, value);
}

// "__NAME_what__", and once more for C when the name has characters that C doesn't know.
QString namedSymbol(const QString &name, const char *what, const QString &value)
{
    const QString form = u"__%1_%2__"_s;
    QString text = assignment(form.arg(name, QLatin1StringView(what)), value);
    if (const QString other = identifier(name); other != name)
        text += assignment(form.arg(other, QLatin1StringView(what)), value);
    return text;
}

// Each pattern group "file(...)" of a list within KEEP().
QString kept(const QString &patterns)
{
    QString text, group;
    int depth = 0;
    for (const QChar c : patterns) {
        if (depth == 0 && c.isSpace() && !group.contains(u'('))
            group.clear();
        else
            group += c;
        depth += c == u'(' ? 1 : c == u')' ? -1 : 0;
        if (c == u')' && depth == 0) {
            text += group.startsWith(u"KEEP"_s) ? group + u' ' : u"KEEP(%1) "_s.arg(group.trimmed());
            group.clear();
        }
    }
    return text.trimmed();
}

// Sections that aren't part of the program and stand at address 0.
constexpr const char *informationSections[] = {
    ".comment",        ".debug_abbrev",     ".debug_addr",     ".debug_aranges",     ".debug_frame",
    ".debug_info",     ".debug_line",       ".debug_line_str", ".debug_loc",         ".debug_loclists",
    ".debug_macinfo",  ".debug_macro",      ".debug_names",    ".debug_pubnames",    ".debug_pubtypes",
    ".debug_ranges",   ".debug_rnglists",   ".debug_str",      ".debug_str_offsets", ".debug_types",
    ".ARM.attributes", ".riscv.attributes", ".stab",           ".stabstr",           ".symtab",
    ".strtab",         ".shstrtab",
};

// What C libraries, the compilers' support functions and start-up code by others call the bounds of sections,
// where the program doesn't define it itself.
struct LibrarySymbol
{
    const char *section, *symbol, *value;
};
constexpr LibrarySymbol librarySymbols[] = {
    {".ARM.exidx", "__exidx_start", "ADDR(.ARM.exidx)"},
    {".ARM.exidx", "__exidx_end", "ADDR(.ARM.exidx) + SIZEOF(.ARM.exidx)"},
    {".preinit_array", "__preinit_array_start", "__preinit_array_start__"},
    {".preinit_array", "__preinit_array_end", "__preinit_array_end__"},
    {".init_array", "__init_array_start", "__init_array_start__"},
    {".init_array", "__init_array_end", "__init_array_end__"},
    {".fini_array", "__fini_array_start", "__fini_array_start__"},
    {".fini_array", "__fini_array_end", "__fini_array_end__"},
    {".heap", "end", "__heap_start__"},
    {".heap", "_end", "__heap_start__"},
    {".heap", "__end__", "__heap_start__"},
    {".heap", "__HeapLimit", "__heap_end__"},
    {".stack", "__stack", "__stack_end__"},
    {".stack", "_estack", "__stack_end__"},
    {".stack", "__StackTop", "__stack_end__"},
    {".stack", "__StackLimit", "__stack_start__"},
    {".data", "__global_pointer$", "__data_start__ + 0x800"},
};

// Thread-local variables of the one thread that a program begins with. Their block is .tdata and .tbss; its address
// is the thread pointer of RISC-V. That of ARM lies before it by two words, or more for variables that are aligned
// to more (Addenda to the ABI for the Arm Architecture, "Thread Local Storage").
constexpr auto threadPointers = R"(
  PROVIDE(__tls_start__ = SIZEOF(.tdata) ? ADDR(.tdata) : ADDR(.tbss));
  PROVIDE(__tls_arm_pointer__ = __tls_start__ - MAX(8, MAX(ALIGNOF(.tdata), ALIGNOF(.tbss))));
)"_L1;

} // namespace

QByteArray LinkerScript::text() const
{
    QString text = u"/* Made by cc from the memory map and the section placement. */\n"_s;
    text += u"ENTRY(%1)\n\n"_s.arg(m_entry);
    text += regions();
    text += u"\nSECTIONS\n{\n"_s;
    for (const PlacedSection *load : orderedSections())
        text += section(*load);
    if (hasThreadBlock())
        text += threadPointers;
    for (size_t i = 0; i < m_placement.segments().size(); ++i)
        if (m_placement.usesSegment(i))
            text += segmentSymbols(i);
    text += overlapChecks();
    text += linkerSections();
    // Of start files, which the program doesn't have: what destructors of objects with static storage belong to.
    text += u"  PROVIDE_HIDDEN(__dso_handle = 0);\n"_s;
    for (const char *name : informationSections)
        text += u"  %1 0 : { *(%1) }\n"_s.arg(QLatin1StringView(name));
    text += u"  /DISCARD/ : { *(.note.GNU-stack .gnu_debuglink .gnu.lto_*) }\n}\n"_s;
    return text.toUtf8();
}

const PlacedSection *LinkerScript::runSectionOf(const PlacedSection &section) const
{
    for (const PlacedSection &other : m_placement.sections())
        if (!section.runIn.isEmpty() && other.name == section.runIn)
            return &other;
    return &section;
}

bool LinkerScript::hasCopiedSections(size_t segment) const
{
    return std::ranges::any_of(m_placement.sections(), [&](const PlacedSection &section) {
        return !section.runIn.isEmpty() && runSectionOf(section)->segment == segment;
    });
}

bool LinkerScript::hasThreadBlock() const
{
    const auto isPlaced = [&](QStringView name) {
        return std::ranges::find(m_placement.sections(), name, &PlacedSection::name) != m_placement.sections().end();
    };
    return isPlaced(u".tdata") && isPlaced(u".tbss");
}

bool LinkerScript::isRunPlace(const PlacedSection &section) const
{
    return std::ranges::any_of(m_placement.sections(),
                               [&](const PlacedSection &other) { return other.runIn == section.name; });
}

// The linker fills a segment in the order of the script, so a section must come behind all those that stand
// before it where it is loaded and where it runs. Else the document's order counts: of two sections whose patterns fit
// the same input the linker gives it to the first.
std::vector<const PlacedSection *> LinkerScript::orderedSections() const
{
    const std::vector<PlacedSection> &all = m_placement.sections();
    // Per segment its places in order, each standing for the section that is put there.
    std::vector<std::vector<const PlacedSection *>> queues(m_placement.segments().size());
    std::vector<size_t> segments; // as the document speaks of them
    for (const PlacedSection &place : all) {
        if (queues[place.segment].empty())
            segments.push_back(place.segment);
        const auto runsHere = [&](const PlacedSection &other) { return other.runIn == place.name; };
        const auto load = std::ranges::find_if(all, runsHere);
        queues[place.segment].push_back(load == all.end() ? &place : &*load);
    }
    std::vector<size_t> position(queues.size());
    const auto isNext = [&](const PlacedSection *section, size_t segment) {
        return position[segment] < queues[segment].size() && queues[segment][position[segment]] == section;
    };
    std::vector<const PlacedSection *> ordered;
    for (size_t remaining = all.size(); remaining;) {
        const size_t before = remaining;
        for (const size_t i : segments) {
            while (position[i] < queues[i].size()) {
                const PlacedSection *section = queues[i][position[i]];
                const size_t runSegment = runSectionOf(*section)->segment;
                const bool hasTwoPlaces = !section->runIn.isEmpty();
                if (hasTwoPlaces && section->segment == runSegment) {
                    // Both places are in this queue; the load image comes at the first of them.
                    if (std::ranges::find(ordered, section) == ordered.end())
                        ordered.push_back(section);
                } else if (hasTwoPlaces) {
                    if (!isNext(section, section->segment) || !isNext(section, runSegment))
                        break;
                    ++position[i == section->segment ? runSegment : section->segment];
                    --remaining;
                    ordered.push_back(section);
                } else {
                    ordered.push_back(section);
                }
                ++position[i];
                --remaining;
            }
        }
        if (remaining == before)
            for (size_t i = 0; i < queues.size(); ++i)
                if (position[i] < queues[i].size())
                    throw HException(queues[i][position[i]]->place.error(
                        u"section '%1' runs in another order than it is loaded"_s.arg(queues[i][position[i]]->name)));
    }
    joinThreadBlock(ordered);
    return ordered;
}

// GNU ld refuses a script with anything between the two, so what is loaded behind .tdata has to stand behind .tbss.
void LinkerScript::joinThreadBlock(std::vector<const PlacedSection *> &ordered) const
{
    const auto data = std::ranges::find(ordered, u".tdata"_s, &PlacedSection::name);
    const auto zero = std::ranges::find(ordered, u".tbss"_s, &PlacedSection::name);
    if (data == ordered.end() || zero == ordered.end() || zero < data)
        return;
    const auto liesInTheirSegment = [&](const PlacedSection *section) {
        return section->segment == (*zero)->segment || runSectionOf(*section)->segment == (*zero)->segment;
    };
    if (std::none_of(data + 1, zero, liesInTheirSegment))
        std::rotate(data + 1, zero, zero + 1);
}

QString LinkerScript::regions() const
{
    QString text = u"MEMORY\n{\n"_s;
    for (const MemorySegment &segment : m_placement.segments())
        text += u"  %1 (%2) : ORIGIN = %3, LENGTH = %4\n"_s.arg(
            identifier(segment.name), segment.isReadOnly ? u"rx"_s : u"rwx"_s, hex(segment.start), hex(segment.size));
    return text + u"}\n"_s;
}

// One output section: the description of `load`, which may run in another place.
QString LinkerScript::section(const PlacedSection &load) const
{
    const PlacedSection &run = *runSectionOf(load);
    const QString loadRegion = identifier(m_placement.segments()[load.segment].name);
    const QString runRegion = identifier(m_placement.segments()[run.segment].name);
    // Start-up code copies words, so nothing lies within the word at a copied section's end. To lengthen that section
    // would keep it when it is empty, and GNU ld loads an empty section where it runs.
    const quint32 leastAlignment = hasCopiedSections(run.segment) ? 4 : 1;
    const quint32 alignment = std::max({load.alignment, run.alignment, leastAlignment});
    const bool isThreadZero = load.name == u".tbss" && hasThreadBlock();

    QString text = u"  "_s + load.name;
    if (run.start)
        text += u' ' + hex(*run.start);
    if (!load.isLoaded)
        text += u" (NOLOAD)"_s;
    text += u" : "_s;
    QString loadAddress;
    if (load.start) // by AT> the bytes would go to the next free place instead
        loadAddress = hex(*load.start);
    else if (isThreadZero) // it has no bytes, and the block's segment goes on behind the bytes of .tdata
        loadAddress = u"LOADADDR(.tdata) + SIZEOF(.tdata)"_s;
    if (!loadAddress.isEmpty())
        text += u"AT(%1) "_s.arg(loadAddress);
    text += u"ALIGN(%1)\n  {\n"_s.arg(alignment) + content(load, run) + u"  } > "_s + runRegion;
    if (loadAddress.isEmpty())
        text += u" AT> "_s + loadRegion;
    if (load.isLoaded && !load.fill.isEmpty())
        text += u" ="_s + load.fill;
    text += u'\n';
    if (const std::optional<quint32> size = run.size ? run.size : load.size)
        text += u"  ASSERT(SIZEOF(%1) <= %2, \"%3\")\n"_s.arg(
            load.name, hex(*size),
            load.place.error(u"section %1 is larger than its size of %2 bytes"_s.arg(load.name, QString::number(*size)))
                .replace(u'"', u'\''));
    text += sectionSymbols(load, run) + u'\n';
    if (isThreadZero) // GNU ld would give its place away again
        text +=
            u"  .tbss_space (NOLOAD) : { __tbss_space__ = .; . = MAX(__tbss_space__, __tbss_end__); } > %1 AT> %1\n\n"_s
                .arg(runRegion);
    return text;
}

QString LinkerScript::content(const PlacedSection &load, const PlacedSection &run) const
{
    QString text;
    if (load.name == u".copy_table" || load.name == u".zero_table")
        return tableRows(load.name == u".copy_table");
    const std::optional<quint32> size = run.size ? run.size : load.size;
    const bool isFrameTable = load.name == u".eh_frame";
    // A name for the section's start that counts while its size isn't known yet.
    const QString start = u"__%1_begin__"_s.arg(bare(load.name));
    if (size || isFrameTable)
        text += u"    %1 = .;\n"_s.arg(start);
    text += u"    "_s + (load.isKept ? kept(load.inputSections) : load.inputSections) + u'\n';
    if (isFrameTable) // who walks it stops at a length of 0
        text += u"    . = . > %1 ? . + 4 : .;\n"_s.arg(start);
    if (!load.isLoaded && !load.fill.isEmpty())
        text += u"    . = ALIGN(4);\n"_s; // start-up code clears words
    if (size)
        text += u"    . = MAX(., %1 + %2);\n"_s.arg(start, hex(*size));
    return text;
}

// By the symbols of the sections: to name a section here would let GNU ld make it now, and the order in which it makes
// those of thread-local variables counts.
QString LinkerScript::tableRows(bool copied) const
{
    const auto symbol = [](const PlacedSection &section, const char *what) {
        return u"__%1_%2__"_s.arg(identifier(bare(section.name)), QLatin1StringView(what));
    };
    QString text;
    for (const PlacedSection &section : m_placement.sections()) {
        const bool isZeroed = !section.isLoaded && !section.fill.isEmpty() && !isRunPlace(section);
        if (copied ? section.runIn.isEmpty() : !isZeroed)
            continue;
        text += copied ? u"    LONG(%1) "_s.arg(symbol(section, "load_start")) : u"    "_s;
        text += u"LONG(%1) LONG((%2 + 3) / 4 * 4)\n"_s.arg(symbol(section, "start"), symbol(section, "size"));
    }
    return text;
}

QString LinkerScript::sectionSymbols(const PlacedSection &load, const PlacedSection &run) const
{
    const QString start = u"ADDR(%1)"_s.arg(load.name), size = u"SIZEOF(%1)"_s.arg(load.name);
    const QString loadStart = u"LOADADDR(%1)"_s.arg(load.name);
    const QString end = start + u" + "_s + size;
    const QString name = bare(load.name);
    QString text = namedSymbol(name, "load_start", loadStart) +
                   namedSymbol(name, "load_end", loadStart + u" + "_s + size) + namedSymbol(name, "start", start) +
                   namedSymbol(name, "end", end) + namedSymbol(name, "size", size);
    const auto addChosen = [&](const PlacedSection &section, const QString &from) {
        if (!section.startSymbol.isEmpty())
            text += assignment(section.startSymbol, from);
        if (!section.endSymbol.isEmpty())
            text += assignment(section.endSymbol, from + u" + "_s + size);
        if (!section.sizeSymbol.isEmpty())
            text += assignment(section.sizeSymbol, size);
    };
    addChosen(load, loadStart);
    if (&run != &load) {
        const QString runName = bare(run.name);
        text += namedSymbol(runName, "start", start) + namedSymbol(runName, "end", end) +
                namedSymbol(runName, "size", size);
        addChosen(run, start);
    }
    for (const LibrarySymbol &row : librarySymbols)
        if (load.name == QLatin1StringView(row.section))
            text += u"  PROVIDE(%1 = %2);\n"_s.arg(QLatin1StringView(row.symbol), QLatin1StringView(row.value));
    return text;
}

// What linkers make themselves, and is mostly empty. It goes where the first loaded section goes.
QString LinkerScript::linkerSections() const
{
    struct Row
    {
        const char *name, *inputs;
    };
    constexpr Row rows[] = {
        {".linker_stubs", ".glue_7 .glue_7t .vfp11_veneer .v4_bx .iplt .igot.plt .got .got.plt"},
        {".rel.dyn", ".rel.*"},
        {".rela.dyn", ".rela.*"},
    };
    QString text;
    const auto loaded = std::ranges::find_if(m_placement.sections(), &PlacedSection::isLoaded);
    if (loaded == m_placement.sections().end())
        return text;
    const QString region = identifier(m_placement.segments()[loaded->segment].name);
    for (const Row &row : rows)
        text +=
            u"  %1 : { *(%2) } > %3 AT> %3\n"_s.arg(QLatin1StringView(row.name), QLatin1StringView(row.inputs), region);
    return text;
}

// A segment is used up to the highest end of what is loaded or runs in it.
QString LinkerScript::segmentSymbols(size_t segment) const
{
    const MemorySegment &memory = m_placement.segments()[segment];
    QString used = hex(memory.start);
    const auto add = [&](const QString &form, const PlacedSection &section) {
        used = u"MAX(%1, %2)"_s.arg(used, form.arg(section.name));
    };
    for (const PlacedSection &section : m_placement.sections()) {
        if (isRunPlace(section))
            continue;
        if (section.segment == segment)
            add(section.isLoaded ? u"LOADADDR(%1) + SIZEOF(%1)"_s : u"ADDR(%1) + SIZEOF(%1)"_s, section);
        if (!section.runIn.isEmpty() && runSectionOf(section)->segment == segment)
            add(u"ADDR(%1) + SIZEOF(%1)"_s, section);
    }
    const QString name = identifier(memory.name);
    return namedSymbol(name, "segment_start", hex(memory.start)) +
           namedSymbol(name, "segment_end", hex(quint64(memory.start) + memory.size)) +
           namedSymbol(name, "segment_size", hex(memory.size)) + namedSymbol(name, "segment_used_end", used) +
           namedSymbol(name, "segment_used_size", u"__%1_segment_used_end__ - %2"_s.arg(name, hex(memory.start))) +
           u'\n';
}

// A map may name the same memory twice, as a whole and in parts. GNU ld takes sections that run at one address for
// overlays and says nothing.
QString LinkerScript::overlapChecks() const
{
    QString text;
    const auto symbol = [](const PlacedSection *section, const char *what) {
        return u"__%1_%2__"_s.arg(identifier(bare(section->name)), QLatin1StringView(what));
    };
    std::vector<const PlacedSection *> earlier; // as they run
    for (const PlacedSection &load : m_placement.sections()) {
        if (isRunPlace(load))
            continue;
        const PlacedSection *section = runSectionOf(load);
        const MemorySegment &segment = m_placement.segments()[section->segment];
        for (const PlacedSection *other : earlier) {
            const MemorySegment &memory = m_placement.segments()[other->segment];
            if (&memory == &segment || quint64(memory.start) + memory.size <= segment.start ||
                quint64(segment.start) + segment.size <= memory.start)
                continue;
            text += u"  ASSERT(MIN(%1, %2) <= MAX(%3, %4), \"%5\")\n"_s.arg(
                symbol(section, "end"), symbol(other, "end"), symbol(section, "start"), symbol(other, "start"),
                section->place.error(u"section %1 overlaps section %2"_s.arg(section->name, other->name))
                    .replace(u'"', u'\''));
        }
        earlier.push_back(section);
    }
    return text;
}
