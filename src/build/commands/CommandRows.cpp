#include "build/commands/CommandRows_p.h"

#include "build/commands/CommandText.h"
#include "project/model/ProjectSystem.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

using enum ArgumentForm;
using enum ProjectProperty;

constexpr BuildTools c = buildToolBit(BuildTool::CCompile), cpp = buildToolBit(BuildTool::CppCompile),
                     assembler = buildToolBit(BuildTool::Assemble), linker = buildToolBit(BuildTool::Link),
                     archiver = buildToolBit(BuildTool::Archive), compilers = c | cpp, sources = compilers | assembler,
                     all = sources | linker | archiver;

// tools, form, text, property
constexpr CommandRow rows[] = {
    {all, Program, u"$(StudioDir)/bin/cc"},
    {all, UnlessYes, u"-v", build_quietly},
    {all, IfYes, u"-we", build_treat_warnings_as_errors},
    {all, IfYes, u"-w", build_suppress_warnings},
    {linker | archiver, InputsFile, u"-inputfiles"},

    {sources, Text, u"-c"},
    {assembler, Text, u"-xasm"},
    {c, Text, u"-xc"},
    {cpp, Text, u"-xc++"},
    {sources, Source, {}},
    {cpp, IfYes, u"-exceptions", cpp_enable_exceptions},
    {cpp, IfYes, u"-rtti", cpp_enable_rtti},
    {sources, IfYes, u"-g", build_debug_information},
    {sources, Includes, u"-I", c_user_include_directories},
    {sources, Groups, {}},
    {sources, EscapedItems, u"-D", c_preprocessor_definitions},
    {sources, VerbatimItems, u"-U", c_preprocessor_undefinitions},
    {sources, Dependencies, u"-depend"},
    {sources, Section, u"-Rc,", default_code_section},
    {sources, Section, u"-Rd,", default_data_section},
    {sources, Section, u"-Rz,", default_zeroed_section},
    {sources, Section, u"-Rk,", default_const_section},
    {compilers, ToolOptions, u"-Wc,"},
    {assembler, ToolOptions, u"-Wa,"},
    {compilers, EscapedItems, u"-Wc,", c_additional_options},
    {compilers, OptionsFile, u"-Wc,", c_additional_options_from_file},
    {c, EscapedItems, u"-Wc,", c_only_additional_options},
    {c, OptionsFile, u"-Wc,", c_only_additional_options_from_file},
    {cpp, EscapedItems, u"-Wc,", cpp_only_additional_options},
    {cpp, OptionsFile, u"-Wc,", cpp_only_additional_options_from_file},
    {assembler, EscapedItems, u"-Wa,", asm_additional_options},
    {assembler, OptionsFile, u"-Wa,", asm_additional_options_from_file},

    {archiver, Text, u"-ar"},

    {linker, Script, u"-T", link_linker_script_file},
    {linker, MemoryMap, u"-memorymap", linker_memory_map_file},
    {linker, Pair, u"-memorymapmacros", linker_memory_map_macros},
    {linker, Pair, u"-placementsegments", linker_section_placements_segments},
    {linker, Placement, u"-placement", linker_section_placement_file},
    {linker, Pair, u"-placementmacros", linker_section_placement_macros},
    {linker, IfYes, u"-exceptions", cpp_enable_exceptions},
    {linker, IfYes, u"-rtti", cpp_enable_rtti},
    {linker, Printf, u"-printf="},
    {linker, Scanf, u"-scanf="},
    {linker, Joined, u"-F", linker_output_format},
    {linker, IfNo, u"-l-", link_include_standard_libraries},
    {linker, IfYes, u"-M", linker_map_file},
    {linker, Items, u"-d", link_symbol_definitions},
    {linker, Items, u"-K", linker_keep_symbols},
    {linker, ToolOptions, u"-Wl,"},
    {linker, EscapedItems, u"-Wl,", linker_additional_options},
    {linker, OptionsFile, u"-Wl,", linker_additional_options_from_file},
    {linker, Pair, u"-patch", linker_patch_build_command},

    {all, Target, u"-o"},
};

} // namespace

std::span<const CommandRow> commandRows()
{
    return rows;
}

