#include "forth/machine/ForthWords.h"

#include "forth/machine/FSContext.h"

namespace {

struct BuiltInWord
{
    const char *name;
    quint8 flags;
    Op op;
    ForthFunction function;
};
constexpr BuiltInWord builtInWords[] = {
#define FORTH_PRIMITIVE(name, op) {name, pcode::primitiveFlag, Op::op, nullptr},
#define FORTH_WORD(name, function) {name, 0, Op::CallFunction, ForthWords::function},
#define FORTH_IMMEDIATE(name, function) {name, pcode::immediateFlag, Op::CallFunction, ForthWords::function},
#include "forth/machine/ForthWords.def"
#undef FORTH_IMMEDIATE
#undef FORTH_WORD
#undef FORTH_PRIMITIVE
};

} // namespace

void ForthWords::enterAll(FSContext &context)
{
    for (const BuiltInWord &row : builtInWords) {
        auto *word = context.make<PColonChild>(row.name);
        word->setFlags(row.flags);
        if (row.function)
            word->setForm(row.op, {{.function = row.function}});
        else
            word->setForm(row.op, {});
        word->isSealed = true;
        context.enter(word);
    }
    context.makeConstant("FALSE", Cell::ofFlag(false));
    context.makeConstant("TRUE", Cell::ofFlag(true));
}
