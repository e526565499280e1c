#include "project/model/PropertyLookup.h"
#include "project/model/SolutionFile.h"
#include "project/properties/PropertySchema.h"
#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <QFile>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

class PropertyLookupTest : public testing::Test
{
protected:
    // The last <file> of the solution in `text`; other solutions may be in the folder.
    ProjectElement *load(const QByteArray &text)
    {
        write("main.vnProject", text);
        QStringList loaded;
        m_root = loadSolution(QString(), folder.path("main.vnProject"), QString(), loaded);
        ProjectElement *file = nullptr;
        for (XMLNode *node = m_root.get(); node; node = node->nextInTree(m_root.get()))
            if (node->toElement()->name() == "file")
                file = static_cast<ProjectElement *>(node);
        return file;
    }
    void write(const char *name, const QByteArray &text)
    {
        QFile file(folder.path(name));
        ASSERT_TRUE(file.open(QFile::WriteOnly));
        file.write("<!DOCTYPE Veldane_Project_File>" + text);
    }

    const TemporaryFolder folder;
    const PropertySchema schema;
    const PropertyClass &definitions = schema[ProjectProperty::c_preprocessor_definitions];
    const PropertyClass &outputDirectory = schema[ProjectProperty::build_output_directory];
    const PropertyClass &includes = schema[ProjectProperty::c_system_include_directories];

private:
    std::unique_ptr<ProjectElement> m_root;
};

TEST_F(PropertyLookupTest, PrefersTheNearestNodeThenTheNearestConfiguration)
{
    const ProjectElement *file = load(R"(<solution><configuration Name="Debug" inherited_configurations="Base"/>
        <configuration Name="Base" build_output_directory="solution"/>
        <project><configuration Name="Debug" build_output_directory="debug"/>
        <configuration Name="Base" build_output_directory="base"/>
        <configuration Name="Common" build_output_directory="common"/>
        <folder><file/></folder></project></solution>)");
    EXPECT_EQ(propertyValue(file, outputDirectory, u"Debug"_s), u"debug"_s);
    EXPECT_EQ(propertyValue(file, outputDirectory, u"Base"_s), u"base"_s);
    EXPECT_EQ(propertyValue(file, outputDirectory, u"Release"_s), u"common"_s);
    EXPECT_EQ(propertyValue(file, outputDirectory, u"Common"_s), u"common"_s);
    EXPECT_EQ(sourceOfValue(file->parentElement()->parentElement(), outputDirectory, u"Release"_s), u"Common"_s);
    EXPECT_EQ(sourceOfValue(file, outputDirectory, u"Debug"_s), QString());

    file = load(R"(<solution><configuration Name="Debug" inherited_configurations="Base"/>
        <configuration Name="Base" build_output_directory="inherited"/>
        <project><file><configuration Name="Common" build_output_directory=""/></file></project></solution>)");
    EXPECT_EQ(propertyValue(file, outputDirectory, u"Debug"_s), QString()) << "empty is a value, and nearer";
}

TEST_F(PropertyLookupTest, AddsListsUpFromTheGeneralToTheSpecific)
{
    const ProjectElement *file = load(R"(<solution>
        <configuration Name="Debug" inherited_configurations="Base;Common;Other"/>
        <configuration Name="Common" c_preprocessor_definitions="A"/>
        <project><configuration Name="Debug" c_preprocessor_definitions="B"/>
        <configuration Name="Base" c_preprocessor_definitions="base"/>
        <configuration Name="Other" c_preprocessor_definitions="other"/>
        <file><configuration Name="Common" c_preprocessor_definitions="C"/></file></project></solution>)");
    PropertyTrace trace;
    EXPECT_EQ(propertyValue(file, definitions, u"Debug"_s, &trace), u"A;other;base;B;C"_s);
    ASSERT_EQ(trace.size(), 5u);
    EXPECT_EQ(trace[0].value, u"C"_s);
    EXPECT_EQ(trace[0].element, file);
    EXPECT_EQ(trace[2].configuration, u"Base"_s);
    EXPECT_EQ(propertyValue(file, definitions, u"Common"_s), u"A;C"_s);
}

TEST_F(PropertyLookupTest, FallsBackToTheDefault)
{
    const ProjectElement *file = load(R"(<solution><project><file/></project></solution>)");
    PropertyTrace trace;
    EXPECT_EQ(propertyValue(file, includes, u"Debug"_s, &trace), includes.defaultValue);
    ASSERT_EQ(trace.size(), 1u);
    EXPECT_EQ(trace[0].element, nullptr);
    EXPECT_TRUE(trace[0].configuration.isEmpty());
    EXPECT_EQ(propertyValue(nullptr, outputDirectory, u"Debug"_s), outputDirectory.defaultValue);
    ProjectElement alone("file");
    alone.addConfiguration(u"Common"_s)->setProperty(includes.name, u"x"_s);
    EXPECT_EQ(propertyValue(&alone, includes, u"Debug"_s), u"x"_s) << "a list's default is dropped";
}

TEST_F(PropertyLookupTest, GoesOnInTheImportingSolution)
{
    write("lib.vnProject", R"(<solution><configuration Name="Release" inherited_configurations="Fast"/>
        <project><configuration Name="Fast" c_preprocessor_definitions="fast"/>
        <configuration Name="Base" c_preprocessor_definitions="base"/><file/></project></solution>)");
    const ProjectElement *file = load(R"(<solution><import file_name="lib.vnProject"/>
        <configuration Name="Debug" inherited_configurations="Base" c_preprocessor_definitions="outer"/>
        <configuration Name="Release" inherited_configurations="Base"/></solution>)");
    EXPECT_EQ(propertyValue(file, definitions, u"Debug"_s), u"outer;base"_s);
    EXPECT_EQ(propertyValue(file, definitions, u"Release"_s), u"fast"_s);
    EXPECT_EQ(inheritedConfigurations(file, u"Release"_s), QStringList(u"Fast"_s));
}
