#include "script/engine/ESGenerator.h"

#include "script/engine/ESContext.h"
#include "script/engine/ESParser.h"

#include <bit>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

using enum ESOpcode;

// Forms by place: global, parameter, local, parameter of the activation, local of the activation, name.
constexpr ESOpcode getForms[6] = {op_GETG, op_GETA, op_GETL, op_GETAM, op_GETLM, op_GETW};
constexpr ESOpcode putForms[6] = {op_PUTG, op_PUTA, op_PUTL, op_PUTAM, op_PUTLM, op_PUTW};

} // namespace

ESGenerator::ESGenerator(ESContext &context, ESFunctionNode &function, QStringList &warnings)
    : m_context(context), m_function(function), m_code(*function.code), m_warnings(warnings)
{}

// What the names of the function turn out to need is known at the end only; then it is done again.
void ESGenerator::generate()
{
    bool needsActivation, usesArguments;
    QStringList warnings = m_warnings;
    do {
        needsActivation = m_code.needsActivation;
        usesArguments = m_code.usesArguments;
        m_code.bytes.clear();
        m_code.lines.clear();
        m_warnings = warnings;
        generateOnce();
    } while (needsActivation != m_code.needsActivation || usesArguments != m_code.usesArguments);
    m_code.bytes.shrink_to_fit();
}

void ESGenerator::generateOnce()
{
    const quint32 line = m_function.body->line;
    if (m_code.usesArguments)
        emitPlaced(putForms, {Place::Parameter, quint32(m_code.parameters.size() - 1)}, line);
    statements(m_function.body, m_code.isProgram);
    emit(m_code.isProgram ? op_RET : op_RETU, line);
}

// ---- Names

void ESGenerator::markChain()
{
    for (ESFunctionNode *function = &m_function; function; function = function->enclosing)
        function->code->needsActivation = !function->code->isProgram;
}

ESGenerator::Resolved ESGenerator::resolve(ESSymbol *name)
{
    if (!m_code.isProgram && (name == esNames().arguments || name == esNames().eval)) {
        if (name == esNames().arguments)
            markChain();
        // Behind the declared parameters, so that its place is fixed before it holds the object.
        const auto place = quint32(m_code.parameters.size());
        if (!m_code.usesArguments && m_function.places.emplace(esNames().arguments, place).second) {
            m_code.parameters.push_back({esNames().arguments, esParameter | esDontDelete});
            m_code.usesArguments = true;
        }
    }
    if (m_scopes) {
        markChain();
        return {Place::Name, nameOperand(name)};
    }
    if (const auto own = m_function.places.find(name); own != m_function.places.end()) {
        const bool isLocal = own->second & ESFunctionNode::localPlace;
        return {isLocal ? Place::Local : Place::Parameter, own->second & ~ESFunctionNode::localPlace};
    }
    for (const ESFunctionNode *outer = m_function.enclosing; outer; outer = outer->enclosing)
        if (outer->places.contains(name)) {
            markChain();
            return {Place::Name, nameOperand(name)};
        }
    if (m_function.insideScope)
        return {Place::Name, nameOperand(name)};
    return {Place::Global, m_context.globalSlot(name)};
}

void ESGenerator::emitPlaced(const Op (&forms)[6], const Resolved &place, quint32 line, qint64 count)
{
    int form = place.place == Place::Name ? 5 : int(place.place);
    if (m_code.needsActivation && (form == 1 || form == 2))
        form += 2;
    if (count < 0)
        emit(forms[form], place.index, line);
    else
        emit(forms[form], place.index, quint32(count), line);
}

void ESGenerator::fetch(ESSymbol *name, quint32 line)
{
    fetch(resolve(name), line);
}

void ESGenerator::fetch(const Resolved &place, quint32 line)
{
    emitPlaced(getForms, place, line);
}

void ESGenerator::put(ESSymbol *name, quint32 line)
{
    emitPlaced(putForms, resolve(name), line);
}

quint32 ESGenerator::nameOperand(ESSymbol *name)
{
    const auto [found, isNew] = m_names.emplace(name, quint32(m_code.symbols.size()));
    if (isNew)
        m_code.symbols.push_back(name);
    return found->second;
}

// ---- Instructions