ArgumentRows::ArgumentRows(ToolCommands &tools, const StandardProjectSystem &system,
                           const GenericOptions &genericOptions, const ToolRequest &request)
    : m_tools(tools), m_system(system), m_genericOptions(genericOptions), m_request(request)
{
    if (request.element->type() == ProjectElement::Type::Folder)
        m_unityMacros = unityMacros(system, request.element, request.configuration);
}

void ArgumentRows::add(const CommandRow &row)
{
    const QString raw = row.property == ProjectProperty() ? QString() : value(row.property);
    switch (row.form) {
    case Text: return addText(row);
    case Program: return addPair({}, expand(row.text.toString()));
    case IfYes: return raw == "Yes"_L1 ? addText(row) : void();
    case IfNo: return raw == "No"_L1 ? addText(row) : void();
    case UnlessYes: return raw != "Yes"_L1 ? addText(row) : void();
    case Joined: return raw != "None"_L1 ? addEach(row, {expand(raw)}) : void();
    case Pair: return addPair(row, expand(raw));
    case Items: return addExpanded(row, raw.split(u';', Qt::SkipEmptyParts));
    case EscapedItems: return addExpanded(row, splitAtSemicolons(raw));
    case VerbatimItems: return addEach(row, splitAtSemicolons(raw));
    case Section: return raw != m_system.schema()[row.property].defaultValue ? addEach(row, {expand(raw)}) : void();
    case Includes: return addIncludes(row);
    case Groups: return addGroups();
    case OptionsFile: return addOptionsFile(row);
    case ToolOptions: return addToolOptions(row);
    case Printf: return addEach(row, {printfCode()});
    case Scanf: return addEach(row, {scanfCode()});
    case Script:
    case MemoryMap:
    case Placement: return addLinkFile(row);
    case InputsFile:
        isOwn = true;
        return addPair(row, m_system.relativePath(m_request.element, m_tools.inputsFileName(m_request)));
    case Dependencies:
        isOwn = true;
        if (m_request.flags & BuildFlag::noDepend)
            return;
        return addPair(row,
                       m_tools.dependencyFileName(m_request.element, m_request.configuration, m_request.target, false));
    case Source: isOwn = true; return addPair(row, m_request.inputs.value(0));
    case Target: isOwn = true; return addPair(row, m_request.target);
    }
}

QString ArgumentRows::value(ProjectProperty property) const
{
    return m_system.value(m_request.element, property, m_request.configuration);
}

QString ArgumentRows::expand(const QString &text)
{
    return m_system.expand(m_request.element, m_request.configuration, text, m_unityMacros, &isOwn);
}

void ArgumentRows::addText(const CommandRow &row)
{
    arguments += QString::fromRawData(row.text.data(), row.text.size()); // the table stays
}

void ArgumentRows::addPair(const CommandRow &row, const QString &text)
{
    if (text.isEmpty())
        return;
    if (!row.text.isEmpty())
        addText(row);
    arguments += text;
}

void ArgumentRows::addEach(const CommandRow &row, const QStringList &items)
{
    for (const QString &item : items)
        if (!item.isEmpty())
            arguments += row.text.toString() + item;
}

void ArgumentRows::addExpanded(const CommandRow &row, const QStringList &items)
{
    for (const QString &item : items)
        addEach(row, {expand(item)});
}

// Whether the link is to read the file of this row: not a document beside a linker script or what stands for it.
bool ArgumentRows::isLinkFileWanted(const CommandRow &row) const
{
    if (m_system.isYes(m_request.element, link_use_linker_script_file, m_request.configuration))
        return row.form == Script;
    if (row.form == MemoryMap)
        return value(linker_section_placements_segments).isEmpty();
    return row.form == Placement && value(row.property) != m_system.schema()[row.property].defaultValue;
}

