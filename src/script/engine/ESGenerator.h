#pragma once

#include "script/engine/ESNode.h"

class ESContext;

// Makes the bytecode of one function from its tree. Throws ESSyntaxError, or ESFatalError for what the
// bytecode can't hold. Names, instructions and statements are in ESGenerator.cpp, expressions in
// ESGeneratorExpressions.cpp.
class ESGenerator
{
public:
    ESGenerator(ESContext &context, ESFunctionNode &function, QStringList &warnings);

    void generate();

private:
    static constexpr quint32 endOfChain = 0xFFFF;
    enum class Place { Global, Parameter, Local, Name };
    struct Resolved
    {
        Place place;
        quint32 index; // of a name: its operand
    };
    // What a jump out of a statement has to undo or may aim at, innermost last.
    struct Enclosing
    {
        enum Kind { Loop, Switch, Label, Scope, Handler, HandlerWithFinally, FinallyBody } kind;
        ESNode *node;
        quint32 *finallyChain = nullptr;
    };

    void generateOnce();
    Resolved resolve(ESSymbol *name);
    void markChain();

    void statements(ESNode *list, bool needed);
    void statement(ESNode *node, bool needed);
    void loop(ESNode *node);
    void forIn(ESNode *node);
    void switchStatement(ESNode *node);
    void tryStatement(ESNode *node);
    void jumpOut(ESNode *node);
    void returnStatement(ESNode *node);
    void leave(const Enclosing &enclosing, quint32 line);

    void expression(ESNode *node, bool needed);
    void operatorExpression(ESNode *node);
    void binary(ESNode *node);
    void assignment(ESNode *node, bool needed);
    void compoundAssignment(ESNode *node, bool needed);
    void increment(ESNode *node, bool needed);
    void call(ESNode *node, bool needed);
    void newCall(ESNode *node);
    void deleteExpression(ESNode *node, bool needed);
    void arrayLiteral(ESNode *node);
    void key(ESNode *node); // of "." or "["
    void store(ESNode *target);
    void fetch(ESSymbol *name, quint32 line);
    void fetch(const Resolved &place, quint32 line);
    void put(ESSymbol *name, quint32 line);

    using Op = ESOpcode;
    void emit(Op op, quint32 line);
    void emit(Op op, quint32 operand, quint32 line);
    void emit(Op op, quint32 operand, quint32 count, quint32 line);
    void emitPlaced(const Op (&forms)[6], const Resolved &place, quint32 line, qint64 count = -1);
    void emitNumber(double number, quint32 line);
    void jump(Op op, quint32 &chain, quint32 line);
    void jumpBack(Op op, quint32 target, quint32 line);
    void jumpIf(ESNode *condition, quint32 target);
    void patch(quint32 chain, quint32 target);
    void patch(quint32 chain) { patch(chain, here()); }
    quint32 here() const { return quint32(m_code.bytes.size()); }
    quint32 nameOperand(ESSymbol *name);
    void operand(quint32 value);

    ESContext &m_context;
    ESFunctionNode &m_function;
    ESCode &m_code;
    QStringList &m_warnings;
    std::vector<Enclosing> m_enclosing;
    std::unordered_map<ESSymbol *, quint32> m_names;
    std::unordered_map<quint64, quint32> m_constants;
    ESSymbol *m_result = nullptr; // holds a return value while finally blocks run
    int m_scopes = 0;
};
