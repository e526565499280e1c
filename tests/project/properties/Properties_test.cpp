#include "base/Log.h"
#include "project/properties/EnvironmentPropertyValue.h"
#include "project/properties/PropertySchema.h"
#include "project/properties/PropertyValue.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"
#include "xml/settings/EnvironmentSettings.h"
#include "xml/tree/XMLDocument.h"

#include <QCoreApplication>
#include <QSet>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QStringList loggedLines;

// What is logged meanwhile goes to loggedLines.
struct LogCapture
{
    LogCapture()
    {
        loggedLines.clear();
        setLogSink([](const char *category, const char *text) {
            loggedLines.append(QString::fromUtf8(category) + u": "_s + QString::fromUtf8(text).trimmed());
        });
    }
    ~LogCapture() { setLogSink(nullptr); }
};

QString stored(const PropertyClass &propertyClass, int number)
{
    SimplePropertyValue value(&propertyClass, u"as it was"_s);
    value.setValue(number);
    return value.value();
}

} // namespace

TEST(PropertyClass, CutsChoicesFromTheirGroups)
{
    const PropertyClass grouped(u"codec"_s, PropertyType::Enumeration, {u"a~~x"_s, u"b"_s, u"c~~y~~z"_s}, {}, u"a"_s);
    EXPECT_EQ(grouped.enumerates(), QStringList({u"a"_s, u"b"_s, u"c"_s}));
    EXPECT_EQ(grouped.choiceGroups, QStringList({u"x"_s, QString(), u"y~~z"_s}));
    const PropertyClass plain(u"codec"_s, PropertyType::Enumeration, {u"a~x"_s, u"b"_s}, {}, u"a"_s);
    EXPECT_EQ(plain.enumerates(), QStringList({u"a~x"_s, u"b"_s}));
    EXPECT_TRUE(plain.choiceGroups.isEmpty());
}

TEST(PropertyClass, RenamesOldPagesAndGroups)
{
    struct
    {
        const char *page, *group, *shownPage, *shownGroup;
    } const rows[] = {
        {"General", "Build Options", "Code", "Build"},
        {"C/C++", " Foo Settings", "Code", " Foo"},
        {"Linker", "Options", "Code", "Options"},
        {"Debugging", "Debugger Options (all)", "Debug", "Debugger"},
        {"Target", "J-Link Settings Options", "Target", "J-Link"},
    };
    for (const auto &row : rows) {
        const PropertyClass made(
            u"key"_s, {QString::fromLatin1(row.page), QString::fromLatin1(row.group), QString(), QString()}, true);
        EXPECT_EQ(made.page, QString::fromLatin1(row.shownPage));
        EXPECT_EQ(made.group, QString::fromLatin1(row.shownGroup));
        EXPECT_EQ(made.defaultValue, u"Yes"_s);
    }
}

