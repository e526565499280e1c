#include "script/engine/ESParser.h"

#include "script/engine/ESContext.h"

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 variableFlags = esDontEnumerate | esDontDelete;

// Binary operators from the loosest to the tightest level.
constexpr quint32 binaryLevels[][5] = {
    {tokOr},
    {tokAnd},
    {'|'},
    {'^'},
    {'&'},
    {tokEqual, tokNotEqual},
    {'<', '>', tokLessEqual, tokGreaterEqual},
    {tokShl, tokShr, tokUshr},
    {'+', '-'},
    {'*', '/', '%'},
};
constexpr int levelCount = int(std::size(binaryLevels));

int levelOf(quint32 token)
{
    for (int level = 0; level < levelCount; ++level)
        for (const quint32 candidate : binaryLevels[level])
            if (candidate && candidate == token)
                return level;
    return -1;
}

bool isAssignment(quint32 token)
{
    return token == '=' || (token >= tokAndAssign && token <= tokModAssign);
}

} // namespace

ESSymbol *esGeneratedName()
{
    static quint64 counter = 0;
    return esIntern(u"CG%1"_s.arg(++counter));
}

ESParser::ESParser(ESContext &context, const QString &source, ESTree &tree)
    : m_context(context), m_lexer(source), m_tree(tree)
{}

void ESParser::fail(const QString &message) const
{
    throw ESSyntaxError{m_lexer.line(), message};
}

void ESParser::checkDepth()
{
    if (m_context.isNativeStackLow())
        fail(u"nested too deeply"_s);
}

ESNode *ESParser::make(quint32 kind, quint32 line, ESNode *a, ESNode *b)
{
    auto *node = new (m_tree.memory.allocate(sizeof(ESNode), alignof(ESNode))) ESNode{kind, line};
    node->a = a;
    node->b = b;
    for (const ESNode *operand : {a, b})
        for (; operand; operand = operand->next)
            node->hasEffect |= operand->hasEffect;
    return node;
}

void ESParser::expect(quint32 token)
{
    if (const quint32 found = m_lexer.peek(); found != token)
        fail(u"expected %1 found %2"_s.arg(esTokenName(token), esTokenName(found)));
    m_lexer.next();
}

bool ESParser::accept(quint32 token)
{
    if (m_lexer.peek() != token)
        return false;
    m_lexer.next();
    return true;
}

ESSymbol *ESParser::expectIdentifier()
{
    expect(tokIdentifier);
    return m_lexer.symbol();
}

void ESParser::endStatement()
{
    const quint32 token = m_lexer.peek();
    if (token == ';')
        m_lexer.next();
    else if (token != '}' && token != tokEnd && !m_lexer.isAfterLineEnd())
        fail(u"expected ; found "_s + esTokenName(token));
}

// ---- Variables

void ESParser::declare(ESSymbol *name, quint32 flags)
{
    if (!m_function->enclosing) {
        if (m_context.global()->find(name) == nullptr)
            m_context.defineProperty(m_context.global(), flags, name, {});
        return;
    }
    ESCode &code = *m_function->code;
    if (m_function->places.emplace(name, ESFunctionNode::localPlace + quint32(code.locals.size())).second)
        code.locals.push_back({name, flags});
}

ESSymbol *ESParser::declareTemporary()
{
    ESSymbol *name = esGeneratedName();
    declare(name, variableFlags);
    return name;
}

ESNode *ESParser::makeName(ESSymbol *name, quint32 line)
{
    ESNode *node = make(tokIdentifier, line);
    node->symbol = name;
    return node;
}

ESNode *ESParser::makeAssignment(ESSymbol *name, ESNode *value)
{
    ESNode *node = make('=', value->line, makeName(name, value->line), value);
    node->hasEffect = true;
    return node;
}

// ---- Functions

ESFunctionNode *ESParser::openFunction()
{
    auto function = std::make_unique<ESFunctionNode>();
    function->enclosing = m_function;
    function->insideScope = m_function && (m_function->insideScope || m_scopes);
    function->code = std::make_unique<ESCode>();
    m_function = function.get();
    m_open.push_back(std::move(function));
    return m_function;
}