void ESGenerator::operand(quint32 value)
{
    m_code.bytes.push_back(quint8(value >> 8));
    m_code.bytes.push_back(quint8(value));
}

void ESGenerator::emit(Op op, quint32 line)
{
    if (m_code.lines.empty() || m_code.lines.back().line != line)
        m_code.lines.push_back({here(), line});
    m_code.bytes.push_back(quint8(op));
}

void ESGenerator::emit(Op op, quint32 value, quint32 line)
{
    if (value > 0xFFFF) {
        emit(op_WIDE, line);
        operand(value >> 16);
    }
    emit(op, line);
    operand(value);
}

void ESGenerator::emit(Op op, quint32 value, quint32 count, quint32 line)
{
    emit(op, value, line);
    operand(count);
}

void ESGenerator::emitNumber(double number, quint32 line)
{
    constexpr Op small[] = {op_NUM_0, op_NUM_1, op_NUM_2, op_NUM_3, op_NUM_4};
    if (number >= 0 && number <= 4 && number == int(number) && !std::signbit(number))
        return emit(small[int(number)], line);
    const auto [found, isNew] = m_constants.emplace(std::bit_cast<quint64>(number), quint32(m_code.constants.size()));
    if (isNew)
        m_code.constants.push_back(number);
    emit(op_NUM, found->second, line);
}

// A jump forwards holds the operand of the jump before it in its chain, until the chain is patched.
void ESGenerator::jump(Op op, quint32 &chain, quint32 line)
{
    emit(op, chain, line);
    chain = here() - 2;
    if (chain >= endOfChain)
        m_context.fatal("compiler error: patch constant too large");
}

void ESGenerator::jumpBack(Op op, quint32 target, quint32 line)
{
    if (target >= endOfChain)
        m_context.fatal("compiler error: patch constant too large");
    emit(op, target, line);
}

void ESGenerator::patch(quint32 chain, quint32 target)
{
    if (chain == endOfChain)
        return;
    if (target > 0xFFFF)
        m_context.fatal("compiler error: patch constant too large");
    while (chain != endOfChain) {
        quint8 *place = &m_code.bytes[chain];
        chain = quint32(place[0] << 8 | place[1]);
        place[0] = quint8(target >> 8);
        place[1] = quint8(target);
    }
}

void ESGenerator::jumpIf(ESNode *condition, quint32 target)
{
    if (condition->kind == '<') {
        expression(condition->a, true);
        expression(condition->b, true);
        jumpBack(op_JLT, target, condition->line);
    } else {
        expression(condition, true);
        jumpBack(op_JT, target, condition->line);
    }
}

// ---- Statements

void ESGenerator::statements(ESNode *list, bool needed)
{
    for (ESNode *function = list->b; function; function = function->next)
        expression(function, false);
    for (ESNode *node = list->a; node; node = node->next)
        statement(node, needed && !node->next);
    if (needed && !list->a)
        emit(op_UNDEFINED, list->line);
}

void ESGenerator::statement(ESNode *node, bool needed)
{
    if (m_context.isNativeStackLow())
        throw ESSyntaxError{node ? node->line : 0, u"nested too deeply"_s};
    if (!node)
        return;
    node->breakChain = node->continueChain = endOfChain;
    const auto inside = [&](Enclosing::Kind kind, ESNode *body) {
        m_enclosing.push_back({kind, node});
        statement(body, false);
        m_enclosing.pop_back();
    };
    switch (node->kind) {
    case tokList: return statements(node, needed);
    case tokIf: {
        quint32 otherwise = endOfChain, end = endOfChain;
        expression(node->a, true);
        jump(op_JF, otherwise, node->line);
        statement(node->b, false);
        if (node->d)
            jump(op_J, end, node->line);
        patch(otherwise);
        statement(node->c, false);
        patch(end);
        break;
    }
    case tokWhile:
    case tokDo:
    case tokFor:
    case tokForVar: loop(node); break;
    case tokForIn:
    case tokForVarIn: forIn(node); break;
    case tokWith:
        expression(node->a, true);
        emit(op_WITH, node->line);
        ++m_scopes;
        inside(Enclosing::Scope, node->b);
        --m_scopes;
        emit(op_ENDWITH, node->line);
        break;
    case tokSwitch: switchStatement(node); break;
    case tokTry: tryStatement(node); break;
    case tokThrow:
        expression(node->a, true);
        emit(op_THROW, node->line);
        break;
    case tokBreak:
    case tokContinue: jumpOut(node); break;
    case tokReturn: returnStatement(node); break;
    case tokVar:
        for (ESNode *assigned = node->a; assigned; assigned = assigned->next)
            expression(assigned, false);
        break;
    case tokLabel: inside(Enclosing::Label, node->a); break;
    default: expression(node, needed); return;
    }
    patch(node->breakChain);
    if (needed)
        emit(op_UNDEFINED, node->line);
}

