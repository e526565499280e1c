#include "build/commands/CommandRecord.h"

#include "base/FileDescriptor.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <functional>

using namespace Qt::StringLiterals;

static constexpr quint32 magic = 0x52434E56; // "VNCR"
static constexpr quint32 version = 3;
static constexpr qsizetype headBytes = 8;
static constexpr qsizetype checksumBytes = 8;
static constexpr quint64 outputBytes = 4 + 8 + 8 + 8 + 4; // without dependencies
static constexpr quint32 noIndex = ~0u;

// Eight bytes at a time by multiplication and shift. It tells changes apart and keeps no secrets.
static quint64 hashBytes(quint64 hash, const void *bytes, size_t size)
{
    const auto *p = static_cast<const uchar *>(bytes);
    const auto mix = [&hash](quint64 word) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15u; // 2^64 / golden ratio
        hash ^= hash >> 32;
    };
    mix(size);
    for (; size >= 8; size -= 8, p += 8)
        mix(qFromLittleEndian<quint64>(p));
    quint64 rest = 0;
    if (size)
        std::memcpy(&rest, p, size);
    mix(rest);
    return hash;
}

// The texts' hashes are the coefficients of a polynomial in this: a part of the list is a power and a sum.
static constexpr quint64 base = 0xD6E8FEB86659FD95u; // 5 modulo 8, so that its powers repeat late

void CommandHash::add(const QString &text)
{
    m_sum = m_sum * base + hashBytes(0, text.utf16(), size_t(text.size()) * sizeof(char16_t));
    m_power *= base;
}

void CommandHash::add(const QStringList &texts)
{
    for (const QString &text : texts)
        add(text);
}

void CommandHash::add(const CommandHash &part)
{
    m_sum = m_sum * part.m_power + part.m_sum;
    m_power *= part.m_power;
}

void CommandHash::addMark()
{
    m_sum = m_sum * base + 1;
    m_power *= base;
}

quint64 CommandHash::value() const
{
    const quint64 words[] = {m_sum, m_power}; // the power tells how many there were
    const quint64 hash = hashBytes(0, words, sizeof words);
    return hash > CommandRecord::unfinished ? hash : CommandRecord::unfinished + 1;
}

quint64 commandHash(const QString &directory, const QStringList &arguments, const QStringList &inputs)
{
    CommandHash hash;
    hash.add(directory);
    hash.add(arguments);
    hash.addMark();
    hash.add(inputs);
    return hash.value();
}

CommandRecord::CommandRecord(const QString &path) : m_path(path)
{
    QFile file(path);
    if (QFileInfo(path).isFile() && file.open(QFile::ReadOnly)) // a pipe would be waited for
        fromBytes(file.readAll());
    readBegun();
}

std::optional<quint64> CommandRecord::command(const QString &output) const
{
    const auto found = m_outputs.constFind(output);
    if (found == m_outputs.cend() || !found->command)
        return std::nullopt;
    return found->command;
}

void CommandRecord::setCommand(const QString &output, quint64 hash)
{
    Output &known = outputOf(output);
    if (std::exchange(known.command, hash) != hash)
        m_changed.push_back(known.path);
    if (m_hasBegun)
        noteBegun(output, hash);
}

void CommandRecord::begin(const QString &output)
{
    m_hasBegun = true;
    setCommand(output, unfinished);
}

std::optional<std::span<const quint32>> CommandRecord::dependencies(const QString &output, const FileStamp &stamp) const
{
    const auto found = m_outputs.constFind(output);
    if (found == m_outputs.cend() || found->stamp != stamp || !stamp.time)
        return std::nullopt;
    return dependenciesOf(*found);
}

