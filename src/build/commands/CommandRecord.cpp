#include "build/commands/CommandRecord.h"

#include "base/ByteCursor.h"
#include "base/HException.h"
#include "base/SafeFile.h"

#include <QDir>
#include <QFileInfo>

static constexpr char magic[] = {'V', 'N', 'C', 'R'};
static constexpr quint32 version = 1;
static constexpr quint64 outputBytes = 4 + 8 + 8 + 8 + 4; // without dependencies

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

static quint64 hashTexts(quint64 hash, const QStringList &texts)
{
    for (const QString &text : texts)
        hash = hashBytes(hash, text.utf16(), size_t(text.size()) * sizeof(char16_t));
    return hashBytes(hash, nullptr, 0);
}

quint64 commandHash(const QString &directory, const QStringList &arguments, const QStringList &inputs)
{
    const quint64 hash = hashTexts(hashTexts(hashTexts(0, {directory}), arguments), inputs);
    return hash ? hash : 1; // 0 stands for none
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
    Output &known = m_outputs[output];
    m_isChanged |= known.command != hash;
    known.command = hash;
}

std::optional<std::span<const quint32>> CommandRecord::dependencies(const QString &output,
                                                                    const FileStamp &stamp) const
{
    const auto found = m_outputs.constFind(output);
    if (found == m_outputs.cend() || found->stamp != stamp || !stamp.time)
        return std::nullopt;
    return found->dependencies;
}

void CommandRecord::setDependencies(const QString &output, const FileStamp &stamp, const QStringList &dependencies)
{
    Output &known = m_outputs[output];
    known.stamp = stamp;
    known.dependencies.clear();
    for (const QString &path : dependencies)
        known.dependencies.push_back(pathIndex(path));
    m_isChanged = true;
}

void CommandRecord::forget(const QString &output)
{
    m_isChanged |= m_outputs.remove(output);
}

quint32 CommandRecord::pathIndex(const QString &path)
{
    if (m_indices.isEmpty())
        for (const QString &known : m_paths)
            m_indices.insert(known, quint32(m_indices.size()));
    const auto [at, isNew] = m_indices.tryEmplace(path, quint32(m_paths.size()));
    if (isNew)
        m_paths += path;
    return *at;
}

bool CommandRecord::save()
{
    if (!m_isChanged || m_path.isEmpty())
        return true;
    QDir().mkpath(QFileInfo(m_path).path());
    SafeFile file(m_path);
    if (!file.open() || !file.write(toBytes()) || !file.commit())
        return false;
    m_isChanged = false;
    return true;
}