void ESGenerator::loop(ESNode *node)
{
    const auto body = [&](ESNode *statementNode) {
        m_enclosing.push_back({Enclosing::Loop, node});
        statement(statementNode, false);
        m_enclosing.pop_back();
    };
    if (node->kind == tokWhile) {
        const quint32 top = here();
        expression(node->a, true);
        jump(op_JF, node->breakChain, node->line);
        body(node->b);
        patch(node->continueChain, top);
        jumpBack(op_J, top, node->line);
        return;
    }
    if (node->kind == tokDo) {
        const quint32 top = here();
        body(node->b);
        patch(node->continueChain);
        jumpIf(node->a, top);
        return;
    }
    if (node->kind == tokForVar)
        for (ESNode *assigned = node->a; assigned; assigned = assigned->next)
            expression(assigned, false);
    else if (node->a)
        expression(node->a, false);
    quint32 test = endOfChain;
    jump(op_J, test, node->line);
    const quint32 top = here();
    body(node->d);
    patch(node->continueChain);
    if (node->c)
        expression(node->c, false);
    patch(test);
    if (node->b)
        jumpIf(node->b, top);
    else
        jumpBack(op_J, top, node->line);
}

void ESGenerator::forIn(ESNode *node)
{
    quint32 test = endOfChain;
    if (node->a->kind == '=') // var name = value in ...
        expression(node->a, false);
    expression(node->b, true);
    emit(op_ENUM, node->line);
    put(node->symbol, node->line);
    jump(op_J, test, node->line);
    const quint32 top = here();
    store(node->a->kind == '=' ? node->a->a : node->a);
    m_enclosing.push_back({Enclosing::Loop, node});
    statement(node->c, false);
    m_enclosing.pop_back();
    patch(test);
    patch(node->continueChain);
    fetch(node->symbol, node->line);
    jumpBack(op_NEXT, top, node->line);
}

void ESGenerator::switchStatement(ESNode *node)
{
    expression(node->a, true);
    quint32 *otherwise = &node->breakChain;
    for (ESNode *group = node->b; group; group = group->next) {
        group->breakChain = endOfChain;
        if (group->kind == tokDefault) {
            otherwise = &group->breakChain;
            continue;
        }
        emit(op_DUP, group->line);
        expression(group->a, true);
        emit(op_IDENTITY, group->line);
        jump(op_JT_DROP, group->breakChain, group->line);
    }
    emit(op_DROP, node->line);
    jump(op_J, *otherwise, node->line);
    m_enclosing.push_back({Enclosing::Switch, node});
    for (ESNode *group = node->b; group; group = group->next) {
        patch(group->breakChain);
        statements(group->b, false);
    }
    m_enclosing.pop_back();
}

