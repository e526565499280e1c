#pragma once

#include "project/model/ElementPath.h"
#include "project/properties/PropertySchema.h"
#include "xml/macros/MacroExpansion.h"

#include <QHash>
#include <algorithm>
#include <array>
#include <memory>
#include <vector>

class ProjectElement;

// What is worked out of the tree and kept beside its nodes. `generation` is the system's change count at that
// time; what has another one doesn't hold any more, and what it points to may be gone.

// The values that one node with configurations has in one configuration: those that it sets itself, lists with
// what the nodes around add to them. All others are the outer layer's.
struct ValueLayer
{
    static constexpr size_t wordCount = (PropertySchema::tableSize + 63) / 64;
    struct Other
    {
        QString nearest, list; // the value; that of a StringList
    };

    QString configuration;
    quint64 generation = 0;
    const ValueLayer *outer = nullptr;       // null at the outermost
    std::array<quint64, wordCount> isSet{};  // a bit a property
    std::array<quint16, wordCount> before{}; // how many values those of earlier words have
    std::vector<QString> values;             // in the order of the properties
    QHash<QString, Other> others;            // by keys that aren't in the table
    bool hasEmptyItem = false;               // a list has an empty contribution, here or further out

    // Here or further out; null when nobody sets it.
    const QString *find(ProjectProperty property) const;
    const QString *findOther(const QString &key, bool isList) const;
};

// A map of at most some dozens of entries, which costs nothing while it is empty.
template <typename Value>
class SmallMap
{
public:
    const Value *find(quint32 key) const
    {
        const auto found = std::find(m_keys.begin(), m_keys.end(), key);
        return found == m_keys.end() ? nullptr : &m_values[size_t(found - m_keys.begin())];
    }
    void insert(quint32 key, const Value &value) // one that isn't there
    {
        m_keys.push_back(key);
        m_values.push_back(value);
    }

private:
    std::vector<quint32> m_keys;
    std::vector<Value> m_values;
};

// A text in which only macros of the node itself are left to be expanded.
struct MacroPattern
{
    struct Part
    {
        QString before;
        size_t macro; // NodeMacros knows them by number
    };

    bool isUsable = false; // false: the text is too involved for it
    std::vector<Part> parts;
    QString end;
};

// What nodes have in common that have the same values: the macros but those of the node itself, and the
// expansions that used none of these. A file without configurations has its parent's context for members;
// every other node has its own.
struct NodeContext
{
    enum Directory { IntDir, RootOutDir, OutDir, RootRelativeOutDir, ToolChainDir, directoryCount };
    struct DirectoryMacro
    {
        enum State { Unknown, Absent, Shared, Own } state = Unknown; // Own: each node has another one
        QString value;
    };

    using Macro = std::pair<QString, QString>;

    QString configuration;
    quint64 generation = 0;
    MacroMap userMacros;                                    // from the property "macros"
    std::vector<Macro> macros;                              // what the surroundings give; before the user's
    std::vector<Macro> later;                               // before the node's own, too
    std::array<DirectoryMacro, directoryCount> directories; // before all
    SmallMap<QString> values;                               // expanded; by property
    SmallMap<MacroPattern> patterns;                        // the same of those that use the own macros of nodes
    SmallMap<QStringList> lists;                            // by property and options
};

struct ElementCache
{
    template <typename Entry>
    using ByConfiguration = std::vector<std::unique_ptr<Entry>>; // a few

    ByConfiguration<ValueLayer> layers;
    ByConfiguration<NodeContext> ownContexts, memberContexts;
    QHash<QString, QStringList> inherited; // of a solution, by configuration
    quint64 inheritedGeneration = 0;
    ElementPath path;
    QString pathConfiguration;
    quint64 pathGeneration = 0;
    QString fileType, fileTypeConfiguration;
    quint64 fileTypeGeneration = 0;
    bool isResolving = false; // the path; its macros aren't there then
};

// The entry of that configuration, made if need be. `isCurrent` tells whether it holds; otherwise it is empty.
template <typename Entry>
Entry &cachedEntry(ElementCache::ByConfiguration<Entry> &entries, const QString &configuration, quint64 generation,
                   bool &isCurrent)
{
    for (const auto &entry : entries) {
        if (entry->configuration != configuration)
            continue;
        isCurrent = entry->generation == generation;
        if (!isCurrent) {
            *entry = Entry();
            entry->configuration = configuration;
            entry->generation = generation;
        }
        return *entry;
    }
    isCurrent = false;
    Entry &made = *entries.emplace_back(std::make_unique<Entry>());
    made.configuration = configuration;
    made.generation = generation;
    return made;
}
