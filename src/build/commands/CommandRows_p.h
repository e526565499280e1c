#pragma once

#include "build/commands/ToolCommands.h"
#include "project/properties/GenericOptions.h"

#include <span>

// What makes a row's arguments. "Text" is the row's text, "value" the expanded value of its property.
enum class ArgumentForm : quint8 {
    Text,          // text
    Program,       // text, expanded
    IfYes,         // text, if the value is "Yes"
    IfNo,          // text, if it is "No"
    UnlessYes,     // text, if it isn't "Yes"
    Joined,        // text and value in one argument, unless it is empty or "None"
    Pair,          // text, value; unless it is empty
    Items,         // text and item, for each item of a list
    EscapedItems,  // where a backslash makes the next character stand for itself
    VerbatimItems, // where items aren't expanded
    Section,       // text and value, unless it is the property's default
    Includes,      // text and directory, for each of a list
    Groups,        // "-D" and "-I", what the project's property groups add
    OptionsFile,   // text and line, for each option of the file that the value names
    ToolOptions,   // text and option, for each property that the tool chain's own file adds for the tool
    InputsFile,    // text, the file that names the inputs
    Script,        // text and path of the linker script
    MemoryMap,     // text, path
    Placement,     // text, path
    Printf,        // text and the code of what printf must take
    Scanf,         // the same of scanf
    Dependencies,  // text, dependency file
    Source,        // the source
    Target,        // text, output
};

struct CommandRow
{
    BuildTools tools;
    ArgumentForm form;
    QStringView text;
    ProjectProperty property = {};
};

// In the order of the arguments.
std::span<const CommandRow> commandRows();

// The arguments of one request, row by row.
class ArgumentRows
{
public:
    ArgumentRows(ToolCommands &tools, const StandardProjectSystem &system, const GenericOptions &genericOptions,
                 const ToolRequest &request);

    void add(const CommandRow &row);

    QStringList arguments;
    bool isOwn = false; // what was added may differ between nodes of one context
    QString error;      // the first

private:
    QString value(ProjectProperty property) const;
    QString expand(const QString &text);
    QString expandedValue(ProjectProperty property) { return expand(value(property)); }
    QString normalizedInclude(const QString &directory) const;
    void addText(const CommandRow &row);
    void addPair(const CommandRow &row, const QString &text);
    void addEach(const CommandRow &row, const QStringList &items);
    void addExpanded(const CommandRow &row, const QStringList &items);
    bool isLinkFileWanted(const CommandRow &row) const;
    void addLinkFile(const CommandRow &row);
    void addIncludes(const CommandRow &row);
    void addGroups();
    void addOptionsFile(const CommandRow &row);
    void addToolOptions(const CommandRow &row);
    QString printfCode() const;
    QString scanfCode() const;

    ToolCommands &m_tools;
    const StandardProjectSystem &m_system;
    const GenericOptions &m_genericOptions;
    const ToolRequest &m_request;
    MacroMap m_unityMacros; // of a unity folder
};
