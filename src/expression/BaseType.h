#pragma once

#include "expression/Nesting.h"

#include <QString>
#include <memory>
#include <vector>

class Expression;

// A type as it is written in an expression. What it means in a program, the evaluator finds out.
class BaseType
{
public:
    virtual ~BaseType() = default;
    virtual QString toString() const = 0;

    quint32 depth() const { return m_depth; }

protected:
    // Throws when a type would be nested too deeply.
    explicit BaseType(quint32 childDepth = 0) : m_depth(depthAbove(childDepth)) {}

private:
    quint32 m_depth;
};

class SimpleType : public BaseType
{
public:
    enum Code : quint32 { Char, Short, Int, Long, LongLong, Float, Double };
    SimpleType(Code typeCode, bool unsignedFlag) : code(typeCode), isUnsigned(unsignedFlag) {}
    QString toString() const override;

    Code code;
    bool isUnsigned;
};

// A name, a qualified name, or "struct" and a name.
class UserType : public BaseType
{
public:
    explicit UserType(const QString &typeName) : name(typeName) {}
    QString toString() const override { return name; }

    QString name;
};

class StructType : public BaseType
{
public:
    struct Field
    {
        std::unique_ptr<BaseType> type;
        QString name;         // may be empty
        quint32 bitCount = 0; // 0: no bit field
    };
    QString toString() const override;

    std::vector<Field> fields;
};

// A register's layout, written where it is used.
class RegisterType : public BaseType
{
public:
    struct Field
    {
        QString name;
        quint32 bitSize = 0;
        quint32 bitOffset = 0;
    };
    QString toString() const override;

    quint32 size = 0; // bytes; 0: the target's word
    std::vector<Field> fields;
};

class ArrayType : public BaseType
{
public:
    ArrayType(std::unique_ptr<BaseType> elementType, std::unique_ptr<Expression> elementCount);
    ~ArrayType() override;
    QString toString() const override;

    std::unique_ptr<BaseType> element;
    std::unique_ptr<Expression> count;
};

class PointerType : public BaseType
{
public:
    explicit PointerType(std::unique_ptr<BaseType> targetType)
        : BaseType(targetType->depth()), target(std::move(targetType))
    {}
    QString toString() const override { return target->toString() + u'*'; }

    std::unique_ptr<BaseType> target;
};
