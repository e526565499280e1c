#include "script/engine/ESGenerator.h"

#include "script/engine/ESContext.h"

using namespace Qt::StringLiterals;

// The part of the generator that turns expressions into instructions which leave their value on the stack, or
// none where it isn't needed.

namespace {

using enum ESOpcode;

constexpr quint32 mostAtOnce = 4096; // elements or arguments on the stack

// Forms by place: global, parameter, local, parameter of the activation, local of the activation, name.
constexpr ESOpcode callForms[6] = {op_CALLG, op_CALLA, op_CALLL, op_CALLAM, op_CALLLM, op_CALLW};
constexpr ESOpcode incrementForms[6] = {op_INCG, op_INCA, op_INCL, op_INCM, op_INCLM, op_STR};
constexpr ESOpcode decrementForms[6] = {op_DECG, op_DECA, op_DECL, op_DECAM, op_DECLM, op_STR};

struct BinaryOperator
{
    quint32 token, assignToken;
    ESOpcode op, memberOp;
    bool swapped = false;
};
constexpr ESOpcode none = op_NUM;
constexpr BinaryOperator binaryOperators[] = {
    {'+', tokAddAssign, op_ADD, op_ADDX},
    {'-', tokSubAssign, op_SUB, op_SUBX},
    {'*', tokMulAssign, op_MUL, op_MULX},
    {'/', tokDivAssign, op_DIV, op_DIVX},
    {'%', tokModAssign, op_MOD, op_MODX},
    {'&', tokAndAssign, op_BITAND, op_BITANDX},
    {'|', tokOrAssign, op_BITOR, op_BITORX},
    {'^', tokXorAssign, op_BITXOR, op_BITXORX},
    {tokShl, tokShlAssign, op_SHL, op_SHLX},
    {tokShr, tokShrAssign, op_SHR, op_SHRX},
    {tokUshr, tokUshrAssign, op_USHR, op_USHRX},
    {'<', 0, op_LT, none},
    {tokLessEqual, 0, op_LE, none},
    {'>', 0, op_LT, none, true},
    {tokGreaterEqual, 0, op_LE, none, true},
    {tokEqual, 0, op_EQ, none},
    {tokNotEqual, 0, op_NE, none},
};

const BinaryOperator *findOperator(quint32 token)
{
    for (const BinaryOperator &row : binaryOperators)
        if (row.token == token || (row.assignToken && row.assignToken == token))
            return &row;
    return nullptr;
}

} // namespace

void ESGenerator::expression(ESNode *node, bool needed)
{
    if (m_context.isNativeStackLow())
        throw ESSyntaxError{node->line, u"nested too deeply"_s};
    if (!needed && !node->hasEffect)
        return;
    switch (node->kind) {
    case '=': return assignment(node, needed);
    case tokIncrement:
    case tokDecrement:
    case tokPostIncrement:
    case tokPostDecrement: return increment(node, needed);
    case tokCall: return call(node, needed);
    case tokDelete: return deleteExpression(node, needed);
    case ',': expression(node->a, false); return expression(node->b, needed);
    default: break;
    }
    if (node->kind >= tokAndAssign && node->kind <= tokModAssign)
        return compoundAssignment(node, needed);
    operatorExpression(node);
    if (!needed)
        emit(op_DROP, node->line);
}

