#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <optional>
#include <span>
#include <vector>

// The paths of source files, each with a number by which rows name it. Two paths are the same when their
// canonical texts are: without empty and "." steps and with ".." steps taken. The canonical text is kept.
class SourcePaths
{
public:
    static QByteArray canonical(const QByteArray &path);

    quint32 idOf(const QByteArray &path);
    // The number of a path that is there, or none.
    std::optional<quint32> find(const QByteArray &path) const;
    const QByteArray &path(quint32 id) const { return m_paths[id]; }
    QString text(quint32 id) const { return QString::fromUtf8(m_paths[id]); }
    size_t count() const { return m_paths.size(); }

private:
    QHash<QByteArray, quint32> m_ids;
    std::vector<QByteArray> m_paths;
};

struct SourceLineRow
{
    quint32 address;
    qint32 line;
    quint32 file;  // in the map's SourcePaths
    quint32 order; // of insertion
};

// A stretch of code that belongs to one line; `end` is its last address.
struct SourcePosition
{
    QString path;
    int line;
    quint32 start;
    quint32 end;
};

// Which source line an address belongs to, and which addresses a line has. At one address the file that came
// first stays, and within it the highest line.
//
// Rows may be added in any order. They are sorted at the first question, and the index by file and line is
// made when a question needs it.
class SourceAddressMap
{
public:
    explicit SourceAddressMap(SourcePaths &paths) : m_paths(&paths) {}

    void reserve(size_t rows) { m_rows.reserve(rows); }
    // An empty path adds nothing.
    void add(const QString &path, int line, quint32 address);
    // Rows whose order counts from 0 among them; they come behind all rows that are here.
    void append(std::span<const SourceLineRow> rows);

    // The row that begins exactly there; its end is the address before the next row, or its start if it is last.
    std::optional<SourcePosition> sourceAt(quint32 address);
    // The row that `address` falls into within a function from `low` to `high` (both included): the row at or
    // before it, else the next one; cut to the function. None if neither lies in the function.
    std::optional<SourcePosition> sourceInRange(quint32 address, quint32 low, quint32 high);

    // All rows by address.
    std::span<const SourceLineRow> rows();
    // The first row at or behind an address, as an index of rows().
    size_t lowerBound(quint32 address);

    // Paths that have rows, in their sorted order.
    std::vector<quint32> sources();
    // The rows of one file by line, the latest added first among those of one line.
    std::vector<SourceLineRow> rowsOf(quint32 file);
    // Adds the addresses of exactly that line to `list`. A path that isn't there stands for the first relative
    // one that its text ends with. False if nothing was found.
    bool addressesOfLine(const QString &path, int line, QList<quint32> &list);

    // Two lists as text, by address and by source.
    QByteArray dump();

    SourcePaths &paths() { return *m_paths; }

    // Stable. For rows that are many.
    static void sortByAddress(std::vector<SourceLineRow> &rows);

private:
    void settle();
    void indexFiles();
    std::span<quint32> fileRows(quint32 file);

    SourcePaths *m_paths;
    std::vector<SourceLineRow> m_rows; // by address, one each, once settled
    quint32 m_nextOrder = 0;
    bool m_isSettled = true;
    bool m_hasFileIndex = false;
    // Rows by file: those of file f are m_byFile[m_fileStarts[f]] up to the next; sorted by line when m_isFileSorted.
    std::vector<quint32> m_byFile, m_fileStarts;
    std::vector<bool> m_isFileSorted;
};