void ESParser::closeFunction(ESFunctionNode *function)
{
    m_function = function->enclosing;
    m_tree.functions.push_back(std::move(m_open.back()));
    m_open.pop_back();
}

void ESParser::parseParameters(ESFunctionNode *function, quint32 end)
{
    ESCode &code = *function->code;
    for (bool first = true; m_lexer.peek() != end; first = false) {
        if (!first)
            expect(',');
        ESSymbol *name = expectIdentifier();
        const auto place = quint32(code.parameters.size());
        if (const auto [earlier, isNew] = function->places.emplace(name, place); !isNew) {
            code.parameters[earlier->second].symbol = esGeneratedName();
            earlier->second = place;
        }
        code.parameters.push_back({name, esParameter | esDontDelete});
    }
    code.declaredParameters = quint32(code.parameters.size());
}

// function [name] ( parameters ) { list }
ESNode *ESParser::parseFunctionLiteral(bool needsName)
{
    checkDepth();
    const quint32 line = m_lexer.line();
    ESSymbol *name = nullptr;
    if (needsName || m_lexer.peek() == tokIdentifier) {
        name = expectIdentifier();
        declare(name, 0);
    }
    const int scopes = m_scopes;
    ESFunctionNode *function = openFunction();
    m_scopes = 0;
    function->code->name = name;
    expect('(');
    parseParameters(function, ')');
    m_lexer.next();
    expect('{');
    function->body = parseList();
    expect('}');
    closeFunction(function);
    m_scopes = scopes;
    ESNode *node = make(tokFunction, line);
    node->function = function;
    return name ? makeAssignment(name, node) : node;
}

ESFunctionNode *ESParser::parseProgram()
{
    ESFunctionNode *program = openFunction();
    program->code->isProgram = true;
    program->body = parseList();
    if (const quint32 token = m_lexer.peek(); token != tokEnd)
        fail(u"expected %1 found %2"_s.arg(esTokenName(tokEnd), esTokenName(token)));
    closeFunction(program);
    return program;
}

ESFunctionNode *ESParser::parseFunction(const QString &parameters, const QString &body)
{
    ESFunctionNode *program = openFunction(); // its variables are the global ones
    ESFunctionNode *function = openFunction();
    function->code->name = esNames().anonymous;
    m_lexer = ESLexer(parameters);
    parseParameters(function, tokEnd);
    m_lexer = ESLexer(body);
    function->body = parseList();
    expect(tokEnd);
    closeFunction(function);
    closeFunction(program);
    return function;
}

// ---- Statements

// Statements up to "}" or the end of the input, or to a `case`. The functions declared among them come first.
ESNode *ESParser::parseList(bool isCases)
{
    checkDepth();
    ESNode *list = make(tokList, m_lexer.line()), *functions = nullptr, **lastFunction = &functions, **last = &list->a;
    for (;;) {
        const quint32 token = m_lexer.peek();
        if (token == '}' || token == tokEnd || (isCases && (token == tokCase || token == tokDefault)))
            break;
        if (token == tokFunction) {
            m_lexer.next();
            *lastFunction = parseFunctionLiteral(true);
            lastFunction = &(*lastFunction)->next;
        } else if (ESNode *statement = parseStatement()) {
            *last = statement;
            last = &statement->next;
        }
    }
    list->b = functions;
    return list;
}

// { list }
ESNode *ESParser::parseBlock()
{
    expect('{');
    ESNode *list = parseList();
    expect('}');
    return list;
}

ESNode *ESParser::parseScoped(ESNode *node)
{
    ++m_scopes;
    node->b = node->kind == tokCatch ? parseBlock() : parseStatement();
    --m_scopes;
    return node;
}

