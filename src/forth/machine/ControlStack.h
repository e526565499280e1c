#pragma once

#include "forth/machine/CodeSpace.h"

class PCFA;

// A structure of the definition under construction that is still open: where it starts, and the branches
// that wait for its end.
struct CSEntry
{
    enum Kind { Orig, Dest, ColonSys, DoSys, OfSys, CaseSys };

    Kind kind;
    const Slot *start = nullptr;   // Dest and DoSys: behind BEGIN, DO
    PCFA *word = nullptr;          // ColonSys: what ":" makes
    std::vector<Slot *> pending{}; // operands to set; until then these branches leave the definition

    void resolve(const Slot *target) const
    {
        for (Slot *operand : pending)
            operand->target = target;
    }
};

class ControlStack
{
public:
    static constexpr size_t capacity = 100;

    // When full, gives up what an abandoned definition has left below the present one; otherwise throws -22.
    void push(CSEntry entry);
    // Throws -22 "control stack underflow", or that there is no entry of this kind on top.
    CSEntry pop(CSEntry::Kind kind);
    // The `index`-th DoSys of the present definition, 0 for the innermost; null when there aren't so many.
    CSEntry *loop(int index);
    // Loops of the present definition that are open here.
    int openLoops() const;

private:
    std::vector<CSEntry> m_entries;
};
