#pragma once

#include "script/engine/ESProgram.h"

#include <optional>

class ESContext;

// Walks the bytecode once with a stack of entries in place of values. At each place where several ways meet
// all entries are in the registers of their depth.
class ESTranslator
{
public:
    ESTranslator(ESContext &context, const ESCode &code, bool stepping)
        : m_context(context), m_code(code), m_bytes(code.bytes), m_stepping(stepping)
    {}

    std::unique_ptr<ESProgram> translate();

private:
    using Kind = ESInstructionKind;
    // What the bytecode has on its stack: a register, or something that needs none until it is stored.
    struct Entry
    {
        enum Kind { Register, Number, Constant, This } kind;
        quint32 index = 0; // of a register or constant
        double number = 0;
        qint32 object = -1; // the NewObject instruction that made it
    };

    struct Jump
    {
        enum Sense { Always, IfTrue, IfFalse } sense;
        quint32 target;
    };
    struct Test
    {
        quint32 at, target;
        bool ifTrue;
    };
    quint32 operandAt(quint32 at) const { return quint32(m_bytes[at] << 8 | m_bytes[at + 1]); }
    quint32 lengthAt(quint32 at) const { return 1 + 2 * quint32(qstrlen(esOperands(m_bytes[at]))); }
    void findLeaders();
    Jump thread(quint32 at) const;
    Jump jumpAt(quint32 at) const;
    std::optional<Test> testAfter(quint32 at) const;
    bool isDropped(quint32 next) const;
    void instruction(quint32 at);

    quint32 emit(Kind kind, quint32 a = 0, quint32 b = 0);
    ESInstruction &last() { return m_program->instructions.back(); }
    void emitResult(Kind kind, quint32 b, quint32 c); // pushes what it gives
    void jumpTo(quint32 target);
    void shortJumpTo(quint32 target);

    quint32 depth() const { return quint32(m_stack.size()); }
    quint32 registerOf(quint32 position);
    Entry pop();
    void push(const Entry &entry) { m_stack.push_back(entry); }
    void pushRegister(quint32 index) { m_stack.push_back({Entry::Register, index}); }
    void pushConstant(const ESValue &value);
    quint32 toRegister(const Entry &entry, quint32 position);
    quint32 popRegister();
    void settle(quint32 position); // into the register of its depth
    void settleAll();
    void settleCopiesOf(quint32 index);
    bool isOnStack(quint32 index) const;
    void store(quint32 index, const Entry &value);

    void getVariable(bool isParameter, quint32 index);
    void putVariable(bool isParameter, quint32 index);
    void step(ESOpcode op, quint32 index);
    void binary(Kind rr, std::optional<Kind> rk, std::optional<Kind> kr);
    void memberBinary(Kind rr, std::optional<Kind> rk);
    void memberStep(bool isPrefix, double amount);
    void nameStep(bool isPrefix, double amount);
    void compare(ESOpcode op, quint32 at);
    void compareCase(quint32 at);
    void jumpOn(const Test &test);
    void getProperty(const Entry &object, const Entry &key, quint32 position, quint32 to);
    void putProperty(quint32 value, const Entry &object, const Entry &key, quint32 position);
    Entry fixedKey(const Entry &key, quint32 position);
    Entry fixedObject(const Entry &object, quint32 position);
    static Entry indexKey(ESSymbol *name, const Entry &otherwise);
    void call(Kind kind, quint32 count, quint32 callee);
    ESPropertyCache *cache(ESSymbol *name, quint32 count = 0);
    ESSymbol *constantName(const Entry &entry) const; // null if it is none
    bool isNamed(const Entry &key) const { return constantName(key); }

    ESContext &m_context;
    const ESCode &m_code;
    const std::vector<quint8> &m_bytes;
    const bool m_stepping;
    std::unique_ptr<ESProgram> m_program = std::make_unique<ESProgram>();
    std::vector<Entry> m_stack;
    enum Leader : quint8 { isLeader = 1, isNextTarget = 2 };
    std::vector<quint8> m_leaders; // by offset
    std::vector<qint32> m_depths;  // by offset, -1 unknown
    std::vector<qint32> m_places;  // by offset: the instruction
    struct Fixup
    {
        quint32 instruction, target;
        bool isShort;
    };
    std::vector<Fixup> m_fixups;
    quint32 m_offset = 0, m_skipTo = 0, m_wide = 0;
    qint32 m_producer = -1; // the instruction that made the entry on the top and may write elsewhere
    quint32 m_firstTemporary = 0, m_mostRegisters = 0;
    bool m_dead = false; // no way leads here
};
