#pragma once

#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

// A solution in a folder of its own whose compiler is a script: it copies the source to the object, and fails for
// a source with the word "bad" in its third line, in the way of a compiler.
class SmallSolution
{
public:
    SmallSolution()
    {
        QDir(m_folder.root()).mkpath(u"src"_s);
        m_folder.write("compile.sh", "if grep -q careful \"$1\"; then echo \"$1:1:1: warning: careful\" >&2; fi\n"
                                     "if grep -q bad \"$1\"; then echo \"$1:3:5: error: it is bad\" >&2; exit 7; fi\n"
                                     "cp \"$1\" \"$2\"\n");
        write("main.c", "int main;\n");
        write("src/util.c", "int util;\n");
        write("lib.c", "int lib;\n");
        writeSolution();
    }

    void write(const char *name, const QByteArray &text) { m_folder.write(name, text); }
    void writeSolution()
    {
        m_folder.write("small.vnProject", R"xml(<!DOCTYPE Veldane_Project_File>
<solution Name="small" target="8" version="2">
  <project Name="app">
    <configuration Name="Common" project_type="Externally Built Library" project_dependencies="lib"
      external_c_compile_command="/bin/sh compile.sh $(RelInputPath) $(RelTargetPath)"
      external_archive_command="/bin/cp main.c $(RelTargetPath)"
      external_build_file_name="app.out" build_output_file_name="app.out" c_preprocessor_definitions="ALL" />
    <folder Name="Source Files">
      <configuration Name="Debug" c_preprocessor_definitions="FOLDER" />
      <file file_name="main.c" />
      <file file_name="src/util.c" />
    </folder>
  </project>
  <project Name="lib">
    <configuration Name="Common" project_type="Externally Built Library"
      external_c_compile_command="/bin/sh compile.sh $(RelInputPath) $(RelTargetPath)"
      external_archive_command="/bin/cp lib.c $(RelTargetPath)"
      external_build_file_name="lib.out" build_output_file_name="lib.out" />
    <file file_name="lib.c" />
  </project>
  <configuration Name="Debug" inherited_configurations="Common;Base" />
  <configuration Name="Release" />
  <configuration Name="Base" hidden="Yes" />
</solution>
)xml");
    }

    QString path(const char *name) const { return m_folder.path(name); }
    QByteArray read(const char *name) const { return m_folder.read(name); }
    QString file() const { return path("small.vnProject"); }

    // vnBuild with this solution and these words.
    ProgramResult run(const QStringList &words) const
    {
        return runProgram(u"vnBuild"_s, QStringList{file()} + words, {}, {u"NO_COLOR=1"_s});
    }
    QString line(const QStringList &words) const // what it prints, in one line
    {
        return QString::fromUtf8(run(words).out).trimmed().replace(u'\n', u' ');
    }
    // Of a run that must fail with exit status 1 and one line.
    QString problem(const QStringList &words) const
    {
        const ProgramResult result = run(words);
        EXPECT_EQ(result.status, 1) << words.join(u' ').toStdString();
        EXPECT_EQ(result.error.count('\n'), 1) << result.error.toStdString();
        return QString::fromUtf8(result.error).trimmed().remove(m_folder.root() + u'/');
    }
    // The events of a build with --json.
    std::vector<QJsonObject> events(const QStringList &words) const
    {
        std::vector<QJsonObject> events;
        const QByteArray out = run(QStringList{u"--json"_s, u"-j1"_s} + words).out;
        for (const QByteArray &text : out.trimmed().split('\n')) {
            const QJsonDocument document = QJsonDocument::fromJson(text);
            EXPECT_TRUE(document.isObject()) << text.toStdString();
            events.push_back(document.object());
        }
        return events;
    }

private:
    TemporaryFolder m_folder;
};
