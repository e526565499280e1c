// The look-up of ProjectSystem, kept in layers: see PropertyLookup.h for its rules.
#include "project/model/ElementCache_p.h"
#include "project/model/ProjectSystem.h"

#include <algorithm>
#include <bit>

using namespace Qt::StringLiterals;

const QString *ValueLayer::find(ProjectProperty property) const
{
    const size_t word = size_t(property) / 64;
    const quint64 bit = 1ull << (size_t(property) % 64);
    for (const ValueLayer *layer = this; layer; layer = layer->outer)
        if (layer->isSet[word] & bit)
            return &layer->values[layer->before[word] + size_t(std::popcount(layer->isSet[word] & (bit - 1)))];
    return nullptr;
}

const QString *ValueLayer::findOther(const QString &key, bool isList) const
{
    for (const ValueLayer *layer = this; layer; layer = layer->outer)
        if (const auto found = layer->others.constFind(key); found != layer->others.constEnd())
            return isList ? &found->list : &found->nearest;
    return nullptr;
}

namespace {

// Fills a layer from the configurations of its node, the most specific first.
class LayerBuilder
{
public:
    explicit LayerBuilder(ValueLayer &layer) : m_layer(layer) { m_index.fill(-1); }

    void add(const ProjectElement &configuration)
    {
        for (auto entry = configuration.properties().begin(); entry != configuration.properties().end(); ++entry) {
            const std::span<const ProjectProperty> ids = PropertySchema::idsOf(entry.key());
            for (const ProjectProperty id : ids)
                add(id, *entry);
            if (ids.empty())
                addOther(entry.key(), *entry);
        }
    }

    // `exactList` gives a list by the plain look-up, which counts empty contributions as they must.
    template <typename ExactList>
    void finish(const ExactList &exactList)
    {
        const ValueLayer *outer = m_layer.outer;
        m_layer.hasEmptyItem |= outer && outer->hasEmptyItem;
        for (size_t i = 0, count = 0; i < PropertySchema::tableSize; ++i) {
            if (i % 64 == 0)
                m_layer.before[i / 64] = quint16(count);
            if (m_index[i] < 0)
                continue;
            ++count;
            QString &value = m_values[size_t(m_index[i])];
            const auto id = ProjectProperty(i);
            if (PropertySchema::isList(id))
                value = m_layer.hasEmptyItem ? exactList(id) : joined(outer ? outer->find(id) : nullptr, value);
            m_layer.isSet[i / 64] |= 1ull << (i % 64);
            m_layer.values.push_back(std::move(value));
        }
        for (auto other = m_layer.others.begin(); other != m_layer.others.end(); ++other)
            other->list = joined(outer ? outer->findOther(other.key(), true) : nullptr, other->list);
    }

private:
    static QString joined(const QString *outer, const QString &inner)
    {
        if (!outer)
            return inner;
        return inner.isEmpty() ? *outer : *outer + u';' + inner;
    }

    void add(ProjectProperty id, const QString &value)
    {
        const bool isList = PropertySchema::isList(id);
        m_layer.hasEmptyItem |= isList && value.isEmpty();
        qint16 &index = m_index[size_t(id)];
        if (index < 0) {
            index = qint16(m_values.size());
            m_values.push_back(value);
        } else if (isList) {
            m_values[size_t(index)] = joined(&value, m_values[size_t(index)]);
        }
    }

    void addOther(const QString &key, const QString &value)
    {
        const auto known = m_layer.others.find(key);
        if (known == m_layer.others.end())
            m_layer.others.insert(key, {value, value});
        else
            known->list = joined(&value, known->list);
    }

    ValueLayer &m_layer;
    std::array<qint16, PropertySchema::tableSize> m_index;
    std::vector<QString> m_values; // in the order found
};

} // namespace

const ValueLayer *ProjectSystem::layer(const ProjectElement *element, const QString &configuration) const
{
    while (element && element->configurations().isEmpty() && element->parentElement())
        element = element->parentElement(); // whose values it has, with all its neighbours
    if (!m_lastLayer.isFor(element, configuration, changeCount()))
        m_lastLayer = {findLayer(element, configuration), element, configuration, changeCount()};
    return m_lastLayer.found;
}