// Null for the empty statement.
ESNode *ESParser::parseStatement()
{
    checkDepth();
    const quint32 token = m_lexer.peek(), line = m_lexer.line();
    ESNode *node = nullptr;
    switch (token) {
    case '{': return parseBlock();
    case ';': m_lexer.next(); return nullptr;
    case tokIf: // if ( a ) b [else c]
        m_lexer.next();
        expect('(');
        node = make(tokIf, line, parseExpression());
        expect(')');
        node->b = parseStatement();
        if (accept(tokElse)) {
            node->c = parseStatement();
            node->d = node; // there is an else, empty or not
        }
        return node;
    case tokWhile: // while ( a ) b
        m_lexer.next();
        expect('(');
        node = make(tokWhile, line, parseExpression());
        expect(')');
        node->b = parseStatement();
        return node;
    case tokDo: // do b while ( a )
        m_lexer.next();
        node = make(tokDo, line);
        node->b = parseStatement();
        expect(tokWhile);
        expect('(');
        node->a = parseExpression();
        expect(')');
        accept(';');
        return node;
    case tokFor: return parseFor();
    case tokWith: // with ( a ) b
        m_lexer.next();
        expect('(');
        node = make(tokWith, line, parseExpression());
        expect(')');
        return parseScoped(node);
    case tokSwitch: return parseSwitch();
    case tokTry: return parseTry();
    case tokThrow: // throw a
        m_lexer.next();
        node = make(tokThrow, line, parseExpression());
        endStatement();
        return node;
    case tokBreak: // break [symbol]
    case tokContinue:
        m_lexer.next();
        node = make(token, line);
        if (m_lexer.peek() == tokIdentifier && !m_lexer.isAfterLineEnd()) {
            m_lexer.next();
            node->symbol = m_lexer.symbol();
        }
        endStatement();
        return node;
    case tokReturn: // return [a]
        m_lexer.next();
        if (!m_function->enclosing)
            fail(u"return not in a function"_s);
        node = make(tokReturn, line);
        if (const quint32 next = m_lexer.peek();
            next != ';' && next != '}' && next != tokEnd && !m_lexer.isAfterLineEnd())
            node->a = parseExpression();
        endStatement();
        return node;
    case tokVar: { // a: the assignments, by next
        m_lexer.next();
        int count;
        node = make(tokVar, line, parseVariables(count));
        endStatement();
        return node;
    }
    case tokIdentifier:
        if (m_lexer.isLabel()) { // symbol : a
            m_lexer.next();
            node = make(tokLabel, line);
            node->symbol = m_lexer.symbol();
            expect(':');
            node->a = parseStatement();
            return node;
        }
        break;
    case tokFunction: // where a list would take it out of the order
        m_lexer.next();
        return parseFunctionLiteral(true);
    default: break;
    }
    node = parseExpression();
    endStatement();
    return node;
}

// name [= value] , ... : an assignment node for each that has a value, by next.
ESNode *ESParser::parseVariables(int &count)
{
    ESNode *first = nullptr, **last = &first;
    count = 0;
    do {
        ESSymbol *name = expectIdentifier();
        declare(name, variableFlags);
        ++count;
        if (accept('=')) {
            *last = makeAssignment(name, parseAssignment());
            last = &(*last)->next;
        } else if (m_lexer.peek() == tokIn) {
            *last = makeName(name, m_lexer.line());
        }
    } while (accept(','));
    return first;
}

// for ( [var] a in b ) c, with the enumerator in the variable symbol;  for ( a ; b ; c ) d
ESNode *ESParser::parseFor()
{
    const quint32 line = m_lexer.line();
    m_lexer.next();
    expect('(');
    ESNode *init = nullptr;
    int count = 1;
    const bool isVar = accept(tokVar);
    if (isVar)
        init = parseVariables(count);
    else if (m_lexer.peek() != ';')
        init = parseExpression();
    if (init && m_lexer.peek() == tokIn) {
        if (count > 1)
            fail(u"too many variables in for-in expression"_s);
        m_lexer.next();
        ESNode *node = make(isVar ? tokForVarIn : tokForIn, line, init);
        node->b = parseExpression();
        expect(')');
        node->symbol = declareTemporary();
        node->c = parseStatement();
        return node;
    }
    ESNode *node = make(isVar ? tokForVar : tokFor, line);
    node->a = init;
    expect(';');
    if (m_lexer.peek() != ';')
        node->b = parseExpression();
    expect(';');
    if (m_lexer.peek() != ')')
        node->c = parseExpression();
    expect(')');
    node->d = parseStatement();
    return node;
}

