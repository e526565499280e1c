#pragma once

#include "expression/Arithmetic.h"
#include "expression/BaseType.h"
#include "expression/Nesting.h"

#include <QStringList>
#include <memory>
#include <vector>

class ExpressionParser;

// A node of an expression's tree. It owns its children and calls back to the parser that built it for all
// that needs symbols; the parser must outlive it. A tree is at most maximumNesting nodes deep, so that walking
// and dropping it may recurse.
class Expression
{
public:
    virtual ~Expression() = default;
    Expression(const Expression &) = delete;
    Expression &operator=(const Expression &) = delete;

    // Throws a ParserException.
    virtual ExpressionValue evaluate() const = 0;
    virtual QString toString() const = 0;
    // Gives the identifiers of that name a value in this tree; 0 takes it away again.
    virtual void bind(const QString &name, quint64 value);
    // A copy of what stands left of an assignment that computes. Throws "cannot duplicate expression" for
    // everything but constants, names, indices and members.
    virtual std::unique_ptr<Expression> clone() const;

    quint32 depth() const { return m_depth; }

protected:
    // Throws when the tree would be too deep.
    explicit Expression(ExpressionParser *parser, quint32 childDepth = 0)
        : m_parser(parser), m_depth(depthAbove(childDepth))
    {}
    ExpressionParser *parser() const { return m_parser; }

private:
    ExpressionParser *m_parser;
    quint32 m_depth;
};
using ExpressionPointer = std::unique_ptr<Expression>;

class ConstantExpression : public Expression
{
public:
    ConstantExpression(ExpressionParser *parser, const ExpressionValue &value) : Expression(parser), m_value(value) {}
    ExpressionValue evaluate() const override { return m_value; }
    QString toString() const override;
    ExpressionPointer clone() const override;

private:
    ExpressionValue m_value;
};

class IntegerConstantExpression : public ConstantExpression
{
public:
    IntegerConstantExpression(ExpressionParser *parser, quint64 value)
        : ConstantExpression(parser, ExpressionValue::ofSigned(qint64(value)))
    {}
};

class FloatConstantExpression : public ConstantExpression
{
public:
    FloatConstantExpression(ExpressionParser *parser, double value)
        : ConstantExpression(parser, ExpressionValue::ofFloat(value))
    {}
};

class StringConstantExpression : public ConstantExpression
{
public:
    StringConstantExpression(ExpressionParser *parser, const QString &text)
        : ConstantExpression(parser, ExpressionValue::ofText(text))
    {}
};

class IdentifierExpression : public Expression
{
public:
    IdentifierExpression(ExpressionParser *parser, const QString &name) : Expression(parser), m_name(name) {}
    const QString &name() const { return m_name; }
    ExpressionValue evaluate() const override;
    QString toString() const override;
    void bind(const QString &name, quint64 value) override;
    ExpressionPointer clone() const override;

private:
    QString m_name;
    quint64 m_bound = 0; // 0: not bound
};

class ScopedIdentifierExpression : public Expression
{
public:
    ScopedIdentifierExpression(ExpressionParser *parser, const QStringList &names) : Expression(parser), m_names(names)
    {}
    const QStringList &names() const { return m_names; }
    ExpressionValue evaluate() const override;
    QString toString() const override { return m_names.join(QLatin1StringView("::")); }
    ExpressionPointer clone() const override;

private:
    QStringList m_names;
};

class RegisterExpression : public Expression
{
public:
    RegisterExpression(ExpressionParser *parser, const QString &name) : Expression(parser), m_name(name) {}
    ExpressionValue evaluate() const override;
    QString toString() const override { return u'@' + m_name; }

private:
    QString m_name;
};

class UnaryExpression : public Expression
{
public:
    UnaryExpression(ExpressionParser *parser, ExpressionPointer operand);
    void bind(const QString &name, quint64 value) override { m_operand->bind(name, value); }

protected:
    const Expression &operand() const { return *m_operand; }

private:
    ExpressionPointer m_operand;
};

template <UnaryOperator operation>
class UnaryOperatorExpression final : public UnaryExpression
{
public:
    using UnaryExpression::UnaryExpression;
    ExpressionValue evaluate() const override { return compute(operation, operand().evaluate()); }
    QString toString() const override
    {
        const char *name = operation == UnaryOperator::LogicalNot ? "LogicalNotExpression("
                           : operation == UnaryOperator::BitNot   ? "BitNotExpression("
                                                                  : "NegateExpression(";
        return QLatin1StringView(name) + operand().toString() + u')';
    }
};
using LogicalNotExpression = UnaryOperatorExpression<UnaryOperator::LogicalNot>;
using BitNotExpression = UnaryOperatorExpression<UnaryOperator::BitNot>;
using NegateExpression = UnaryOperatorExpression<UnaryOperator::Negate>;