const ValueLayer *ProjectSystem::findLayer(const ProjectElement *element, const QString &configuration) const
{
    const quint64 generation = changeCount();
    std::vector<std::pair<const ProjectElement *, ValueLayer *>> unfinished; // the inner ones first
    const ValueLayer *outer = nullptr;
    for (const ProjectElement *node = element; node && !outer; node = node->parentElement()) {
        if (node->configurations().isEmpty())
            continue;
        bool isCurrent;
        ValueLayer &found = cachedEntry(node->cache().layers, configuration, generation, isCurrent);
        if (isCurrent)
            outer = &found;
        else
            unfinished.emplace_back(node, &found);
    }
    for (; !unfinished.empty(); unfinished.pop_back()) {
        const auto [node, made] = unfinished.back();
        made->outer = outer;
        LayerBuilder builder(*made);
        const auto ask = [&builder, values = node](const QString &name) {
            if (const ProjectElement *child = values->configuration(name))
                builder.add(*child);
        };
        ask(configuration);
        if (configuration != "Common"_L1) {
            for (const QString &inherited : inheritedConfigurations(node, configuration))
                if (inherited != "Common"_L1)
                    ask(inherited);
            ask(u"Common"_s);
        }
        builder.finish([this, values = node, &configuration](ProjectProperty id) {
            return m_schema.contains(id) ? propertyValue(values, m_schema[id], configuration) : QString();
        });
        outer = made;
    }
    return outer;
}

const QString &ProjectSystem::value(const ProjectElement *element, ProjectProperty property,
                                    const QString &configuration) const
{
    static const QString none;
    const ValueLayer *values = layer(element, configuration);
    if (const QString *found = values ? values->find(property) : nullptr)
        return *found;
    return m_schema.contains(property) ? m_schema[property].defaultValue : none;
}

QString ProjectSystem::value(const ProjectElement *element, const PropertyClass &propertyClass,
                             const QString &configuration) const
{
    if (const auto id = m_schema.idOf(&propertyClass))
        return value(element, *id, configuration);
    if (!PropertySchema::idsOf(propertyClass.name).empty()) // another class for a key of the table
        return propertyValue(element, propertyClass, configuration);
    const ValueLayer *values = layer(element, configuration);
    const bool isList = propertyClass.type == PropertyType::StringList;
    const QString *found = values ? values->findOther(propertyClass.name, isList) : nullptr;
    return found ? *found : propertyClass.defaultValue;
}

bool ProjectSystem::isYes(const ProjectElement *element, ProjectProperty property, const QString &configuration) const
{
    return value(element, property, configuration) == "Yes"_L1;
}

QStringList ProjectSystem::inheritedConfigurations(const ProjectElement *element, const QString &configuration) const
{
    const ProjectElement *root = element ? element->enclosing(ProjectElement::Type::Solution) : nullptr;
    if (!root)
        return {};
    ElementCache &cache = root->cache();
    if (cache.inheritedGeneration != changeCount()) {
        cache.inherited.clear();
        cache.inheritedGeneration = changeCount();
    }
    const auto known = cache.inherited.constFind(configuration);
    if (known != cache.inherited.constEnd())
        return *known;
    return *cache.inherited.insert(configuration, ::inheritedConfigurations(root, configuration));
}

std::vector<const PropertyValueGroupClass *> ProjectSystem::propertyGroups(const ProjectElement *element,
                                                                           const QString &configuration) const
{
    std::vector<const PropertyValueGroupClass *> groups;
    const auto addAll = [&groups](const PropertyValueGroupFile *file) {
        for (const auto &group : file->groups())
            groups.push_back(group.get());
    };
    const QString path = expandSystem(value(element, ProjectProperty::property_groups_file_path, configuration));
    const QString absolute = path.isEmpty() ? path : ::absolutePath(projectDirectory(element), path);
    if (const PropertyValueGroupFile *file = absolute.isEmpty() ? nullptr : m_groupFiles.file(absolute))
        addAll(file);
    for (const QString &gathered : m_packageGroupFiles)
        if (const PropertyValueGroupFile *file = m_groupFiles.file(gathered))
            addAll(file);
    return groups;
}

std::vector<const PropertyValueGroupClass::Contribution *>
ProjectSystem::groupContributions(const ProjectElement *element, const QString &configuration) const
{
    std::vector<const PropertyValueGroupClass::Contribution *> contributions;
    const QStringList inherited = inheritedConfigurations(element, configuration);
    for (const PropertyValueGroupClass *group : propertyGroups(element, configuration)) {
        const PropertyValueGroupClass::Entry *entry = group->entryFor(value(element, *group, configuration));
        if (!entry)
            continue;
        for (const PropertyValueGroupClass::Contribution &contribution : entry->contributions)
            if (contribution.appliesTo(configuration, inherited) && holds(contribution, element, configuration))
                contributions.push_back(&contribution);
    }
    return contributions;
}

bool ProjectSystem::holds(const PropertyValueGroupClass::Contribution &contribution, const ProjectElement *element,
                          const QString &configuration) const
{
    if (contribution.conditionKey.isEmpty())
        return true;
    const PropertyClass *condition = m_schema.propertyClassNamed(contribution.conditionKey);
    return (condition ? value(element, *condition, configuration) : QString()) == contribution.conditionValue;
}
