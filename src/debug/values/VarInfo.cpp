#include "debug/values/VarInfo.h"

#include "debug/values/DwarfExpressionEvaluator.h"

using namespace Qt::StringLiterals;

QString VarInfo::toString(quint32 extraOffset) const
{
    QString text;
    if (kind == Constant)
        return text;
    if (kind == Register)
        text = registerName();
    else
        text =
            u"0x"_s +
            QString::number(quint32(address) + offset + extraOffset, 16).rightJustified(qsizetype(2 * wordSize), u'0');
    if (const char *space = spaceName())
        text += u':' + QString::fromLatin1(space);
    if (isBitField()) {
        const qint64 end = qint64(size) * 8 - bitOffset;
        text += u" <%1-%2>"_s.arg(end - bitSize).arg(end - 1);
    }
    return text;
}

ExpressionValue VarInfo::value() const
{
    return evaluator->readValue(*this);
}

bool VarInfo::equals(const MarkerType &other) const
{
    const auto *place = dynamic_cast<const VarInfo *>(&other);
    return place && place->kind == kind && place->address == address && place->offset == offset &&
           place->bitOffset == bitOffset && place->bytes == bytes;
}

bool VarInfo::lessThan(const DebugMarkerType &other) const
{
    const auto *place = dynamic_cast<const VarInfo *>(&other);
    if (!place)
        return false;
    if (kind != place->kind)
        return kind < place->kind;
    if (address != place->address)
        return kind == Register ? registerLess(address, place->address) : address < place->address;
    if (offset != place->offset)
        return offset < place->offset;
    return littleEndian ? bitOffset < place->bitOffset : place->bitOffset < bitOffset;
}

quint64 VarInfo::setAddress(const QString &text)
{
    address = kind == Register ? quint64(evaluator->registerNumber(text)) : text.toULongLong();
    return address;
}

QString VarInfo::registerName() const
{
    return evaluator->registerName(quint32(address));
}
