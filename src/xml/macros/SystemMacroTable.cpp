#include "xml/macros/SystemMacroTable.h"

#include <QDir>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

// How a time macro is made: a format of QDateTime, or null for the seconds since the epoch.
struct TimeMacro
{
    QLatin1StringView name;
    const char *format, *description;
};
constexpr TimeMacro timeMacros[] = {
    {"Date"_L1, "d MMMM yyyy", "The current date."},
    {"DateYear"_L1, "yyyy", "The current year."},
    {"DateMonth"_L1, "MM", "The current month, two digits."},
    {"DateDay"_L1, "dd", "The current day of the month, two digits."},
    {"Time"_L1, "hh:mm:ss", "The current time."},
    {"TimeHour"_L1, "hh", "The current hour, two digits."},
    {"TimeMinute"_L1, "mm", "The current minute, two digits."},
    {"TimeSecond"_L1, "ss", "The current second, two digits."},
    {"UnixTime"_L1, nullptr, "The seconds since the start of 1970."},
};

struct FixedMacro
{
    const char *name, *value, *description;
};
constexpr FixedMacro hostMacros[] = {
    {"HostArch", "x64", "The processor architecture of the host."},
    {"HostOS", "linux", "The operating system of the host."},
    {"Micro", "ARM", "The target family."},
    {"TargetID", "8", "The number of the target family."},
    {"HostEXE", "", "The file extension of programs on the host."},
    {"HostDLLExt", ".so", "The file extension of libraries on the host."},
    {"HostDLL", ".so_x64", "The ending of libraries for the host's architecture."},
};
constexpr FixedMacro productNames[] = {
    {"StudioName", "Veldane Studio", "The full name of the product."},
    {"StudioNameShort", "Veldane", "The short name of the product."},
    {"Platform", "arm", "The target family in lower case."},
    {"ProductName", "Veldane Studio", "The full name of the product."},
    {"ProductNameShort", "Veldane", "The short name of the product."},
};
constexpr FixedMacro programNames[] = {
    {"StudioExeName", "vnStudio", "The file name of the product's main program."},
    {"StudioBuildToolExeName", "vnBuild", "The file name of the build program."},
    {"StudioBuildToolName", "vnBuild", "The name of the build program."},
    {"StudioScriptToolExeName", "vnScript", "The file name of the script program."},
    {"StudioScriptToolName", "vnScript", "The name of the script program."},
    {"StudioSimulatorExeName", "vnSim", "The file name of the simulator."},
    {"StudioSimulatorName", "vnSim", "The name of the simulator."},
    {"StudioArchiveFileExt", "vnArchive", "The file extension of archives."},
    {"StudioPackageFileExt", "vnPackage", "The file extension of packages."},
    {"StudioProjectFileExt", "vnProject", "The file extension of solutions."},
    {"StudioSessionFileExt", "vnSession", "The file extension of session files."},
};

QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}

void addAll(SystemMacroTable &table, std::span<const FixedMacro> rows)
{
    for (const FixedMacro &row : rows)
        table.addSystemMacro(text(row.name), text(row.value), text(row.description));
}

} // namespace

quint64 SystemMacroTable::s_changeCount = 0;

SystemMacroTable::SystemMacroTable()
{
    for (const TimeMacro &row : timeMacros)
        addSystemMacro(row.name, currentTime(row.name).value(), text(row.description));
    addAll(*this, hostMacros);
}

SystemMacroTable &SystemMacroTable::instance()
{
    static SystemMacroTable table;
    return table;
}

void SystemMacroTable::addSystemMacro(const QString &name, const QString &value, const QString &description)
{
    if (!description.isEmpty())
        m_descriptions.append({name, description});
    m_system.insert(name, value);
    ++s_changeCount;
}

void SystemMacroTable::addSystemMacro(const QString &name, const QDir &path, const QString &description)
{
    addSystemMacro(name, path.path(), description);
}

void SystemMacroTable::addInstallationMacros(const QDir &studioDir, const QDir &userDir)
{
    const QString major = text(VN_VERSION_MAJOR), minor = text(VN_VERSION_MINOR);
    const auto standardDir = [](QStandardPaths::StandardLocation location) {
        return QDir(QStandardPaths::writableLocation(location));
    };
    addSystemMacro(u"StudioMajorVersion"_s, major, u"The major version of the product."_s);
    addSystemMacro(u"StudioMinorVersion"_s, minor, u"The minor version of the product."_s);
    addSystemMacro(u"FerrowStudioVersionNumber"_s, versionNumber(major, minor),
                   u"The version of the product as a number."_s);
    addSystemMacro(u"TapwireDDir"_s, QDir(studioDir.filePath(u"bin"_s)),
                   u"The directory of the debug probe software."_s);
    addAll(*this, productNames);
    addSystemMacro(u"StudioDir"_s, studioDir, u"The install directory of the product."_s);
    addSystemMacro(u"StudioUserDir"_s, userDir, u"The user data directory of the product."_s);
    addSystemMacro(u"HomeDir"_s, QDir::home(), u"The user's home directory."_s);
    addSystemMacro(u"DesktopDir"_s, standardDir(QStandardPaths::DesktopLocation), u"The user's desktop directory."_s);
    addSystemMacro(u"DocumentsDir"_s, standardDir(QStandardPaths::DocumentsLocation),
                   u"The user's documents directory."_s);
    addAll(*this, programNames);
}

void SystemMacroTable::setGlobalMacros(const QStringList &entries)
{
    m_global.clear();
    for (const QString &entry : entries)
        m_global.insert(entry.section(u'=', 0, 0), entry.section(u'=', 1));
    ++s_changeCount;
}

std::optional<QString> SystemMacroTable::currentTime(const QString &name) const
{
    for (const TimeMacro &row : timeMacros) {
        if (name != row.name)
            continue;
        const QDateTime now = m_clock();
        return row.format ? now.toString(text(row.format)) : QString::number(now.toSecsSinceEpoch());
    }
    return std::nullopt;
}

QString versionNumber(const QString &major, const QString &minor)
{
    QString digits = minor.first(qMin<qsizetype>(minor.size(), 2));
    int letter = 0;
    if (!digits.isEmpty() && minor.back().isLetter()) {
        letter = minor.back().toLower().unicode() - 'a' + 1;
        digits = minor.chopped(1).left(2);
    }
    return major.left(1) + digits.rightJustified(2, u'0') + u"%1"_s.arg(letter, 2, 10, QChar(u'0'));
}