// switch ( a ) { case a : b ... default : b }: the groups from b on by next, their statements a list.
ESNode *ESParser::parseSwitch()
{
    ESNode *node = make(tokSwitch, m_lexer.line());
    m_lexer.next();
    expect('(');
    node->a = parseExpression();
    expect(')');
    expect('{');
    bool hasDefault = false;
    for (ESNode **last = &node->b; !accept('}'); last = &(*last)->next) {
        const quint32 token = m_lexer.peek();
        if (token != tokCase && token != tokDefault)
            fail(u"expected 'case' or 'default' but found '%1'"_s.arg(esTokenName(token)));
        if (token == tokDefault && std::exchange(hasDefault, true))
            fail(u"default case already defined"_s);
        m_lexer.next();
        *last = make(token, m_lexer.line());
        if (token == tokCase)
            (*last)->a = parseExpression();
        expect(':');
        (*last)->b = parseList(true);
    }
    return node;
}

// try a [catch ( name ) b] [finally c], the exception under way in the variable symbol
ESNode *ESParser::parseTry()
{
    ESNode *node = make(tokTry, m_lexer.line());
    m_lexer.next();
    node->a = parseBlock();
    const bool hasCatch = accept(tokCatch);
    if (hasCatch) {
        node->b = make(tokCatch, m_lexer.line());
        expect('(');
        node->b->symbol = expectIdentifier();
        expect(')');
        parseScoped(node->b);
    }
    if (accept(tokFinally)) {
        node->symbol = declareTemporary();
        node->c = parseBlock();
    } else if (!hasCatch) {
        fail(u"'catch' or 'finally' clause expected after 'try'"_s);
    }
    return node;
}

// ---- Expressions

ESNode *ESParser::parseExpression()
{
    ESNode *node = parseAssignment();
    while (m_lexer.peek() == ',') {
        const quint32 line = m_lexer.line();
        m_lexer.next();
        node = make(',', line, node, parseAssignment());
    }
    return node;
}

// Right-associative, on any left side: what can't be assigned to is found out when code is made.
ESNode *ESParser::parseAssignment()
{
    checkDepth();
    ESNode *left = parseConditional();
    const quint32 token = m_lexer.peek(), line = m_lexer.line();
    if (!isAssignment(token))
        return left;
    m_lexer.next();
    ESNode *node = make(token, line, left, parseAssignment());
    node->hasEffect = true;
    return node;
}

ESNode *ESParser::parseConditional()
{
    ESNode *condition = parseBinary(0);
    if (m_lexer.peek() != '?')
        return condition;
    ESNode *node = make('?', m_lexer.line(), condition);
    m_lexer.next();
    node->b = parseAssignment();
    expect(':');
    node->c = parseAssignment();
    node->hasEffect |= node->b->hasEffect || node->c->hasEffect;
    return node;
}

ESNode *ESParser::parseBinary(int level)
{
    ESNode *left = parseUnary();
    for (;;) {
        const quint32 token = m_lexer.peek(), line = m_lexer.line();
        const int found = levelOf(token);
        if (found < level)
            return left;
        m_lexer.next();
        left = make(token, line, left, parseBinary(found + 1));
    }
}

ESNode *ESParser::parseUnary()
{
    const quint32 token = m_lexer.peek(), line = m_lexer.line();
    quint32 kind = token;
    switch (token) {
    case '-': kind = tokNegate; break;
    case '+': kind = tokPlus; break;
    case tokDelete:
    case tokVoid:
    case tokTypeof:
    case tokIncrement:
    case tokDecrement:
    case '~':
    case '!': break;
    default: return parsePostfix();
    }
    checkDepth();
    m_lexer.next();
    ESNode *node = make(kind, line, parseUnary());
    node->hasEffect |= token == tokDelete || token == tokIncrement || token == tokDecrement;
    return node;
}

ESNode *ESParser::parsePostfix()
{
    ESNode *node = parseMember(true);
    const quint32 token = m_lexer.peek();
    if ((token != tokIncrement && token != tokDecrement) || m_lexer.isAfterLineEnd())
        return node;
    node = make(token == tokIncrement ? tokPostIncrement : tokPostDecrement, m_lexer.line(), node);
    m_lexer.next();
    node->hasEffect = true;
    return node;
}

