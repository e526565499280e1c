#pragma once

#include "base/CommandLine.h"

// The command line of vnBuild: one row, since it has no verbs. Exit status 0: done, and with --check up to date;
// 1: failed; 130: interrupted.
std::span<const CommandVerb> buildProgram();
