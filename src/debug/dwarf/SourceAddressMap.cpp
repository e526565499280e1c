#include "debug/dwarf/SourceAddressMap.h"

#include <QDir>
#include <algorithm>
#include <array>

QByteArray SourcePaths::canonical(const QByteArray &path)
{
    // Few paths need cleaning, and asking costs less.
    if (!path.contains("/.") && !path.contains("//") && !path.startsWith("./"))
        return path;
    return QDir::cleanPath(QString::fromUtf8(path)).toUtf8();
}

quint32 SourcePaths::idOf(const QByteArray &path)
{
    const QByteArray canonicalText = canonical(path);
    const auto found = m_ids.constFind(canonicalText);
    if (found != m_ids.constEnd())
        return *found;
    m_paths.push_back(canonicalText);
    return *m_ids.insert(canonicalText, quint32(m_paths.size() - 1));
}

std::optional<quint32> SourcePaths::find(const QByteArray &path) const
{
    const auto entry = m_ids.constFind(canonical(path));
    return entry == m_ids.constEnd() ? std::nullopt : std::optional(*entry);
}

void SourceAddressMap::add(const QString &path, int line, quint32 address)
{
    if (!path.isEmpty()) {
        const SourceLineRow row = {address, line, m_paths->idOf(path.toUtf8()), 0};
        append({&row, 1});
    }
}

void SourceAddressMap::append(std::span<const SourceLineRow> rows)
{
    for (SourceLineRow row : rows) {
        row.order += m_nextOrder;
        m_rows.push_back(row);
    }
    m_nextOrder += quint32(rows.size());
    m_isSettled = false;
}

void SourceAddressMap::settle()
{
    if (m_isSettled)
        return;
    m_isSettled = true;
    m_hasFileIndex = false;
    // Rows of one address that were there before stand before the new ones, so that stable sorting by address
    // leaves them in their order, save for appended ones whose caller had sorted them.
    sortByAddress(m_rows);
    size_t kept = 0;
    for (size_t i = 0; i < m_rows.size();) {
        size_t end = i + 1;
        while (end < m_rows.size() && m_rows[end].address == m_rows[i].address)
            ++end;
        if (end - i > 1)
            std::ranges::sort(m_rows.begin() + i, m_rows.begin() + end, {}, &SourceLineRow::order);
        SourceLineRow winner = m_rows[i];
        for (size_t other = i + 1; other < end; ++other) {
            if (m_rows[other].file == winner.file && m_rows[other].line > winner.line)
                winner = m_rows[other];
        }
        m_rows[kept++] = winner;
        i = end;
    }
    m_rows.resize(kept);
}

// Stable, by address. Radix sort with digits of 11 bits: line tables hold millions of rows.
void SourceAddressMap::sortByAddress(std::vector<SourceLineRow> &rows)
{
    constexpr size_t digitBits = 11, digits = size_t(1) << digitBits, fewRows = 4096;
    if (std::ranges::is_sorted(rows, {}, &SourceLineRow::address))
        return;
    if (rows.size() < fewRows) {
        std::ranges::stable_sort(rows, {}, &SourceLineRow::address);
        return;
    }
    std::vector<SourceLineRow> other(rows.size());
    for (quint32 shift = 0; shift < 32; shift += digitBits) {
        std::array<size_t, digits> next = {};
        for (const SourceLineRow &row : rows)
            ++next[row.address >> shift & (digits - 1)];
        size_t sum = 0;
        for (size_t &count : next)
            sum += std::exchange(count, sum);
        for (const SourceLineRow &row : rows)
            other[next[row.address >> shift & (digits - 1)]++] = row;
        rows.swap(other);
    }
}

std::span<const SourceLineRow> SourceAddressMap::rows()
{
    settle();
    return m_rows;
}

size_t SourceAddressMap::lowerBound(quint32 address)
{
    settle();
    return size_t(std::ranges::lower_bound(m_rows, address, {}, &SourceLineRow::address) - m_rows.begin());
}

std::optional<SourcePosition> SourceAddressMap::sourceAt(quint32 address)
{
    const size_t index = lowerBound(address);
    if (index == m_rows.size() || m_rows[index].address != address)
        return {};
    const bool hasNext = index + 1 < m_rows.size();
    const int line = m_rows[index].line == 0 && hasNext ? m_rows[index + 1].line : m_rows[index].line;
    return SourcePosition{m_paths->text(m_rows[index].file), line, address,
                          hasNext ? m_rows[index + 1].address - 1 : address};
}

