#pragma once

#include "project/properties/PropertyClass.h"
#include "xml/preprocessor/XMLPP2.h"

#include <QDateTime>
#include <list>

// A choice that stands for several properties, from
//
//     <group name="KEY" short="" long="" group="" page="General" default="ENTRY" order="0">
//       <groupEntry name="ENTRY" family="FAMILY">
//         <cdefine name="" value=""/> <cinclude value=""/> <library name=""/> <macro name="" value=""/>
//         <property name="" configuration="" value=""/> <file name="" file_name="" folder=""/>
//
// Its value is the name of an entry. Families are the groups of the entries. Each element within an entry may
// have a configuration, "Common" if it says none, and property and property_value as its condition.
class PropertyValueGroupClass : public PropertyClass
{
public:
    struct Contribution
    {
        enum Kind { Define, Include, Library, Macro, Property, File };

        Kind kind;
        QString name, value; // of a Define a null value: none; of an Include only the value counts
        QString configuration;
        bool hasConfiguration; // written, and not just meant
        QString conditionKey, conditionValue;
        QString fileName, folder; // of a File

        // In a build of `configuration`, which inherits from `inherited`.
        bool appliesTo(const QString &configuration, const QStringList &inherited) const;
        // "name" or "name=value", as definitions and macros are listed; the value of an Include.
        QString text() const;
    };
    struct Entry
    {
        QString name;
        std::vector<Contribution> contributions;
    };

    explicit PropertyValueGroupClass(const XMLElement &element);

    const std::vector<Entry> &entries() const { return m_entries; }
    // The entry of that name, else that of the default's; null if there is neither.
    const Entry *entryFor(const QString &value) const;

private:
    std::vector<Entry> m_entries;
};

// A file of property groups. What the preprocessor reports goes to the log.
class PropertyValueGroupFile : public XMLPP2
{
public:
    // Replaces what was loaded; false, without groups, when the file can't be used.
    bool loadGroups(const QString &path);
    const std::vector<std::unique_ptr<PropertyValueGroupClass>> &groups() const { return m_groups; }
    PropertyValueGroupClass *group(const QString &key) const; // null when there is none

    void reportError(const QString &message) override;

private:
    std::vector<std::unique_ptr<PropertyValueGroupClass>> m_groups;
};

// The group files in use, the one asked for last in front.
class PropertyValueGroupFiles
{
public:
    // The file, loaded if it isn't yet or has changed since; null when there is no such file. What it gave
    // stays until all are cleared, since values and changes point to it.
    const PropertyValueGroupFile *file(const QString &path);
    void clear();
    // Whether a file is another one, or gone, since it was loaded.
    bool haveChanged() const;

private:
    struct Loaded
    {
        QString path;
        QDateTime time;
        std::unique_ptr<PropertyValueGroupFile> file;
    };
    std::list<Loaded> m_files;
    std::vector<std::unique_ptr<PropertyValueGroupFile>> m_former; // that have changed since
};
