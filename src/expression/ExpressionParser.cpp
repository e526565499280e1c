#include "expression/ExpressionParser.h"

#include "base/IntegerReader.h"
#include "expression/ParserException.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int loosest = -4, tightest = 9; // precedences

[[noreturn]] void fail(const char *message)
{
    throw ParserException(QString::fromLatin1(message));
}

template <typename Node>
ExpressionPointer make(ExpressionParser *parser, ExpressionPointer left, ExpressionPointer right)
{
    return std::make_unique<Node>(parser, std::move(left), std::move(right));
}

struct OperatorRow
{
    Token token, assignment;
    ExpressionPointer (*make)(ExpressionParser *, ExpressionPointer, ExpressionPointer);
};
constexpr OperatorRow operatorRows[] = {
#define BINARY_OPERATOR(name, text, token, assignment) {token, assignment, make<name##Expression>},
#include "expression/Operators.def"
};

bool isInteger(Token token)
{
    return token == TOKEN_INTEGER || token == TOKEN_HEXINTEGER || token == TOKEN_BININTEGER;
}

} // namespace

// Counts how deep the parser has called itself.
class ExpressionParser::Nesting
{
public:
    explicit Nesting(ExpressionParser *parser) : m_level(parser->m_nesting) { m_level = depthAbove(m_level); }
    ~Nesting() { --m_level; }
    Nesting(const Nesting &) = delete;
    Nesting &operator=(const Nesting &) = delete;

private:
    quint32 &m_level;
};

ExpressionParser::ExpressionParser(std::unique_ptr<Lexer> lexer) : m_lexer(std::move(lexer)) {}

MarkerType *ExpressionParser::lookupScoped(const QStringList &names)
{
    throw ParserException(names.join(u"::"_s) + u" symbol not found"_s);
}

MarkerType *ExpressionParser::lookup(const QString &name)
{
    throw ParserException(name + u" symbol not found"_s);
}

MarkerType *ExpressionParser::lookupRegister(const QString &name)
{
    throw ParserException(name + u"unknown register"_s);
}

bool ExpressionParser::isTypeName(const QString &)
{
    return false;
}

bool ExpressionParser::isTemplateName(const QString &)
{
    return false;
}

MarkerType *ExpressionParser::cast(const BaseType &, const ExpressionValue &)
{
    fail("cannot cast");
}

bool ExpressionParser::isPointer(MarkerType *)
{
    return false;
}

bool ExpressionParser::isArray(MarkerType *)
{
    return false;
}

MarkerType *ExpressionParser::index(MarkerType *, qint64)
{
    fail("cannot dereference");
}

MarkerType *ExpressionParser::field(MarkerType *, const QString &)
{
    fail("cannot dereference");
}

MarkerType *ExpressionParser::fieldPath(MarkerType *, const QStringList &)
{
    fail("cannot dereference");
}

MarkerType *ExpressionParser::addressOf(MarkerType *)
{
    fail("addressof not implemented");
}

ExpressionValue ExpressionParser::sizeOf(MarkerType *)
{
    fail("sizeof expression not implemented");
}

ExpressionValue ExpressionParser::sizeOfType(const BaseType &)
{
    fail("sizeof(typename) not implemented");
}

ExpressionValue ExpressionParser::addressOfLine(const QString &, quint32)
{
    fail("addressof not implemented");
}

ExpressionValue ExpressionParser::assign(MarkerType *, const ExpressionValue &)
{
    fail("this symbol not found");
}

ExpressionValue ExpressionParser::markerValue(MarkerType *)
{
    fail("this symbol not found");
}

ExpressionValue ExpressionParser::call(MarkerType *, const QList<ExpressionValue> &)
{
    fail("function calling not implemented");
}

MarkerType *ExpressionParser::pointerAdd(MarkerType *, qint64)
{
    fail("addressof not implemented");
}

ExpressionPointer ExpressionParser::parse(const QString &text, int *endPosition)
{
    m_nesting = 0;
    m_lexer->setInput(text);
    m_lexer->next();
    ExpressionPointer root = token() == TOKEN_EOL ? nullptr : parseBinary(loosest);
    if (endPosition)
        *endPosition = int(m_lexer->position());
    return root;
}

ExpressionValue ExpressionParser::evaluate(const QString &text, int *endPosition)
{
    const ExpressionPointer root = parse(text, endPosition);
    return root ? root->evaluate() : ExpressionValue();
}

// Kind None for what fails.
ExpressionValue ExpressionParser::evaluateQuietly(const QString &text)
{
    try {
        return evaluate(text);
    } catch (const ParserException &) {
        return {};
    }
}

quint64 ExpressionParser::evaluateUnsigned(const QString &text, bool *ok)
{
    const ExpressionValue value = evaluateQuietly(text);
    *ok = value.isNumeric();
    return *ok ? value.asUnsigned() : 0;
}

