#include "build/log/BuildLog.h"
#include "build/log/CompilerDiagnosticParser.h"

// Any lines, given to each parser and through a log: a record's numbers are -1 or sensible, its file exists.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString directory = QStringLiteral("/etc"), tool = QStringLiteral("cc");
    StandardDiagnosticParser standard(directory, tool);
    CompilerDiagnosticParser compiler(directory, tool);
    STAPLDiagnosticParser stapl(directory, tool);
    RegexpDiagnosticParser regexp(directory, tool, {QStringLiteral("(\\S+):(\\d+): (.*)")});
    BuildLog log;
    BuildLogItem *group = log.beginGroup(QStringLiteral("Linking x"), 0);
    const QStringList lines = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size)).split(u'\n');
    for (const QString &line : lines)
        for (DiagnosticParser *parser :
             std::initializer_list<DiagnosticParser *>{&standard, &compiler, &stapl, &regexp}) {
            Bookmark bookmark;
            if (parser->parse(line, bookmark, true) &&
                (bookmark.line < -1 || bookmark.column < -1 || bookmark.severity > Severity::Fatal ||
                 (!bookmark.file.isEmpty() && !bookmark.file.startsWith(u'/'))))
                std::abort();
        }
    for (const QString &line : lines)
        log.processOutput(1, &compiler, group, line, true);
    log.endGroup();
    for (size_t i = 0; i < 3; ++i)
        log.locateNext();
    log.locatePrevious();
    return 0;
}
