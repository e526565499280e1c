#include "project/properties/GenericOptions.h"

#include "project/properties/LoadProblem_p.h"
#include "project/properties/PropertyGroups.h"

using namespace Qt::StringLiterals;

namespace {

struct ToolRow // in the order of GenericOptions::Tool
{
    const char *name;
    const char *group;
    BuildTools tools;
};
constexpr ToolRow toolRows[GenericOptions::toolCount] = {
    {"assembler", "Assembler", buildToolBit(BuildTool::Assemble)},
    {"compiler", "C/C++", buildToolBit(BuildTool::CCompile) | buildToolBit(BuildTool::CppCompile)},
    {"c_compiler", "C/C++", buildToolBit(BuildTool::CCompile)},
    {"cpp_compiler", "C/C++", buildToolBit(BuildTool::CppCompile)},
    {"linker", "Linker", buildToolBit(BuildTool::Link)},
};

} // namespace

bool GenericOptions::load(const QString &path, QString *error)
{
    if (path == m_path)
        return true;
    forget();
    if (path.isEmpty())
        return true;
    auto document = std::make_unique<XMLPP2>();
    const bool isRead = document->load(path, QString(), false);
    if (!isRead || !document->root()) {
        if (error)
            *error = loadProblem(path, *document, isRead);
        return false;
    }
    m_document = std::move(document);
    m_path = path;
    for (XMLElement *element = m_document->root()->firstChildElement(); element;) {
        XMLElement *next = element->nextSiblingElement();
        if (element->name() == "property")
            addProperty(*element);
        else if (element->name() == "group")
            m_registered.push_back(
                m_schema->registerPropertyClass(std::make_unique<PropertyValueGroupClass>(*element)));
        else
            m_extraElements.push_back(m_document->root()->removeChild(element));
        element = next;
    }
    return true;
}

void GenericOptions::addProperty(const XMLElement &element)
{
    const QString name = QString::fromUtf8(element.attribute("name"));
    if (!element.hasAttribute("tool")) {
        PropertyClass *known = m_schema->propertyClassNamed(name);
        if (known && element.hasAttribute("default")) {
            m_defaults.try_emplace(known, known->defaultValue);
            known->defaultValue = QString::fromUtf8(element.attribute("default"));
            m_schema->noteChange();
        }
        return;
    }
    if (name.isEmpty())
        return;
    const QStringList names = QString::fromUtf8(element.attribute("tool")).split(u';', Qt::SkipEmptyParts);
    auto made = std::make_unique<GenericPropertyClass>(element);
    BuildTools tools = 0;
    for (size_t tool = 0; tool < toolCount; ++tool) {
        const ToolRow &row = toolRows[tool];
        if (!names.contains(QLatin1StringView(row.name)))
            continue;
        made->group = QString::fromLatin1(row.group);
        m_classes[tool].append(made.get());
        tools |= row.tools;
    }
    m_registered.push_back(m_schema->registerPropertyClass(std::move(made), tools));
}

void GenericOptions::forget()
{
    for (const auto &[known, text] : m_defaults) {
        known->defaultValue = text;
        m_schema->noteChange();
    }
    m_defaults.clear();
    for (auto known = m_registered.rbegin(); known != m_registered.rend(); ++known)
        m_schema->unregisterPropertyClass(*known);
    m_registered.clear();
    m_classes = {};
    m_extraElements.clear();
    m_document.reset();
    m_path.clear();
}
