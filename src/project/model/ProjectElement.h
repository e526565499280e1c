#pragma once

#include "xml/tree/XMLNode.h"

#include <QDateTime>
#include <QMap>
#include <QString>

struct ElementCache;

// A node of the project tree: a solution, project, folder or file, or a configuration of one. What its file has
// as attributes is in the property map; the element's own attributes are empty then. Children keep the file's
// order, configurations among them.
class ProjectElement : public XMLElement
{
public:
    // Other: a tag that isn't the tree's; such a node is kept and written back.
    enum class Type { Solution = 0, Configuration = 1, Project = 2, Folder = 3, File = 4, Other };

    explicit ProjectElement(const XMLText &tag);
    ~ProjectElement() override;

    Type type() const { return m_type; }
    ProjectElement *parentElement() const { return static_cast<ProjectElement *>(parent()); } // null on a root
    // Child and sibling of any type; null behind the last.
    ProjectElement *firstElement() const { return static_cast<ProjectElement *>(firstChildElement()); }
    ProjectElement *nextElement() const { return static_cast<ProjectElement *>(nextSiblingElement()); }
    // The nearest of that type from this node upwards; null if there is none.
    ProjectElement *enclosing(Type type);
    const ProjectElement *enclosing(Type type) const;

    // "Name", else the last part of "file_name"; "<NULL>" without either.
    QString displayName() const;
    // A folder with a "path", whose children are what is found there.
    bool isDynamicFolder() const { return m_type == Type::Folder && hasProperty(QStringLiteral("path")); }

    const QMap<QString, QString> &properties() const { return m_properties; }
    QString property(const QString &key) const { return m_properties.value(key); }
    bool hasProperty(const QString &key) const { return m_properties.contains(key); }
    void setProperty(const QString &key, const QString &value); // marks the node modified if it changes something
    void removeProperty(const QString &key);

    // The child that holds the values of that configuration; null if there is none.
    ProjectElement *configuration(const QString &name) const { return m_configurations.value(name); }
    const QMap<QString, ProjectElement *> &configurations() const { return m_configurations; }
    ProjectElement *addConfiguration(const QString &name); // or the one that there is
    // All of that name, should the file have several.
    void removeConfiguration(const QString &name);
    // In place of those of the new name, if there are any.
    void renameConfiguration(const QString &oldName, const QString &newName);

    // Moves the attributes into the properties and enters the configuration in its parent's map, a later one
    // of a name in place of an earlier; the node then counts as unmodified.
    void takeAttributes();

    bool isModified() const { return m_isModified; }
    void setModified(bool modified) { m_isModified = modified; }
    // False for what can't be edited: an import that forbids it, a file that a dynamic folder found.
    bool canModify() const { return m_canModify; }
    void setCanModify(bool can) { m_canModify = can; }

    // Of solutions: the file (absolute), its time when it was read or written, and whether another imports it.
    const QString &filePath() const { return m_filePath; }
    const QDateTime &fileTime() const { return m_fileTime; }
    void setFile(const QString &path, const QDateTime &time);
    bool isImported() const { return m_isImported; }
    void setImported(bool imported) { m_isImported = imported; }
    // Of an imported solution: the attributes of its import element but "file_name", which is a property, and
    // "can_modify_solution". "macros" is among them.
    const QMap<QString, QString> &importAttributes() const { return m_importAttributes; }
    void setImportAttributes(const QMap<QString, QString> &attributes) { m_importAttributes = attributes; }

    // What a build step found the file to be, see ProjectSystem::fileTypeOf; empty: its name says it.
    const QString &buildType() const { return m_buildType; }
    void setBuildType(const QString &type);

    void appendChild(std::unique_ptr<XMLNode> node) override;
    void prependChild(std::unique_ptr<XMLNode> node) override;
    std::unique_ptr<XMLNode> removeChild(XMLNode *node) override;
    std::unique_ptr<XMLNode> replaceChild(XMLNode *oldNode, std::unique_ptr<XMLNode> newNode) override;
    void insertAfter(XMLNode *reference, XMLNodeChain chain) override;

    // Counts the changes of all nodes there are; what was worked out from them holds while it stays.
    static quint64 changeCount() { return s_changeCount; }
    // What the project system keeps of the node.
    ElementCache &cache() const;

private:
    const Type m_type;
    bool m_isModified = false;
    bool m_canModify = true;
    bool m_isImported = false;
    QMap<QString, QString> m_properties;
    QMap<QString, ProjectElement *> m_configurations; // children
    QMap<QString, QString> m_importAttributes;
    QString m_filePath;
    QDateTime m_fileTime;
    QString m_buildType;
    mutable std::unique_ptr<ElementCache> m_cache;

    static quint64 s_changeCount;
};
