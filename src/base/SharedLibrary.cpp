#include "base/SharedLibrary.h"

#include <QFile>
#include <dlfcn.h>

bool SharedLibrary::load(const QString &path)
{
    unload();
    m_error = QStringLiteral("no name");
    if (path.isEmpty()) // which stands for the program itself
        return false;
    m_handle = ::dlopen(QFile::encodeName(path).constData(), RTLD_LAZY);
    if (!m_handle)
        m_error = QString::fromLocal8Bit(::dlerror());
    return m_handle;
}

void SharedLibrary::unload()
{
    if (m_handle)
        ::dlclose(m_handle);
    m_handle = nullptr;
}

void *SharedLibrary::symbol(const char *name) const
{
    return m_handle ? ::dlsym(m_handle, name) : nullptr;
}
