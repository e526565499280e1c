#pragma once

#include "expression/ParserException.h"

// How deep an expression may be nested, in its text and in its tree: deep enough for any that is written by
// hand or by a program, and small enough for walks that recurse.
constexpr quint32 maximumNesting = 1000;

// The depth of what stands above children of that depth. Throws when it is beyond the limit.
inline quint32 depthAbove(quint32 childDepth)
{
    if (childDepth >= maximumNesting)
        throw ParserException(QString::fromLatin1("expression is nested too deeply"));
    return childDepth + 1;
}
