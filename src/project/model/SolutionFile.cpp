#include "project/model/SolutionFile.h"

#include "base/SafeFile.h"
#include "xml/macros/MacroExpansion.h"
#include "xml/preprocessor/XMLPP2.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

constexpr auto projectDoctype = "Veldane_Project_File";
constexpr quint32 fileIndent = 2;
constexpr quint32 fileWrapWidth = 75;
constexpr int maximumImports = 64; // inside each other
constexpr int maximumDepth = 256;  // of elements in one file; the indent of a deeper tree would outgrow its content

class ProjectSystemXMLPP2 : public XMLPP2
{
public:
    std::unique_ptr<XMLElement> createElement(const XMLText &name) override
    {
        return std::make_unique<ProjectElement>(name);
    }
};

[[noreturn]] void fail(const QString &file, const QString &message)
{
    throw SolutionLoadError{file, false, message, 0, 0, {}};
}

// `line` from 0.
[[noreturn]] void fail(const QString &file, quint32 line, const QString &message)
{
    throw SolutionLoadError{file, true, message, int(line) + 1, 0, {}};
}

bool isTooDeep(const XMLNode *node, const XMLNode *root)
{
    int depth = 1;
    while (node != root && depth <= maximumDepth) {
        node = node->parent();
        ++depth;
    }
    return depth > maximumDepth;
}

class SolutionReader
{
public:
    SolutionReader(QStringList &loadedFiles, SolutionLoadSteps &steps) : m_loadedFiles(loadedFiles), m_steps(steps) {}

    std::unique_ptr<ProjectElement> load(const QString &directory, const QString &path, const QString &macros);

private:
    void build(ProjectElement &root);
    void import(ProjectElement &element, const QString &file);

    QStringList &m_loadedFiles;
    SolutionLoadSteps &m_steps;
    int m_depth = 0;
};

std::unique_ptr<ProjectElement> SolutionReader::load(const QString &directory, const QString &path,
                                                     const QString &macros)
{
    QString file = path;
    if (!QFileInfo::exists(file) && !directory.isEmpty() && QDir::isRelativePath(file))
        file = directory + u'/' + path;
    QFileInfo info(file);
    if (!info.exists() && !m_steps.fileNotFound(file))
        fail(path, path + " does not exist"_L1);
    info.refresh();
    if (!info.isFile() || !QFile(file).open(QFile::ReadOnly))
        fail(file, file + " cannot access"_L1);
    m_steps.opened(file);
    file = QDir::cleanPath(info.absoluteFilePath());
    if (m_loadedFiles.contains(file))
        fail(file, file + " solution already loaded"_L1);

    ProjectSystemXMLPP2 document;
    if (!document.load(file, macros, !macros.isEmpty()))
        fail(file, document.errorLine(), QString::fromUtf8(document.errorText()));
    if (document.doctype() != projectDoctype)
        fail(file, file + " not a solution file"_L1);
    const QString malformed = file + " is a malformed solution file (bad XML)"_L1;
    const auto &[openName, openLine] = document.openElement();
    if (!document.root())
        fail(file, openLine,
             openName.isEmpty() ? malformed : u"%1: <%2> has no end"_s.arg(malformed, QString::fromUtf8(openName)));
    if (document.root()->name() != "solution")
        fail(file, document.root()->line(), malformed);
    m_loadedFiles.append(file);
    m_steps.parsed(*document.root(), file);
    std::unique_ptr<ProjectElement> root(static_cast<ProjectElement *>(document.takeRoot().release()));
    root->setFile(file, info.lastModified());
    build(*root);
    root->setProperty(u"version"_s, u"2"_s);
    root->setModified(false); // raising the version is nobody's change
    m_steps.built(*root);
    return root;
}

// A solution may have projects and imports anywhere but within a project, and is no part of another by itself.
void checkPlace(const XMLElement &element, const ProjectElement &root)
{
    const bool isSolution = element.name() == "solution" && &element != &root;
    if (!isSolution && element.name() != "project" && element.name() != "import")
        return;
    const auto *parent = static_cast<const ProjectElement *>(element.parent());
    const char *place = isSolution                                                   ? "solution"
                        : parent && parent->enclosing(ProjectElement::Type::Project) ? "project"
                                                                                     : nullptr;
    if (place)
        fail(root.filePath(), element.line(),
             u"<%1> can't stand within a %2"_s.arg(QString::fromUtf8(element.name()), QLatin1StringView(place)));
}

// In document order, the parents first.
void SolutionReader::build(ProjectElement &root)
{
    int step = 0, steps = 0;
    for (const XMLNode *child = root.firstChild(); child; child = child->nextSibling())
        ++steps;
    for (XMLNode *node = &root; node;) {
        if (node->parent() == &root && m_depth == 0)
            m_steps.building(step++, steps);
        XMLElement *element = node->toElement();
        XMLNode *next = node->nextInTree(&root);
        if (isTooDeep(node, &root))
            fail(root.filePath(), node->line(), u"elements are nested too deeply"_s);
        if (element)
            checkPlace(*element, root);
        if (element && element->name() == "import") {
            next = node->nextBehindTree(&root);
            import(static_cast<ProjectElement &>(*element), root.filePath());
        } else if (element) {
            static_cast<ProjectElement *>(element)->takeAttributes();
        }
        node = next;
    }
}