TEST(PropertyClass, IsReadFromAnElement)
{
    XMLDocument document;
    ASSERT_TRUE(document.parse(R"(<x><property name="width" type="IntegerRange" group="Code Options" short="Width"
        long="How wide" default="8" minimum="-1" maximum="16" specialvalue="Any" order="-3"/><property name="b"/>
        <property name="e" type="Enumeration" enumeration="a~~g;b"/><property name="t" type="Tree"/></x>)"));
    const XMLElement *element = document.root()->firstChildElement();
    const PropertyClass width(*element);
    EXPECT_EQ(width.typeName(), u"IntegerRange"_s);
    EXPECT_EQ(width.group, u"Code"_s);
    EXPECT_EQ(width.description(), u"How wide"_s);
    EXPECT_EQ(width.minimum, -1);
    EXPECT_EQ(width.maximum, 16);
    EXPECT_EQ(width.order, -3);
    EXPECT_EQ(width.specialText, u"Any"_s);

    element = element->nextSiblingElement();
    const PropertyClass boolean(*element);
    EXPECT_EQ(boolean.typeName(), u"Boolean"_s);
    EXPECT_EQ(boolean.defaultValue, u"No"_s) << "a Boolean without a default is No";
    EXPECT_EQ(boolean.enumerates(), QStringList({u"No"_s, u"Yes"_s}));

    element = element->nextSiblingElement();
    EXPECT_EQ(PropertyClass(*element).enumerates(), QStringList({u"a"_s, u"b"_s}));
    EXPECT_EQ(GenericPropertyClass(*element).enumerates(), QStringList({u"a~~g"_s, u"b"_s}));
    EXPECT_EQ(PropertyClass(*element->nextSiblingElement()).type, PropertyType::Boolean);
}

TEST(PropertyType, HasNamesAsFarAsFilesMayAskForIt)
{
    for (int number = 0; number <= 15; ++number)
        EXPECT_EQ(propertyTypeNamed(typeName(PropertyType(number))), PropertyType(number));
    for (const int number : {-1, 16, 17, 18, 99})
        EXPECT_EQ(typeName(PropertyType(number)), u"Unknown"_s);
    EXPECT_EQ(typeName(PropertyType::StringList), u"StringList"_s);
    EXPECT_FALSE(propertyTypeNamed(u"Unknown"_s));
}

TEST(PropertyValue, StoresNumbersAsTheClassWritesThem)
{
    const LogCapture capture;
    const PropertyClass hex(u"h"_s, PropertyType::IntegerHex, 0, -1, {}, 16);
    EXPECT_EQ(hex.defaultValue, u"0x00000010"_s);
    EXPECT_EQ(stored(hex, -2), u"0xfffffffe"_s);
    EXPECT_EQ(stored({u"h"_s, PropertyType::IntegerHex, 0, 0xFF, {}, 0}, 0xABC), u"0xabc"_s);
    EXPECT_EQ(stored({u"i"_s, PropertyType::IntegerRange, 0, 9, {}, 0}, -12), u"-12"_s);
    const PropertyClass choice(u"e"_s, PropertyType::Enumeration, {u"a"_s, u"b"_s}, {}, u"a"_s);
    EXPECT_EQ(stored(choice, 1), u"b"_s);
    EXPECT_TRUE(loggedLines.isEmpty());

    EXPECT_EQ(stored(choice, 2), QString());
    EXPECT_EQ(stored({u"s"_s, PropertyType::String, {}}, 1), u"as it was"_s);
    EXPECT_EQ(
        loggedLines,
        QStringList({u"warning: PropertyValue::setValue(int): Setting an enumeration to a value which isn't in its "
                     "enumerates"_s,
                     u"warning: --- setting e to 2"_s,
                     u"warning: PropertyValue::setValue(int): Setting a non-integer property"_s}));
}

TEST(PropertyValue, StoresBooleans)
{
    const LogCapture capture;
    const PropertyClass boolean(u"b"_s, PropertyTexts(), false);
    SimplePropertyValue value(&boolean);
    value.setValue(true);
    EXPECT_EQ(value.value(), u"Yes"_s);
    value.setValue(false);
    EXPECT_EQ(value.value(), u"No"_s);
    EXPECT_TRUE(loggedLines.isEmpty());

    const PropertyClass choice(u"e"_s, PropertyType::Enumeration, {u"a"_s, u"b"_s}, {}, u"a"_s);
    SimplePropertyValue other(&choice);
    other.setValue(true);
    EXPECT_EQ(other.value(), u"b"_s);
    EXPECT_EQ(loggedLines, QStringList(u"warning: PropertyValue::setValue(int): Setting a non-Boolean property"_s));
}

TEST(PropertyValueList, KeepsOneValueOfAClassInOrderOfShortTexts)
{
    const LogCapture capture;
    const PropertyClass last(u"a"_s, PropertyType::String, {{}, {}, u"Zone"_s, {}});
    const PropertyClass first(u"z"_s, PropertyType::String, {{}, {}, u"Area"_s, {}});
    QString slot = u"chosen"_s;
    PropertyValueList list;
    PropertyValue *kept = list.appendUnique(std::make_unique<SimplePropertyValue>(&last, u"1"_s));
    EXPECT_EQ(list.appendUnique(std::make_unique<SimplePropertyValue>(&last, u"2"_s)), kept);
    EXPECT_EQ(kept->value(), u"1"_s);
    PropertyValue *choice = list.appendUnique(std::make_unique<ChooseInfoPropertyValue>(&first, &slot));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(&list[0], choice);
    choice->clone()->setValue(u"other"_s);
    EXPECT_EQ(slot, u"other"_s) << "a clone is bound to the same place";

    EXPECT_EQ(list.appendUnique(nullptr), nullptr);
    EXPECT_EQ(list.appendUnique(std::make_unique<SimplePropertyValue>(nullptr)), nullptr);
    EXPECT_EQ(loggedLines.count(u"error: Bad property value in PropertyValueList::appendUnique"_s), 2);
}

TEST(EnvironmentPropertyValue, ReadsAndWritesTheSettings)
{
    int count = 0;
    char *none[1] = {nullptr};
    const QCoreApplication application{count, none};
    const TemporaryFolder folder;
    EnvironmentSettings settings(folder.path("user.xml"), folder.path("global.xml"));
    EnvironmentOption option;
    option.key = u"Environment/Build/Threads"_s;
    option.type = EnvironmentOption::Integer;
    option.title = u"Threads"_s;
    option.defaultValue = u"4"_s;
    settings.addOption(option);
    const PropertyClass threads(option);
    EXPECT_EQ(threads.typeName(), u"Integer"_s);
    EnvironmentPropertyValue value(&threads, &settings);
    int changes = 0;
    QObject::connect(&value, &EnvironmentPropertyValue::changed, &value, [&](EnvironmentPropertyValue *which) {
        EXPECT_EQ(which, &value);
        ++changes;
    });
    EXPECT_EQ(value.value(), u"4"_s);
    value.setValue(8);
    value.setValue(u"8"_s);
    settings.setValue(u"Environment/Build/Other"_s, u"8"_s);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(settings.intValue(option.key), 8);
    value.clone()->setValue(9);
    EXPECT_EQ(value.value(), u"9"_s);
    EXPECT_EQ(changes, 2);
}

TEST(PropertySchema, AnswersByKeyAndById)
{
    const PropertySchema schema;
    const PropertyClass *dynamicFilter = schema.propertyClassNamed(u"filter"_s);
    EXPECT_EQ(dynamicFilter, &schema[ProjectProperty::dynamic_filter]) << "the later of two with one key";
    EXPECT_EQ(dynamicFilter->type, PropertyType::String);
    EXPECT_EQ(schema[ProjectProperty::filter].type, PropertyType::StringList);
    EXPECT_EQ(schema[ProjectProperty::build_library_file_name].name, u"build_output_file_name"_s);
    EXPECT_EQ(schema[ProjectProperty::build_output_file_name].defaultValue, u"$(OutDir)/$(ProjectName)$(EXE)"_s);
    EXPECT_EQ(schema[ProjectProperty::stage_command].defaultValue,
              u"cp \"$(RelInputPath)\" \"$(StageOutputFilePath)\""_s);
    EXPECT_EQ(schema[ProjectProperty::debug_threads_max].maximum, 1000);
    EXPECT_EQ(schema.propertyClassNamed(u"date_created"_s), nullptr) << "only shown";
    EXPECT_EQ(schema.propertyClassNamed(u"$(OutDir)"_s), nullptr);

    const PropertySchema nodes(PropertySchema::Extent::Node);
    EXPECT_TRUE(nodes.propertyClassNamed(u"file_name"_s));
    EXPECT_FALSE(nodes.propertyClassNamed(u"project_type"_s));
}

TEST(PropertySchema, IsSoundInEveryRow)
{
    const PropertySchema schema;
    QStringList repeated;
    QSet<QString> keys;
    for (const auto &known : schema.classes()) {
        const QString &key = known->name;
        EXPECT_FALSE(known->shortText.isEmpty() || known->longText.isEmpty()) << key.toStdString();
        EXPECT_TRUE(!known->isListed() || known->enumerates().contains(known->defaultValue)) << key.toStdString();
        EXPECT_EQ(known->type == PropertyType::Command,
                  key.endsWith(u"_command"_s) || key == u"external_objects_file_name"_s)
            << key.toStdString();
        EXPECT_TRUE(!key.endsWith(u"_command_wd"_s) || known->defaultValue == u"$(ProjectDir)"_s) << key.toStdString();
        if (keys.contains(key))
            repeated.append(key);
        keys.insert(key);
    }
    EXPECT_EQ(repeated, QStringList({u"filter"_s, u"build_output_file_name"_s}));
}

TEST(PropertySchema, KnowsWhoseCommandsAValueBelongsTo)
{
    const PropertySchema schema;
    const auto tools = [&schema](ProjectProperty id) { return schema.toolsOf(&schema[id]); };
    EXPECT_EQ(tools(ProjectProperty::build_quietly), 0b1001'1100u);
    EXPECT_EQ(tools(ProjectProperty::external_objects_file_name), 0b1'1000'0000u);
    EXPECT_EQ(tools(ProjectProperty::archive_post_build_command_wd), buildToolBit(BuildTool::Link));
    EXPECT_EQ(tools(ProjectProperty::project_type), 0u);
    EXPECT_EQ(schema.classesOf(BuildTool::Stage).size(), 4);
    EXPECT_EQ(schema.classesOf(BuildTool::Combine).size(), 4);
    EXPECT_EQ(schema.classesOf(BuildTool::Archive).size(), 3);
}

TEST(PropertySchema, FindsTheEarlierClassAgain)
{
    PropertySchema schema;
    const PropertyClass *known = schema.propertyClassNamed(u"macros"_s);
    const PropertyClass *added = schema.registerPropertyClass(
        std::make_unique<PropertyClass>(u"macros"_s, PropertyTexts(), true), buildToolBit(BuildTool::Link));
    EXPECT_EQ(schema.propertyClassNamed(u"macros"_s), added);
    EXPECT_TRUE(schema.classesOf(BuildTool::Link).contains(added));
    const auto taken = schema.unregisterPropertyClass(added);
    EXPECT_EQ(schema.propertyClassNamed(u"macros"_s), known);
    EXPECT_EQ(schema.toolsOf(added), 0u);
    EXPECT_EQ(schema.unregisterPropertyClass(added), nullptr);
}

TEST(MacroPropertyClass, ShowsAMacro)
{
    const PropertySchema schema;
    const MacroPropertyClass &first = *schema.macroClasses().front();
    EXPECT_EQ(first.macro, u"Configuration"_s);
    EXPECT_EQ(first.name, u"$(Configuration)"_s);
    EXPECT_EQ(first.group, u"(Build Macro Values)"_s);
    EXPECT_TRUE(SimplePropertyValue(&first).isReadOnly());
}
