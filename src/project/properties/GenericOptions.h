#pragma once

#include "project/properties/PropertySchema.h"
#include "xml/preprocessor/XMLPP2.h"

#include <array>
#include <map>

class XMLElement;

// What a tool chain adds to the schema, from the children of its file's root:
//
//     <property tool="compiler;assembler" name="KEY" type="Enumeration" .../>   see GenericPropertyClass
//     <property name="KEY" default="TEXT"/>                                   another default of one that exists
//     <group name="KEY" ...> ... </group>                                     see PropertyValueGroupClass
//
// Tools are "assembler", "compiler", "c_compiler", "cpp_compiler" and "linker". One file is in force at a time.
class GenericOptions
{
public:
    enum Tool { Assembler, Compiler, CCompiler, CppCompiler, Linker };
    static constexpr size_t toolCount = 5;

    explicit GenericOptions(PropertySchema *schema) : m_schema(schema) {}
    GenericOptions(const GenericOptions &) = delete;
    GenericOptions &operator=(const GenericOptions &) = delete;
    ~GenericOptions() { forget(); }

    // Puts the file in force in place of the one before; nothing happens when it is that one. False when it
    // can't be read, and why; then none is in force. An empty path means none.
    bool load(const QString &path, QString *error = nullptr);
    // Takes everything out of the schema again.
    void forget();

    using Classes = QList<const GenericPropertyClass *>;
    const Classes &classesOf(Tool tool) const { return m_classes[tool]; }
    // Elements of the file that mean nothing here, for whoever knows them.
    const std::vector<std::unique_ptr<XMLNode>> &extraElements() const { return m_extraElements; }

private:
    void addProperty(const XMLElement &element);

    PropertySchema *m_schema;
    QString m_path;
    std::unique_ptr<XMLPP2> m_document; // outlives the extra elements, whose text it holds
    std::vector<std::unique_ptr<XMLNode>> m_extraElements;
    std::array<Classes, toolCount> m_classes;
    std::vector<const PropertyClass *> m_registered;
    std::map<PropertyClass *, QString> m_defaults; // as they were
};