void CommandRecord::setDependencies(const QString &output, const FileStamp &stamp, const QStringList &dependencies)
{
    Output &known = outputOf(output);
    const Output before = std::exchange(
        known, {known.path, known.command, stamp, quint32(m_dependencies.size()), quint32(dependencies.size())});
    for (quint32 i = 0; i < known.dependencyCount; ++i) { // mostly what they were, which needs no look-up
        const quint32 old = i < before.dependencyCount ? m_dependencies[before.firstDependency + i] : noIndex;
        const bool isSame = old != noIndex && m_paths[old] == dependencies[i];
        m_dependencies.push_back(isSame ? old : pathIndex(dependencies[i]));
    }
    m_changed.push_back(known.path);
}

CommandRecord::Entry CommandRecord::entry(const QString &output) const
{
    const auto found = m_outputs.constFind(output);
    if (found == m_outputs.cend())
        return {};
    return {found->command, found->stamp, dependenciesOf(*found)};
}

void CommandRecord::forget(const QString &output)
{
    const auto known = m_outputs.constFind(output);
    if (known == m_outputs.cend())
        return;
    m_changed.push_back(known->path);
    m_outputs.erase(known);
    if (m_hasBegun)
        noteBegun(output, 0);
}

CommandRecord::Output &CommandRecord::outputOf(const QString &path)
{
    const qsizetype known = m_outputs.size();
    Output &output = m_outputs[path];
    if (m_outputs.size() > known)
        output.path = pathIndex(path);
    return output;
}

std::span<const quint32> CommandRecord::dependenciesOf(const Output &output) const
{
    return std::span(m_dependencies).subspan(output.firstDependency, output.dependencyCount);
}

quint32 CommandRecord::pathIndex(const QString &path)
{
    if (m_indices.isEmpty())
        for (quint32 i = 0; i < quint32(m_paths.size()); ++i)
            m_indices.insert(m_paths[i], i);
    const auto known = m_indices.constFind(path);
    if (known != m_indices.cend())
        return *known;
    m_paths += path;
    return *m_indices.insert(path, quint32(m_paths.size() - 1));
}

void CommandRecord::clear()
{
    m_paths.clear();
    m_indices.clear();
    m_outputs.clear();
    m_dependencies.clear();
    m_changed.clear();
    m_fileSize = 0;
}

// ---- The file ----------------------------------------------------------------------------------------------------

namespace {

template <typename Integer>
void put(QByteArray &bytes, Integer value)
{
    value = qToLittleEndian(value);
    bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}

} // namespace

struct CommandRecord::Section
{
    QByteArray paths, outputs;
    quint32 pathCount = 0, outputCount = 0;

    void addPath(const QString &path)
    {
        paths += path.toUtf8();
        paths += '\0';
        ++pathCount;
    }
    template <typename IndexOf>
    void addOutput(const Output &output, std::span<const quint32> dependencies, const IndexOf &indexOf)
    {
        put(outputs, indexOf(output.path));
        put(outputs, output.command);
        put(outputs, output.stamp.time);
        put(outputs, output.stamp.size);
        put(outputs, quint32(dependencies.size()));
        for (const quint32 dependency : dependencies)
            put(outputs, indexOf(dependency));
        ++outputCount;
    }
    QByteArray bytes(quint64 checksumBefore) const
    {
        QByteArray bytes;
        bytes.reserve(paths.size() + outputs.size() + 20);
        put(bytes, quint32(4 + paths.size() + 4 + outputs.size()));
        put(bytes, quint32(paths.size()));
        bytes += paths;
        put(bytes, outputCount);
        bytes += outputs;
        put(bytes, hashBytes(checksumBefore, bytes.constData(), size_t(bytes.size())));
        return bytes;
    }
};

// Not flushed to the disk: after a crash of the machine the checksum tells, and a lost record costs little.
bool CommandRecord::save()
{
    if (m_path.isEmpty())
        return true;
    bool isSaved = true;
    if (m_outputs.isEmpty() && !m_changed.empty()) { // behind a clean
        isSaved = !QFile::exists(m_path) || QFile::remove(m_path);
        m_fileSize = 0;
    } else if (!m_changed.empty()) {
        isSaved = append() || replace();
    }
    if (isSaved) {
        m_changed.clear();
        if (std::exchange(m_hasBegun, false))
            QFile::remove(begunPath()); // also when it says what the record says already
    }
    return isSaved;
}

