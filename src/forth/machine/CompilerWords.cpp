// Words that define words and compile structures.
#include "forth/machine/FSContext.h"
#include "forth/machine/ForthWords.h"

using namespace Qt::StringLiterals;

namespace {

void resolveHere(FSContext &context, const CSEntry &entry)
{
    entry.resolve(context.here());
}

void requireLoops(FSContext &context, int count, const char *message)
{
    context.openDefinition();
    if (!context.controlStack.loop(count - 1))
        throw ForthException(ForthError::ControlMismatch, QString::fromLatin1(message));
}

void requireCompiling(FSContext &context)
{
    if (!context.isCompiling())
        throw ForthException(ForthError::CompileOnly);
}

void endLoop(FSContext &context, Op op)
{
    context.openDefinition();
    const CSEntry entry = context.controlStack.pop(CSEntry::DoSys);
    context.append(op, {{.target = entry.start}});
    resolveHere(context, entry);
}

void startColon(FSContext &context, PCFA *word)
{
    context.controlStack.push({.kind = CSEntry::ColonSys, .word = word});
    context.setCompiling(true);
}

// The name that follows, as a copy: other words use the buffer.
std::string parseName(FSContext &context)
{
    return std::string(context.parseWord());
}

// Skips to [THEN], or to [ELSE] where `stopsAtElse`, over whatever is nested.
void skipConditional(FSContext &context, bool stopsAtElse)
{
    for (int level = 0;;) {
        const std::string_view word = context.parseWord();
        if (word.empty()) {
            if (!context.refill())
                throw ForthException(ForthError::Abort, u"[IF] has no matching [THEN]"_s);
        } else if (word == "\\") {
            context.skipLine();
        } else if (word == "[IF]") {
            ++level;
        } else if (word == "[ELSE]" && level == 0 && stopsAtElse) {
            return;
        } else if (word == "[THEN]" && level-- == 0) {
            return;
        }
    }
}

void storeTo(FSContext &context, PLocalChild *local)
{
    local->toWord()->compile(context);
}

template <typename Declare>
void declareUpToBar(FSContext &context, Declare declare)
{
    context.openDefinition();
    for (;;) {
        const std::string name = parseName(context);
        if (name == "|")
            return;
        if (!name.empty())
            declare(name);
        else if (!context.refill())
            throw ForthException(ForthError::UnexpectedEnd);
    }
}

} // namespace

// Branches. What is open stands on the control-flow stack.

void ForthWords::ifWord(FSContext &context)
{
    context.openDefinition();
    context.controlStack.push({.kind = CSEntry::Orig, .pending = {context.appendBranch(Op::ZBranch)}});
}

void ForthWords::ahead(FSContext &context)
{
    context.openDefinition();
    context.controlStack.push({.kind = CSEntry::Orig, .pending = {context.appendBranch(Op::Branch)}});
}

void ForthWords::elseWord(FSContext &context)
{
    context.openDefinition();
    const CSEntry condition = context.controlStack.pop(CSEntry::Orig);
    ahead(context);
    resolveHere(context, condition);
}

void ForthWords::then(FSContext &context)
{
    context.openDefinition();
    resolveHere(context, context.controlStack.pop(CSEntry::Orig));
}

void ForthWords::begin(FSContext &context)
{
    context.openDefinition();
    context.controlStack.push({.kind = CSEntry::Dest, .start = context.here()});
}

void ForthWords::again(FSContext &context)
{
    context.openDefinition();
    context.append(Op::Again, {{.target = context.controlStack.pop(CSEntry::Dest).start}});
}

void ForthWords::until(FSContext &context)
{
    context.openDefinition();
    context.append(Op::Until, {{.target = context.controlStack.pop(CSEntry::Dest).start}});
}

void ForthWords::whileWord(FSContext &context)
{
    context.openDefinition();
    CSEntry start = context.controlStack.pop(CSEntry::Dest);
    ifWord(context);
    context.controlStack.push(std::move(start));
}

void ForthWords::repeat(FSContext &context)
{
    again(context);
    then(context);
}

void ForthWords::beginDo(FSContext &context)
{
    context.append(Op::Do);
    context.controlStack.push({.kind = CSEntry::DoSys, .start = context.here()});
}

void ForthWords::questionDo(FSContext &context)
{
    Slot *leave = context.appendBranch(Op::QuestionDo);
    context.controlStack.push({.kind = CSEntry::DoSys, .start = context.here(), .pending = {leave}});
}

void ForthWords::loop(FSContext &context)
{
    endLoop(context, Op::Loop);
}

void ForthWords::plusLoop(FSContext &context)
{
    endLoop(context, Op::PlusLoop);
}

void ForthWords::leave(FSContext &context)
{
    requireLoops(context, 1, "LEAVE not in DO-LOOP");
    context.controlStack.loop(0)->pending.push_back(context.appendBranch(Op::Leave));
}

void ForthWords::i(FSContext &context)
{
    requireLoops(context, 1, "I not in DO-LOOP");
    context.append(Op::I);
}

void ForthWords::j(FSContext &context)
{
    requireLoops(context, 2, "J not in DO-LOOP");
    context.append(Op::J);
}

void ForthWords::caseWord(FSContext &context)
{
    context.openDefinition();
    context.controlStack.push({.kind = CSEntry::CaseSys});
}

void ForthWords::of(FSContext &context)
{
    context.openDefinition();
    CSEntry ends = context.controlStack.pop(CSEntry::CaseSys);
    context.controlStack.push(std::move(ends));
    context.controlStack.push({.kind = CSEntry::OfSys, .pending = {context.appendBranch(Op::OfBranch)}});
}

