#pragma once

#include "script/engine/ESCode.h"

enum class ESInstructionKind : quint16 {
#define ES_INSTRUCTION(name) name,
#include "script/engine/ESInstructions.def"
#undef ES_INSTRUCTION
};

// What a place in the code remembers about a name: where it was found in objects of this shape.
struct ESPropertyCache
{
    ESSymbol *name = nullptr;
    ESShape *shape = nullptr;   // of the object itself; null: nothing is known
    ESObject *holder = nullptr; // a prototype; null: the object itself
    ESShape *next = nullptr;    // of a put that adds the property: the shape behind it
    quint32 slot = 0;
    quint32 epoch = 0;      // of the holder
    quint32 count = 0;      // of a call's arguments
    quint32 depth = 0;      // of a name: scope nodes before the one that has it
    ESShape *outer[2] = {}; // their shapes
};

struct ESInstruction
{
    qint32 handler; // from the interpreter's first one; before the program is linked, the kind
    quint16 a, b;
    union {
        struct
        {
            quint16 c, d;
            qint32 target; // of jumps: in instructions, from this one
        };
        double number;
        ESPropertyCache *cache;
        ESSymbol *symbol;
    };
};

// The decoded form of a code object.
struct ESProgram
{
    std::vector<ESInstruction> instructions;
    std::vector<quint32> offsets; // of each in the bytecode
    std::vector<ESValue> constants;
    quint32 parameterCount = 0, localCount = 0;
    quint32 registerCount = 0;
    bool makesArguments = false;
    const ESCode *code = nullptr;
    ESShape *activationShape = nullptr; // null: no closure and no `with` sees its variables, they are registers
};

// Decodes `code`; throws ESFatalError if it needs too many registers. With `stepping` each instruction of the
// bytecode has a Step before it.
std::unique_ptr<ESProgram> esTranslate(ESContext &context, const ESCode &code, bool stepping);
