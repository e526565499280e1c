#include "project/properties/GenericOptions.h"
#include "project/properties/PropertyGroups.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QDateTime>
#include <QFile>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

void writeText(const QString &path, const QByteArray &text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QFile::WriteOnly));
    file.write(text);
}

const char *const groupsText = R"(<groups><other/>
    <group name="board" short="Board" long="Which board" group="Board Options" default="Nano" order="0x10">
      <if cond="1==1"><ignored/></if>
      <groupEntry name="Nano" family="Small">
        <cdefine name="NANO"/><cdefine name="SPEED" value="8" configuration="Debug"/>
        <cinclude value="inc/nano" property="speed" property_value="fast"/><library name="nano.a"/>
        <macro name="BOARD" value=""/><property name="linker_map_file" configuration="Release" value="No"/>
        <file name="start" file_name="nano.s" folder="Source Files"/><unknown name="x"/>
      </groupEntry>
      <groupEntry name="Mega"/>
    </group></groups>)";

} // namespace

TEST(PropertyValueGroupFile, ReadsGroupsAndWhatTheyContribute)
{
    const TemporaryFolder folder;
    const QString path = folder.path("groups.xml");
    writeText(path, groupsText);
    PropertyValueGroupFile file;
    ASSERT_TRUE(file.loadGroups(path));
    ASSERT_EQ(file.groups().size(), 1u);
    const PropertyValueGroupClass *board = file.group(u"board"_s);
    ASSERT_TRUE(board);
    EXPECT_EQ(file.group(u"Board"_s), nullptr);
    EXPECT_EQ(board->typeName(), u"Enumeration"_s);
    EXPECT_EQ(board->page, u"Code"_s);
    EXPECT_EQ(board->group, u"Board"_s);
    EXPECT_EQ(board->order, 16);
    EXPECT_EQ(board->enumerates(), QStringList({u"Nano"_s, u"Mega"_s}));
    EXPECT_EQ(board->choiceGroups, QStringList({u"Small"_s, QString()}));
    EXPECT_EQ(board->entryFor(u"Mega"_s)->name, u"Mega"_s);

    const PropertyValueGroupClass::Entry *nano = board->entryFor(u"none such"_s);
    ASSERT_TRUE(nano) << "the default's";
    using Contribution = PropertyValueGroupClass::Contribution;
    QStringList texts;
    for (const Contribution &contribution : nano->contributions)
        texts.append(contribution.text());
    EXPECT_EQ(texts, QStringList({u"NANO"_s, u"SPEED=8"_s, u"inc/nano"_s, u"nano.a"_s, u"BOARD="_s,
                                  u"linker_map_file=No"_s, u"start"_s}));
    const Contribution &speed = nano->contributions[1];
    EXPECT_TRUE(speed.appliesTo(u"Debug"_s, {}));
    EXPECT_TRUE(speed.appliesTo(u"Test"_s, {u"Debug"_s}));
    EXPECT_FALSE(speed.appliesTo(u"Release"_s, {u"Base"_s}));
    EXPECT_TRUE(nano->contributions[0].appliesTo(u"Release"_s, {}));
    EXPECT_FALSE(nano->contributions[0].hasConfiguration);
    EXPECT_EQ(nano->contributions[2].conditionKey, u"speed"_s);
    EXPECT_EQ(nano->contributions[2].conditionValue, u"fast"_s);
    EXPECT_EQ(nano->contributions[6].fileName, u"nano.s"_s);
    EXPECT_EQ(nano->contributions[6].folder, u"Source Files"_s);
}

TEST(PropertyValueGroupFiles, LoadsAgainWhatHasChanged)
{
    const TemporaryFolder folder;
    const QString path = folder.path("groups.xml");
    writeText(path, groupsText);
    PropertyValueGroupFiles files;
    EXPECT_EQ(files.file(folder.path("none.xml")), nullptr);
    const PropertyValueGroupFile *first = files.file(path);
    ASSERT_TRUE(first && first->group(u"board"_s));
    EXPECT_EQ(files.file(path), first);

    writeText(path, "<groups><group name=\"chip\"/></groups>");
    QFile changed(path);
    ASSERT_TRUE(changed.open(QFile::ReadWrite));
    changed.setFileTime(QDateTime::currentDateTime().addSecs(60), QFile::FileModificationTime);
    changed.close();
    ASSERT_TRUE(files.file(path));
    EXPECT_TRUE(files.file(path)->group(u"chip"_s));
    EXPECT_EQ(files.file(path)->group(u"board"_s), nullptr);
    QFile::remove(path);
    EXPECT_EQ(files.file(path), nullptr);
}

TEST(GenericOptions, ExtendTheSchemaUntilTheyAreForgotten)
{
    const TemporaryFolder folder;
    const QString path = folder.path("options.xml");
    writeText(path, R"(<options>
        <property tool="compiler;assembler" name="arm_cpu" type="Enumeration" enumeration="m0;m3" default="m3"/>
        <property tool="linker" name="macros" type="String" group="Mine"/><property tool="linker" type="String"/>
        <property name="linker_map_file" default="No"/><property name="linker_map_file" default="Maybe"/>
        <property name="none_such" default="x"/><property name="linker_keep_symbols"/>
        <extra a="1"/><group name="board"><groupEntry name="Nano"/></group></options>)");
    PropertySchema schema;
    const size_t sizeBefore = schema.classes().size();
    const PropertyClass *macros = schema.propertyClassNamed(u"macros"_s);
    GenericOptions options(&schema);
    ASSERT_TRUE(options.load(path));

    const PropertyClass *cpu = schema.propertyClassNamed(u"arm_cpu"_s);
    ASSERT_TRUE(cpu);
    EXPECT_EQ(cpu->group, u"C/C++"_s);
    EXPECT_EQ(cpu->enumerates(), QStringList({u"m0"_s, u"m3"_s}));
    EXPECT_EQ(schema.toolsOf(cpu), 0b1'1100u);
    const GenericOptions::Classes theCpu{static_cast<const GenericPropertyClass *>(cpu)};
    EXPECT_EQ(options.classesOf(GenericOptions::Assembler), theCpu);
    EXPECT_EQ(options.classesOf(GenericOptions::Compiler), theCpu);
    EXPECT_TRUE(options.classesOf(GenericOptions::CCompiler).isEmpty());
    EXPECT_EQ(schema.propertyClassNamed(u"macros"_s)->group, u"Linker"_s);
    EXPECT_EQ(schema[ProjectProperty::linker_map_file].defaultValue, u"Maybe"_s);
    EXPECT_TRUE(schema.propertyClassNamed(u"board"_s));
    ASSERT_EQ(options.extraElements().size(), 1u);
    EXPECT_EQ(options.extraElements()[0]->toElement()->attribute("a"), "1");

    EXPECT_FALSE(options.load(folder.path("none.xml")));
    EXPECT_EQ(schema.classes().size(), sizeBefore);
    EXPECT_EQ(schema.propertyClassNamed(u"macros"_s), macros);
    EXPECT_EQ(schema.propertyClassNamed(u"arm_cpu"_s), nullptr);
    EXPECT_EQ(schema[ProjectProperty::linker_map_file].defaultValue, u"Yes"_s);
    EXPECT_TRUE(options.classesOf(GenericOptions::Compiler).isEmpty());
    EXPECT_TRUE(options.extraElements().empty());

    ASSERT_TRUE(options.load(path));
    EXPECT_TRUE(schema.propertyClassNamed(u"arm_cpu"_s));
    ASSERT_TRUE(options.load(QString()));
    EXPECT_EQ(schema.classes().size(), sizeBefore);
}
