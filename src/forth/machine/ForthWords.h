#pragma once

class FSContext;

// What the built-in words do.
struct ForthWords
{
    // Enters all of them, in the current word list.
    static void enterAll(FSContext &context);

#define FORTH_PRIMITIVE(name, op)
#define FORTH_WORD(name, function) static void function(FSContext &context);
#define FORTH_IMMEDIATE(name, function) static void function(FSContext &context);
#include "forth/machine/ForthWords.def"
#undef FORTH_IMMEDIATE
#undef FORTH_WORD
#undef FORTH_PRIMITIVE

    // Primitives on operands that the inner interpreter leaves to them.
    static void plus(FSContext &context);
    static void minus(FSContext &context);
    static void onePlus(FSContext &context);
    static void oneMinus(FSContext &context);
    static void slash(FSContext &context);
    static void mod(FSContext &context);
    static void bitAnd(FSContext &context);
    static void bitOr(FSContext &context);
    static void bitXor(FSContext &context);
    static void less(FSContext &context);
    static void greater(FSContext &context);
    static void greaterEqual(FSContext &context);
    static void equals(FSContext &context);
    static void notEquals(FSContext &context);
    static void fetch(FSContext &context);
    static void store(FSContext &context);
    static void plusStore(FSContext &context);
};