qint64 ExpressionParser::evaluateSigned(const QString &text, bool *ok)
{
    const ExpressionValue value = evaluateQuietly(text);
    *ok = value.isNumeric();
    return *ok ? value.asSigned() : 0;
}

bool ExpressionParser::evaluateBool(const QString &text, bool *ok)
{
    const ExpressionValue value = evaluateQuietly(text);
    *ok = value.kind() == ExpressionValue::Boolean;
    return *ok && value.asBool();
}

bool ExpressionParser::accept(Token wanted)
{
    if (token() != wanted)
        return false;
    m_lexer->next();
    return true;
}

bool ExpressionParser::acceptWord(const char *word)
{
    return isWord(word) && accept(TOKEN_IDENT);
}

void ExpressionParser::expect(Token wanted, const char *message)
{
    if (!accept(wanted))
        fail(message);
}

QString ExpressionParser::takeText()
{
    const QString text = m_lexer->text().toString();
    m_lexer->next();
    return text;
}

QString ExpressionParser::takeIdentifier()
{
    if (token() != TOKEN_IDENT)
        fail("identifier expected");
    return takeText();
}

quint32 ExpressionParser::takeInteger(const char *message)
{
    if (!isInteger(token()))
        fail(message);
    return quint32(readInteger(takeText()));
}

QString ExpressionParser::takeQuoted(const char *message)
{
    if (token() != TOKEN_STRING)
        fail(message);
    const QString text = takeText();
    return text.sliced(1, text.size() - 2);
}

// operand { operator operand }, operators of `level` and tighter; those of one level group from the left.
ExpressionPointer ExpressionParser::parseBinary(int level)
{
    ExpressionPointer left = parseUnary();
    while (m_lexer->precedence() >= level && m_lexer->precedence() <= tightest) {
        const Token operation = token();
        const int precedence = m_lexer->precedence();
        m_lexer->next();
        ExpressionPointer right = parseBinary(precedence + 1);
        left = makeBinary(operation, std::move(left), std::move(right));
    }
    return left;
}

ExpressionPointer ExpressionParser::makeBinary(Token operation, ExpressionPointer left, ExpressionPointer right)
{
    if (operation == TOKEN_ASSIGN)
        return make<AssignExpression>(this, std::move(left), std::move(right));
    for (const OperatorRow &row : operatorRows) {
        if (operation == row.token)
            return row.make(this, std::move(left), std::move(right));
        if (operation == row.assignment) {
            ExpressionPointer place = left->clone();
            return make<AssignExpression>(this, std::move(place), row.make(this, std::move(left), std::move(right)));
        }
    }
    fail("operator not supported");
}

// ++ and --, before or behind: in both cases the new value results.
ExpressionPointer ExpressionParser::makeStep(ExpressionPointer operand, Token step)
{
    const Token operation = step == TOKEN_INCREMENT ? TOKEN_PLUS_ASSIGN : TOKEN_MINUS_ASSIGN;
    return makeBinary(operation, std::move(operand), std::make_unique<IntegerConstantExpression>(this, 1));
}

ExpressionPointer ExpressionParser::parseUnary()
{
    const Nesting nesting(this);
    switch (token()) {
    case TOKEN_INTEGER:
    case TOKEN_HEXINTEGER:
    case TOKEN_BININTEGER:
        return parsePostfix(std::make_unique<IntegerConstantExpression>(this, readInteger(takeText())));
    case TOKEN_FLOAT: return parsePostfix(std::make_unique<FloatConstantExpression>(this, takeText().toDouble()));
    case TOKEN_STRING: return parsePostfix(std::make_unique<StringConstantExpression>(this, takeQuoted("")));
    case TOKEN_REGISTER: return parsePostfix(std::make_unique<RegisterExpression>(this, takeText().sliced(1)));
    case TOKEN_IDENT:
        if (acceptWord("sizeof"))
            return parseSizeof();
        return parsePostfix(acceptWord("addressof") ? parseAddressofLine() : parseIdentifier());
    case TOKEN_COLONCOLON: {
        m_lexer->next();
        return parsePostfix(parseScoped({}));
    }
    case TOKEN_LPAREN: m_lexer->next(); return parseBracket();
    default: return parsePrefix();
    }
}

