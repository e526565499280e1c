#pragma once

#include "base/ByteCursor.h"

#include <QHash>
#include <QStringList>
#include <optional>
#include <span>
#include <vector>

// A number for a list of texts: which they are and their order count. Of lists that have a part in common that
// part's can be kept.
class CommandHash
{
public:
    void add(const QString &text);
    void add(const QStringList &texts);
    void add(const CommandHash &part); // as if what that one was given came now
    void addMark();                    // which no text is
    quint64 value() const;             // neither 0 nor CommandRecord::unfinished

private:
    quint64 m_sum = 0;
    quint64 m_power = 1;
};

// By which a changed command is known. `inputs`: what a file names to it.
quint64 commandHash(const QString &directory, const QStringList &arguments, const QStringList &inputs = {});

// By which a file's change is known.
struct FileStamp
{
    qint64 time = 0; // of the last change, nanoseconds since 1970; 0: there is none
    qint64 size = 0;

    friend bool operator==(const FileStamp &, const FileStamp &) = default;
};

// What the builds of a project in a configuration have run, kept beside its intermediate files: for each output the
// command that made it, and what that was made from, so that the next build needn't read the compilers' files.
//
// The file, little-endian, grows by a section with each build that has something new, until it is twice as long as
// need be:
//
//     "VNCR"  u32 version
//     sections:
//         u32 size      of the section but for this and its checksum
//         u32 bytes     of the paths: each UTF-8, ended by NUL
//         u32 outputs   each u32 path, u64 commandHash (0: none), i64 time, i64 size, u32 count, count times u32 path
//         u64 checksum  of the section from its size on, beginning with that of the section before (at first 0)
//
// Paths are indices into the list of paths of all sections so far. What a later section says of an output holds; if
// it has neither command nor time, nothing is known of it any more. From the first damaged section on nothing counts,
// and a file of another version has no records.
//
// Beside it, in a file whose name goes on with ".begun", stands meanwhile what the build under way has begun and made,
// "HASH OUTPUT" each, ended by NUL: a build that is killed leaves that to the next one, and save() deletes it.
class CommandRecord
{
public:
    CommandRecord() = default;
    // Of the file, if there is one.
    explicit CommandRecord(const QString &path);

    // None when it isn't known what made the output.
    std::optional<quint64> command(const QString &output) const;
    void setCommand(const QString &output, quint64 hash);
    // A command begins that makes the output: its command is `unfinished` until setCommand() or forget(), also if
    // nothing is saved any more.
    void begin(const QString &output);
    static constexpr quint64 unfinished = 1;

    // What the output was made from, if that was noted when the stamp was this; indices of paths().
    std::optional<std::span<const quint32>> dependencies(const QString &output, const FileStamp &stamp) const;
    void setDependencies(const QString &output, const FileStamp &stamp, const QStringList &dependencies);
    // Everything that is mentioned: who asks often for files' times keeps them beside it.
    const QStringList &paths() const { return m_paths; }

    // All of that in one look-up; hash 0 and time 0 for what isn't known. The dependencies stay where they are until
    // the next are set.
    struct Entry
    {
        quint64 command = 0;
        FileStamp stamp;
        std::span<const quint32> dependencies;
    };
    Entry entry(const QString &output) const;

    void forget(const QString &output);

    // Writes what is new, the directory being made; false when it can't be written. Outputs that weren't mentioned
    // since the record was read stay.
    bool save();

    QByteArray toBytes() const;                        // in one section
    bool fromBytes(QByteArrayView bytes);              // false when damaged: then with what stands ahead of the damage
    static QByteArray withChecksums(QByteArray bytes); // put right

private:
    struct Output
    {
        quint32 path = 0;
        quint64 command = 0;
        FileStamp stamp = {};
        quint32 firstDependency = 0, dependencyCount = 0;
    };

    struct Section;

    Output &outputOf(const QString &path);
    std::span<const quint32> dependenciesOf(const Output &output) const;
    quint32 pathIndex(const QString &path);
    bool readSection(ByteCursor section);
    bool append();
    bool replace();
    QString begunPath() const { return m_path + QLatin1StringView(".begun"); }
    void noteBegun(const QString &output, quint64 hash);
    void readBegun();
    void clear();

    QString m_path;
    QStringList m_paths;
    QHash<QString, quint32> m_indices; // of paths; filled when something is first noted
    QHash<QString, Output> m_outputs;
    std::vector<quint32> m_dependencies; // of all outputs, and what was replaced in this run
    std::vector<quint32> m_changed;      // outputs, by path, that aren't in the file as they are here
    // What is in the file, to which more can be added; size 0: nothing.
    qint64 m_fileSize = 0, m_firstSize = 0; // bytes; those with the first section only
    qsizetype m_filePaths = 0;
    quint64 m_checksum = 0;  // of the last section
    bool m_hasBegun = false; // there is a file of what was begun
};
