#include "build/commands/ToolCommands.h"

#include "build/commands/Builder.h"
#include "build/commands/CommandRows_p.h"
#include "build/commands/CommandText.h"
#include "project/model/ProjectSystem.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

using enum ToolKind;

ToolCommands::ToolCommands(StandardProjectSystem &system, BuildState &state)
    : m_system(system), m_state(state), m_genericOptions(&system.schema())
{}

ToolCommands::~ToolCommands() = default;

void ToolCommands::refresh()
{
    m_system.refresh();
    m_templates.clear();
    m_directories.clear();
    m_programStamps.clear();
    if (!m_genericOptionsError.isEmpty())
        m_genericOptionsPath.clear(); // is tried again
    m_optionsInForce = {};
}

// ---- Names ------------------------------------------------------------------------------------------------

QString ToolCommands::expandedValue(const ProjectElement *element, ProjectProperty property,
                                    const QString &configuration) const
{
    if (element->type() != ProjectElement::Type::Folder)
        return m_system.expandedValue(element, property, configuration);
    return m_system.expand(element, configuration, m_system.value(element, property, configuration),
                           unityMacros(m_system, element, configuration));
}

void ToolCommands::makeDirectory(const QString &path)
{
    if (m_directories.contains(path))
        return;
    QDir().mkpath(path);
    m_directories.insert(path);
}

QString ToolCommands::intermediateDirectory(const ProjectElement *element, const QString &configuration) const
{
    return m_system.absolutePath(element,
                                 expandedValue(element, ProjectProperty::build_intermediate_directory, configuration));
}

QString ToolCommands::intermediatePath(const ProjectElement *element, const QString &configuration, const QString &name)
{
    const QString directory = intermediateDirectory(element, configuration);
    makeDirectory(directory);
    return directory + u'/' + name;
}

// Of a path: the file's name up to its first, and up to its last dot.
static QStringView baseName(QStringView path)
{
    const QStringView name = path.sliced(path.lastIndexOf(u'/') + 1);
    const qsizetype dot = name.indexOf(u'.');
    return dot < 0 ? name : name.first(dot);
}

static QStringView completeBaseName(QStringView path)
{
    const QStringView name = path.sliced(path.lastIndexOf(u'/') + 1);
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot < 0 ? name : name.first(dot);
}

QString ToolCommands::dependencyPath(const ProjectElement *element, const QString &configuration, const QString &object,
                                     bool absolute)
{
    const bool isProject = element->type() == ProjectElement::Type::Project;
    if (!isProject && !m_system.value(element, ProjectProperty::build_dependency_file_name, configuration).isEmpty()) {
        const QString own = expandedValue(element, ProjectProperty::build_dependency_file_name, configuration);
        if (!own.isEmpty())
            return absolute ? m_system.absolutePath(element, own) : own;
    }
    const QString directory =
        absolute ? intermediateDirectory(element, configuration)
                 : expandedValue(element, ProjectProperty::build_intermediate_directory, configuration);
    const QStringView whole = completeBaseName(object);
    QStringView name = baseName(object);
    if (isProject || (name != whole && objectCount(element, configuration, name) > 1))
        name = whole;
    QString path = directory.isEmpty() ? QString() : directory + u'/';
    return path.append(name).append(isProject ? ".ld.d"_L1 : ".d"_L1);
}

// Those of the element's project whose names are alike up to their first dot: foo.o and foo.pb.o.
int ToolCommands::objectCount(const ProjectElement *element, const QString &configuration, QStringView name)
{
    if (m_objectCountsChange != m_system.changeCount()) {
        m_objectCounts.clear();
        m_objectCountsChange = m_system.changeCount();
    }
    const XMLNode *const project = projectAround(element);
    const auto [counts, isNew] = m_objectCounts.try_emplace({project, configuration});
    for (const XMLNode *node = isNew ? project : nullptr; node; node = node->nextInTree(project)) {
        const auto *source = static_cast<const ProjectElement *>(node->toElement());
        const ToolKind kind = source ? toolKind(m_system, source, configuration) : None;
        if (isCompile(kind))
            ++counts->second[baseName(outputName(kind, source, configuration, false)).toString()];
    }
    return counts->second.value(name.toString());
}

QString ToolCommands::dependencyFileName(const ProjectElement *element, const QString &configuration,
                                         const QString &object, bool absolute)
{
    QString path = dependencyPath(element, configuration, object, absolute);
    if (absolute)
        makeDirectory(path.first(path.lastIndexOf(u'/')));
    return path;
}

