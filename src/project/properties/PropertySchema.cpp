#include "project/properties/PropertySchema.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

enum class GroupId : quint8 {
#define PROPERTY_GROUP(id, set, page, title) id,
#include "project/properties/ProjectProperties.def"
};

struct GroupRow
{
    PropertySchema::Extent extent;
    const char *page, *title;
};
constexpr GroupRow groupRows[] = {
#define PROPERTY_GROUP(id, set, page, title) {PropertySchema::Extent::set, page, title},
#include "project/properties/ProjectProperties.def"
};

namespace tool {
constexpr BuildTools none = 0;
constexpr BuildTools c = buildToolBit(BuildTool::CCompile);
constexpr BuildTools cpp = buildToolBit(BuildTool::CppCompile);
constexpr BuildTools assembler = buildToolBit(BuildTool::Assemble);
constexpr BuildTools linker = buildToolBit(BuildTool::Link);
constexpr BuildTools archiver = buildToolBit(BuildTool::Archive);
constexpr BuildTools stage = buildToolBit(BuildTool::Stage);
constexpr BuildTools combine = buildToolBit(BuildTool::Combine);
constexpr BuildTools compilers = c | cpp;
constexpr BuildTools sources = compilers | assembler;
constexpr BuildTools all = sources | linker;
} // namespace tool

struct PropertyRow
{
    GroupId group;
    PropertyType type;
    BuildTools tools;
    const char *key, *defaultValue, *detail, *shortText, *longText;
};
using namespace tool; // the rows name them plainly
constexpr PropertyRow propertyRows[] = {
#define PROPERTY(group, id, key, type, defaultValue, detail, tools, shortText, longText) \
    {GroupId::group, PropertyType::type, tools, #key, defaultValue, detail, shortText, longText},
#include "project/properties/ProjectProperties.def"
};
constexpr PropertyRow computedRows[] = {
#define COMPUTED(group, key, shortText, longText) \
    {GroupId::group, PropertyType::String, none, #key, "", "", shortText, longText},
#include "project/properties/ProjectProperties.def"
};

struct MacroRow
{
    const char *name, *longText;
};
constexpr MacroRow macroRows[] = {
#define BUILD_MACRO(name, longText) {#name, longText},
#include "project/properties/ProjectProperties.def"
};

QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}

std::unique_ptr<PropertyClass> classOf(const PropertyRow &row)
{
    const GroupRow &group = groupRows[size_t(row.group)];
    const PropertyTexts texts{text(group.page), text(group.title), text(row.shortText), text(row.longText)};
    const QString detail = text(row.detail);
    switch (row.type) {
    case PropertyType::Enumeration:
        return std::make_unique<PropertyClass>(text(row.key), row.type, detail.split(u';'), texts,
                                               text(row.defaultValue));
    case PropertyType::IntegerRange:
        return std::make_unique<PropertyClass>(text(row.key), row.type, detail.section(".."_L1, 0, 0).toInt(),
                                               detail.section(".."_L1, 1).toInt(), texts,
                                               text(row.defaultValue).toInt());
    default: {
        auto made = std::make_unique<PropertyClass>(text(row.key), row.type, texts, text(row.defaultValue));
        made->fileFilter = detail;
        return made;
    }
    }
}

} // namespace

PropertySchema::PropertySchema(Extent extent)
{
    for (size_t i = 0; i < tableSize; ++i) {
        const PropertyRow &row = propertyRows[i];
        if (groupRows[size_t(row.group)].extent > extent)
            continue;
        m_byId[i] = registerPropertyClass(classOf(row), row.tools);
        m_ids.insert(m_byId[i], ProjectProperty(i));
    }
    for (const PropertyRow &row : computedRows) {
        m_computed.push_back(classOf(row));
        m_computed.back()->isReadOnly = true;
    }
    for (const MacroRow &row : macroRows)
        m_macros.push_back(std::make_unique<MacroPropertyClass>(text(row.name), MacroPropertyClass::Kind::Project,
                                                                text(row.longText)));
}

std::span<const ProjectProperty> PropertySchema::idsOf(const QString &key)
{
    static const QHash<QString, std::vector<ProjectProperty>> byKey = [] {
        QHash<QString, std::vector<ProjectProperty>> made;
        for (size_t i = 0; i < tableSize; ++i)
            made[text(propertyRows[i].key)].push_back(ProjectProperty(i));
        return made;
    }();
    const auto found = byKey.constFind(key);
    return found == byKey.constEnd() ? std::span<const ProjectProperty>() : std::span(*found);
}

bool PropertySchema::isList(ProjectProperty id)
{
    return propertyRows[size_t(id)].type == PropertyType::StringList;
}

std::optional<ProjectProperty> PropertySchema::idOf(const PropertyClass *propertyClass) const
{
    const auto found = m_ids.constFind(propertyClass);
    return found == m_ids.constEnd() ? std::nullopt : std::optional(*found);
}

const PropertyClass &PropertySchema::operator[](ProjectProperty id) const
{
    Q_ASSERT(m_byId[size_t(id)]);
    return *m_byId[size_t(id)];
}

PropertyClass *PropertySchema::registerPropertyClass(std::unique_ptr<PropertyClass> propertyClass, BuildTools tools)
{
    PropertyClass *added = m_classes.emplace_back(std::move(propertyClass)).get();
    m_byKey.insert(added->name, added);
    noteChange();
    if (tools)
        m_tools.insert(added, tools);
    return added;
}

std::unique_ptr<PropertyClass> PropertySchema::unregisterPropertyClass(const PropertyClass *propertyClass)
{
    const auto found = std::find_if(m_classes.begin(), m_classes.end(),
                                    [propertyClass](const auto &known) { return known.get() == propertyClass; });
    if (found == m_classes.end())
        return nullptr;
    if (m_unregistered)
        m_unregistered(propertyClass);
    std::unique_ptr<PropertyClass> taken = std::move(*found);
    m_classes.erase(found);
    m_tools.remove(propertyClass);
    m_ids.remove(propertyClass);
    noteChange();
    const auto earlier = std::find_if(m_classes.rbegin(), m_classes.rend(),
                                      [&taken](const auto &known) { return known->name == taken->name; });
    if (earlier == m_classes.rend())
        m_byKey.remove(taken->name);
    else
        m_byKey.insert(taken->name, earlier->get());
    return taken;
}

PropertyClassList PropertySchema::classesOf(BuildTool tool) const
{
    PropertyClassList list;
    for (const auto &known : m_classes)
        if (toolsOf(known.get()) & buildToolBit(tool))
            list.append(known.get());
    return list;
}
