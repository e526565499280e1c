#include "debug/verbs/ReportingFile.h"

#include "debug/dwarf/DwarfTrace.h"

#include <QSet>
#include <cstdarg>
#include <cstdio>

namespace {

class ReportingDwarfFile : public DwarfFile
{
public:
    void reportError(const char *format, ...) override Q_ATTRIBUTE_FORMAT_PRINTF(2, 3)
    {
        constexpr qsizetype maximumReports = 20;
        if (m_reports.size() > maximumReports)
            return;
        va_list arguments;
        va_start(arguments, format);
        const QByteArray report = QString::vasprintf(format, arguments).toLocal8Bit();
        va_end(arguments);
        if (m_reports.contains(report))
            return;
        m_reports.insert(report);
        const bool isLast = m_reports.size() > maximumReports;
        std::fprintf(stderr, "vnDump: %s",
                     isLast ? "more of this is wrong; the rest isn't told\n" : report.constData());
    }

    void reportTrace(const char *format, ...) override Q_ATTRIBUTE_FORMAT_PRINTF(2, 3)
    {
        if (!dwarfTrace().isDebugEnabled())
            return;
        va_list arguments;
        va_start(arguments, format);
        qCDebug(dwarfTrace, "%s", QString::vasprintf(format, arguments).trimmed().toLocal8Bit().constData());
        va_end(arguments);
    }

private:
    QSet<QByteArray> m_reports;
};

} // namespace

ReportingFile::ReportingFile(const QString &path) : ElfDwarfFile(path == u"-" ? QStringLiteral("/dev/stdin") : path)
{
    load();
}

std::unique_ptr<DwarfFile> ReportingFile::createDwarfFile()
{
    return std::make_unique<ReportingDwarfFile>();
}