// The finally block is a subroutine: every way out of the rest calls it, and it goes on where it was called.
void ESGenerator::tryStatement(ESNode *node)
{
    quint32 handler = endOfChain, finallyChain = endOfChain, end = endOfChain;
    if (node->c) {
        jump(op_TRY, handler, node->line);
        m_enclosing.push_back({Enclosing::HandlerWithFinally, node, &finallyChain});
    }
    quint32 catchChain = endOfChain, catchEnd = endOfChain;
    if (node->b) {
        jump(op_TRY, catchChain, node->line);
        m_enclosing.push_back({Enclosing::Handler, node});
    }
    statements(node->a, false);
    if (node->b) {
        m_enclosing.pop_back();
        emit(op_ENDTRY, node->line);
        jump(op_J, catchEnd, node->line);
        patch(catchChain);
        emit(op_CATCH, nameOperand(node->b->symbol), node->b->line);
        m_enclosing.push_back({Enclosing::Scope, node->b});
        ++m_scopes;
        markChain();
        statements(node->b->b, false);
        --m_scopes;
        m_enclosing.pop_back();
        emit(op_ENDWITH, node->b->line);
        patch(catchEnd);
    }
    if (!node->c)
        return;
    m_enclosing.pop_back();
    emit(op_ENDTRY, node->line);
    jump(op_GOSUB, finallyChain, node->line);
    jump(op_J, end, node->line);
    patch(handler);
    put(node->symbol, node->line);
    jump(op_GOSUB, finallyChain, node->line);
    fetch(node->symbol, node->line);
    emit(op_THROW, node->line);
    patch(finallyChain);
    m_enclosing.push_back({Enclosing::FinallyBody, node});
    statements(node->c, false);
    m_enclosing.pop_back();
    emit(op_ENDFINALLY, node->line);
    patch(end);
}

// What has to happen before a jump crosses the border of `enclosing`.
void ESGenerator::leave(const Enclosing &enclosing, quint32 line)
{
    switch (enclosing.kind) {
    case Enclosing::Scope: emit(op_ENDWITH, line); break;
    case Enclosing::Handler: emit(op_ENDTRY, line); break;
    case Enclosing::HandlerWithFinally:
        emit(op_ENDTRY, line);
        jump(op_GOSUB, *enclosing.finallyChain, line);
        break;
    case Enclosing::FinallyBody: emit(op_DROP, line); break; // the place to go on at
    default: break;
    }
}

void ESGenerator::jumpOut(ESNode *node)
{
    const bool isBreak = node->kind == tokBreak;
    for (size_t i = m_enclosing.size(); i-- > 0;) {
        const Enclosing enclosing = m_enclosing[i];
        ESNode *target = nullptr;
        if (node->symbol) {
            if (enclosing.kind == Enclosing::Label && enclosing.node->symbol == node->symbol) {
                target = enclosing.node->a;
                while (target && target->kind == tokLabel && !isBreak)
                    target = target->a;
                const bool isLoop =
                    target && (target->kind == tokWhile || target->kind == tokDo ||
                               (target->kind >= tokForIn && target->kind <= tokForVarIn) || target->kind == tokFor);
                if (!isBreak && !isLoop)
                    throw ESSyntaxError{node->line, u"labeled 'continue' doesn't mark a loop"_s};
                if (isBreak)
                    target = enclosing.node;
            }
        } else if (enclosing.kind == Enclosing::Loop || (isBreak && enclosing.kind == Enclosing::Switch)) {
            target = enclosing.node;
        }
        if (target) {
            jump(op_J, isBreak ? target->breakChain : target->continueChain, node->line);
            return;
        }
        leave(enclosing, node->line);
    }
    if (node->symbol)
        throw ESSyntaxError{node->line, u"can't find label "_s + node->symbol->text()};
    throw ESSyntaxError{node->line, isBreak ? u"'break' not in a 'for' or 'while' loop"_s
                                            : u"'continue' not in a 'for' or 'while' loop"_s};
}

void ESGenerator::returnStatement(ESNode *node)
{
    bool runsFinally = false;
    for (const Enclosing &enclosing : m_enclosing)
        runsFinally |= enclosing.kind == Enclosing::HandlerWithFinally;
    if (node->a)
        expression(node->a, true);
    if (runsFinally && node->a) {
        if (!m_result) {
            m_result = esGeneratedName();
            m_function.places.emplace(m_result, ESFunctionNode::localPlace + quint32(m_code.locals.size()));
            m_code.locals.push_back({m_result, esDontEnumerate | esDontDelete});
        }
        put(m_result, node->line);
    }
    const int scopes = m_scopes;
    for (size_t i = m_enclosing.size(); i-- > 0;) {
        const Enclosing enclosing = m_enclosing[i];
        if (runsFinally || enclosing.kind == Enclosing::Handler)
            leave(enclosing, node->line);
        m_scopes -= runsFinally && enclosing.kind == Enclosing::Scope;
    }
    if (runsFinally && node->a)
        fetch(m_result, node->line);
    m_scopes = scopes;
    emit(node->a ? op_RET : op_RETU, node->line);
}
