#include "target/loadfile/LoadFileSection.h"

#include <algorithm>
#include <cstring>

quint64 StandardLoadFileSection::s_constructedBytes = 0;

bool operator==(const LoadFileSectionInterface &a, const LoadFileSectionInterface &b)
{
    return a.startAddress() == b.startAddress() && a.size() == b.size() && !a.data(false) == !b.data(false) &&
           std::ranges::equal(a.bytes(), b.bytes());
}

StandardLoadFileSection::StandardLoadFileSection(QByteArray name, quint32 startAddress, quint32 size,
                                                 const quint8 *bytes)
    : m_name(std::move(name)), m_startAddress(startAddress), m_size(size), m_bytes(bytes)
{
    s_constructedBytes += size;
}

void StandardLoadFileSection::makeCopy()
{
    if (m_copy || !m_bytes)
        return;
    m_copy = std::make_unique_for_overwrite<quint8[]>(m_size);
    std::copy_n(m_bytes, m_size, m_copy.get());
}

void ExpandingLoadFileSection::grow(quint32 count)
{
    m_own.resize(std::max<qsizetype>(2 * m_own.size(), qsizetype(size()) + count));
}

LoadFileSectionInterface *LoadFileSections::find(quint32 address, quint32 count) const
{
    const quint64 end = quint64(address) + count;
    if (count == 0 || end > quint64(1) << 32)
        return nullptr;
    const auto found = std::ranges::find_if(m_primary, [&](const auto &section) {
        return section->startAddress() <= address && end <= section->endAddress();
    });
    return found == m_primary.end() ? nullptr : found->get();
}

void LoadFileSections::freeCopies()
{
    for (const List *list : {&m_primary, &m_secondary})
        for (const auto &section : *list)
            section->freeCopy();
}

quint32 LoadFileSections::totalSize(const List &list)
{
    quint32 size = 0;
    for (const auto &section : list)
        size += section->size();
    return size;
}
