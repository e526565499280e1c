#include "build/commands/StandardToolCommands.h"

#include "project/model/ProjectSystem.h"
#include "toolchain/ToolSet.h"

#include <QFileInfo>
#include <algorithm>

using namespace Qt::StringLiterals;

// Beginnings of options that GCC and Clang read alike and that change how a source is understood.
static constexpr QLatin1StringView sharedOptions[] = {
    "-std="_L1,
    "--target="_L1,
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
    "-fsigned-char"_L1,
};

QString optionForClang(const QString &option)
{
    QString result = option;
    if (option.startsWith("-march=rv"_L1))
        result.remove("_zicsr"_L1).remove("_zifencei"_L1);
    return result;
}

static bool hasOption(const QStringList &options, QLatin1StringView start)
{
    return std::any_of(options.begin(), options.end(),
                       [start](const QString &option) { return option.startsWith(start); });
}

// The options that choose it are looked at alone: sources in many folders mostly have the same.
QString StandardToolCommands::compilerBehind(const QStringList &arguments)
{
    QStringList choice{qEnvironmentVariable("VELDANE_TOOLCHAIN"), qEnvironmentVariable("PATH")};
    for (const QString &argument : arguments) {
        if (argument.startsWith("-Wc,-"_L1) || argument.startsWith("-Wa,-"_L1))
            choice += argument.sliced(4);
    }
    if (m_choice != choice) {
        m_choice = choice;
        m_compiler = ToolSet(choice.mid(2), std::nullopt).compiler().first();
    }
    return m_compiler;
}

const StandardToolCommands::Target &StandardToolCommands::targetOf(const QStringList &options, bool isCpp)
{
    if (!m_target.triple.isEmpty() && m_target.isCpp == isCpp && m_target.options == options)
        return m_target;
    const ToolSet tools(options, std::nullopt);
    const bool is64 = hasOption(options, "-march=rv64"_L1);
    m_target = {options, isCpp,
                !tools.isRiscV() ? u"arm-none-eabi"_s
                : is64           ? u"riscv64-unknown-elf"_s
                                 : u"riscv32-unknown-elf"_s,
                tools.libraryHeaders(isCpp)};
    return m_target;
}

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
    QStringList arguments, passed;
    for (const QString &argument : command(request).arguments) {
        const bool isPassed = argument.startsWith("-Wc,"_L1) || argument.startsWith("-Wa,"_L1);
        const QString option = isPassed ? argument.sliced(4) : argument;
        if (isPassed)
            passed += option;
        if (std::any_of(std::begin(sharedOptions), std::end(sharedOptions),
                        [&option](QLatin1StringView start) { return option.startsWith(start); }))
            arguments += optionForClang(option);
    }
    const Target &target = targetOf(passed, request.kind == ToolKind::CppCompile);
    if (!hasOption(passed, "--target="_L1))
        arguments.prepend("--target="_L1 + target.triple);
    for (const QString &directory :
         m_system.propertyList(element, c_system_include_directories, configuration, ProjectSystem::ExpandItems))
        if (QFileInfo::exists(m_system.absolutePath(element, directory)))
            arguments += {u"-isystem"_s, directory};
    for (const QString &directory : target.libraryHeaders)
        arguments += {u"-isystem"_s, directory};
    return arguments;
}
