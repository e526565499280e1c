#pragma once

#include <QDomDocument>
#include <QObject>
#include <QString>
#include <vector>

// A class's stored properties as attributes of an element whose tag is the class's name: those that it and its
// bases have up to and without `base`. Booleans are "true" and "false", lists are joined by line feeds.
QDomElement writeStoredProperties(QDomDocument &document, const QObject &object, const QMetaObject &base);
// False, nothing being read, when the tag isn't the class's name. An attribute that is missing or no value of
// its property leaves that alone.
bool readStoredProperties(const QDomElement &element, QObject &object, const QMetaObject &base);

// A file that was open in an editor. Positions and sizes count characters and lines.
class SessionOpenFile : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int x MEMBER x)
    Q_PROPERTY(int y MEMBER y)
    Q_PROPERTY(int top MEMBER top)
    Q_PROPERTY(int left MEMBER left)
    Q_PROPERTY(int selected MEMBER selected)
    Q_PROPERTY(QString path MEMBER path)
    Q_PROPERTY(QString codecName MEMBER codecName)
    Q_PROPERTY(int windowGroup MEMBER windowGroup)
    Q_PROPERTY(int useBinaryEdit MEMBER useBinaryEdit)
    Q_PROPERTY(int useTextEdit MEMBER useTextEdit)
    Q_PROPERTY(QString openedFrom MEMBER openedFrom)

public:
    int x = 0, y = 0;      // caret: column and line
    int top = 0, left = 0; // of the view
    int selected = 0;
    QString path;
    QString codecName = QStringLiteral("Latin1");
    int windowGroup = 0;
    int useBinaryEdit = 0, useTextEdit = 0;
    QString openedFrom;
};

// A node of the project tree that was open: the display names from the root down, joined by ";".
class ProjectSessionItem : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString path MEMBER path)

public:
    QString path;
};

// The session of a solution, NAME.vnSession beside it: what each window keeps, an element each, by its key.
//
//     <!DOCTYPE Veldane_Session_File>
//     <session> <Breakpoints>...</Breakpoints> <Files> <SessionOpenFile path="" .../> ... </Files> </session>
class SessionFile
{
public:
    // A new one.
    SessionFile();
    static QString pathFor(const QString &solutionFile);

    // False, the session being new then, when there is no such file or it isn't a session.
    bool load(const QString &path);
    // Replaces the file whole. Throws HException.
    void save(const QString &path) const;

    QDomDocument &document() { return m_document; }
    // What the window with that key keeps; null when there is nothing.
    QDomElement part(const QString &key) const;
    // Puts it in place of what was kept under its tag.
    void setPart(const QDomElement &part);

    // Paths are absolute here. In the file they have $(...) where a macro of the system stands for the folder,
    // or count from `directory`, the session's, when they lie there.
    std::vector<std::unique_ptr<SessionOpenFile>> openFiles(const QString &directory) const;
    void setOpenFiles(const std::vector<std::unique_ptr<SessionOpenFile>> &files, const QString &directory);
    QStringList expandedNodes() const; // paths of ProjectSessionItem, in the order of the file
    void setExpandedNodes(const QStringList &paths);

private:
    QDomElement root() const { return m_document.documentElement(); }

    QDomDocument m_document;
};

// The path as a session keeps it, and back.
QString sessionPath(const QString &path, const QString &directory);
QString pathOfSession(const QString &path, const QString &directory);
