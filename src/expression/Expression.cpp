#include "expression/Expression.h"

#include "expression/ExpressionParser.h"
#include "expression/ParserException.h"

using namespace Qt::StringLiterals;

namespace {

constexpr const char *operatorTexts[] = {
#define BINARY_OPERATOR(name, text, token, assignment) text,
#include "expression/Operators.def"
};

QString hexText(quint64 value)
{
    return u"0x"_s + QString::number(value, 16);
}

MarkerType *markerOf(const ExpressionValue &value, const char *message)
{
    if (!value.marker())
        throw ParserException(QString::fromLatin1(message));
    return value.marker();
}

quint32 greatestDepth(const Expression &callee, const std::vector<ExpressionPointer> &arguments)
{
    quint32 depth = callee.depth();
    for (const ExpressionPointer &argument : arguments)
        depth = qMax(depth, argument->depth());
    return depth;
}

constexpr const char *badType = "bad expression type";

} // namespace

void Expression::bind(const QString &, quint64) {}

ExpressionPointer Expression::clone() const
{
    throw ParserException(u"cannot duplicate expression"_s);
}

QString ConstantExpression::toString() const
{
    return hexText(m_value.asUnsigned());
}

ExpressionPointer ConstantExpression::clone() const
{
    return std::make_unique<ConstantExpression>(parser(), m_value);
}

ExpressionValue IdentifierExpression::evaluate() const
{
    return m_bound ? ExpressionValue::ofUnsigned(m_bound, 4) : ExpressionValue::ofMarker(parser()->lookup(m_name));
}

QString IdentifierExpression::toString() const
{
    return m_bound ? hexText(m_bound) : m_name;
}

void IdentifierExpression::bind(const QString &name, quint64 value)
{
    if (name == m_name)
        m_bound = value;
}

ExpressionPointer IdentifierExpression::clone() const
{
    auto copy = std::make_unique<IdentifierExpression>(parser(), m_name);
    copy->m_bound = m_bound;
    return copy;
}

ExpressionValue ScopedIdentifierExpression::evaluate() const
{
    return ExpressionValue::ofMarker(parser()->lookupScoped(m_names));
}

ExpressionPointer ScopedIdentifierExpression::clone() const
{
    return std::make_unique<ScopedIdentifierExpression>(parser(), m_names);
}

ExpressionValue RegisterExpression::evaluate() const
{
    return ExpressionValue::ofMarker(parser()->lookupRegister(m_name));
}

UnaryExpression::UnaryExpression(ExpressionParser *parser, ExpressionPointer operand)
    : Expression(parser, operand->depth()), m_operand(std::move(operand))
{}

ExpressionValue AddressofExpression::evaluate() const
{
    MarkerType *marker = markerOf(operand().evaluate(), "cannot take address of a constant");
    return ExpressionValue::ofMarker(parser()->addressOf(marker));
}

BinaryExpression::BinaryExpression(ExpressionParser *parser, ExpressionPointer left, ExpressionPointer right)
    : Expression(parser, qMax(left->depth(), right->depth())), m_left(std::move(left)), m_right(std::move(right))
{}

void BinaryExpression::bind(const QString &name, quint64 value)
{
    m_left->bind(name, value);
    m_right->bind(name, value);
}

ExpressionValue BinaryExpression::computeOperands(BinaryOperator operation) const
{
    const ExpressionValue rightValue = m_right->evaluate();
    const ExpressionValue leftValue = m_left->evaluate();
    MarkerType *marker = leftValue.marker();
    if (operation == BinaryOperator::Plus && marker) {
        const ExpressionValue offset = plainValue(rightValue);
        const bool isInteger = offset.isInteger() || offset.kind() == ExpressionValue::Boolean;
        if (isInteger && (parser()->isPointer(marker) || parser()->isArray(marker)))
            return ExpressionValue::ofMarker(parser()->pointerAdd(marker, offset.asSigned()));
        return compute(operation, leftValue, offset);
    }
    return compute(operation, leftValue, rightValue);
}

QString BinaryExpression::inBrackets(const char *operatorText) const
{
    return u'(' + m_left->toString() + QLatin1StringView(operatorText) + m_right->toString() + u')';
}

QString BinaryExpression::leftOfPostfix() const
{
    const QString text = m_left->toString();
    return dynamic_cast<const CastExpression *>(m_left.get()) ? u'(' + text + u')' : text;
}