QStringList ToolCommands::readDependencies(const ProjectElement *element, const QString &configuration,
                                           const QString &object)
{
    return readDependencyFile(dependencyPath(element, configuration, object, true));
}

QString ToolCommands::outputName(ToolKind kind, const ProjectElement *element, const QString &configuration,
                                 bool absolute)
{
    const bool isProject = element->type() == ProjectElement::Type::Project;
    const auto name = [&](ProjectProperty property) {
        const QString text = expandedValue(element, property, configuration);
        return absolute && !text.isEmpty() ? m_system.absolutePath(element, text) : text;
    };
    switch (kind) {
    case None:
    case Excluded: return QString();
    case CCompile:
    case CppCompile:
    case Assemble: return name(ProjectProperty::build_object_file_name);
    case External:
        return isProject ? name(ProjectProperty::external_build_file_name) : m_system.path(element, configuration);
    case Link: return name(ProjectProperty::build_output_file_name);
    case Archive: return name(ProjectProperty::build_library_file_name);
    case Stage: return isProject ? QString() : name(ProjectProperty::stage_output_filepath);
    case Combine: return isProject ? name(ProjectProperty::combine_output_filepath) : QString();
    }
    return QString();
}

bool ToolCommands::hasCppFile(const ProjectElement *element, const QString &configuration)
{
    return ::hasCppFile(m_system, element, configuration);
}

// The target's name with another ending, in its directory.
static QString besideTarget(const QString &target, const QString &ending)
{
    const qsizetype name = target.lastIndexOf(u'/') + 1;
    return target.first(name) + QFileInfo(target.sliced(name)).completeBaseName() + u'.' + ending;
}

std::optional<QString> ToolCommands::mapFileName(const ProjectElement *element, const QString &configuration,
                                                 const QString &target)
{
    if (!m_system.isYes(element, ProjectProperty::linker_map_file, configuration))
        return std::nullopt;
    return besideTarget(target, u"map"_s);
}

QStringList ToolCommands::extraOutputs(ToolKind kind, const ProjectElement *element, const QString &configuration,
                                       const QString &target)
{
    QStringList outputs;
    if (kind != Link)
        return outputs;
    const QString format = expandedValue(element, ProjectProperty::linker_output_format, configuration);
    if (format != "None"_L1 && !format.isEmpty())
        outputs += besideTarget(target, format);
    const QString made = expandedValue(element, ProjectProperty::linker_post_build_command_output_file, configuration);
    if (!made.isEmpty())
        outputs +=
            absolutePath(expandedValue(element, ProjectProperty::linker_post_build_command_wd, configuration), made);
    return outputs;
}

static std::span<const ProjectProperty> optionFileProperties(ToolKind kind)
{
    using enum ProjectProperty;
    static constexpr ProjectProperty ofSources[] = {c_additional_options_from_file, c_only_additional_options_from_file,
                                                    cpp_only_additional_options_from_file,
                                                    asm_additional_options_from_file};
    static constexpr ProjectProperty ofLink[] = {linker_additional_options_from_file};
    if (isCompile(kind))
        return ofSources;
    return kind == Link ? std::span(ofLink) : std::span<const ProjectProperty>();
}

QStringList ToolCommands::optionFiles(ToolKind kind, const ProjectElement *element, const QString &configuration)
{
    QStringList files;
    for (const ProjectProperty property : optionFileProperties(kind)) {
        const QString name = expandedValue(element, property, configuration);
        if (!name.isEmpty())
            files += m_system.absolutePath(element, name);
    }
    return files;
}

bool ToolCommands::hasOptionFiles(ToolKind kind, const ProjectElement *element, const QString &configuration) const
{
    const auto properties = optionFileProperties(kind);
    return std::any_of(properties.begin(), properties.end(), [&](ProjectProperty property) {
        return !m_system.value(element, property, configuration).isEmpty();
    });
}

std::optional<QString> ToolCommands::existingFile(const ProjectElement *element, ProjectProperty property,
                                                  const QString &configuration) const
{
    const QString name = expandedValue(element, property, configuration);
    if (name.isEmpty())
        return std::nullopt;
    const QString path = m_system.absolutePath(element, name);
    if (!QFileInfo::exists(path))
        return std::nullopt;
    return path;
}

