#pragma once

#include "project/properties/PropertyClass.h"

#include <QHash>
#include <array>
#include <functional>
#include <span>
#include <vector>

// The properties of the table by themselves: two of them may have one key.
enum class ProjectProperty : quint16 {
#define PROPERTY(group, id, key, type, defaultValue, detail, tools, shortText, longText) id,
#include "project/properties/ProjectProperties.def"
};

// What runs a command in a build. The numbers are those of the commands' records.
enum class BuildTool { CCompile = 2, CppCompile = 3, Assemble = 4, Link = 7, Archive = 8, Stage = 9, Combine = 10 };
using BuildTools = quint32; // a bit each, 1 << number
constexpr BuildTools buildToolBit(BuildTool tool)
{
    return BuildTools(1) << int(tool);
}

// The properties that a project system knows. It owns the classes; what asks for one by its key in its inner
// loop takes it by its id.
class PropertySchema
{
public:
    // Node: what the nodes of a tree have. Standard: with what a build, the linker and the debugger ask for.
    enum class Extent { Node, Standard };
    explicit PropertySchema(Extent extent = Extent::Standard);
    PropertySchema(const PropertySchema &) = delete;
    PropertySchema &operator=(const PropertySchema &) = delete;

    static constexpr size_t tableSize = 0
#define PROPERTY(group, id, key, type, defaultValue, detail, tools, shortText, longText) +1
#include "project/properties/ProjectProperties.def"
        ;
    // Those with that key.
    static std::span<const ProjectProperty> idsOf(const QString &key);
    static bool isList(ProjectProperty id); // a StringList

    // The class of the table; it must be within the extent.
    const PropertyClass &operator[](ProjectProperty id) const;
    bool contains(ProjectProperty id) const
    {
        return m_byId[size_t(id)];
    } // it is within the extent
    // None for a class that isn't the table's.
    std::optional<ProjectProperty> idOf(const PropertyClass *propertyClass) const;
    // The class that was last registered with that key; null if there is none.
    PropertyClass *propertyClassNamed(const QString &key) const
    {
        return m_byKey.value(key);
    }
    // Its key leads to it until it is unregistered or another one comes.
    PropertyClass *registerPropertyClass(std::unique_ptr<PropertyClass> propertyClass, BuildTools tools = 0);
    // Hands it back; its key leads to the one that was registered before. Null for what isn't registered.
    std::unique_ptr<PropertyClass> unregisterPropertyClass(const PropertyClass *propertyClass);

    // Is told of each class that is unregistered, before it goes.
    using UnregisterListener = std::function<void(const PropertyClass *)>;
    void setUnregisterListener(UnregisterListener listener)
    {
        m_unregistered = std::move(listener);
    }

    // The tools into whose commands its values go.
    BuildTools toolsOf(const PropertyClass *propertyClass) const
    {
        return m_tools.value(propertyClass);
    }
    PropertyClassList classesOf(BuildTool tool) const; // in the order of registration

    // Counts registrations and what else may change a value; note what is changed in a class.
    quint64 changeCount() const
    {
        return m_changeCount;
    }
    void noteChange()
    {
        ++m_changeCount;
    }

    // What is registered, in that order.
    const std::vector<std::unique_ptr<PropertyClass>> &classes() const
    {
        return m_classes;
    }
    // What is only shown and has no value in a file.
    const std::vector<std::unique_ptr<PropertyClass>> &computedClasses() const
    {
        return m_computed;
    }
    const std::vector<std::unique_ptr<MacroPropertyClass>> &macroClasses() const
    {
        return m_macros;
    }

private:
    std::vector<std::unique_ptr<PropertyClass>> m_classes, m_computed;
    std::vector<std::unique_ptr<MacroPropertyClass>> m_macros;
    std::array<const PropertyClass *, tableSize> m_byId{};
    QHash<QString, PropertyClass *> m_byKey;
    QHash<const PropertyClass *, BuildTools> m_tools;
    QHash<const PropertyClass *, ProjectProperty> m_ids;
    quint64 m_changeCount = 0;
    UnregisterListener m_unregistered;
};
