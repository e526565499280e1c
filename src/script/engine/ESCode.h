#pragma once

#include "script/engine/ESObject.h"

#include <memory>
#include <vector>

struct ESProgram;

enum class ESOpcode : quint8 {
#define SCRIPT_OP(number, name, operands) op_##name = number,
#include "script/engine/ScriptOpcodes.def"
#undef SCRIPT_OP
};

// One evaluated text, shared by the code made from it.
struct ESSource
{
    QString fileName, text;

    QString line(int number) const; // counted from 1; null when there is none
};

// The compiled form of a function or program: bytecode for a machine with a value stack. The interpreter runs
// what it decodes from this on first use.
class ESCode
{
public:
    struct Name
    {
        ESSymbol *symbol;
        quint32 flags;
    };
    struct LineChange
    {
        quint32 offset; // from this byte on
        quint32 line;
    };

    ESCode();
    ~ESCode();

    std::vector<quint8> bytes;
    std::vector<LineChange> lines;
    std::vector<double> constants;   // what NUM refers to
    std::vector<ESSymbol *> symbols; // what operands that are names refer to
    std::vector<Name> parameters, locals;
    quint32 declaredParameters = 0; // without `arguments`, which stands behind them where it is used
    bool usesArguments = false;     // the caller stores the arguments object in the parameter `arguments`
    bool needsActivation = false;   // its variables can be reached by name
    bool isProgram = false;
    ESSymbol *name = nullptr; // null: it has none
    std::shared_ptr<const ESSource> source;

    std::unique_ptr<ESProgram> program; // the decoded form

    quint32 lineAt(quint32 offset) const;
    // One instruction a line: offset, name, operands.
    QString listing(const ESObject *global) const;
};

// The operands of an opcode as ScriptOpcodes.def has them; null for a number that is no opcode.
const char *esOperands(quint8 opcode);