// What leaves one value.
void ESGenerator::operatorExpression(ESNode *node)
{
    const quint32 line = node->line;
    const auto unary = [&](Op op) {
        expression(node->a, true);
        emit(op, line);
    };
    switch (node->kind) {
    case tokNumber: return emitNumber(node->number, line);
    case tokString: return emit(op_STR, nameOperand(node->symbol), line);
    case tokIdentifier: return fetch(node->symbol, line);
    case tokThis: return emit(op_THIS, line);
    case tokTrue: return emit(op_TRUE, line);
    case tokFalse: return emit(op_FALSE, line);
    case tokNull: return emit(op_NULL, line);
    case tokHole: return emit(op_UNDEFINED, line);
    case tokFunction: return emit(op_CLOSURE, node->function->index, line);
    case tokArray: return arrayLiteral(node);
    case tokObject:
        emit(op_NEWOBJ, line);
        for (ESNode *pair = node->a; pair; pair = pair->next) {
            expression(pair->a, true);
            emit(op_INITF, nameOperand(pair->symbol), pair->line);
        }
        return;
    case '.': expression(node->a, true); return emit(op_GETF, nameOperand(node->symbol), line);
    case '[':
        expression(node->a, true);
        expression(node->b, true);
        return emit(op_GETX, line);
    case tokNew: return unary(op_NEW);
    case tokNewCall: return newCall(node);
    case tokTypeof: return unary(op_TYPEOF);
    case tokNegate: return unary(op_NEG);
    case tokPlus: return unary(op_POS);
    case '~': return unary(op_BITNOT);
    case '!': return unary(op_LOGNOT);
    case tokVoid:
        if (!node->a->hasEffect)
            return emit(op_UNDEFINED, line);
        return unary(op_VOID);
    case tokAnd:
    case tokOr: {
        quint32 end = endOfChain;
        expression(node->a, true);
        jump(node->kind == tokAnd ? op_LOGAND : op_LOGOR, end, line);
        expression(node->b, true);
        return patch(end);
    }
    case '?': {
        quint32 otherwise = endOfChain, end = endOfChain;
        expression(node->a, true);
        jump(op_JF, otherwise, line);
        expression(node->b, true);
        jump(op_J, end, line);
        patch(otherwise);
        expression(node->c, true);
        return patch(end);
    }
    default: return binary(node);
    }
}

// A long row of operators leans to the left: it is walked, not descended.
void ESGenerator::binary(ESNode *node)
{
    std::vector<std::pair<ESNode *, const BinaryOperator *>> spine;
    const BinaryOperator *row = findOperator(node->kind);
    do {
        spine.push_back({node, row});
        if (row->swapped)
            break;
        node = node->a;
        row = findOperator(node->kind);
    } while (row && row->token == node->kind);
    if (!spine.back().second->swapped)
        expression(node, true);
    for (size_t i = spine.size(); i-- > 0;) {
        const auto [each, op] = spine[i];
        expression(each->b, true);
        if (op->swapped)
            expression(each->a, true);
        emit(op->op, each->line);
    }
}

void ESGenerator::key(ESNode *node)
{
    expression(node->a, true);
    if (node->kind == '.')
        emit(op_STR, nameOperand(node->symbol), node->line);
    else
        expression(node->b, true);
}

// The value is on the stack.
void ESGenerator::store(ESNode *target)
{
    switch (target->kind) {
    case tokIdentifier: return put(target->symbol, target->line);
    case '.': expression(target->a, true); return emit(op_PUTF, nameOperand(target->symbol), target->line);
    case '[': key(target); return emit(op_PUTX, target->line);
    default: throw ESSyntaxError{target->line, u"not lsh?"_s};
    }
}

void ESGenerator::assignment(ESNode *node, bool needed)
{
    expression(node->b, true);
    if (needed)
        emit(op_DUP, node->line);
    store(node->a);
}

void ESGenerator::compoundAssignment(ESNode *node, bool needed)
{
    const BinaryOperator *row = findOperator(node->kind);
    ESNode *target = node->a;
    if (target->kind == tokIdentifier) {
        fetch(target->symbol, node->line);
        expression(node->b, true);
        emit(row->op, node->line);
        if (needed)
            emit(op_DUP, node->line);
        return put(target->symbol, node->line);
    }
    if (target->kind != '.' && target->kind != '[')
        throw ESSyntaxError{node->line, u"not lsh?"_s};
    expression(node->b, true);
    key(target);
    emit(row->memberOp, node->line);
    if (!needed)
        emit(op_DROP, node->line);
}