std::optional<QString> ToolCommands::linkerScript(const ProjectElement *element, const QString &configuration)
{
    if (!m_system.isYes(element, ProjectProperty::link_use_linker_script_file, configuration))
        return std::nullopt;
    return existingFile(element, ProjectProperty::link_linker_script_file, configuration);
}

std::optional<QString> ToolCommands::memoryMapFile(const ProjectElement *element, const QString &configuration)
{
    return existingFile(element, ProjectProperty::linker_memory_map_file, configuration);
}

std::optional<QString> ToolCommands::sectionPlacementFile(const ProjectElement *element, const QString &configuration)
{
    return existingFile(element, ProjectProperty::linker_section_placement_file, configuration);
}

QStringList ToolCommands::additionalLinkInputs(const ProjectElement *element, const QString &configuration)
{
    using Contribution = PropertyValueGroupClass::Contribution;
    QStringList inputs;
    for (const Contribution *one : m_system.groupContributions(element, configuration))
        if (one->kind == Contribution::Library)
            inputs += m_system.expand(element, configuration, one->text());
    inputs += m_system.propertyList(element, ProjectProperty::linker_additional_files, configuration,
                                    ProjectSystem::EscapedList | ProjectSystem::ExpandItems);
    return inputs;
}

// ---- Commands ---------------------------------------------------------------------------------------------

// The generic options in force when a template was made are still in force when it is found: other ones change
// the schema, and so the change count.
const ToolCommands::Template &ToolCommands::templateOf(const ToolRequest &request)
{
    const auto key = [&] {
        if (m_changeCount != m_system.changeCount()) {
            m_templates.clear();
            m_changeCount = m_system.changeCount();
        }
        return TemplateKey(m_system.contextOf(request.element, request.configuration), request.kind,
                           request.flags & BuildFlag::noDepend);
    };
    const auto found = m_templates.find(key());
    if (found != m_templates.end())
        return found->second;
    loadGenericOptions(request.element, request.configuration);
    Template &made = m_templates[key()];
    made.directory = m_system.projectDirectory(request.element);
    made.error = m_genericOptionsError;
    const BuildTools tool = BuildTools(1) << int(request.kind);
    ArgumentRows all(*this, m_system, m_genericOptions, request);
    QStringList arguments;
    for (const CommandRow &row : commandRows()) {
        if (!(row.tools & tool))
            continue;
        all.add(row);
        arguments += all.arguments;
        if (all.isOwn)
            made.pieces.push_back({{}, {}, &row});
        else if (!made.pieces.empty() && !made.pieces.back().row)
            made.pieces.back().arguments += all.arguments;
        else
            made.pieces.push_back({all.arguments, {}, nullptr});
        if (!all.isOwn && made.error.isEmpty())
            made.error = all.error;
        all.arguments.clear();
        all.error.clear();
        all.isOwn = false;
    }
    for (Template::Piece &piece : made.pieces)
        piece.hash.add(piece.arguments);
    made.programs += programStamp(arguments.value(0), made.directory);
    if (isCompile(request.kind))
        made.programs += programStamp(compilerBehind(arguments), made.directory);
    return made;
}

QString ToolCommands::programStamp(const QString &program, const QString &directory)
{
    if (program.isEmpty())
        return program;
    QString &stamp = m_programStamps[program.contains(u'/') ? absolutePath(directory, program) : program];
    if (stamp.isEmpty()) {
        const QString path =
            program.contains(u'/') ? absolutePath(directory, program) : QStandardPaths::findExecutable(program);
        const QFileInfo file(path);
        stamp = path + u" %1 %2"_s.arg(file.lastModified().toMSecsSinceEpoch()).arg(file.size());
    }
    return stamp;
}

QStringList ToolCommands::inputsOf(const ToolRequest &request) const
{
    QStringList inputs;
    if (!isCompile(request.kind))
        for (const QString &input : request.inputs)
            inputs += m_system.expand(request.element, request.configuration, input);
    return inputs;
}

ToolCommand ToolCommands::command(const ToolRequest &request)
{
    const Template &made = templateOf(request);
    ArgumentRows all(*this, m_system, m_genericOptions, request);
    all.error = made.error;
    for (const Template::Piece &piece : made.pieces) {
        if (piece.row)
            all.add(*piece.row);
        else
            all.arguments += piece.arguments;
    }
    return {made.directory, all.arguments, inputsOf(request), all.error, made.programs};
}

