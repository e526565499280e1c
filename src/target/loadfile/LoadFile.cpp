#include "target/loadfile/LoadFile.h"

#include "base/HException.h"
#include "target/memory/MemoryRange.h"

#include <algorithm>
#include <cstring>

using namespace Qt::StringLiterals;

LoadFileSections &LoadFileInterface::sections()
{
    if (!m_sectionsRead && m_loadEnabled) {
        if (!readSections())
            throw HException(u"cannot read sections from load file"_s);
        m_sectionsRead = true;
    }
    return m_sections;
}

void LoadFileInterface::makeContiguous(quint8 fill)
{
    quint32 start = 0xFFFFFFFF, wrappedEnd = 0;
    quint64 end = 0;
    for (const auto &section : sections().primary()) {
        start = std::min(start, section->startAddress());
        end = std::max(end, section->endAddress());
        wrappedEnd = std::max(wrappedEnd, quint32(section->endAddress()));
    }
    if (start == 0xFFFFFFFF || wrappedEnd == 0)
        return;
    if (end - start > maximumContiguousBytes)
        throw HException(u"the sections span %1 bytes, too much to make them contiguous"_s.arg(end - start));
    QByteArray bytes(qsizetype(end - start), char(fill));
    for (const auto &section : m_sections.primary())
        if (section->size())
            std::ranges::copy(section->bytes(), bytes.data() + (section->startAddress() - start));
    m_sections.clear();
    m_sections.append(std::make_unique<UploadLoadFileSection>("Contiguous section", start, std::move(bytes)));
}

void LoadFileInterface::sortSections()
{
    std::ranges::stable_sort(sections().primary(), {}, [](const auto &section) { return section->startAddress(); });
}

void BinaryLoadFile::setLoadAddress(quint32 address)
{
    if (address == m_loadAddress)
        return;
    m_sections.clear();
    m_sectionsRead = false;
    m_loadAddress = address;
}

bool BinaryLoadFile::readSections()
{
    if (m_image.size() > (quint64(1) << 32) - m_loadAddress || m_image.size() > 0xFFFFFFFF)
        throw HException(u"%1 bytes at 0x%2 pass the end of the address space"_s.arg(m_image.size())
                             .arg(m_loadAddress, 8, 16, QChar(u'0')));
    m_sections.append(
        std::make_unique<StandardLoadFileSection>("data", m_loadAddress, quint32(m_image.size()), m_image.data()));
    return true;
}

void LoadFileList::append(std::unique_ptr<LoadFileInterface> file, const QByteArray &name)
{
    LoadFileInterface *const seen = file.get();
    m_entries.push_back({seen, name, std::move(file)});
}

bool LoadFileList::overlap() const
{
    MemoryRangeList before;
    for (const Entry &entry : m_entries) {
        MemoryRangeList own;
        for (const auto &section : entry.file->sections().primary())
            if (section->size())
                own.add(section->startAddress(), quint32(section->endAddress() - 1));
        if (before.intersects(own))
            return true;
        for (const MemoryRange &range : own)
            before.add(range.start, range.end);
    }
    return false;
}

void LoadFileList::sort()
{
    for (const Entry &entry : m_entries)
        entry.file->sortSections();
    std::ranges::stable_sort(m_entries, {}, [](const Entry &entry) { return entry.file->sections().startAddress(); });
}
