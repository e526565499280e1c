#pragma once

#include "project/model/ElementPath.h"
#include "project/model/ProjectElement.h"
#include "project/model/ProjectLoadHandlers.h"
#include "project/model/PropertyLookup.h"
#include "project/model/SolutionFile.h"
#include "project/properties/PropertyGroups.h"
#include "project/properties/PropertySchema.h"
#include "xml/macros/MacroExpansion.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QStringList>

class NodeMacros;
struct ElementCache;
struct NodeContext;
struct ValueLayer;

// A property that somebody set, for undoing it and for the build, which makes anew what depends on it.
struct PropertyChange
{
    ProjectElement *element;
    const PropertyClass *propertyClass;
    QString configuration; // empty: on the node itself
    QDateTime time;
    QString oldValue;
    bool hadConfiguration, hadValue, elementWasModified, solutionWasModified;
};

// The solution that is open, and what can be asked of it and done to it: loading and saving, the values of
// its nodes by configuration, their macros and paths, editing. All of it belongs to one thread.
//
// Values, paths and expansions are kept until something in the tree, the schema or the macro table changes;
// see NodeContext for what nodes share. Signals are emitted when the tree is as they say.
class ProjectSystem : public QObject
{
    Q_OBJECT

public:
    // Without the standard extent, what the schema doesn't have reads as its stored value or the empty text.
    explicit ProjectSystem(PropertySchema::Extent extent = PropertySchema::Extent::Node, QObject *parent = nullptr);
    ~ProjectSystem() override;

    PropertySchema &schema() { return m_schema; }
    const PropertySchema &schema() const { return m_schema; }

    // ---- The tree -----------------------------------------------------------------------------------------

    ProjectElement *solution() const { return m_solution.get(); }    // null while none is open
    const QStringList &loadedFiles() const { return m_loadedFiles; } // absolute, those of imports too
    const QString &templatesFile() const { return m_templatesFile; }
    // By display name, in the open solution and over its imports; null when there is none.
    ProjectElement *project(const QString &name) const { return m_projectsByName.value(name); }
    const QList<ProjectElement *> &projects() const { return m_projects; } // in the order of the tree
    ProjectElement *solutionNamed(const QString &name) const { return m_solutionsByName.value(name); }
    // After a change of the tree by other means than these operations.
    void mapProjects(ProjectLoadProgressInterface *progress = nullptr);

    // An empty solution with the file DIRECTORY/NAME.vnProject, which isn't written yet, in place of the open one.
    ProjectElement *newSolution(const QString &directory, const QString &name);
    // Opens the solution in place of the open one, with all the steps of a load; `loadSolution` of SolutionFile.h
    // says how the file is found. Its commands run, its environment variables are set and its dynamic folders
    // are filled. Throws SolutionLoadError; what was open then stays.
    ProjectElement *loadSolution(const QString &directory, const QString &path,
                                 const SolutionLoadHandlers &handlers = {}, const QString &macroString = {});
    // Adds a link to the solution below `parent`, which is one, and loads it; or gives the one that is there.
    // Throws SolutionLoadError.
    ProjectElement *importSolution(ProjectElement *parent, const QString &path,
                                   const SolutionLoadHandlers &handlers = {}, const QString &macroString = {});
    void closeSolution();

    // Throws SolutionSaveError when the handler, if any, gives up; the tree then stays modified.
    void saveSolution(ProjectElement *root, ProjectFileSaveErrorHandler *handler = nullptr);
    void saveSolutionAs(ProjectElement *root, const QString &path, ProjectFileSaveErrorHandler *handler = nullptr);
    // Of a solution: saves it if something in it but its imports is modified.
    void saveFile(ProjectElement *item, ProjectFileSaveErrorHandler *handler = nullptr);

    // The files of the open solution and its imports that were written since they were loaded or saved.
    QStringList filesChangedOnDisk() const;
    void rememberFileTimes();

    // ---- Editing ------------------------------------------------------------------------------------------

    // A file of that name below the folder, or below the first folder of the project whose filter has its ending.
    ProjectElement *addFile(ProjectElement *parent, const QString &fileName);
    ProjectElement *addFolder(ProjectElement *parent, const QString &name,
                              const QString &filter = {}); // or the one there is
    ProjectElement *addDynamicFolder(ProjectElement *parent, const QString &name, const QString &path,
                                     const QString &filter, bool recurse, const QString &exclude);
    // Scans the folder's directories anew.
    void refreshDynamicFolder(ProjectElement *folder);

    ProjectElement *addConfiguration(ProjectElement *element, const QString &name); // or the one there is
    void removeConfiguration(ProjectElement *element, const QString &name);         // and below the element
    // Also below the element and in all lists of inherited ones. False, nothing being done, when that name
    // is the old one, "Common" or there already.
    bool renameConfiguration(ProjectElement *element, const QString &oldName, const QString &newName);

