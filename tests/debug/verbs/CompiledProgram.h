#pragma once

#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>
#include <gtest/gtest.h>
#include <map>

using namespace Qt::StringLiterals;

struct Compiler
{
    const char *name;
    QStringList command;
    bool isArm = true;
};

// Each builds a program in one step; what isn't installed is skipped visibly.
inline const std::vector<Compiler> &compilers()
{
    const QStringList arm = {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-m3"_s, u"-mthumb"_s};
    const QStringList clang = {u"clang++-14"_s, u"--target=armv7m-none-eabi"_s, u"-fuse-ld=lld"_s};
    static const std::vector<Compiler> list = {
        {"arm gcc", arm + QStringList{u"-g"_s}},
        {"arm gcc, DWARF 2", arm + QStringList{u"-gdwarf-2"_s, u"-gstrict-dwarf"_s}},
        {"arm gcc, DWARF 4, type units", arm + QStringList{u"-gdwarf-4"_s, u"-fdebug-types-section"_s}},
        {"arm gcc, 64-bit DWARF", arm + QStringList{u"-g"_s, u"-gdwarf64"_s}},
        {"arm gcc, compressed", arm + QStringList{u"-g"_s, u"-gz"_s}},
        {"arm gcc, compressed in the older way", arm + QStringList{u"-g"_s, u"-gz=zlib-gnu"_s}},
        {"arm gcc, big-endian", {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-r4"_s, u"-mbig-endian"_s, u"-g"_s}},
        {"arm gcc, big-endian, DWARF 4",
         {u"arm-none-eabi-g++"_s, u"-mcpu=cortex-r4"_s, u"-mbig-endian"_s, u"-gdwarf-4"_s}},
        {"arm clang", clang + QStringList{u"-g"_s}},
        {"arm clang, DWARF 3", clang + QStringList{u"-gdwarf-3"_s}},
        {"riscv gcc", {u"riscv64-unknown-elf-g++"_s, u"-march=rv32imac"_s, u"-mabi=ilp32"_s, u"-g"_s}, false},
        {"riscv gcc, DWARF 4",
         {u"riscv64-unknown-elf-g++"_s, u"-march=rv32imac"_s, u"-mabi=ilp32"_s, u"-gdwarf-4"_s},
         false},
    };
    return list;
}

// The built program, or an empty path when the compiler isn't there.
inline QString build(const TemporaryFolder &folder, const Compiler &compiler, const char *programText)
{
    const QString tool = QStandardPaths::findExecutable(compiler.command.first());
    if (tool.isEmpty())
        return {};
    const QString source = folder.write("main.cpp", programText);
    const QString output = folder.path("main.elf");
    const ProgramResult result =
        runProgram(tool, QStringList{u"-O0"_s, u"-fno-exceptions"_s, u"-fno-rtti"_s, u"-ffreestanding"_s,
                                     u"-nostdlib"_s, u"-Wl,-e,main"_s, u"-Wl,-Ttext=0x8000"_s} +
                             compiler.command.mid(1) + QStringList{source, u"-o"_s, output});
    EXPECT_EQ(result.status, 0) << compiler.name << '\n' << result.error.toStdString();
    return output;
}

// For INSTANTIATE_TEST_SUITE_P.
inline std::string nameOfCompiler(const testing::TestParamInfo<Compiler> &compiler)
{
    return QString::fromLatin1(compiler.param.name).replace(QRegularExpression(u"\\W+"_s), u"_"_s).toStdString();
}

// Tests of one program as each compiler makes it. Each builds it once.
class CompiledProgramTest : public testing::TestWithParam<Compiler>
{
protected:
    explicit CompiledProgramTest(const char *programText) : m_text(programText) {}

    struct Program
    {
        TemporaryFolder folder;
        QString elf = {};
    };

    void SetUp() override
    {
        static std::map<std::pair<const char *, std::string>, Program> programs;
        const auto [entry, isNew] = programs.try_emplace({m_text, GetParam().name});
        program = &entry->second;
        if (isNew)
            program->elf = build(program->folder, GetParam(), m_text);
        elf = program->elf;
        if (elf.isEmpty())
            GTEST_SKIP() << GetParam().command.first().toStdString() << " isn't installed";
    }

    Program *program;
    QString elf;

private:
    const char *m_text;
};

inline QJsonArray json(const QStringList &arguments, int status = 0)
{
    const ProgramResult result = runProgram(u"vnDump"_s, arguments);
    EXPECT_EQ(result.status, status) << arguments.join(u' ').toStdString() << '\n' << result.error.toStdString();
    EXPECT_TRUE(result.error.isEmpty()) << result.error.toStdString();
    return QJsonDocument::fromJson(result.out).array();
}

inline QString tool(const char *name)
{
    return QStandardPaths::findExecutable(QString::fromLatin1(name));
}

// What gdb prints for each command.
inline QStringList gdbAnswers(const QString &elf, const QStringList &commands)
{
    QStringList arguments = {u"-nx"_s, u"-batch"_s, elf};
    for (const QString &command : commands)
        arguments += {u"-ex"_s, u"echo \\n#\\n"_s, u"-ex"_s, command};
    QStringList answers = QString::fromUtf8(runProgram(tool("gdb-multiarch"), arguments).out).split(u"\n#\n"_s);
    answers.removeFirst();
    answers.resize(commands.size());
    return answers;
}

inline QStringList lines(const ProgramResult &result)
{
    return QString::fromUtf8(result.out).split(u'\n', Qt::SkipEmptyParts);
}
