#pragma once

#include "debug/values/DwarfExpressionEvaluator.h"

// The bytes of a place as the block on top, for as long as this lives.
class PushedBlock
{
public:
    PushedBlock(DwarfExpressionEvaluator &evaluator, const VarInfo &place, bool lazy = false) : m_evaluator(evaluator)
    {
        evaluator.pushBlockOf(place, lazy);
    }
    ~PushedBlock() { m_evaluator.popBlock(); }
    PushedBlock(const PushedBlock &) = delete;
    PushedBlock &operator=(const PushedBlock &) = delete;

private:
    DwarfExpressionEvaluator &m_evaluator;
};
