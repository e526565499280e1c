#pragma once

#include "base/CommandLine.h"

// The verbs of vnPack that work on one archive: create, list, extract, cat, test.
std::span<const CommandVerb> archiveVerbs();
