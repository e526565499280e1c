#pragma once

class CommandArguments;

// FILE EXPRESSION...: values of expressions over the variables of a program as its file has them; see LookupVerbs.h.
int dumpValues(const CommandArguments &arguments);