void ESGenerator::increment(ESNode *node, bool needed)
{
    const bool isPrefix = node->kind == tokIncrement || node->kind == tokDecrement;
    const bool isIncrement = node->kind == tokIncrement || node->kind == tokPostIncrement;
    ESNode *target = node->a;
    if (target->kind == '.' || target->kind == '[') {
        key(target);
        emit(isIncrement ? (isPrefix ? op_PREINCF : op_POSTINCF) : (isPrefix ? op_PREDECF : op_POSTDECF), node->line);
        if (!needed)
            emit(op_DROP, node->line);
        return;
    }
    if (target->kind != tokIdentifier)
        throw ESSyntaxError{node->line, u"not lsh?"_s};
    const Resolved place = resolve(target->symbol);
    if (place.place == Place::Name) {
        emit(op_STR, place.index, node->line);
        emit(isIncrement ? (isPrefix ? op_PREINCX : op_POSTINCX) : (isPrefix ? op_PREDECX : op_POSTDECX), node->line);
        if (!needed)
            emit(op_DROP, node->line);
        return;
    }
    if (needed && !isPrefix)
        fetch(place, node->line);
    emitPlaced(isIncrement ? incrementForms : decrementForms, place, node->line);
    if (needed && isPrefix)
        fetch(place, node->line);
}

void ESGenerator::call(ESNode *node, bool needed)
{
    ESNode *callee = node->a;
    const bool isCall = callee->kind == '.' || callee->kind == '[' || callee->kind == tokIdentifier;
    quint32 count = 0;
    for (ESNode *argument = node->b; argument; argument = argument->next) {
        expression(argument, isCall);
        if (++count > mostAtOnce)
            throw ESSyntaxError{node->line, u"too many arguments"_s};
    }
    if (!isCall) {
        const QString file =
            m_code.source && !m_code.source->fileName.isEmpty() ? m_code.source->fileName : u"script"_s;
        m_warnings += u"%1:%2: warning: only names and members can be called; this makes no call"_s.arg(
            file, QString::number(node->line));
        return expression(callee, needed);
    }
    if (callee->kind == tokIdentifier) {
        emitPlaced(callForms, resolve(callee->symbol), node->line, count);
    } else {
        expression(callee->a, true);
        if (callee->kind == '.') {
            emit(op_CALLF, nameOperand(callee->symbol), count, node->line);
        } else {
            expression(callee->b, true);
            emit(op_CALLX, count, node->line);
        }
    }
    if (!needed)
        emit(op_DROP, node->line);
}

void ESGenerator::newCall(ESNode *node)
{
    quint32 count = 0;
    for (ESNode *argument = node->b; argument; argument = argument->next) {
        expression(argument, true);
        if (++count > mostAtOnce)
            throw ESSyntaxError{node->line, u"too many arguments"_s};
    }
    expression(node->a, true);
    emit(op_NEWA, count, node->line);
}

void ESGenerator::deleteExpression(ESNode *node, bool needed)
{
    ESNode *target = node->a;
    if (target->kind == '.' || target->kind == '[') {
        key(target);
        emit(op_DELETEX, node->line);
    } else if (const Resolved place = target->kind == tokIdentifier ? resolve(target->symbol) : Resolved{};
               place.place == Place::Name) {
        emit(op_DELETEW, place.index, node->line);
    } else {
        expression(target, false);
        if (needed)
            emit(target->kind == tokIdentifier ? op_FALSE : op_TRUE, node->line);
        return;
    }
    if (!needed)
        emit(op_DROP, node->line);
}

// What doesn't fit on the stack at once is stored one by one.
void ESGenerator::arrayLiteral(ESNode *node)
{
    quint32 count = 0;
    ESNode *element = node->a;
    for (; element && count < mostAtOnce; element = element->next, ++count)
        expression(element, true);
    emit(op_MKARRAY, count, node->line);
    for (; element; element = element->next, ++count) {
        expression(element, true);
        emit(op_INITF, nameOperand(esSymbolOf(count)), element->line);
    }
}
