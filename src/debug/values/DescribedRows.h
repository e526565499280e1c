#pragma once

#include "debug/values/DisplayTree.h"
#include "debug/values/TypeDescriptions.h"

// Shows an object by the description of its type (TypeDescriptionFile). The element's tag says how:
//
//     Type    Type                              as the type of that name
//     String  Data, Length, Condition, Else     the text at the address Data, or Else where Condition is false
//     Expr    Expr                              the value of the expression
//     List    Length, Condition, Head, Data, Next
//     RBTree  the same with Left, Right, Parent for Next
//     Deque   List with ChunkSize, ChunkMap, ChunkData, ChunkNext
//     Tuple   every attribute but Name: a row with its name
class DescribedRows
{
public:
    DescribedRows(DisplayTree &tree, DwarfDebuggingInformationEntry type, const QStringList &arguments, int depth)
        : m_tree(tree), m_evaluator(tree.m_evaluator), m_bindings{type, arguments, {}}, m_depth(depth)
    {}

    // False, with nothing shown, when the description doesn't fit the object.
    bool apply(const XMLElement &element, const QString &name, const QString &expression, const VarInfo &place);

private:
    // What the attributes of a container are; null for those that it doesn't have.
    struct Walk
    {
        Expression *length, *condition, *head, *data, *next;
        Expression *left, *right, *parent;
        Expression *chunkSize, *chunkMap, *chunkData, *chunkNext;
        quint32 map = 0, chunk = 0, sizeOfChunk = 0; // of a deque, as far as it has been walked
    };

    QString text(const char *name);
    Expression *attribute(const char *name);
    quint64 number(Expression &expression, quint32 current);
    bool holds(Expression &expression, quint32 current);
    void show(const QString &name, Expression &expression, quint32 current);

    bool applyType(const QString &name, const QString &expression, const VarInfo &place);
    void applyString(const DisplayTree::Row &row);
    void applyExpr(const QString &name);
    void applyTuple(const DisplayTree::Row &row, const VarInfo &place);
    void applyWalk(const DisplayTree::Row &row);
    void walk(Walk &walk, quint32 current, quint64 limit);
    quint32 nextOf(Walk &walk, quint32 current);
    quint32 nextInTree(Walk &walk, quint32 current);
    bool isNode(quint32 address);

    DisplayTree &m_tree;
    DwarfExpressionEvaluator &m_evaluator;
    const XMLElement *m_element = nullptr;
    TypeBindings m_bindings;
    quint32 m_head = 0; // of the object
    int m_depth;
};