// new a, new a ( b ), a . name, a [ b ], a ( b ). What follows `new` takes no call of its own.
ESNode *ESParser::parseMember(bool isCallee)
{
    checkDepth();
    ESNode *node;
    if (m_lexer.peek() == tokNew) {
        const quint32 line = m_lexer.line();
        m_lexer.next();
        ESNode *constructor = parseMember(false);
        if (m_lexer.peek() == '(') {
            node = make(tokNewCall, line, constructor);
            node->b = parseArguments();
            node->hasEffect = true;
        } else {
            node = make(tokNew, line, constructor);
        }
    } else {
        node = parsePrimary();
    }
    for (;;) {
        const quint32 token = m_lexer.peek(), line = m_lexer.line();
        if (token == '.') {
            m_lexer.next();
            ESSymbol *name = expectIdentifier();
            node = make('.', line, node);
            node->symbol = name;
        } else if (token == '[') {
            m_lexer.next();
            ESNode *key = parseExpression();
            expect(']');
            const bool isDot = key->kind == tokString || key->kind == tokNumber;
            node = make(isDot ? '.' : '[', line, node, isDot ? nullptr : key);
            node->symbol = key->kind == tokNumber ? esIntern(ESContext::numberText(key->number)) : key->symbol;
        } else if (token == '(' && isCallee) {
            node = make(tokCall, line, node);
            node->b = parseArguments();
            node->hasEffect = true;
        } else {
            return node;
        }
    }
}

ESNode *ESParser::parseArguments()
{
    expect('(');
    ESNode *first = nullptr, **last = &first;
    while (m_lexer.peek() != ')') {
        if (first)
            expect(',');
        *last = parseAssignment();
        last = &(*last)->next;
    }
    m_lexer.next();
    return first;
}

ESNode *ESParser::parsePrimary()
{
    const quint32 token = m_lexer.peek(), line = m_lexer.line();
    ESNode *node = nullptr;
    switch (token) {
    case tokIdentifier:
    case tokString:
        m_lexer.next();
        node = make(token, line);
        node->symbol = m_lexer.symbol();
        return node;
    case tokNumber:
        m_lexer.next();
        node = make(token, line);
        node->number = m_lexer.number();
        return node;
    case tokThis:
    case tokTrue:
    case tokFalse:
    case tokNull: m_lexer.next(); return make(token, line);
    case '(':
        m_lexer.next();
        node = parseExpression();
        expect(')');
        return node;
    case tokFunction: m_lexer.next(); return parseFunctionLiteral(false);
    case '[': return parseArray();
    case '{': return parseObject();
    default: fail(u"expected an expression, found "_s + esTokenName(token));
    }
}

// A comma with nothing before it is a hole, and so is what would stand between the last comma and "]".
ESNode *ESParser::parseArray()
{
    ESNode *node = make(tokArray, m_lexer.line()), **last = &node->a;
    m_lexer.next();
    if (accept(']'))
        return node;
    for (;;) {
        const quint32 token = m_lexer.peek();
        *last = token == ',' || token == ']' ? make(tokHole, m_lexer.line()) : parseAssignment();
        node->hasEffect |= (*last)->hasEffect;
        last = &(*last)->next;
        if (accept(']'))
            return node;
        if (const quint32 found = m_lexer.peek(); found != ',')
            fail(u"']' or ',' expected, found "_s + esTokenName(found));
        m_lexer.next();
    }
}

ESNode *ESParser::parseObject()
{
    ESNode *node = make(tokObject, m_lexer.line()), **last = &node->a;
    m_lexer.next();
    while (m_lexer.peek() != '}') {
        if (node->a)
            expect(',');
        const quint32 token = m_lexer.peek(), line = m_lexer.line();
        if (token != tokIdentifier && token != tokString && token != tokNumber)
            fail(u"number, string, or identifier expected in object initialiser"_s);
        m_lexer.next();
        ESSymbol *name = token == tokNumber ? esIntern(ESContext::numberText(m_lexer.number())) : m_lexer.symbol();
        expect(':');
        *last = make(':', line, parseAssignment());
        (*last)->symbol = name;
        node->hasEffect |= (*last)->hasEffect;
        last = &(*last)->next;
    }
    m_lexer.next();
    return node;
}
