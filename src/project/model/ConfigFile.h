#pragma once

#include <QList>
#include <QString>
#include <utility>

class EnvironmentSettings;

// What an installation sets for all its users, in bin/config.xml:
//
//     <setting name="Environment/Build/Building Threads" value="4"/>    an option that the user hasn't set
//     <system-macro name="CLANGTIDY" value="/usr/bin/clang-tidy"/>
//     <environment-variable name="LANG" value="C"/>
//
// anywhere in the document, which XmlPP reads. In a value $(StudioDir), $(UserHomeDir) and $(UserDataDir) are
// replaced, unless the element says expand="no".
struct ConfigFile
{
    using Entry = std::pair<QString, QString>; // name and value

    QList<Entry> settings, systemMacros, environmentVariables;

    // A file that isn't there has nothing. Throws HException when it can't be used.
    static ConfigFile read(const QString &path);
    // Without settings those of the file go nowhere.
    void apply(EnvironmentSettings *settings) const;
};

// What every program does before it asks for a macro: adds those of the installation that it runs from, and
// applies its config.xml. Throws HException.
void loadInstallation(EnvironmentSettings *settings = nullptr);
