#include "project/model/DynamicFolder.h"

#include "base/Pattern.h"
#include "project/model/ElementPath.h"
#include "project/model/ProjectElement.h"

#include <QDir>
#include <QHash>
#include <QSet>
#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using Patterns = std::vector<QRegularExpression>;

Patterns patternsOf(const QStringList &wildcards)
{
    Patterns patterns;
    for (const QString &wildcard : wildcards)
        patterns.push_back(wildcardPattern(wildcard));
    return patterns;
}

bool matchesAny(const Patterns &patterns, const QString &name)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&name](const QRegularExpression &pattern) { return matchesWholly(pattern, name); });
}

class DirectoryScanner
{
public:
    DirectoryScanner(ProjectElement &top, const DynamicFolderScan &scan)
        : m_top(top), m_scan(scan), m_filters(patternsOf(scan.filters)), m_excludes(patternsOf(scan.excludes))
    {}

    void scan(const DynamicFolderScan::Directory &directory)
    {
        m_isRelative = directory.isRelative;
        m_seen.clear();
        std::vector<Found> open = {{directory.path, &m_top}};
        while (!open.empty()) {
            const Found found = open.back();
            open.pop_back();
            const QString canonical = QFileInfo(found.path).canonicalFilePath();
            if (canonical.isEmpty() || m_seen.contains(canonical))
                continue;
            m_seen.insert(canonical);
            std::vector<Found> folders = list(found);
            open.insert(open.end(), folders.rbegin(), folders.rend()); // the first of them next
        }
    }

private:
    struct Found
    {
        QString path;
        ProjectElement *folder;
    };

    // Adds the files; gives the directories.
    std::vector<Found> list(const Found &found)
    {
        std::vector<Found> folders;
        QDir::Filters kinds = QDir::Files | QDir::NoDotAndDotDot;
        if (m_scan.isRecursive)
            kinds |= QDir::Dirs;
        for (const QFileInfo &entry : QDir(found.path).entryInfoList(kinds)) {
            const QString name = entry.fileName();
            if (matchesAny(m_excludes, name))
                continue;
            const QString path = found.path + u'/' + name;
            if (entry.isDir())
                folders.push_back({path, folderNamed(*found.folder, name, path)});
            else if (m_filters.empty() || matchesAny(m_filters, name))
                add(*found.folder, "file", u"file_name"_s, path);
        }
        return folders;
    }

    ProjectElement *folderNamed(ProjectElement &parent, const QString &name, const QString &path)
    {
        ProjectElement *&folder = m_folders[{&parent, name}];
        if (!folder) {
            folder = add(parent, "folder", u"path"_s, path);
            folder->setProperty(u"Name"_s, name);
            folder->setModified(false);
        }
        return folder;
    }

    ProjectElement *add(ProjectElement &parent, const char *tag, const QString &key, const QString &path)
    {
        auto made = std::make_unique<ProjectElement>(tag);
        made->setProperty(key, m_isRelative ? relativePath(m_scan.projectDirectory, path) : path);
        made->setCanModify(false);
        made->setModified(false);
        ProjectElement *added = made.get();
        parent.appendChild(std::move(made));
        return added;
    }

    ProjectElement &m_top;
    const DynamicFolderScan &m_scan;
    const Patterns m_filters, m_excludes;
    bool m_isRelative = false;
    QSet<QString> m_seen;                                                          // canonical paths
    QHash<std::pair<const ProjectElement *, QString>, ProjectElement *> m_folders; // made, by parent and name
};

} // namespace

void populateDynamicFolder(ProjectElement &folder, const DynamicFolderScan &scan)
{
    for (XMLNode *child = folder.firstChild(); child;) {
        XMLNode *next = child->nextSibling();
        const auto *element = static_cast<const ProjectElement *>(child->toElement());
        if (!element || element->type() != ProjectElement::Type::Configuration)
            folder.removeChild(child);
        child = next;
    }
    DirectoryScanner scanner(folder, scan);
    for (const DynamicFolderScan::Directory &directory : scan.directories)
        scanner.scan(directory);
}
