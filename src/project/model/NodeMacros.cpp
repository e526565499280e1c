#include "project/model/NodeMacros_p.h"

#include "xml/macros/SystemMacroTable.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr QChar patternMark(0xE000); // of private use

// A node as its own macros see it.
struct OwnNode
{
    const ProjectSystem &system;
    const ProjectElement &element;
    const ElementPath &path;

    QString relative() const { return path.wasRelative ? system.relativePath(&element, path.path) : path.path; }
};

void append(NodeMacros::Text &text, QStringView part)
{
    text.append(part.data(), part.size());
}

QStringView fileNameOf(QStringView path)
{
    return path.sliced(path.lastIndexOf(u'/') + 1);
}

QStringView directoryOf(QStringView path)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash < 0 ? QStringView(u".") : slash == 0 ? QStringView(u"/") : path.first(slash);
}

// Without its ending, which a name that begins with its only dot doesn't have.
QStringView baseNameOf(QStringView fileName)
{
    const qsizetype dot = fileName.lastIndexOf(u'.');
    return dot > 0 ? fileName.first(dot) : fileName;
}

QStringView endingOf(QStringView fileName) // without the dot
{
    const qsizetype dot = fileName.lastIndexOf(u'.');
    return dot > 0 ? fileName.sliced(dot + 1) : QStringView(u"");
}

enum Nodes { AllNodes, Files, FilesAndProjects }; // files are folders with a file name, too
struct OwnMacro
{
    QLatin1StringView name;
    Nodes nodes;
    void (*append)(const OwnNode &, NodeMacros::Text &);
};
const OwnMacro ownMacros[] = {
    {"ProjectNodeName"_L1, AllNodes,
     [](const OwnNode &node, NodeMacros::Text &text) { append(text, node.element.displayName()); }},
    {"InputDir"_L1, Files,
     [](const OwnNode &node, NodeMacros::Text &text) { append(text, directoryOf(node.path.path)); }},
    {"InputName"_L1, Files,
     [](const OwnNode &node, NodeMacros::Text &text) { append(text, baseNameOf(fileNameOf(node.path.path))); }},
    {"InputFileName"_L1, Files,
     [](const OwnNode &node, NodeMacros::Text &text) { append(text, fileNameOf(node.path.path)); }},
    {"InputExt"_L1, Files,
     [](const OwnNode &node, NodeMacros::Text &text) { append(text, endingOf(fileNameOf(node.path.path))); }},
    {"InputPath"_L1, Files, [](const OwnNode &node, NodeMacros::Text &text) { append(text, node.path.path); }},
    {"RelInputPath"_L1, FilesAndProjects,
     [](const OwnNode &node, NodeMacros::Text &text) { append(text, node.relative()); }},
    {"RelInputDir"_L1, FilesAndProjects,
     [](const OwnNode &node, NodeMacros::Text &text) {
         append(text, node.path.wasRelative ? directoryOf(node.relative()).toString() : u"."_s);
     }},
};

bool hasMacro(const ProjectElement &element, Nodes nodes)
{
    switch (element.type()) {
    case ProjectElement::Type::File: return true;
    case ProjectElement::Type::Folder: return nodes == AllNodes || element.hasProperty(u"file_name"_s);
    case ProjectElement::Type::Project: return nodes != Files;
    default: return nodes == AllNodes;
    }
}

const QLatin1StringView directoryNames[NodeContext::directoryCount] = {"IntDir"_L1, "RootOutDir"_L1, "OutDir"_L1,
                                                                       "RootRelativeOutDir"_L1, "ToolChainDir"_L1};

const QString *find(const std::vector<NodeContext::Macro> &macros, const QString &name)
{
    const auto found = std::find_if(macros.rbegin(), macros.rend(), // the last of a name counts
                                    [&name](const NodeContext::Macro &macro) { return macro.first == name; });
    return found == macros.rend() ? nullptr : &found->second;
}

const QString *find(const MacroMap &macros, const QString &name)
{
    const auto found = macros.constFind(name);
    return found == macros.constEnd() ? nullptr : &*found;
}

