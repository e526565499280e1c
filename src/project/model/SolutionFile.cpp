#include "project/model/SolutionFile.h"

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
    throw SolutionLoadError{file, false, message, 0, 0};
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
    ProjectElement *import(ProjectElement &element, const QString &directory);

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
    if (!info.exists() && m_steps.fileNotFound(file))
        info.refresh();
    if (!info.exists())
        fail(path, path + " does not exist"_L1);
    if (!info.isFile() || !QFile(file).open(QFile::ReadOnly))
        fail(file, file + " cannot access"_L1);
    m_steps.opened(file);
    file = QDir::cleanPath(info.absoluteFilePath());
    if (m_loadedFiles.contains(file))
        fail(file, file + " solution already loaded"_L1);

    ProjectSystemXMLPP2 document;
    if (!document.load(file, macros, !macros.isEmpty()))
        throw SolutionLoadError{file, true, QString::fromUtf8(document.errorText()), int(document.errorLine()) + 1, 0};
    if (document.doctype() != projectDoctype)
        fail(file, file + " not a solution file"_L1);
    const QString malformed = file + " is a malformed solution file (bad XML)"_L1;
    const auto &[openName, openLine] = document.openElement();
    if (!document.root() && !openName.isEmpty())
        throw SolutionLoadError{file, true, u"%1: <%2> has no end"_s.arg(malformed, QString::fromUtf8(openName)),
                                int(openLine) + 1, 0};
    if (!document.root() || document.root()->name() != "solution")
        fail(file, malformed);
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

// In document order, the parents first.
void SolutionReader::build(ProjectElement &root)
{
    const QString directory = QFileInfo(root.filePath()).path();
    int step = 0, steps = 0;
    for (const XMLNode *child = root.firstChild(); child; child = child->nextSibling())
        ++steps;
    for (XMLNode *node = &root; node;) {
        if (node->parent() == &root && m_depth == 0)
            m_steps.building(step++, steps);
        XMLElement *element = node->toElement();
        XMLNode *next = node->nextInTree(&root);
        if (isTooDeep(node, &root))
            throw SolutionLoadError{root.filePath(), true, u"elements are nested too deeply"_s, int(node->line()) + 1,
                                    0};
        if (element && element->name() == "import") {
            next = node->nextBehindTree(&root);
            import(static_cast<ProjectElement &>(*element), directory);
        } else if (element) {
            static_cast<ProjectElement *>(element)->takeAttributes();
        }
        node = next;
    }
}

ProjectElement *SolutionReader::import(ProjectElement &element, const QString &directory)
{
    const QString written = QString::fromUtf8(element.attribute("file_name"));
    const QString path = QDir(directory).filePath(expandGlobal(written));
    if (m_depth >= maximumImports)
        fail(path, path + " is imported too deeply"_L1);
    ++m_depth;
    std::unique_ptr<ProjectElement> loaded =
        load(directory, path, expandGlobal(QString::fromUtf8(element.attribute("macros"))));
    --m_depth;
    loaded->setProperty(u"file_name"_s, written);
    loaded->setImported(true);
    loaded->setCanModify(element.attribute("can_modify_solution") != "No");
    loaded->setModified(false);
    ProjectElement *placed = loaded.get();
    element.parent()->replaceChild(&element, std::move(loaded));
    return placed;
}

bool isDynamicFolder(const ProjectElement &node)
{
    return node.type() == ProjectElement::Type::Folder && node.hasProperty(u"path"_s);
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
            if (isDynamicFolder(*node) && child->type() != ProjectElement::Type::Configuration)
                continue;
            const bool isImport = child->isImported();
            auto element = document.createElement(isImport ? QByteArrayView("import") : child->name());
            if (isImport) {
                element->setAttribute("file_name", child->property(u"file_name"_s).toUtf8());
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
    if (!document.writeFile(solution.filePath(), fileIndent, fileWrapWidth))
        throw SolutionSaveError{{solution.filePath(), false, QString::fromUtf8(document.errorText()), 0, 0}};
    solution.setFile(solution.filePath(), QFileInfo(solution.filePath()).lastModified());
    for (XMLNode *node = &solution; node;) {
        auto *element = static_cast<ProjectElement *>(node->toElement());
        const bool isOther = element && element != &solution && element->isImported();
        if (element && !isOther)
            element->setModified(false);
        node = isOther ? node->nextBehindTree(&solution) : node->nextInTree(&solution);
    }
}
