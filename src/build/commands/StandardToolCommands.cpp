#include "build/commands/StandardToolCommands.h"

#include "project/model/ProjectSystem.h"

#include <QFileInfo>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

struct TargetRow
{
    QLatin1StringView option, target; // an option that begins so is for that target
};
constexpr TargetRow targetRows[] = {
    {"-mthumb"_L1, "arm-none-eabi"_L1},           {"-mcpu=cortex-"_L1, "arm-none-eabi"_L1},
    {"-march=armv"_L1, "arm-none-eabi"_L1},       {"-march=rv32"_L1, "riscv32-unknown-elf"_L1},
    {"-march=rv64"_L1, "riscv64-unknown-elf"_L1},
};

// What GCC and Clang read alike and what changes how a source is understood.
constexpr QLatin1StringView sharedOptions[] = {"-std="_L1,
                                               "-mthumb"_L1,
                                               "-mcpu="_L1,
                                               "-march="_L1,
                                               "-mabi="_L1,
                                               "-mfpu="_L1,
                                               "-mfloat-abi="_L1,
                                               "-D"_L1,
                                               "-U"_L1,
                                               "-I"_L1,
                                               "-ffreestanding"_L1,
                                               "-fno-builtin"_L1,
                                               "-fshort-enums"_L1,
                                               "-fshort-wchar"_L1,
                                               "-funsigned-char"_L1,
                                               "-fsigned-char"_L1};

} // namespace

QStringList StandardToolCommands::languageArguments(const ProjectElement *element, const QString &configuration)
{
    using enum ProjectProperty;
    ToolRequest request;
    request.element = element;
    request.configuration = configuration;
    request.kind = toolKind(m_system, element, configuration);
    request.flags = BuildFlag::noDepend;
    if (!isCompile(request.kind))
        request.kind = ToolKind::CppCompile; // a header
    QStringList arguments;
    QString target;
    for (const QString &argument : command(request).arguments) {
        const bool isPassed = argument.startsWith("-Wc,"_L1) || argument.startsWith("-Wa,"_L1);
        const QString option = isPassed ? argument.sliced(4) : argument;
        const auto begins = [&option](QLatin1StringView start) { return option.startsWith(start); };
        if (std::any_of(std::begin(sharedOptions), std::end(sharedOptions), begins))
            arguments += option;
        for (const TargetRow &row : targetRows)
            if (isPassed && begins(row.option))
                target = row.target;
    }
    for (const QString &directory :
         m_system.propertyList(element, c_system_include_directories, configuration, ProjectSystem::ExpandItems))
        if (QFileInfo::exists(m_system.absolutePath(element, directory)))
            arguments += {u"-isystem"_s, directory};
    if (!target.isEmpty())
        arguments.prepend("--target="_L1 + target);
    return arguments;
}
