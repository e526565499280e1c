#pragma once

#include "script/engine/ESCode.h"
#include "script/engine/ESLexer.h"

#include <memory_resource>
#include <unordered_map>

struct ESFunctionNode;

// A node of the tree: `kind` is a token, its operands by kind:
//   operators            a, b in source order       tokCall, tokNewCall  a callee, b first argument (by next)
//   '.'                  a object, symbol           '['                  a object, b key
//   '?'                  a, b, c                    tokArray             a first element (by next)
//   tokObject            a first pair: symbol, a    tokFunction          function
//   statements           as the parser's rules tell
struct ESNode
{
    quint32 kind;
    quint32 line;
    bool hasEffect = false; // something happens even if the value isn't wanted
    double number = 0;
    ESSymbol *symbol = nullptr;
    ESNode *a = nullptr, *b = nullptr, *c = nullptr, *d = nullptr;
    ESNode *next = nullptr;
    ESFunctionNode *function = nullptr;
    quint32 breakChain = 0, continueChain = 0; // of a statement, while it is generated
};

// A function, or the program, with its variables and its place among the others.
struct ESFunctionNode
{
    ESFunctionNode *enclosing = nullptr; // null: the program
    std::unique_ptr<ESCode> code;
    quint32 index = 0;                              // in the context's table
    ESNode *body = nullptr;                         // tokList
    bool insideScope = false;                       // made in the body of a `with` or `catch`
    std::unordered_map<ESSymbol *, quint32> places; // parameters, and locals plus localPlace
    static constexpr quint32 localPlace = 0x80000000;
};

// All that a compilation makes and drops.
struct ESTree
{
    std::pmr::monotonic_buffer_resource memory{64 * 1024};
    std::vector<std::unique_ptr<ESFunctionNode>> functions; // the inner ones before those around them
};