    // Which configurations a solution has: Common adds that one, Private those that are hidden, Public the
    // others that are for the solution's platform or for any. Sorted; the importing solutions' too.
    enum ConfigurationFlag { CommonConfiguration = 1, PrivateConfigurations = 2, PublicConfigurations = 4 };
    QStringList configurationNames(const ProjectElement *solution, int flags) const;
    QStringList publicConfigurations(const ProjectElement *solution) const;
    QStringList privateConfigurations(const ProjectElement *solution) const;
    // A name that goes is removed everywhere in the solution.
    void setPublicConfigurations(ProjectElement *solution, const QStringList &names);
    void setPrivateConfigurations(ProjectElement *solution, const QStringList &names);

    // Sets the value on the node's configuration, which is made if need be, or, with an empty configuration, on
    // the node; notes the change; sets the companion's value if the class derives one.
    void setPropertyValue(ProjectElement *element, const PropertyClass *propertyClass, const QString &configuration,
                          const QString &value);
    void removePropertyValue(ProjectElement *element, const PropertyClass *propertyClass,
                             const QString &configuration); // so that it is inherited
    const std::vector<PropertyChange> &changes() const { return m_changes; }
    void clearChanges() { m_changes.clear(); }
    bool undoChange(); // the last one; false when there is none

    // ---- Values -------------------------------------------------------------------------------------------

    // The raw text, as propertyValue() of PropertyLookup.h finds it, but kept. A null element has the defaults.
    const QString &value(const ProjectElement *element, ProjectProperty property, const QString &configuration) const;
    QString value(const ProjectElement *element, const PropertyClass &propertyClass,
                  const QString &configuration) const;
    bool isYes(const ProjectElement *element, ProjectProperty property, const QString &configuration) const;
    // What the configuration inherits from, at the nearest solution that says something.
    QStringList inheritedConfigurations(const ProjectElement *element, const QString &configuration) const;

    // Text with the node's macros, the global and the system macros expanded. Macros in `extra` come first.
    // `isOwn`, if given, is set to true when the result may differ between nodes of one context, or with time;
    // it is never set to false.
    QString expand(const ProjectElement *element, const QString &configuration, const QString &text,
                   const MacroMap &extra = {}, bool *isOwn = nullptr) const;
    QString expandedValue(const ProjectElement *element, ProjectProperty property, const QString &configuration,
                          bool *isOwn = nullptr) const;
    // The items of a list, without empty ones. Escaped: a backslash makes the next character stand for itself.
    enum ListOption { PlainList = 0, EscapedList = 1, ExpandItems = 2 };
    QStringList propertyList(const ProjectElement *element, ProjectProperty property, const QString &configuration,
                             int options, bool *isOwn = nullptr) const;
    QStringList propertyList(const ProjectElement *element, const PropertyClass &propertyClass,
                             const QString &configuration, int options, bool *isOwn = nullptr) const;
    // All macros of a node, for lists and foreign tools; expand() doesn't need it.
    MacroMap buildMacros(const ProjectElement *element, const QString &configuration) const;

    // The groups of the project's file of them, then those of the packages. They end with the solution.
    std::vector<const PropertyValueGroupClass *> propertyGroups(const ProjectElement *element,
                                                                const QString &configuration) const;
    // What the chosen entries of the node's property groups add in that configuration, in the order of the file.
    std::vector<const PropertyValueGroupClass::Contribution *> groupContributions(const ProjectElement *element,
                                                                                  const QString &configuration) const;

    // The propertyGroups.xml in each folder below that one, whose groups all projects have.
    void gatherPackageGroups(const QString &packagesDirectory);
    // Looks at the files of property groups again; a build begins with it.
    void refresh();

    // Nodes with the same context (a pointer to compare, valid while changeCount() stays) have the same values,
    // and the same expansions but those that are their own. Files without configurations share their parent's.
    const void *contextOf(const ProjectElement *element, const QString &configuration) const;
    // Counts what may change a value: of the tree, the schema or the macro table.
    quint64 changeCount() const;

    // ---- Paths and types ----------------------------------------------------------------------------------

    const ElementPath &resolve(const ProjectElement *element, const QString &configuration) const;
    QString path(const ProjectElement *element, const QString &configuration) const;
    // Of the project around the node, or of its solution when it is in none.
    QString projectDirectory(const ProjectElement *element) const;
    QString solutionDirectory(const ProjectElement *element) const; // of the nearest solution's file
    // The expanded path against the project's directory.
    QString absolutePath(const ProjectElement *element, const QString &path) const;
    QString relativePath(const ProjectElement *element, const QString &path) const;

