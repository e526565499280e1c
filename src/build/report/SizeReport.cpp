#include "build/report/SizeReport.h"

#include "base/HException.h"
#include "base/JsonWriter.h"
#include "elf/ElfFile.h"
#include "project/model/ProjectSystem.h"
#include "toolchain/SectionPlacement.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

struct Range
{
    quint64 start, end; // end is behind the last byte
};

// Where a section's bytes are loaded; its own address when no segment holds it.
quint32 loadAddress(const ElfFile &elf, const Elf32_Shdr &section)
{
    for (const ElfSegment &segment : elf.segments()) {
        const Elf32_Phdr &header = segment.header;
        const quint32 offset = section.sh_addr - header.p_vaddr;
        if (header.p_type == PT_LOAD && section.sh_addr >= header.p_vaddr && offset < header.p_memsz)
            return header.p_paddr + offset;
    }
    return section.sh_addr;
}

// The memory that the program takes, where it runs and where it is loaded; sorted, without overlaps.
std::vector<Range> takenRanges(const ElfFile &elf)
{
    std::vector<Range> ranges;
    for (const auto &section : elf.sections()) {
        const Elf32_Shdr &header = section->header();
        if (!(header.sh_flags & SHF_ALLOC) || header.sh_size == 0)
            continue;
        ranges.push_back({header.sh_addr, quint64(header.sh_addr) + header.sh_size});
        if (header.sh_type == SHT_NOBITS)
            continue;
        const quint64 load = loadAddress(elf, header);
        ranges.push_back({load, load + header.sh_size});
    }
    std::sort(ranges.begin(), ranges.end(), [](const Range &a, const Range &b) { return a.start < b.start; });
    std::vector<Range> merged;
    for (const Range &range : ranges) {
        if (!merged.empty() && range.start <= merged.back().end)
            merged.back().end = qMax(merged.back().end, range.end);
        else
            merged.push_back(range);
    }
    return merged;
}

// As the Berkeley format of `size` does.
void countSections(const ElfFile &elf, ProgramSize &size)
{
    for (const auto &section : elf.sections()) {
        const Elf32_Shdr &header = section->header();
        if (!(header.sh_flags & SHF_ALLOC))
            continue;
        if (header.sh_flags & SHF_EXECINSTR || !(header.sh_flags & SHF_WRITE))
            size.text += header.sh_size;
        else
            (header.sh_type == SHT_NOBITS ? size.bss : size.data) += header.sh_size;
    }
}

// The segments of the project's memory map, or those that it names itself. A map that isn't there was left out of the
// link too.
std::vector<MemorySegment> memorySegments(const StandardProjectSystem &system, const ProjectElement *project,
                                          const QString &configuration)
{
    using enum ProjectProperty;
    const QString named = system.expandedValue(project, linker_memory_map_file, configuration);
    const QString file = QDir(system.projectDirectory(project)).filePath(named);
    if (QFileInfo(file).isFile())
        return SectionPlacement::readMemoryMap(file,
                                               system.expandedValue(project, linker_memory_map_macros, configuration));
    const QString list = system.expandedValue(project, linker_section_placements_segments, configuration);
    return list.isEmpty() ? std::vector<MemorySegment>() : SectionPlacement::readSegmentList(list);
}

QString grouped(quint64 number)
{
    QString digits = QString::number(number);
    for (qsizetype at = digits.size() - 3; at > 0; at -= 3)
        digits.insert(at, u',');
    return digits;
}

} // namespace

std::optional<ProgramSize> programSize(const StandardProjectSystem &system, const ProjectElement *project,
                                       const QString &configuration, const QString &file, QString &problem)
{
    ProgramSize size;
    size.project = project->displayName();
    size.configuration = configuration;
    size.file = file;
    ElfFile elf;
    try {
        if (!ElfFile::isElfFile(size.file))
            return std::nullopt;
        elf.load(size.file);
    } catch (const HException &) {
        return std::nullopt; // of 64 bits, say: no firmware
    }
    countSections(elf, size);
    try {
        const std::vector<Range> taken = takenRanges(elf);
        for (const MemorySegment &segment : memorySegments(system, project, configuration)) {
            SegmentUse use{segment.name, segment.start, segment.size, 0};
            const quint64 end = quint64(segment.start) + segment.size;
            for (const Range &range : taken)
                if (range.start < end && range.end > segment.start)
                    use.used += qMin(range.end, end) - qMax<quint64>(range.start, segment.start);
            size.segments.push_back(use);
        }
    } catch (const HException &error) {
        problem = error.message();
    }
    return size;
}

void writeSize(JsonWriter &json, const ProgramSize &size)
{
    json.beginObject();
    json.field("project", size.project);
    json.field("configuration", size.configuration);
    json.field("file", size.file);
    json.field("text", qint64(size.text));
    json.field("data", qint64(size.data));
    json.field("bss", qint64(size.bss));
    json.beginArray("segments");
    for (const SegmentUse &segment : size.segments) {
        json.beginObject();
        json.field("name", segment.name);
        json.addressField("start", segment.start);
        json.field("size", qint64(segment.size));
        json.field("used", qint64(segment.used));
        json.end();
    }
    json.end();
    json.end();
}

QString sizeText(const ProgramSize &size, int barWidth)
{
    QString text = u"%1: text %2, data %3, bss %4 bytes\n"_s.arg(size.project, grouped(size.text), grouped(size.data),
                                                                 grouped(size.bss));
    qsizetype nameWidth = 0;
    for (const SegmentUse &segment : size.segments)
        nameWidth = qMax(nameWidth, segment.name.size());
    for (const SegmentUse &segment : size.segments) {
        text += u"  "_s + segment.name.leftJustified(nameWidth);
        if (barWidth > 0) {
            const int filled = segment.used == 0 ? 0 : qBound(1, int(segment.percent() * barWidth / 100), barWidth);
            text += u"  ["_s + QString(filled, u'#') + QString(barWidth - filled, u'.') + u']';
        }
        text += u"  %1%  %2 of %3 bytes\n"_s.arg(segment.percent(), 5, 'f', 1)
                    .arg(grouped(segment.used).rightJustified(11), grouped(segment.size));
    }
    return text;
}