// One that is missing isn't passed on, unless a pre-link command may make it. What is linked without one that is
// wanted would run nowhere.
void ArgumentRows::addLinkFile(const CommandRow &row)
{
    const ProjectElement *element = m_request.element;
    const QString &configuration = m_request.configuration;
    const QString name = expandedValue(row.property);
    const bool isScript = row.form == Script, isMap = row.form == MemoryMap;
    std::optional<QString> path = isScript ? m_tools.linkerScript(element, configuration)
                                  : isMap  ? m_tools.memoryMapFile(element, configuration)
                                           : m_tools.sectionPlacementFile(element, configuration);
    const bool isMissed = !path && !name.isEmpty() && isLinkFileWanted(row);
    if (isMissed && !value(linker_pre_build_command).isEmpty())
        path = m_system.absolutePath(element, name);
    if (path && isScript)
        addEach(row, {*path});
    else if (path)
        addPair(row, m_system.relativePath(element, *path));
    else if (isMissed && error.isEmpty())
        error = (isScript ? "Cannot find linker script file: "_L1
                 : isMap  ? "Cannot find memory map file: "_L1
                          : "Cannot find section placement file: "_L1) +
                name;
}

QString ArgumentRows::normalizedInclude(const QString &directory) const
{
    return QDir::isAbsolutePath(directory) ? normalizedPath(directory) : directory;
}

void ArgumentRows::addIncludes(const CommandRow &row)
{
    for (const QString &item : value(row.property).split(u';', Qt::SkipEmptyParts))
        addEach(row, {normalizedInclude(expand(item))});
}

void ArgumentRows::addGroups()
{
    using Contribution = PropertyValueGroupClass::Contribution;
    for (const Contribution *one : m_system.groupContributions(m_request.element, m_request.configuration)) {
        if (one->kind == Contribution::Define)
            arguments += u"-D"_s + expand(one->text());
        else if (one->kind == Contribution::Include)
            arguments += u"-I"_s + normalizedInclude(expand(one->text()));
    }
}

void ArgumentRows::addOptionsFile(const CommandRow &row)
{
    const QString name = expandedValue(row.property);
    if (name.isEmpty())
        return;
    const QString path = m_system.absolutePath(m_request.element, name);
    if (!loadOptionsFile(path, arguments, row.text.toString()) && error.isEmpty())
        error = u"Cannot load options file: "_s + name;
}

void ArgumentRows::addToolOptions(const CommandRow &row)
{
    struct ToolRow
    {
        GenericOptions::Tool tool;
        BuildTools tools;
    };
    static constexpr ToolRow toolRows[] = {
        {GenericOptions::Assembler, assembler}, {GenericOptions::Compiler, compilers}, {GenericOptions::CCompiler, c},
        {GenericOptions::CppCompiler, cpp},     {GenericOptions::Linker, linker},
    };
    const BuildTools tool = BuildTools(1) << int(m_request.kind);
    for (const ToolRow &toolRow : toolRows) {
        if (!(toolRow.tools & tool))
            continue;
        for (const GenericPropertyClass *known : m_genericOptions.classesOf(toolRow.tool)) {
            const QString text = m_system.value(m_request.element, *known, m_request.configuration);
            for (const QString &option : known->optionsOf(text))
                addEach(row, {expand(option)});
        }
    }
}

// i, l, ll: the largest integer; d, f: floating point, double or float; p: width and precision, which floating
// point brings along; w: wide characters.
QString ArgumentRows::printfCode() const
{
    const QString level = value(linker_printf_fmt_level), floating = value(linker_printf_fp_enabled);
    QString code;
    if (floating == "No"_L1)
        code = level == "int"_L1 ? u"i"_s : u"l"_s;
    else
        code = floating == "Double"_L1 || floating == "Yes"_L1 ? u"d"_s : u"f"_s;
    if (level == "long long"_L1)
        code += floating == "No"_L1 ? "l"_L1 : "ll"_L1;
    if (floating == "No"_L1 && value(linker_printf_width_precision_supported) == "Yes"_L1)
        code += u'p';
    if (value(linker_printf_wchar_enabled) == "Yes"_L1)
        code += u'w';
    return code;
}

// As of printf, c: groups of characters.
QString ArgumentRows::scanfCode() const
{
    const QString level = value(linker_scanf_fmt_level);
    QString code = level == "int"_L1 ? u"i"_s : level == "long long"_L1 ? u"ll"_s : u"l"_s;
    if (value(linker_scanf_fp_enabled) == "Yes"_L1)
        code = level == "long long"_L1 ? u"dll"_s : u"d"_s;
    if (value(linker_scanf_character_group_matching_enabled) == "Yes"_L1)
        code += u'c';
    return code;
}
