#pragma once

class CommandArguments;

// FILE [--function NAME | --range A-B] [--source]; for output, status and errors see LookupVerbs.h. Throws HException
// also when LLVM's library is missing.
int dumpCode(const CommandArguments &arguments);
