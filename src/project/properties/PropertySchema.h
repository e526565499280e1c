#pragma once

#include "project/properties/PropertyClass.h"

#include <QHash>
#include <array>
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

    // The class of the table; it must be within the extent.
    const PropertyClass &operator[](ProjectProperty id) const;
    // The class that was last registered with that key; null if there is none.
    PropertyClass *propertyClassNamed(const QString &key) const { return m_byKey.value(key); }
    // Its key leads to it until it is unregistered or another one comes.
    PropertyClass *registerPropertyClass(std::unique_ptr<PropertyClass> propertyClass, BuildTools tools = 0);
    // Hands it back; its key leads to the one that was registered before. Null for what isn't registered.
    std::unique_ptr<PropertyClass> unregisterPropertyClass(const PropertyClass *propertyClass);

    // The tools into whose commands its values go.
    BuildTools toolsOf(const PropertyClass *propertyClass) const { return m_tools.value(propertyClass); }
    PropertyClassList classesOf(BuildTool tool) const; // in the order of registration

    // What is registered, in that order.
    const std::vector<std::unique_ptr<PropertyClass>> &classes() const { return m_classes; }
    // What is only shown and has no value in a file.
    const std::vector<std::unique_ptr<PropertyClass>> &computedClasses() const { return m_computed; }
    const std::vector<std::unique_ptr<MacroPropertyClass>> &macroClasses() const { return m_macros; }

private:
#define PROPERTY(group, id, key, type, defaultValue, detail, tools, shortText, longText) +1
    static constexpr size_t tableSize = 0
#include "project/properties/ProjectProperties.def"
        ;

    std::vector<std::unique_ptr<PropertyClass>> m_classes, m_computed;
    std::vector<std::unique_ptr<MacroPropertyClass>> m_macros;
    std::array<const PropertyClass *, tableSize> m_byId{};
    QHash<QString, PropertyClass *> m_byKey;
    QHash<const PropertyClass *, BuildTools> m_tools;
};
