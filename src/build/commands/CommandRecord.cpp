#include "build/commands/CommandRecord.h"

#include "base/ByteCursor.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

static constexpr quint32 magic = 0x52434E56; // "VNCR"
static constexpr quint32 version = 2;
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
    return hash ? hash : 1;
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
    if (file.open(QFile::ReadOnly))
        fromBytes(file.readAll());
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
    m_isChanged |= known.command != hash;
    known.command = hash;
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
    m_isChanged = true;
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
    m_isChanged |= m_outputs.remove(output);
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
}

// Not flushed to the disk: after a crash of the machine the checksum tells, and a lost record costs little.
bool CommandRecord::save()
{
    if (!m_isChanged || m_path.isEmpty())
        return true;
    if (m_outputs.isEmpty()) { // behind a clean
        m_isChanged = false;
        return !QFile::exists(m_path) || QFile::remove(m_path);
    }
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
    m_isChanged = false;
    return true;
}

static void append(QByteArray &bytes, quint64 value, quint32 size)
{
    const qsizetype at = bytes.size();
    bytes.resize(at + size);
    insertInteger(bytes.data(), at, value, size, false);
}

// Only the paths that are still in use are written.
QByteArray CommandRecord::toBytes() const
{
    QByteArray paths;
    quint32 pathCount = 0;
    std::vector<quint32> newIndex(size_t(m_paths.size()), noIndex);
    const auto indexOf = [&](quint32 path) {
        if (newIndex[path] == noIndex) {
            newIndex[path] = pathCount++;
            (paths += m_paths[path].toUtf8()) += '\0';
        }
        return newIndex[path];
    };
    size_t size = 0;
    std::vector<const Output *> inOrder; // in which they were first noted: the next build asks for them so
    inOrder.reserve(size_t(m_outputs.size()));
    for (const Output &output : m_outputs) {
        size += outputBytes + 4 * output.dependencyCount;
        inOrder.push_back(&output);
    }
    std::sort(inOrder.begin(), inOrder.end(), [](auto *a, auto *b) { return a->path < b->path; });
    QByteArray outputs(qsizetype(size), Qt::Uninitialized);
    char *at = outputs.data();
    const auto put = [&at](auto value) {
        qToLittleEndian(value, at);
        at += sizeof value;
    };
    for (const Output *output : inOrder) {
        put(indexOf(output->path));
        put(output->command);
        put(output->stamp.time);
        put(output->stamp.size);
        put(output->dependencyCount);
        for (const quint32 dependency : dependenciesOf(*output))
            put(indexOf(dependency));
    }
    QByteArray bytes;
    bytes.reserve(paths.size() + outputs.size() + 24);
    append(bytes, magic, 4);
    append(bytes, version, 4);
    append(bytes, pathCount, 4);
    bytes += paths;
    append(bytes, quint64(m_outputs.size()), 4);
    bytes += outputs;
    return withChecksum(bytes);
}

QByteArray CommandRecord::withChecksum(const QByteArray &bytes)
{
    QByteArray checked = bytes;
    append(checked, hashBytes(0, bytes.constData(), size_t(bytes.size())), 8);
    return checked;
}

bool CommandRecord::fromBytes(QByteArrayView bytes)
{
    clear();
    ByteCursor whole(std::span(reinterpret_cast<const quint8 *>(bytes.data()), size_t(bytes.size())), false);
    const quint64 size = quint64(qMax(bytes.size() - 8, 0));
    ByteCursor in = whole.take(size);
    if (whole.readU64() != hashBytes(0, bytes.data(), size) || whole.failed())
        return false;
    if (in.readU32() != magic || in.readU32() != version)
        return false;
    const quint32 paths = in.readU32();
    m_paths.reserve(qMin(paths, quint32(in.remaining())));
    for (quint32 count = paths; count && !in.failed(); --count)
        m_paths += QString::fromUtf8(in.readString());
    bool isGood = true;
    const auto readPath = [&] {
        const quint32 index = in.readU32();
        isGood &= index < quint32(m_paths.size());
        return index;
    };
    const quint32 outputs = in.readU32();
    isGood = outputs <= quint64(in.remaining()) / outputBytes;
    if (isGood) {
        m_outputs.reserve(outputs);
        m_dependencies.reserve(in.remaining() / 4); // they are nearly all of it
    }
    for (quint32 i = 0; i < outputs && isGood; ++i) {
        Output output;
        output.path = readPath();
        output.command = in.readU64();
        output.stamp = {qint64(in.readU64()), qint64(in.readU64())};
        output.firstDependency = quint32(m_dependencies.size());
        output.dependencyCount = in.readU32();
        isGood &= output.dependencyCount <= quint64(in.remaining()) / 4;
        if (!isGood)
            break;
        for (quint32 k = 0; k < output.dependencyCount; ++k)
            m_dependencies.push_back(readPath());
        m_outputs.insert(m_paths[output.path], output);
    }
    isGood &= !in.failed() && in.atEnd();
    if (!isGood)
        clear();
    return isGood;
}
