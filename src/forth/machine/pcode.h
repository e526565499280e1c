#pragma once

#include "forth/machine/CodeSpace.h"
#include "forth/machine/ForthMessages.h"

#include <string>

class FSContext;
class MethodWrapper;
class ScriptEngine;
class WordList;

// Whatever a name or a code address stands for. A word has a form, the one instruction that performs it: a
// primitive its own, a definition a call, a constant a literal. Compiling the word appends its form.
//
// All of them belong to the context in which they were made and live as long as it.
class pcode
{
public:
    static constexpr quint8 primitiveFlag = 1, immediateFlag = 2;

    explicit pcode(std::string_view name) : m_name(name) {}
    pcode(const pcode &) = delete;
    pcode &operator=(const pcode &) = delete;
    virtual ~pcode() = default;

    virtual void execute(FSContext *context);
    // The memory behind the word; a word that can't have one throws.
    virtual PMemory *pfa() const;
    virtual pcode *codeAddress() { return this; }
    // What TO runs or compiles; throws -268 for most words.
    virtual pcode *toWord() const;
    // Appends the word to the definition under construction.
    virtual void compile(FSContext &context);

    const std::string &name() const { return m_name; } // upper-case ASCII, empty for hidden words
    QString displayName() const { return QString::fromStdString(m_name); }
    bool isImmediate() const { return m_flags & immediateFlag; }
    const Slot *form() const { return m_form.data(); }
    Op formOp() const { return m_formOp; }
    const Slot &formOperand() const { return m_form[1]; }

    void setFlags(quint8 flags) { m_flags = flags; }
    void setForm(Op op, std::initializer_list<Slot> operands);

    ForthLocation location;             // source empty: built in
    const WordList *wordList = nullptr; // null: not entered

private:
    std::string m_name;
    std::array<Slot, 4> m_form; // and an Exit
    Op m_formOp = Op::Stop;
    quint8 m_flags = 0;
};

// A node that is a place: the base of memories and words.
class PLabel : public pcode
{
public:
    using pcode::pcode;
};

// Cells in the data space, growing at the end. An address is a memory and an index, so nothing reaches outside.
class PMemory : public PLabel
{
public:
    using PLabel::PLabel;
    ~PMemory() override;

    // Appends `count` cells holding 0, or takes them away when negative. Throws -9 when there are fewer.
    void allot(CodeSpace &space, qint64 count);
    Cell &fetchable(qint64 index)
    {
        if (quint64(index) >= quint64(used))
            outside("cell fetch outside allotted region");
        return cells[index];
    }
    Cell &storable(qint64 index)
    {
        if (quint64(index) >= quint64(used))
            outside("cell store outside allotted region");
        return cells[index];
    }

    Cell *cells = nullptr;
    qint64 used = 0;

private:
    [[noreturn]] static void outside(const char *message);

    qint64 m_capacity = 0;
};

class PIMemory final : public PMemory // initialised data: CREATE, VALUE, HERE without either
{
public:
    using PMemory::PMemory;
};
class PUMemory final : public PMemory // VARIABLE
{
public:
    using PMemory::PMemory;
};
class PHMemory final : public PMemory // the host's
{
public:
    using PMemory::PMemory;
};

// A word with a body of instructions.
class PCFA : public PLabel
{
public:
    PCFA(std::string_view name, const Slot *body);
    explicit PCFA(std::string_view name) : PLabel(name) {}

    PMemory *pfa() const override;
    pcode *toWord() const override { return m_toWord ? m_toWord : PLabel::toWord(); }

    const Slot *body = nullptr; // first instruction
    bool isSealed = false;
    PMemory *memory = nullptr;

protected:
    pcode *m_toWord = nullptr;
};

class PColonChild : public PCFA // made by ":" and CREATE, and the built-in words
{
public:
    using PCFA::PCFA;
};
class PColonNonameChild final : public PColonChild
{
public:
    using PColonChild::PColonChild;
};
class PDoesChild final : public PCFA // what stands behind DOES>
{
public:
    using PCFA::PCFA;
};
class PPrivateCFA final : public PCFA // a hidden helper: what TO runs for a value
{
public:
    PPrivateCFA(Op op, std::initializer_list<Slot> operands) : PCFA(std::string_view()) { setForm(op, operands); }
};

class PConstantChild final : public PCFA
{
public:
    // The cell is one of the context's literals.
    PConstantChild(std::string_view name, Cell *value);
};

class PValueChild final : public PCFA
{
public:
    // `cells` holds one cell, the value.
    PValueChild(std::string_view name, PMemory *cells);

private:
    PPrivateCFA m_store;
};

// A local of the definition under construction. It can be compiled there; executing it throws.
class PLocalChild final : public PCFA
{
public:
    PLocalChild(std::string_view name, qint64 index);

    void execute(FSContext *context) override;
    void compile(FSContext &context) override;
    qint64 index() const { return m_index; }

private:
    qint64 m_index;
    PPrivateCFA m_store;
};

class FVocabularyChild final : public pcode
{
public:
    FVocabularyChild(std::string_view name, WordList *words);
    void execute(FSContext *context) override;

private:
    WordList *m_words;
};

// A word that runs an operation of the host.
class Unwrapper final : public PCFA
{
public:
    Unwrapper(std::string_view name, MethodWrapper *method, ScriptEngine *engine);
    void execute(FSContext *context) override;

private:
    MethodWrapper *m_method;
    ScriptEngine *m_engine;
};
