#include "build/engine/SolutionLock.h"

#include <QFileInfo>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace {

// Paths of the solutions whose builds we are part of, each ended by a line feed.
constexpr char buildsVariable[] = "VELDANE_BUILDS";

} // namespace

SolutionLock::SolutionLock(const QString &path) : m_path(QFile::encodeName(QFileInfo(path).canonicalFilePath()) + '\n')
{}

bool SolutionLock::take()
{
    m_outerBuilds = qgetenv(buildsVariable);
    if (('\n' + m_outerBuilds).contains('\n' + m_path))
        return true;
    if (!m_file.isOpen())
        m_file = FileDescriptor(::open(m_path.chopped(1).constData(), O_RDONLY | O_CLOEXEC));
    if (m_file.isOpen() && ::flock(m_file.number(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return false;
    qputenv(buildsVariable, m_outerBuilds + m_path);
    m_isTaken = true;
    return true;
}

SolutionLock::~SolutionLock()
{
    if (m_isTaken)
        qputenv(buildsVariable, m_outerBuilds);
}