// prefix operator unary
ExpressionPointer ExpressionParser::parsePrefix()
{
    const Token operation = token();
    switch (operation) {
    case TOKEN_INCREMENT:
    case TOKEN_DECREMENT: m_lexer->next(); return makeStep(parseUnary(), operation);
    case TOKEN_BITNOT: m_lexer->next(); return std::make_unique<BitNotExpression>(this, parseUnary());
    case TOKEN_LOGNOT: m_lexer->next(); return std::make_unique<LogicalNotExpression>(this, parseUnary());
    case TOKEN_MINUS: m_lexer->next(); return std::make_unique<NegateExpression>(this, parseUnary());
    case TOKEN_BITAND: m_lexer->next(); return std::make_unique<AddressofExpression>(this, parseUnary());
    case TOKEN_PLUS: m_lexer->next(); return parseUnary();
    case TOKEN_STAR: {
        m_lexer->next();
        ExpressionPointer pointer = parseUnary();
        auto first = std::make_unique<ConstantExpression>(this, ExpressionValue::ofUnsigned(0, 2));
        return make<LeftSquareBracketExpression>(this, std::move(pointer), std::move(first));
    }
    default: throw ParserException(u"unexpected token "_s + Lexer::tokenName(operation));
    }
}

// Behind "(": type ")" unary, or expression ")".
ExpressionPointer ExpressionParser::parseBracket()
{
    if (std::unique_ptr<BaseType> type = parseCastType()) {
        type = parseDeclarator(std::move(type));
        expect(TOKEN_RPAREN, "')' expected");
        ExpressionPointer operand = parseUnary();
        return std::make_unique<CastExpression>(this, std::move(type), std::move(operand));
    }
    ExpressionPointer inner = parseBinary(loosest);
    expect(TOKEN_RPAREN, "')' expected");
    return parsePostfix(std::move(inner));
}

// Behind "sizeof": expression, "(" type ")" or "(" expression ")".
ExpressionPointer ExpressionParser::parseSizeof()
{
    if (!accept(TOKEN_LPAREN))
        return std::make_unique<SizeofExpression>(this, parseBinary(loosest));
    std::unique_ptr<BaseType> type = parseType();
    ExpressionPointer operand = type ? nullptr : parseBinary(loosest);
    expect(TOKEN_RPAREN, "')' expected");
    if (type)
        return std::make_unique<SizeofExpression>(this, std::move(type));
    return std::make_unique<SizeofExpression>(this, std::move(operand));
}

// Behind "addressof": "(" string "," integer ")"
ExpressionPointer ExpressionParser::parseAddressofLine()
{
    expect(TOKEN_LPAREN, "'(' expected");
    const QString file = takeQuoted("string expected");
    expect(TOKEN_COMMA, "',' expected");
    const quint32 line = takeInteger("int expected");
    expect(TOKEN_RPAREN, "')' expected");
    return std::make_unique<AddressofLineExpression>(this, file, line);
}

// identifier [ template arguments ] { "::" identifier [ template arguments ] }
ExpressionPointer ExpressionParser::parseIdentifier()
{
    const QString name = parseTemplateName();
    if (accept(TOKEN_COLONCOLON))
        return parseScoped({name});
    return std::make_unique<IdentifierExpression>(this, name);
}

// The names behind a "::".
ExpressionPointer ExpressionParser::parseScoped(QStringList names)
{
    do
        names += parseTemplateName();
    while (accept(TOKEN_COLONCOLON));
    return std::make_unique<ScopedIdentifierExpression>(this, names);
}

// { "[" expression "]" | ( "." | "->" | "::" ) identifier | "++" | "--" | "(" arguments ")" }
ExpressionPointer ExpressionParser::parsePostfix(ExpressionPointer operand)
{
    for (;;) {
        const Token operation = token();
        switch (operation) {
        case TOKEN_LBRACK: {
            m_lexer->next();
            ExpressionPointer n = parseBinary(loosest);
            expect(TOKEN_RBRACK, "expected ']'");
            operand = make<LeftSquareBracketExpression>(this, std::move(operand), std::move(n));
            break;
        }
        case TOKEN_DOT:
        case TOKEN_POINTSAT:
        case TOKEN_COLONCOLON: {
            m_lexer->next();
            ExpressionPointer member = parseIdentifier();
            operand = make<DotExpression>(this, std::move(operand), std::move(member));
            break;
        }
        case TOKEN_INCREMENT:
        case TOKEN_DECREMENT:
            m_lexer->next();
            operand = makeStep(std::move(operand), operation);
            break;
        case TOKEN_LPAREN:
            m_lexer->next();
            operand = parseArguments(std::move(operand));
            break;
        default: return operand;
        }
    }
}

// Behind "(": [ unary { "," unary } ] ")"
ExpressionPointer ExpressionParser::parseArguments(ExpressionPointer callee)
{
    std::vector<ExpressionPointer> arguments;
    if (!accept(TOKEN_RPAREN)) {
        do
            arguments.push_back(parseUnary());
        while (accept(TOKEN_COMMA));
        expect(TOKEN_RPAREN, "')' expected");
    }
    return std::make_unique<CallExpression>(this, std::move(callee), std::move(arguments));
}