quint64 ToolCommands::hash(const ToolRequest &request, const QStringList &more, QString &error)
{
    const Template &made = templateOf(request);
    ArgumentRows own(*this, m_system, m_genericOptions, request);
    own.error = made.error;
    CommandHash hash;
    hash.add(made.directory);
    for (const Template::Piece &piece : made.pieces) {
        if (piece.row) {
            own.arguments.clear();
            own.add(*piece.row);
            hash.add(own.arguments);
        } else {
            hash.add(piece.hash);
        }
    }
    hash.addMark();
    hash.add(inputsOf(request));
    hash.add(more);
    hash.add(made.programs);
    if (!own.error.isEmpty())
        error = own.error;
    return hash.value();
}

bool ToolCommands::addShared(const ToolRequest &request, CommandHash &hash, QString &error)
{
    using enum ProjectProperty;
    const ProjectElement *element = request.element;
    const Template &made = templateOf(request);
    bool isOwn = false;
    hash.add(made.directory);
    for (const Template::Piece &piece : made.pieces) {
        if (!piece.row) {
            hash.add(piece.hash);
            continue;
        }
        hash.addMark();
        if (piece.row->form == ArgumentForm::Dependencies) {
            hash.add(m_system.expandedValue(element, build_dependency_file_name, request.configuration, &isOwn));
            hash.add(m_system.expandedValue(element, build_intermediate_directory, request.configuration, &isOwn));
        } else {
            isOwn |= piece.row->form != ArgumentForm::Source && piece.row->form != ArgumentForm::Target;
        }
    }
    hash.add(made.programs);
    error = made.error;
    return !isOwn;
}

QString ToolCommands::inputsFileName(const ToolRequest &request) const
{
    return intermediateDirectory(request.element, request.configuration) + u'/' +
           QFileInfo(request.target).completeBaseName() + ".ind"_L1;
}

bool ToolCommands::writeInputsFile(const ToolRequest &request, const QStringList &inputs, Builder &builder)
{
    const QString path = inputsFileName(request);
    makeDirectory(QFileInfo(path).path());
    QFile file(path);
    const QByteArray text = (inputs.join(u'\n') + u'\n').toUtf8();
    if (file.open(QFile::WriteOnly | QFile::Truncate) && file.write(text) == text.size() && file.flush())
        return true;
    builder.reportError(u"Cannot open file: "_s + path);
    m_state.failed = true;
    return false;
}

static QString stepTitle(const ToolRequest &request)
{
    const auto fileName = [](const QString &path) { return QFileInfo(path).fileName(); };
    const QString name = request.element->displayName();
    if (request.kind == Link)
        return u"Linking "_s + fileName(request.target);
    if (request.kind == Archive)
        return u"Archiving "_s + fileName(request.target);
    if (request.element->type() == ProjectElement::Type::Folder)
        return u"Compiling folder %1 in unity mode as %2"_s.arg(name, fileName(request.inputs.value(0)));
    return (request.kind == Assemble ? u"Assembling "_s : u"Compiling "_s) + name;
}

void ToolCommands::toolCommands(const ToolRequest &request, Builder &builder)
{
    const ToolCommand made = command(request);
    if (!made.error.isEmpty()) {
        builder.reportError(made.error);
        m_state.failed = true;
        return;
    }
    if (!isCompile(request.kind) && !writeInputsFile(request, made.inputs, builder))
        return;
    builder.beginStep(request.element, stepTitle(request), request.configuration, 0);
    builder.runCommand(made.directory, made.arguments, request.absoluteTarget);
    if (m_state.goesOn())
        builder.endStep(request.element, request.configuration);
}

// ---- Analyzer and language service ------------------------------------------------------------------------

