#include "support/RunProgram.h"

#include <QProcess>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Where a test starts without standard streams, the pipes to the program would get their numbers, which
// QProcess doesn't expect.
void openStandardStreams()
{
    int number = STDIN_FILENO;
    while (number >= 0 && number <= STDERR_FILENO)
        number = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::close(number);
}

} // namespace

ProgramResult runProgram(const QString &program, const QStringList &arguments, const QByteArray &input,
                         const QStringList &environment)
{
    openStandardStreams();
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
