#pragma once

#include "base/CommandLine.h"

// The verbs of vnLoad that need no target: info, convert, compare.
std::span<const CommandVerb> loadFileVerbs();
