#pragma once

#include <QByteArray>
#include <QStringList>

// A program run to its end by a test.
struct ProgramResult
{
    int status = -1; // exit status; -1 when it crashed, could not start or took longer than a minute
    QByteArray out;
    QByteArray error;
};

// `program` is a name below the build tree's bin/, or a path. `environment` is added to ours ("NAME=TEXT").
ProgramResult runProgram(const QString &program, const QStringList &arguments, const QByteArray &input = {},
                         const QStringList &environment = {});