// The display names of the folders from `folder` outwards, the outermost first.
QString folderPath(const ProjectElement *folder)
{
    QStringList names;
    for (; folder && folder->type() == ProjectElement::Type::Folder; folder = folder->parentElement())
        names.prepend(folder->displayName());
    return names.join(u'/');
}

} // namespace

std::optional<QString> NodeMacros::value(const QString &name)
{
    for (int directory = 0; directory < m_directories; ++directory)
        if (name == directoryNames[directory] && !(m_extra && m_extra->contains(name)))
            if (const auto found = directoryValue(directory))
                return found;
    const auto answer = [this, &name](const QString *found) -> std::optional<QString> {
        if (!found)
            return std::nullopt;
        const std::optional<QString> now = SystemMacroTable::instance().currentTime(name);
        m_isOwn |= now.has_value();
        m_isTooInvolved |= now.has_value();
        return now.value_or(*found);
    };
    if (const QString *found = m_extra ? find(*m_extra, name) : nullptr)
        return answer(found);
    if (const QString *found = find(m_context.later, name))
        return answer(found);
    if (const auto found = ownValue(name))
        return found;
    if (const QString *found = find(m_context.macros, name))
        return answer(found);
    const SystemMacroTable &table = SystemMacroTable::instance();
    const QString *found = find(m_context.userMacros, name);
    if (!found)
        found = find(table.globalMacros(), name);
    return answer(found ? found : find(table.systemMacros(), name));
}

std::optional<QString> NodeMacros::ownValue(const QString &name)
{
    const auto known = std::find_if(std::begin(ownMacros), std::end(ownMacros),
                                    [&name](const OwnMacro &macro) { return name == macro.name; });
    if (!m_element || known == std::end(ownMacros) || !hasMacro(*m_element, known->nodes))
        return std::nullopt;
    m_isOwn = true;
    // While the node's path is worked out, nothing that comes from it is there.
    if (known->nodes != AllNodes && m_element->cache().isResolving)
        return std::nullopt;
    if (m_pattern) {
        m_pattern->parts.push_back({QString(), size_t(known - std::begin(ownMacros))});
        return QString(patternMark);
    }
    Text made;
    appendOwn(size_t(known - std::begin(ownMacros)), made);
    return QString(made.constData(), made.size());
}

void NodeMacros::appendOwn(size_t macro, Text &text) const
{
    static const ElementPath none;
    const OwnMacro &own = ownMacros[macro];
    own.append(
        {m_system, *m_element, own.nodes == AllNodes ? none : m_system.resolve(m_element, m_context.configuration)},
        text);
}

MacroPattern NodeMacros::patternOf(const QString &text)
{
    MacroPattern pattern;
    if (m_element->cache().isResolving || hasNestedReference(text))
        return pattern;
    m_pattern = &pattern;
    pattern.end = expandMacros(*this, text);
    m_pattern = nullptr;
    // Each own macro left one mark in the text; another one there isn't ours.
    if (m_isTooInvolved || pattern.end.count(patternMark) != qsizetype(pattern.parts.size()))
        return pattern;
    for (MacroPattern::Part &part : pattern.parts) {
        const qsizetype mark = pattern.end.indexOf(patternMark);
        part.before = pattern.end.first(mark);
        pattern.end.remove(0, mark + 1);
    }
    pattern.isUsable = true;
    return pattern;
}

QString NodeMacros::expand(const MacroPattern &pattern) const
{
    Text text;
    for (const MacroPattern::Part &part : pattern.parts) {
        append(text, part.before);
        appendOwn(part.macro, text);
    }
    append(text, pattern.end);
    return QString(text.constData(), text.size());
}

