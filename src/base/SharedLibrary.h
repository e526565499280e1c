#pragma once

#include <QString>

// Owns a library loaded at run time. Entry points are looked up by name and called as their C prototypes say.
class SharedLibrary
{
public:
    SharedLibrary() = default;
    SharedLibrary(const SharedLibrary &) = delete;
    SharedLibrary &operator=(const SharedLibrary &) = delete;
    ~SharedLibrary() { unload(); }

    // With lazy binding. False when the library can't be loaded; errorString() has the loader's reason.
    bool load(const QString &path);
    void unload();
    // Leaves the library in the process for good, for those that register exit handlers.
    void release() { m_handle = nullptr; }
    bool isLoaded() const { return m_handle; }
    QString errorString() const { return m_error; }

    // The entry point, or null.
    template <typename Function>
    Function *function(const char *name) const
    {
        return reinterpret_cast<Function *>(symbol(name));
    }

private:
    void *symbol(const char *name) const;

    void *m_handle = nullptr;
    QString m_error;
};
