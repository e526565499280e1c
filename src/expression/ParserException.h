#pragma once

#include "base/HException.h"

// Every failure of lexing, parsing and evaluating an expression. Callers read the message, so it is never
// translated.
class ParserException : public HException
{
public:
    using HException::HException;
};