class AddressofExpression : public UnaryExpression
{
public:
    using UnaryExpression::UnaryExpression;
    ExpressionValue evaluate() const override;
    QString toString() const override { return QLatin1StringView("(&") + operand().toString() + u')'; }
};

class BinaryExpression : public Expression
{
public:
    BinaryExpression(ExpressionParser *parser, ExpressionPointer left, ExpressionPointer right);
    void bind(const QString &name, quint64 value) override;

protected:
    const Expression &left() const { return *m_left; }
    const Expression &right() const { return *m_right; }
    // The right operand, then the left, then the operation.
    ExpressionValue computeOperands(BinaryOperator operation) const;
    // "(left=right)"
    QString inBrackets(const char *operatorText) const;
    // The left operand as something binds to it that binds tighter than a cast: a cast stands in brackets.
    QString leftOfPostfix() const;

private:
    ExpressionPointer m_left, m_right;
};

const char *operatorText(BinaryOperator operation);

template <BinaryOperator operation>
class OperatorExpression final : public BinaryExpression
{
public:
    using BinaryExpression::BinaryExpression;
    ExpressionValue evaluate() const override { return computeOperands(operation); }
    QString toString() const override { return inBrackets(operatorText(operation)); }
};
// MultiplyExpression, PlusExpression and so on.
#define BINARY_OPERATOR(name, text, token, assignment) \
    using name##Expression = OperatorExpression<BinaryOperator::name>;
#include "expression/Operators.def"

class LeftSquareBracketExpression : public BinaryExpression
{
public:
    using BinaryExpression::BinaryExpression;
    ExpressionValue evaluate() const override;
    QString toString() const override { return leftOfPostfix() + u'[' + right().toString() + u']'; }
    ExpressionPointer clone() const override;
};

// "." and "->": whether a pointer is left of it is found out when it is evaluated.
class DotExpression : public BinaryExpression
{
public:
    using BinaryExpression::BinaryExpression;
    ExpressionValue evaluate() const override;
    QString toString() const override { return leftOfPostfix() + u'.' + right().toString(); }
    ExpressionPointer clone() const override;
};

class AssignExpression : public BinaryExpression
{
public:
    using BinaryExpression::BinaryExpression;
    ExpressionValue evaluate() const override;
    QString toString() const override { return inBrackets("="); }
};

class CastExpression : public Expression
{
public:
    CastExpression(ExpressionParser *parser, std::unique_ptr<BaseType> type, ExpressionPointer operand);
    ExpressionValue evaluate() const override;
    QString toString() const override { return u'(' + m_type->toString() + u')' + m_operand->toString(); }
    void bind(const QString &name, quint64 value) override { m_operand->bind(name, value); }

private:
    std::unique_ptr<BaseType> m_type;
    ExpressionPointer m_operand;
};

class CallExpression : public Expression
{
public:
    CallExpression(ExpressionParser *parser, ExpressionPointer callee, std::vector<ExpressionPointer> arguments);
    ExpressionValue evaluate() const override;
    QString toString() const override;
    void bind(const QString &name, quint64 value) override;

private:
    ExpressionPointer m_callee;
    std::vector<ExpressionPointer> m_arguments;
};

// Of an operand or of a type; the other is null.
class SizeofExpression : public Expression
{
public:
    SizeofExpression(ExpressionParser *parser, ExpressionPointer operand);
    SizeofExpression(ExpressionParser *parser, std::unique_ptr<BaseType> type);
    ExpressionValue evaluate() const override;
    QString toString() const override;
    void bind(const QString &name, quint64 value) override;

private:
    ExpressionPointer m_operand;
    std::unique_ptr<BaseType> m_type;
};

class AddressofLineExpression : public Expression
{
public:
    AddressofLineExpression(ExpressionParser *parser, const QString &file, quint32 line)
        : Expression(parser), m_file(file), m_line(line)
    {}
    ExpressionValue evaluate() const override;
    QString toString() const override;

private:
    QString m_file;
    quint32 m_line;
};
