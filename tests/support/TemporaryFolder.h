#pragma once

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// A folder that goes away with the test, with the two file operations that tests need all the time.
class TemporaryFolder
{
public:
    QString path(const char *name) const { return m_folder.filePath(QString::fromLatin1(name)); }
    QString root() const { return m_folder.path(); }

    QString write(const char *name, const QByteArray &bytes) const
    {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return file.fileName();
    }
    QByteArray read(const char *name) const
    {
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name;
        return file.readAll();
    }

private:
    QTemporaryDir m_folder;
};
