#include "build/engine/CompileCommands.h"

#include "base/HException.h"
#include "base/JsonWriter.h"
#include "build/commands/StandardToolCommands.h"
#include "build/engine/BuildEngine.h"
#include "project/model/ProjectSystem.h"
#include "toolchain/ToolDriver.h"
#include "toolchain/ToolSet.h"

#include <QHash>

using namespace Qt::StringLiterals;

namespace {

// Sources of one project have commands that differ in their files alone; finding the compiler behind the driver
// costs more than all else, so it is done once for each such command.
class CompilerCommands
{
public:
    // Of the driver's arguments, its name first; none when it can't tell.
    QStringList of(const QStringList &arguments, const QStringList &files)
    {
        QStringList general = arguments;
        for (QString &word : general) {
            const qsizetype index = word.isEmpty() ? -1 : files.indexOf(word);
            if (index >= 0)
                word = mark(index);
        }
        const QString key = general.join(QChar(0));
        if (!m_known.contains(key))
            m_known.insert(key, translated(general));
        QStringList command = m_known.value(key);
        for (QString &word : command) {
            for (qsizetype index = 0; index < files.size(); ++index) {
                if (word == mark(index))
                    word = files[index];
            }
        }
        return command;
    }

private:
    static QString mark(qsizetype file) { return u"\1file%1"_s.arg(file); }
    static QStringList translated(const QStringList &arguments)
    {
        try {
            const DriverOptions options = DriverOptions::parse(arguments.mid(1));
            QStringList command = ToolDriver(options).compileCommand();
            for (QString &option : command)
                option = optionForClang(option);
            // A GCC finds its C library by itself; who reads in its place doesn't.
            const bool isCpp = options.language == DriverOptions::Language::Cpp;
            for (const QString &directory : ToolSet(options.compilerOptions, std::nullopt).libraryHeaders(isCpp))
                command += {u"-isystem"_s, directory};
            return command;
        } catch (const HException &) {
            return {};
        }
    }

    QHash<QString, QStringList> m_known;
};

class DatabaseWriter
{
public:
    DatabaseWriter(BuildEngine &engine, const QString &configuration, BuildFlags flags)
        : m_engine(engine),
          m_system(engine.system()),
          m_configuration(configuration),
          m_flags(flags | BuildFlag::noUnity | BuildFlag::noDepend)
    {}

    QByteArray write(const ProjectElement *element)
    {
        m_json.beginArray();
        add(element);
        m_json.end();
        return m_json.text();
    }

private:
    void add(const ProjectElement *element)
    {
        for (const ProjectElement *child = element->firstElement(); child; child = child->nextElement())
            add(child);
        if (element->type() != ProjectElement::Type::File)
            return;
        const ToolKind kind = m_engine.facts(element, m_configuration, m_flags).kind;
        if (kind != ToolKind::CCompile && kind != ToolKind::CppCompile)
            return;
        bool isExternal = false;
        QStringList arguments = m_engine.compileArguments(element, m_configuration, m_flags, isExternal);
        const QString source = m_system.path(element, m_configuration);
        const QString object = m_engine.outputOf(element, m_configuration, m_flags);
        if (!isExternal)
            arguments = m_compilers.of(arguments, {source, object});
        if (arguments.isEmpty())
            return;
        m_json.beginObject();
        m_json.field("directory", m_system.projectDirectory(element));
        m_json.field("file", source);
        m_json.field("output", object);
        m_json.beginArray("arguments");
        for (const QString &argument : arguments)
            m_json.value(argument);
        m_json.end();
        m_json.end();
    }

    BuildEngine &m_engine;
    StandardProjectSystem &m_system;
    const QString m_configuration;
    const BuildFlags m_flags;
    CompilerCommands m_compilers;
    JsonWriter m_json;
};

} // namespace

QByteArray exportCompileCommands(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                                 BuildFlags flags)
{
    engine.tools().refresh();
    return DatabaseWriter(engine, configuration, flags).write(element);
}
