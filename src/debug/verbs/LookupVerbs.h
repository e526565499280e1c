#pragma once

class CommandArguments;

// Verbs of vnDump that look things up by address, by source line and by symbol. The first argument is the ELF
// file; results go to standard output, as text or (--json) as one document. Each gives 1 when something that
// was asked for isn't there. They throw HException for a file that can't be read.
int dumpLines(const CommandArguments &arguments);     // FILE ADDRESS...
int dumpAddresses(const CommandArguments &arguments); // FILE SOURCE:LINE...
int dumpFrames(const CommandArguments &arguments);    // FILE ADDRESS...  or  FILE --stack-usage [ADDRESS...]
int dumpSymbols(const CommandArguments &arguments);   // FILE NAME|ADDRESS...

// FILE: the full text dump, ELF tables first, then every debug section.
int dumpText(const CommandArguments &arguments);