// One write that is whole or not there. Opened each time: a build may have more projects than files it can have open.
void CommandRecord::noteBegun(const QString &output, quint64 hash)
{
    if (m_path.isEmpty())
        return;
    const auto open = [path = QFile::encodeName(begunPath())] {
        return FileDescriptor(::open(path.constData(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666));
    };
    FileDescriptor file = open();
    if (!file.isOpen() && QDir().mkpath(QFileInfo(m_path).path()))
        file = open();
    const QByteArray note = QByteArray::number(hash, 16) + ' ' + output.toUtf8() + '\0';
    if (file.isOpen()) [[maybe_unused]]
        const ssize_t written = ::write(file.number(), note.constData(), size_t(note.size()));
}

void CommandRecord::readBegun()
{
    QFile file(begunPath());
    if (!QFileInfo(file).isFile() || !file.open(QFile::ReadOnly))
        return;
    QList<QByteArray> notes = file.readAll().split('\0');
    notes.removeLast(); // nothing, or what wasn't written to its end
    for (const QByteArray &note : notes) {
        const qsizetype blank = note.indexOf(' ');
        const quint64 hash = note.first(qMax(blank, 0)).toULongLong(nullptr, 16);
        const QString output = QString::fromUtf8(note.sliced(blank + 1));
        if (hash)
            setCommand(output, hash);
        else
            forget(output);
    }
    m_hasBegun = true;
}

bool CommandRecord::append()
{
    if (!m_fileSize)
        return false;
    Section section;
    for (qsizetype path = m_filePaths; path < m_paths.size(); ++path)
        section.addPath(m_paths[path]);
    std::sort(m_changed.begin(), m_changed.end());
    m_changed.erase(std::unique(m_changed.begin(), m_changed.end()), m_changed.end());
    for (const quint32 path : m_changed) {
        const auto known = m_outputs.constFind(m_paths[path]);
        const Output output = known == m_outputs.cend() ? Output{path} : *known;
        section.addOutput(output, dependenciesOf(output), std::identity());
    }
    const QByteArray bytes = section.bytes(m_checksum);
    QFile file(m_path);
    if (m_fileSize + bytes.size() > 2 * m_firstSize ||
        !file.open(QFile::ReadWrite | QFile::Append | QFile::ExistingOnly) || file.size() != m_fileSize)
        return false;
    // Another build may have replaced it.
    const QByteArray end = file.seek(m_fileSize - checksumBytes) ? file.read(checksumBytes) : QByteArray();
    if (end.size() != checksumBytes || qFromLittleEndian<quint64>(end.constData()) != m_checksum)
        return false;
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        file.resize(m_fileSize);
        return false;
    }
    m_fileSize += bytes.size();
    m_filePaths = m_paths.size();
    m_checksum = qFromLittleEndian<quint64>(bytes.constEnd() - checksumBytes);
    return true;
}

bool CommandRecord::replace()
{
    QDir().mkpath(QFileInfo(m_path).path());
    QFile file(m_path + u".new"_s);
    const QByteArray bytes = toBytes();
    if (!file.open(QFile::WriteOnly))
        return false;
    const bool isWritten = file.write(bytes) == bytes.size() && file.flush();
    file.close();
    if (!isWritten ||
        std::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(m_path).constData()) != 0) {
        file.remove();
        return false;
    }
    m_fileSize = 0; // its paths have other numbers
    return true;
}

