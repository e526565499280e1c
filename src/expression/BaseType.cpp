#include "expression/BaseType.h"

#include "expression/Expression.h"

#include <QStringList>

using namespace Qt::StringLiterals;

QString SimpleType::toString() const
{
    static constexpr const char *names[] = {"char", "short", "int", "long", "long long", "float", "double"};
    const QString name = QString::fromLatin1(names[code]);
    return isUnsigned && code <= LongLong ? u"unsigned "_s + name : name;
}

QString StructType::toString() const
{
    QString text;
    for (const Field &field : fields) {
        text += field.type->toString() + u' ' + field.name;
        if (field.bitCount)
            text += u':' + QString::number(field.bitCount);
        text += u';';
    }
    return text;
}

QString RegisterType::toString() const
{
    QStringList words;
    for (const Field &field : fields)
        words += {field.name, QString::number(field.bitSize), QString::number(field.bitOffset)};
    return words.join(u' ');
}

ArrayType::ArrayType(std::unique_ptr<BaseType> elementType, std::unique_ptr<Expression> elementCount)
    : BaseType(qMax(elementType->depth(), elementCount->depth())),
      element(std::move(elementType)),
      count(std::move(elementCount))
{}

ArrayType::~ArrayType() = default;

QString ArrayType::toString() const
{
    return element->toString() + u'[' + count->toString() + u']';
}
