#include "support/RunProgram.h"

#include <QProcess>

ProgramResult runProgram(const QString &program, const QStringList &arguments, const QByteArray &input,
                         const QStringList &environment)
{
    QProcess process;
    QStringList variables = QProcess::systemEnvironment();
    variables += environment;
    process.setEnvironment(variables);
    process.start(program.contains(u'/') ? program : QString::fromLatin1(VN_BIN "/") + program, arguments);
    ProgramResult result;
    if (!process.waitForStarted())
        return result;
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.error = process.readAllStandardError();
    return result;
}