    // See FileType.h: "C", "C++", "Header", "Assembly", ...; the empty text for what a build has no use for.
    QString fileTypeOf(const ProjectElement *element, const QString &configuration) const;

    // With the dot; empty where a project system builds nothing.
    virtual QString objectFileExtension(const ProjectElement *, const QString & /*configuration*/) const { return {}; }
    virtual QString libraryFileExtension(const ProjectElement *, const QString &) const { return {}; }
    virtual QString executableFileExtension(const ProjectElement *, const QString &) const { return {}; }
    virtual QString assemblyFileExtension(const ProjectElement *, const QString &) const { return {}; } // a further one
    // Macros of the target. They may depend on the node's values, but not on the node itself.
    virtual void addExtraMacros(const ProjectElement *, const QString &, MacroMap &) const {}
    // Makes the project from the template of that key; false when there is none. What it throws ends the load.
    virtual bool expandTemplate(ProjectElement *, const QString & /*key*/, const QStringList & /*configurations*/)
    {
        return false;
    }
    // What a configuration's "Platform" is compared with.
    virtual QString platformOf(const ProjectElement *element) const;

Q_SIGNALS:
    void solutionLoaded(); // by the window, when it shows the solution
    void fileSaved(const QString &path);
    void configurationsChanged(ProjectElement *element);
    void projectChanged(ProjectElement *element);
    void propertyChanged(ProjectElement *element, const QString &configuration, const PropertyClass *propertyClass);

private:
    friend class NodeMacros;

    // What was asked for last; the same node is asked many times in a row.
    template <typename Found>
    struct Last
    {
        bool isFor(const ProjectElement *node, const QString &name, quint64 count) const
        {
            return found && element == node && generation == count &&
                   (configuration.constData() == name.constData() || configuration == name);
        }

        Found *found = nullptr;
        const ProjectElement *element = nullptr;
        QString configuration;
        quint64 generation = 0;
    };

    const ValueLayer *layer(const ProjectElement *element, const QString &configuration) const; // null: defaults
    const ValueLayer *findLayer(const ProjectElement *element, const QString &configuration) const;
    const MacroMap &userMacros(const ProjectElement *element, const QString &configuration) const;
    NodeContext &context(const ProjectElement *element, const QString &configuration) const;
    QStringList listItems(const ProjectElement *element, const QString &text, const QString &configuration, int options,
                          bool *isOwn) const;
    bool holds(const PropertyValueGroupClass::Contribution &contribution, const ProjectElement *element,
               const QString &configuration) const;
    QString typeOfPath(const ProjectElement *element, const QString &path, const QString &configuration) const;
    void resolveProject(const ProjectElement &project, ElementPath &path) const;
    void resolveFile(const ProjectElement &file, const QString &configuration, ElementPath &path) const;
    void prepare(ProjectElement &root, const SolutionLoadHandlers &handlers);
    void populate(ProjectElement &root, const SolutionLoadHandlers &handlers);
    void fillDynamicFolder(ProjectElement &folder);
    void noteChange(ProjectElement *element, const PropertyClass *propertyClass, const QString &configuration);
    void noteValue(ProjectElement *element, const PropertyClass *propertyClass, const QString &configuration);
    void setConfigurations(ProjectElement *solution, const QStringList &names, bool isPrivate);

    PropertySchema m_schema;
    std::unique_ptr<ProjectElement> m_solution;
    QStringList m_loadedFiles;
    QString m_templatesFile;
    QHash<QString, ProjectElement *> m_projectsByName, m_solutionsByName;
    QList<ProjectElement *> m_projects;
    std::vector<PropertyChange> m_changes;
    QStringList m_packageGroupFiles;
    mutable PropertyValueGroupFiles m_groupFiles;
    const std::unique_ptr<ElementCache> m_noNode; // for what is asked of no node
    mutable Last<const ValueLayer> m_lastLayer;
    mutable Last<NodeContext> m_lastContext;
    struct
    {
        QString text;
        quint64 generation = 0;
        MacroMap macros;
    } mutable m_lastMacros; // of the property "macros", which many nodes share
    quint64 m_outsideChanges = 0;
};

// The project system that builds: with the schema of build, linker and debugger, and ELF's file extensions.
class StandardProjectSystem : public ProjectSystem
{
    Q_OBJECT

public:
    explicit StandardProjectSystem(QObject *parent = nullptr) : ProjectSystem(PropertySchema::Extent::Standard, parent)
    {}

    QString objectFileExtension(const ProjectElement *, const QString &) const override;
    QString libraryFileExtension(const ProjectElement *, const QString &) const override;
    QString executableFileExtension(const ProjectElement *, const QString &) const override;
    QString platformOf(const ProjectElement *element) const override;
};
