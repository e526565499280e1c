#pragma once

#include "base/CommandLine.h"

// The verbs of vnXml.
std::span<const CommandVerb> xmlVerbs();
