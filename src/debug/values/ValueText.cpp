#include "debug/values/ValueText.h"

#include "base/IntegerReader.h"
#include "debug/values/VarInfo.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// How many digits a value of a size has in a radix: those it is padded to and cut to.
struct Digits
{
    int radix;
    quint32 size;
    int width, limit;
};
constexpr Digits digitRows[] = {
    {16, 1, 2, 2},  {16, 2, 4, 4},  {16, 4, 8, 8},  {16, 8, 16, 16}, {8, 1, 3, 3},   {8, 2, 5, 5},
    {8, 4, 11, 11}, {8, 8, 21, 21}, {2, 1, 8, 8},   {2, 2, 16, 16},  {2, 4, 32, 32}, {2, 8, 64, 64},
    {10, 1, 0, 3},  {10, 2, 0, 5},  {10, 4, 0, 10}, {10, 8, 0, 19},
};

QString digitsOf(const ExpressionValue &value, int radix)
{
    int width = 0, limit = 0; // 0: neither padded nor cut
    if (value.bitSize() && (radix == 16 || radix == 2)) {
        width = limit = int(radix == 16 ? value.bitSize() / 4 + (value.bitSize() % 4 != 0) : value.bitSize());
    } else {
        for (const Digits &row : digitRows) {
            if (row.radix == radix && row.size == value.size()) {
                width = row.width;
                limit = row.limit;
            }
        }
    }
    const QString digits = QString::number(value.asUnsigned(), radix).rightJustified(width, u'0');
    const QString prefix = radix == 16 ? u"0x"_s : radix == 8 ? u"0"_s : radix == 2 ? u"0b"_s : QString();
    return prefix + (limit ? digits.right(limit) : digits);
}

QString floatText(double value, const char *format)
{
    if (std::isnan(value))
        return u"NaN"_s;
    if (std::isinf(value))
        return value < 0 ? u"-Inf"_s : u"Inf"_s;
    return QString::asprintf(format, value);
}

} // namespace

QString toText(const ExpressionValue &value, int radix, bool asUnsigned, bool asChar, const char *floatFormat)
{
    switch (value.kind()) {
    case ExpressionValue::Boolean: return value.asBool() ? u"true"_s : u"false"_s;
    case ExpressionValue::String: return value.text();
    case ExpressionValue::Marker: {
        const auto *place = dynamic_cast<const DebugMarkerType *>(value.marker());
        return place ? place->toString(0) : QString();
    }
    case ExpressionValue::None: return {};
    default: break;
    }
    if (asChar) {
        const quint64 code = value.asUnsigned();
        if (code >= 0x20 && code <= 0x7E)
            return QChar(ushort(code));
        return u"\\u"_s + QString::number(quint16(code), 16).rightJustified(4, u'0');
    }
    if (radix == 10 && value.kind() == ExpressionValue::Float)
        return floatText(value.asDouble(), floatFormat);
    if (radix == 10 && value.kind() == ExpressionValue::Signed && !asUnsigned)
        return QString::number(value.asSigned());
    return digitsOf(value, radix);
}

ExpressionValue fromText(const ExpressionValue &prototype, const QString &text)
{
    switch (prototype.kind()) {
    case ExpressionValue::Boolean:
        if (text == u"true" || text == u"false")
            return ExpressionValue::ofBool(text == u"true");
        return {};
    case ExpressionValue::Signed:
        return ExpressionValue::ofSigned(qint64(readInteger(text)), prototype.size(), prototype.bitSize());
    case ExpressionValue::Unsigned:
        return ExpressionValue::ofUnsigned(quint64(readInteger(text)), prototype.size(), prototype.bitSize());
    case ExpressionValue::Float:
        return ExpressionValue::ofFloat(std::strtod(text.toUtf8().constData(), nullptr), prototype.size());
    case ExpressionValue::String: return ExpressionValue::ofText(text, prototype.size());
    case ExpressionValue::Marker:
        if (auto *place = dynamic_cast<DebugMarkerType *>(prototype.marker()))
            place->setAddress(text);
        return prototype;
    case ExpressionValue::None: break;
    }
    return {};
}

QString characterText(const ExpressionValue &value)
{
    const bool isSigned = value.kind() == ExpressionValue::Signed; // of a bit field more bits than it has
    const quint8 code = quint8(isSigned ? value.asSigned() : qint64(value.asUnsigned()));
    QString character;
    if (code == '\'' || code == '\\')
        character = u'\\' + QString(QLatin1Char(char(code)));
    else if (code == 0)
        character = u"\\000"_s;
    else if (code == 0x1B)
        character = u"\\033"_s;
    else
        character = ExpressionValue::ofCText(QByteArray(1, char(code)), true, false).text();
    return (isSigned ? QString::number(value.asSigned()) : QString::number(code)) + u" '"_s + character + u'\'';
}
