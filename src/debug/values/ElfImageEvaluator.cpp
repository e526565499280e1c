#include "debug/values/ElfImageEvaluator.h"

#include "expression/ParserException.h"

using namespace Qt::StringLiterals;

quint32 ElfImageEvaluator::readRegister(quint32 number)
{
    throw ParserException(
        u"it is in register %1 or depends on it, and a file has no registers"_s.arg(registerName(number)));
}

quint32 ElfImageEvaluator::canonicalFrameAddress()
{
    throw ParserException(u"it is on the stack, and a file has none"_s);
}

quint32 ElfImageEvaluator::threadLocalBase()
{
    throw ParserException(u"it is a thread's own, and a file has no threads"_s);
}