// None where the directory isn't a macro.
std::optional<QString> NodeMacros::directoryValue(int directory)
{
    using Macro = NodeContext::DirectoryMacro;
    Macro &known = m_context.directories[size_t(directory)];
    if (known.state == Macro::Absent)
        return std::nullopt;
    if (known.state == Macro::Shared)
        return known.value;
    bool isOwn = false;
    std::optional<QString> made;
    switch (directory) {
    case NodeContext::IntDir:
        made = normalizedPath(directoryText(ProjectProperty::build_intermediate_directory, directory, isOwn));
        break;
    case NodeContext::RootOutDir:
        made = directoryText(ProjectProperty::build_root_output_directory, directory, isOwn);
        break;
    case NodeContext::OutDir:
        made = normalizedPath(directoryText(ProjectProperty::build_output_directory, directory, isOwn));
        break;
    case NodeContext::ToolChainDir:
        made = directoryText(ProjectProperty::build_toolchain_directory, directory, isOwn);
        break;
    case NodeContext::RootRelativeOutDir: {
        NodeMacros before(m_system, m_element, m_context, nullptr, directory);
        const QString root = before.directoryValue(NodeContext::RootOutDir).value_or(QString());
        const QString out = before.directoryValue(NodeContext::OutDir).value_or(QString());
        isOwn = before.isOwn();
        if (!root.isEmpty() && !out.isEmpty())
            made = relativePath(m_system.absolutePath(m_element, out), m_system.absolutePath(m_element, root));
        break;
    }
    }
    known.state = isOwn ? Macro::Own : made ? Macro::Shared : Macro::Absent;
    known.value = isOwn ? QString() : made.value_or(QString());
    m_isOwn |= isOwn;
    m_isTooInvolved |= isOwn;
    return made;
}

// Those before it are macros in the text.
QString NodeMacros::directoryText(ProjectProperty property, int directory, bool &isOwn)
{
    NodeMacros before(m_system, m_element, m_context, nullptr, directory);
    const QString made = expandMacros(before, m_system.value(m_element, property, m_context.configuration));
    isOwn = before.isOwn();
    return made;
}

void NodeMacros::fill(const ProjectSystem &system, const ProjectElement *element, NodeContext &context)
{
    const QString &configuration = context.configuration;
    context.userMacros = system.userMacros(element, configuration);
    const auto add = [&context](const QString &name, const QString &value) {
        context.macros.emplace_back(name, value);
    };
    if (element) {
        context.macros.reserve(9);
        const ProjectElement *parent = element->parentElement();
        if (parent && parent->type() == ProjectElement::Type::Folder)
            add(u"FolderName"_s, parent->displayName());
        add(u"FolderPath"_s, folderPath(parent));
        if (const ProjectElement *project = element->enclosing(ProjectElement::Type::Project)) {
            add(u"ProjectDir"_s, system.projectDirectory(project));
            add(u"ProjectName"_s, project->displayName());
        }
        if (const ProjectElement *root = element->enclosing(ProjectElement::Type::Solution)) {
            const QString fileName = fileNameOf(root->filePath()).toString();
            add(u"SolutionDir"_s, system.solutionDirectory(root));
            add(u"SolutionName"_s, baseNameOf(fileName).toString());
            add(u"SolutionFileName"_s, fileName);
            add(u"SolutionPath"_s, root->filePath());
            add(u"SolutionExt"_s, endingOf(fileName).toString());
        }
    }
    context.later = {{u"Configuration"_s, configuration},
                     {u"OBJ"_s, system.objectFileExtension(element, configuration)},
                     {u"EXE"_s, system.executableFileExtension(element, configuration)},
                     {u"LIB"_s, system.libraryFileExtension(element, configuration)},
                     {u"PackageExt"_s, u"vnPackage"_s}};
    for (const PropertyValueGroupClass *group : system.propertyGroups(element, configuration))
        context.later.emplace_back(group->name, system.value(element, *group, configuration));
    for (const auto *contribution : system.groupContributions(element, configuration))
        if (contribution->kind == PropertyValueGroupClass::Contribution::Macro)
            context.later.emplace_back(contribution->name, contribution->value);
    MacroMap extra;
    system.addExtraMacros(element, configuration, extra);
    for (auto macro = extra.begin(); macro != extra.end(); ++macro)
        context.later.emplace_back(macro.key(), *macro);
}

MacroMap NodeMacros::all()
{
    MacroMap map = m_context.userMacros;
    for (const auto &[name, value] : m_context.macros)
        map[name] = value;
    for (const OwnMacro &macro : ownMacros)
        if (const auto found = ownValue(macro.name))
            map[macro.name] = *found;
    for (const auto &[name, value] : m_context.later)
        map[name] = value;
    for (int directory = 0; directory < m_directories; ++directory)
        if (const auto found = directoryValue(directory))
            map[directoryNames[directory]] = *found;
    return map;
}