// Puts what the element imports in its place. `file` is the solution that it is in.
void SolutionReader::import(ProjectElement &element, const QString &file)
{
    element.takeAttributes();
    QMap<QString, QString> attributes = element.properties();
    const QString written = attributes.take(u"file_name"_s);
    const bool canModify = attributes.take(u"can_modify_solution"_s) != "No"_L1;
    const QString directory = QFileInfo(file).path();
    const QString path = QDir(directory).filePath(expandGlobal(written));
    std::unique_ptr<ProjectElement> loaded;
    try {
        if (m_depth >= maximumImports)
            fail(path, path + " is imported too deeply"_L1);
        ++m_depth;
        loaded = load(directory, path, expandGlobal(attributes.value(u"macros"_s)));
        --m_depth;
    } catch (SolutionLoadError &error) {
        if (error.importedAt.isEmpty())
            error.importedAt = file + u':' + QString::number(element.line() + 1);
        throw;
    }
    loaded->setProperty(u"file_name"_s, written);
    loaded->setImported(true);
    loaded->setImportAttributes(attributes);
    loaded->setCanModify(canModify);
    loaded->setModified(false);
    element.parent()->replaceChild(&element, std::move(loaded));
}

// Attributes are written in the order of their keys.
void writeProperties(const ProjectElement &node, bool isTop, XMLElement &made)
{
    for (auto property = node.properties().begin(); property != node.properties().end(); ++property) {
        const QString &key = property.key();
        const bool isDropped =
            (key == "Name"_L1 && property->isEmpty()) ||
            (key == "file_name"_L1 && (node.type() == ProjectElement::Type::Folder || (isTop && node.isImported())));
        if (!isDropped)
            made.setAttribute(key.toUtf8(), property->toUtf8());
    }
}

void buildXml(const ProjectElement &solution, QXMLDocument &document)
{
    document.setDoctype(projectDoctype);
    document.setIndent(fileIndent);
    document.setWrapWidth(fileWrapWidth);
    document.setRoot(document.createElement("solution"));
    std::vector<std::pair<const ProjectElement *, XMLElement *>> open = {{&solution, document.root()}};
    while (!open.empty()) {
        const auto [node, made] = open.back();
        open.pop_back();
        writeProperties(*node, node == &solution, *made);
        for (const ProjectElement *child = node->firstElement(); child; child = child->nextElement()) {
            if (node->isDynamicFolder() && child->type() != ProjectElement::Type::Configuration)
                continue;
            const bool isImport = child->isImported();
            auto element = document.createElement(isImport ? QByteArrayView("import") : child->name());
            if (isImport) {
                element->setAttribute("file_name", child->property(u"file_name"_s).toUtf8());
                for (const auto &[key, value] : child->importAttributes().asKeyValueRange())
                    element->setAttribute(key.toUtf8(), value.toUtf8());
                if (!child->canModify())
                    element->setAttribute("can_modify_solution", "No");
            } else {
                open.emplace_back(child, element.get());
            }
            made->appendChild(std::move(element));
        }
    }
}

} // namespace

std::unique_ptr<ProjectElement> loadSolution(const QString &directory, const QString &path, const QString &macros,
                                             QStringList &loadedFiles, SolutionLoadSteps *steps)
{
    QStringList files = loadedFiles;
    SolutionLoadSteps none;
    auto root = SolutionReader(files, steps ? *steps : none).load(directory, path, macros);
    loadedFiles = files;
    return root;
}

QByteArray solutionText(const ProjectElement &solution)
{
    QXMLDocument document;
    buildXml(solution, document);
    return document.text();
}

void saveSolution(ProjectElement &solution)
{
    if (!solution.hasProperty(u"target"_s))
        solution.setProperty(u"target"_s, u"8"_s);
    QXMLDocument document;
    buildXml(solution, document);
    SafeFile file(solution.filePath());
    if (!file.open() || !document.writeTo(file.device()) || !file.commit())
        throw SolutionSaveError{{solution.filePath(),
                                 false,
                                 u"couldn't write %1: %2"_s.arg(solution.filePath(), file.errorString()),
                                 0,
                                 0,
                                 {}}};
    solution.setFile(solution.filePath(), QFileInfo(solution.filePath()).lastModified());
    for (XMLNode *node = &solution; node;) {
        auto *element = static_cast<ProjectElement *>(node->toElement());
        const bool isOther = element && element != &solution && element->isImported();
        if (element && !isOther)
            element->setModified(false);
        node = isOther ? node->nextBehindTree(&solution) : node->nextInTree(&solution);
    }
}
