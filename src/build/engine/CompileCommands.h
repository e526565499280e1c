#pragma once

#include "build/commands/BuildFlags.h"

#include <QByteArray>

class BuildEngine;
class ProjectElement;

// The compilation database of the C and C++ sources below an element, for clangd and other tools that want to know
// how a file is compiled (JSON Compilation Database Format Specification, of Clang's documentation). Commands are
// those of the compiler itself and not of the driver in front of it. Members of unity folders have entries of their
// own. What isn't compiled is left out. Throws HException for a source whose command can't be made.
QByteArray exportCompileCommands(BuildEngine &engine, const ProjectElement *element, const QString &configuration,
                                 BuildFlags flags = 0);