// Only the paths that are still in use are written, in the order in which the next build will ask for them.
QByteArray CommandRecord::toBytes() const
{
    Section section;
    std::vector<quint32> newIndex(size_t(m_paths.size()), noIndex);
    const auto indexOf = [&](quint32 path) {
        if (newIndex[path] == noIndex) {
            newIndex[path] = section.pathCount;
            section.addPath(m_paths[path]);
        }
        return newIndex[path];
    };
    std::vector<const Output *> inOrder; // in which they were first noted
    inOrder.reserve(size_t(m_outputs.size()));
    for (const Output &output : m_outputs)
        inOrder.push_back(&output);
    std::sort(inOrder.begin(), inOrder.end(), [](auto *a, auto *b) { return a->path < b->path; });
    for (const Output *output : inOrder)
        section.addOutput(*output, dependenciesOf(*output), indexOf);
    QByteArray bytes;
    put(bytes, magic);
    put(bytes, version);
    return bytes + section.bytes(0);
}

QByteArray CommandRecord::withChecksums(QByteArray bytes)
{
    quint64 checksum = 0;
    for (qsizetype at = headBytes; at + 4 <= bytes.size();) {
        const qsizetype size = 4 + qsizetype(qFromLittleEndian<quint32>(bytes.constData() + at));
        if (at + size + checksumBytes > bytes.size())
            break;
        checksum = hashBytes(checksum, bytes.constData() + at, size_t(size));
        qToLittleEndian(checksum, bytes.data() + at + size);
        at += size + checksumBytes;
    }
    return bytes;
}

bool CommandRecord::fromBytes(QByteArrayView bytes)
{
    clear();
    ByteCursor in(std::span(reinterpret_cast<const quint8 *>(bytes.data()), size_t(bytes.size())), false);
    bool isGood = in.readU32() == magic && in.readU32() == version && !in.atEnd();
    m_checksum = 0;
    m_firstSize = 0;
    while (isGood && !in.atEnd()) {
        const quint8 *start = in.position();
        const quint32 size = in.readU32();
        ByteCursor section = in.take(size);
        if (!in.failed())
            m_checksum = hashBytes(m_checksum, start, 4 + size_t(size));
        isGood = in.readU64() == m_checksum && !in.failed();
        if (isGood && !readSection(section)) { // nobody has written that
            clear();
            return false;
        }
        if (!m_firstSize)
            m_firstSize = in.offset();
    }
    if (!isGood)
        return false;
    m_fileSize = bytes.size();
    m_filePaths = m_paths.size();
    return true;
}

bool CommandRecord::readSection(ByteCursor in)
{
    const ByteCursor pathCursor = in.take(in.readU32());
    const QString paths = QString::fromUtf8(QByteArrayView(pathCursor.position(), pathCursor.remaining()));
    for (qsizetype start = 0, end; start < paths.size(); start = end + 1) {
        end = paths.indexOf(QChar(0), start);
        if (end < 0)
            return false;
        m_paths += paths.sliced(start, end - start);
    }
    bool isGood = true;
    const auto readPath = [&] {
        const quint32 index = in.readU32();
        isGood &= index < quint32(m_paths.size());
        return index;
    };
    const quint32 outputs = in.readU32();
    if (outputs > quint64(in.remaining()) / outputBytes)
        return false;
    m_outputs.reserve(m_outputs.size() + outputs);
    m_dependencies.reserve(m_dependencies.size() + in.remaining() / 4); // they are nearly all of it
    for (quint32 i = 0; i < outputs; ++i) {
        Output output;
        output.path = readPath();
        output.command = in.readU64();
        output.stamp = {qint64(in.readU64()), qint64(in.readU64())};
        output.firstDependency = quint32(m_dependencies.size());
        output.dependencyCount = in.readU32();
        isGood &= output.dependencyCount <= quint64(in.remaining()) / 4;
        if (!isGood)
            return false;
        for (quint32 k = 0; k < output.dependencyCount; ++k)
            m_dependencies.push_back(readPath());
        if (output.command || output.stamp.time)
            m_outputs.insert(m_paths[output.path], output);
        else
            m_outputs.remove(m_paths[output.path]);
    }
    return isGood && !in.failed() && in.atEnd();
}