void ToolCommands::analyzeFile(const ProjectElement *element, const QString &configuration, Builder &builder)
{
    loadGenericOptions(element, configuration);
    const bool isCpp = m_system.fileTypeOf(element, configuration) == "C++"_L1;
    const auto checks = isCpp ? ProjectProperty::clang_tidy_checks_cpp : ProjectProperty::clang_tidy_checks_c;
    QStringList arguments{
        m_system.expand(element, configuration, u"$(CLANGTIDY:clang-tidy)"_s),
        m_system.path(element, configuration),
        u"-checks="_s +
            m_system
                .propertyList(element, checks, configuration, ProjectSystem::EscapedList | ProjectSystem::ExpandItems)
                .join(u','),
        u"-quiet"_s,
        u"--"_s,
        u"-x"_s,
        isCpp ? u"c++"_s : u"c"_s,
    };
    if (isCpp && m_system.isYes(element, ProjectProperty::cpp_enable_exceptions, configuration))
        arguments += {u"-fcxx-exceptions"_s, u"-fexceptions"_s};
    if (isCpp && m_system.value(element, ProjectProperty::cpp_enable_rtti, configuration) == "No"_L1)
        arguments += u"-fno-rtti"_s;
    arguments += languageServiceArguments(element, configuration);
    builder.beginStep(element, u"Analyzing "_s + element->displayName(), configuration, 0);
    builder.runCommand(m_system.projectDirectory(element), arguments, QString());
    if (m_state.goesOn())
        builder.endStep(element, configuration);
}

QStringList ToolCommands::languageServiceArguments(const ProjectElement *element, const QString &configuration)
{
    struct LanguageRow
    {
        QLatin1StringView fileType, language;
    };
    static constexpr LanguageRow languages[] = {
        {"C"_L1, "c"_L1}, {"C++"_L1, "c++"_L1}, {"Header"_L1, "c++"_L1}, {"Assembly"_L1, "assembler-with-cpp"_L1}};
    QStringList arguments = languageArguments(element, configuration);
    const QString type = m_system.fileTypeOf(element, configuration);
    for (const LanguageRow &row : languages)
        if (type == row.fileType)
            arguments += {u"-x"_s, row.language};
    arguments +=
        expandedValue(element, ProjectProperty::code_completion_options, configuration).split(u';', Qt::SkipEmptyParts);
    return arguments;
}

// ---- The tool chain's own properties ----------------------------------------------------------------------

void ToolCommands::loadGenericOptions(const ProjectElement *element, const QString &configuration)
{
    const ProjectElement *project = projectAround(element);
    if (m_optionsInForce.project == project && m_optionsInForce.changeCount == m_system.changeCount() &&
        m_optionsInForce.configuration == configuration)
        return;
    loadGenericOptionsOf(project, configuration);
    m_optionsInForce = {project, configuration, m_system.changeCount()};
}

void ToolCommands::loadGenericOptionsOf(const ProjectElement *project, const QString &configuration)
{
    QString path =
        project ? m_system.expandedValue(project, ProjectProperty::build_generic_options_file_name, configuration)
                : QString();
    if (!path.isEmpty())
        path = m_system.absolutePath(project, path);
    if (path == m_genericOptionsPath)
        return;
    m_genericOptionsPath = path;
    m_genericOptionsError.clear();
    QString reason;
    if (!m_genericOptions.load(path, &reason))
        m_genericOptionsError = u"Cannot load generic options file: "_s + reason;
    else if (project)
        takeOverOptions(project, configuration);
}

void ToolCommands::takeOverOptions(const ProjectElement *project, const QString &configuration)
{
    using enum ProjectProperty;
    struct Row
    {
        GenericOptions::Tool tool;
        ProjectProperty options, backup;
    };
    static constexpr Row rows[] = {
        {GenericOptions::Assembler, asm_additional_options, asm_additional_options_backup},
        {GenericOptions::Compiler, c_additional_options, c_additional_options_backup},
        {GenericOptions::CCompiler, c_only_additional_options, c_only_additional_options_backup},
        {GenericOptions::CppCompiler, cpp_only_additional_options, cpp_only_additional_options_backup},
        {GenericOptions::Linker, linker_additional_options, link_additional_options_backup},
    };
    ProjectElement *values = project->configuration(configuration);
    if (!values)
        return;
    const PropertySchema &schema = m_system.schema();
    for (const Row &row : rows) {
        const QString key = schema[row.options].name, before = values->property(key);
        QStringList items = before.split(u';', Qt::SkipEmptyParts);
        bool isShorter = false;
        for (const GenericPropertyClass *known : m_genericOptions.classesOf(row.tool)) {
            for (const QString &choice : known->enumerates()) {
                if (items.removeAll(known->optionsOf(choice).value(0)) == 0)
                    continue;
                values->setProperty(known->name, choice);
                isShorter = true;
            }
        }
        if (!isShorter)
            continue;
        if (!values->hasProperty(schema[row.backup].name))
            values->setProperty(schema[row.backup].name, before);
        if (items.isEmpty())
            values->removeProperty(key);
        else
            values->setProperty(key, items.join(u';'));
    }
}
