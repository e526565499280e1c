#pragma once

#include <QString>

class ProjectElement;

// By these a user interface takes part in loading and saving. Whoever doesn't need one passes null.

class ProjectFileNotFoundErrorHandler
{
public:
    virtual ~ProjectFileNotFoundErrorHandler() = default;
    // True when the file exists now.
    virtual bool fileNotFound(const QString &) { return false; }
};

class TemplateNotFoundErrorHandler
{
public:
    virtual ~TemplateNotFoundErrorHandler() = default;
    // The key of the template to take in place of that one, which isn't there; an empty text: none.
    virtual QString templateNotFound(const ProjectElement *, const QString &) { return {}; }
};

class ProjectFileSaveErrorHandler
{
public:
    virtual ~ProjectFileSaveErrorHandler() = default;
    // True: try again.
    virtual bool cannotSave(ProjectElement *) { return false; }
};

class ProjectLoadProgressInterface
{
public:
    enum Kind { Detail = 0, Status = 2 };

    virtual ~ProjectLoadProgressInterface() = default;
    virtual void message(const QString &, int /*kind*/ = Detail) {} // nests; ends with endMessage()
    virtual void endMessage() {}
    virtual void warning(const QString &) {}
    virtual bool isCancelled() { return false; }
    virtual void setProgress(int /*step*/, int /*steps*/) {}
};

struct SolutionLoadHandlers
{
    ProjectFileNotFoundErrorHandler *fileNotFound = nullptr;
    TemplateNotFoundErrorHandler *templateNotFound = nullptr;
    ProjectLoadProgressInterface *progress = nullptr;
};
