#pragma once

class CommandArguments;

// Verbs of vnDump about types and variables; for their arguments, output, status and errors see LookupVerbs.h.
int dumpTypes(const CommandArguments &arguments);     // FILE NAME...
int dumpVariables(const CommandArguments &arguments); // FILE ADDRESS