void ForthWords::endOf(FSContext &context)
{
    context.openDefinition();
    const CSEntry test = context.controlStack.pop(CSEntry::OfSys);
    CSEntry ends = context.controlStack.pop(CSEntry::CaseSys);
    ends.pending.push_back(context.appendBranch(Op::Branch));
    resolveHere(context, test);
    context.controlStack.push(std::move(ends));
}

void ForthWords::endCase(FSContext &context)
{
    context.openDefinition();
    const CSEntry ends = context.controlStack.pop(CSEntry::CaseSys);
    context.append(Op::Drop);
    resolveHere(context, ends);
}

void ForthWords::exit(FSContext &context)
{
    context.openDefinition();
    for (int loops = context.controlStack.openLoops(); loops > 0; --loops)
        context.append(Op::Unloop);
    context.append(Op::Exit);
}

void ForthWords::recurse(FSContext &context)
{
    context.openDefinition()->compile(context);
}

// Definitions

void ForthWords::colon(FSContext &context)
{
    startColon(context, context.beginDefinition<PColonChild>(parseName(context)));
}

void ForthWords::colonNoName(FSContext &context)
{
    startColon(context, context.beginDefinition<PColonNonameChild>(std::string_view()));
}

void ForthWords::semicolon(FSContext &context)
{
    if (!context.definition())
        throw ForthException(ForthError::NoDefinition);
    PCFA *word = context.controlStack.pop(CSEntry::ColonSys).word;
    context.sealDefinition();
    context.continueDefinition(word); // behind DOES> it was what follows that
    if (dynamic_cast<PColonNonameChild *>(word))
        context.push(Cell::ofCode(word));
    else if (!word->wordList)
        context.enter(word);
    context.setCompiling(false);
}

void ForthWords::create(FSContext &context)
{
    auto *word = context.beginDefinition<PColonChild>(parseName(context));
    word->memory = context.makeMemory<PIMemory>(word->name());
    context.setCurrentMemory(word->memory);
    context.appendLiteral(Cell::ofAddress(word->memory, 0));
    context.enter(word);
}

void ForthWords::does(FSContext &context)
{
    requireCompiling(context);
    PCFA *defining = context.openDefinition();
    Slot *postponed = context.append(Op::PostponeRun, {{.word = defining}});
    PCFA *behavior = context.beginDefinition<PDoesChild>(std::string_view());
    postponed->word = behavior;
    if (!defining->wordList)
        context.enter(defining);
}

void ForthWords::variable(FSContext &context)
{
    auto *word = context.beginDefinition<PColonChild>(parseName(context));
    word->memory = context.makeMemory<PUMemory>(word->name());
    context.allot(word->memory, 1);
    context.setCurrentMemory(word->memory);
    context.appendLiteral(Cell::ofAddress(word->memory, 0));
    context.sealDefinition();
    context.enter(word);
}

void ForthWords::constant(FSContext &context)
{
    const Cell value = context.pop();
    context.makeConstant(parseName(context), value);
}

void ForthWords::value(FSContext &context)
{
    const Cell value = context.pop();
    const std::string name = parseName(context);
    auto *memory = context.makeMemory<PIMemory>(name);
    context.allot(memory, 1);
    memory->cells[0] = value;
    context.enter(context.make<PValueChild>(name, memory));
}

void ForthWords::to(FSContext &context)
{
    pcode *word = context.findNext()->toWord();
    if (context.isCompiling())
        word->compile(context);
    else
        word->execute(&context);
}

void ForthWords::immediate(FSContext &context)
{
    if (!context.definition())
        throw ForthException(ForthError::NoDefinition);
    context.definition()->setFlags(pcode::immediateFlag);
}

// Compiling

void ForthWords::state(FSContext &context)
{
    context.pushInteger(context.isCompiling());
}

void ForthWords::leftBracket(FSContext &context)
{
    context.setCompiling(false);
}

void ForthWords::rightBracket(FSContext &context)
{
    context.setCompiling(true);
}

void ForthWords::literal(FSContext &context)
{
    context.openDefinition();
    context.appendLiteral(context.pop());
}

void ForthWords::postpone(FSContext &context)
{
    pcode *word = context.findNext();
    context.append(Op::PostponeRun, {{.word = word}});
}

void ForthWords::bracketCompile(FSContext &context)
{
    context.findNext()->compile(context);
}

void ForthWords::compileComma(FSContext &context)
{
    context.popCode()->compile(context);
}

void ForthWords::tick(FSContext &context)
{
    context.push(Cell::ofCode(context.findNext()->codeAddress()));
}

void ForthWords::bracketTick(FSContext &context)
{
    requireCompiling(context);
    context.appendLiteral(Cell::ofCode(context.findNext()->codeAddress()));
}

void ForthWords::bracketDefined(FSContext &context)
{
    context.pushFlag(context.find(context.parseWord()));
}

void ForthWords::bracketUndefined(FSContext &context)
{
    context.pushFlag(!context.find(context.parseWord()));
}

void ForthWords::bracketIf(FSContext &context)
{
    if (context.pop().isZero())
        skipConditional(context, true);
}

void ForthWords::bracketElse(FSContext &context)
{
    skipConditional(context, false);
}

void ForthWords::bracketThen(FSContext &) {}

// Locals

void ForthWords::parenLocalParen(FSContext &context)
{
    context.openDefinition();
    storeTo(context, context.declareLocal(context.popString().toUpper().toStdString()));
}

void ForthWords::parenTempParen(FSContext &context)
{
    parenLocalParen(context);
}

void ForthWords::localsBar(FSContext &context)
{
    declareUpToBar(context, [&](const std::string &name) { storeTo(context, context.declareLocal(name)); });
}

void ForthWords::tempsBar(FSContext &context)
{
    declareUpToBar(context, [&](const std::string &name) { context.declareLocal(name); });
}
