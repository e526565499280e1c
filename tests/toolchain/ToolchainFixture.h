#pragma once

#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QStandardPaths>

// Whether a program is installed; one of LLVM may have its version behind its name.
inline bool hasProgram(const QString &name)
{
    if (!QStandardPaths::findExecutable(name).isEmpty())
        return true;
    for (int version = 13; version <= 22; ++version)
        if (!QStandardPaths::findExecutable(name + QStringLiteral("-%1").arg(version)).isEmpty())
            return true;
    return false;
}

// Skips a test, visibly, where a program that it needs isn't there.
#define NEEDS_PROGRAM(name)                \
    if (!hasProgram(QStringLiteral(name))) \
    GTEST_SKIP() << name << " is not installed"

// Documents of a small device, for tests of placement and links.
inline const char *const smallMap = R"(<!DOCTYPE Board_Memory_Definition_File>
<root name="small">
  <MemorySegment name="FLASH" start="0x08000000" size="0x4000" access="ReadOnly"/>
  <MemorySegment name="RAM" start="0x20000000" size="0x1000"/>
</root>
)";

inline const char *const smallPlacement = R"(<!DOCTYPE Linker_Placement_File>
<root name="small">
  <MemorySegment name="FLASH">
    <ProgramSection name=".vectors" load="Yes" keep="Yes"/>
    <ProgramSection name=".text" load="Yes"/>
    <ProgramSection name=".rodata" load="Yes"/>
    <ProgramSection name=".data" load="Yes" runin=".data_run"/>
  </MemorySegment>
  <MemorySegment name="RAM">
    <ProgramSection name=".data_run" load="No"/>
    <ProgramSection name=".bss" load="No" fill="0"/>
    <ProgramSection name=".stack" load="No" size="0x100"/>
  </MemorySegment>
</root>
)";