const char *operatorText(BinaryOperator operation)
{
    return operatorTexts[int(operation)];
}

ExpressionValue LeftSquareBracketExpression::evaluate() const
{
    MarkerType *marker = markerOf(left().evaluate(), badType);
    ExpressionValue n = right().evaluate();
    if (n.marker())
        n = parser()->markerValue(n.marker());
    if (n.kind() == ExpressionValue::None)
        throw ParserException(u"bad index type"_s);
    return ExpressionValue::ofMarker(parser()->index(marker, n.asSigned()));
}

ExpressionPointer LeftSquareBracketExpression::clone() const
{
    return std::make_unique<LeftSquareBracketExpression>(parser(), left().clone(), right().clone());
}

ExpressionValue DotExpression::evaluate() const
{
    MarkerType *marker = markerOf(left().evaluate(), badType);
    if (const auto *name = dynamic_cast<const IdentifierExpression *>(&right()))
        return ExpressionValue::ofMarker(parser()->field(marker, name->name()));
    if (const auto *path = dynamic_cast<const ScopedIdentifierExpression *>(&right()))
        return ExpressionValue::ofMarker(parser()->fieldPath(marker, path->names()));
    return {};
}

ExpressionPointer DotExpression::clone() const
{
    return std::make_unique<DotExpression>(parser(), left().clone(), right().clone());
}

ExpressionValue AssignExpression::evaluate() const
{
    MarkerType *marker = markerOf(left().evaluate(), badType);
    ExpressionValue value = right().evaluate();
    if (value.marker())
        value = parser()->markerValue(value.marker());
    return parser()->assign(marker, value);
}

CastExpression::CastExpression(ExpressionParser *parser, std::unique_ptr<BaseType> type, ExpressionPointer operand)
    : Expression(parser, qMax(type->depth(), operand->depth())), m_type(std::move(type)), m_operand(std::move(operand))
{}

ExpressionValue CastExpression::evaluate() const
{
    return ExpressionValue::ofMarker(parser()->cast(*m_type, m_operand->evaluate()));
}

CallExpression::CallExpression(ExpressionParser *parser, ExpressionPointer callee,
                               std::vector<ExpressionPointer> arguments)
    : Expression(parser, greatestDepth(*callee, arguments)),
      m_callee(std::move(callee)),
      m_arguments(std::move(arguments))
{}

ExpressionValue CallExpression::evaluate() const
{
    MarkerType *marker = markerOf(m_callee->evaluate(), "function calling not implemented");
    QList<ExpressionValue> values;
    for (const ExpressionPointer &argument : m_arguments)
        values += argument->evaluate();
    return parser()->call(marker, values);
}

QString CallExpression::toString() const
{
    QStringList texts;
    for (const ExpressionPointer &argument : m_arguments)
        texts += argument->toString();
    return m_callee->toString() + u'(' + texts.join(u',') + u')';
}

void CallExpression::bind(const QString &name, quint64 value)
{
    m_callee->bind(name, value);
    for (const ExpressionPointer &argument : m_arguments)
        argument->bind(name, value);
}

SizeofExpression::SizeofExpression(ExpressionParser *parser, ExpressionPointer operand)
    : Expression(parser, operand->depth()), m_operand(std::move(operand))
{}

SizeofExpression::SizeofExpression(ExpressionParser *parser, std::unique_ptr<BaseType> type)
    : Expression(parser), m_type(std::move(type))
{}

ExpressionValue SizeofExpression::evaluate() const
{
    if (m_type)
        return parser()->sizeOfType(*m_type);
    return parser()->sizeOf(markerOf(m_operand->evaluate(), "cannot determine sizeof of a constant"));
}

QString SizeofExpression::toString() const
{
    return u"sizeof("_s + (m_type ? m_type->toString() : m_operand->toString()) + u')';
}

void SizeofExpression::bind(const QString &name, quint64 value)
{
    if (m_operand)
        m_operand->bind(name, value);
}

ExpressionValue AddressofLineExpression::evaluate() const
{
    return parser()->addressOfLine(m_file, m_line);
}

QString AddressofLineExpression::toString() const
{
    return u"addressof(\"%1\",%2)"_s.arg(m_file, QString::number(m_line));
}
