#pragma once

#include "base/FileDescriptor.h"

#include <QByteArray>

// Held while a solution is built, so that another build of it, by another program, waits and doesn't write the same
// files at the same time. A build that a command of a build starts need not wait: that would be for ever. Nothing is
// written, and the system lets go of what a program that ends has held.
class SolutionLock
{
public:
    explicit SolutionLock(const QString &path);
    SolutionLock(const SolutionLock &) = delete;
    SolutionLock &operator=(const SolutionLock &) = delete;
    ~SolutionLock();

    // False while another build holds it. Where the file system has no locks everybody gets it.
    bool take();

private:
    const QByteArray m_path;
    FileDescriptor m_file;
    QByteArray m_outerBuilds; // what the environment said before
    bool m_isTaken = false;
};