std::optional<SourcePosition> SourceAddressMap::sourceInRange(quint32 address, quint32 low, quint32 high)
{
    size_t index = lowerBound(address);
    if (index == m_rows.size() || m_rows[index].address != address) {
        if (index == 0)
            return {};
        --index;
    }
    const auto isInside = [&](const SourceLineRow &row) { return row.address >= low && row.address <= high; };
    const SourceLineRow *next = index + 1 < m_rows.size() ? &m_rows[index + 1] : nullptr;
    const SourceLineRow &row = m_rows[index];
    if (isInside(row)) {
        const quint32 end = next && high > next->address ? next->address - 1 : high;
        return SourcePosition{m_paths->text(row.file), row.line, row.address, end};
    }
    if (next && isInside(*next))
        return SourcePosition{m_paths->text(next->file), next->line, low, next->address - 1};
    return {};
}

void SourceAddressMap::indexFiles()
{
    settle();
    if (m_hasFileIndex)
        return;
    m_hasFileIndex = true;
    m_fileStarts.assign(m_paths->count() + 1, 0);
    for (const SourceLineRow &row : m_rows)
        ++m_fileStarts[row.file + 1];
    for (size_t file = 1; file < m_fileStarts.size(); ++file)
        m_fileStarts[file] += m_fileStarts[file - 1];
    std::vector<quint32> next = m_fileStarts;
    m_byFile.resize(m_rows.size());
    for (size_t i = 0; i < m_rows.size(); ++i)
        m_byFile[next[m_rows[i].file]++] = quint32(i);
    m_isFileSorted.assign(m_paths->count(), false);
}

std::span<quint32> SourceAddressMap::fileRows(quint32 file)
{
    indexFiles();
    if (file + 1 >= m_fileStarts.size())
        return {}; // a path that came after the rows
    const std::span rows = std::span(m_byFile).subspan(m_fileStarts[file], m_fileStarts[file + 1] - m_fileStarts[file]);
    if (!m_isFileSorted[file]) {
        m_isFileSorted[file] = true;
        std::ranges::sort(rows, {}, [&](quint32 index) { return std::pair(m_rows[index].line, ~m_rows[index].order); });
    }
    return rows;
}

std::vector<quint32> SourceAddressMap::sources()
{
    indexFiles();
    std::vector<quint32> files;
    for (quint32 file = 0; file + 1 < m_fileStarts.size(); ++file) {
        if (m_fileStarts[file] != m_fileStarts[file + 1])
            files.push_back(file);
    }
    std::ranges::sort(files, {}, [&](quint32 file) -> const QByteArray & { return m_paths->path(file); });
    return files;
}

std::vector<SourceLineRow> SourceAddressMap::rowsOf(quint32 file)
{
    std::vector<SourceLineRow> rows;
    for (const quint32 index : fileRows(file))
        rows.push_back(m_rows[index]);
    return rows;
}

bool SourceAddressMap::addressesOfLine(const QString &path, int line, QList<quint32> &list)
{
    const QByteArray asked = path.toUtf8();
    std::optional<quint32> file = m_paths->find(asked);
    if (!file || fileRows(*file).empty()) {
        const std::vector<quint32> files = sources();
        const auto found = std::ranges::find_if(files, [&](quint32 candidate) {
            const QByteArray &text = m_paths->path(candidate);
            return !text.startsWith('/') && asked.endsWith(text);
        });
        if (found == files.end())
            return false;
        file = *found;
    }
    const std::span<quint32> rows = fileRows(*file);
    const auto lineOf = [&](quint32 index) { return m_rows[index].line; };
    const auto first = std::ranges::lower_bound(rows, line, {}, lineOf);
    const auto end = std::ranges::upper_bound(rows, line, {}, lineOf);
    for (auto row = first; row != end; ++row)
        list.append(m_rows[*row].address);
    return first != end;
}

QByteArray SourceAddressMap::dump()
{
    QByteArray text = "Addresses:\n";
    for (const SourceLineRow &row : rows())
        text += "0x" + QByteArray::number(row.address, 16) + ' ' + QByteArray::number(row.line) + ' ' +
                m_paths->path(row.file) + '\n';
    text += "Sources:\n";
    for (const quint32 file : sources()) {
        text += "File: " + m_paths->path(file) + '\n';
        for (const SourceLineRow &row : rowsOf(file))
            text += "Line: " + QByteArray::number(row.line) + " 0x" + QByteArray::number(row.address, 16) + '\n';
    }
    return text;
}
