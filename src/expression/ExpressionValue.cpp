#include "expression/ExpressionValue.h"

#include "expression/MarkerType.h"

#include <cctype>
#include <cmath>

using namespace Qt::StringLiterals;

ExpressionValue ExpressionValue::ofMarker(MarkerType *marker)
{
    if (!marker)
        return {};
    return {Marker, quint64(reinterpret_cast<quintptr>(marker)), 0};
}

ExpressionValue ExpressionValue::ofCText(QByteArrayView bytes, bool escape, bool quote)
{
    const qsizetype nul = bytes.indexOf('\0');
    if (nul >= 0)
        bytes.truncate(nul);
    QByteArray text;
    if (quote)
        text += '"';
    for (const char c : bytes) {
        const uchar code = uchar(c);
        if (!escape || (code < 0x80 && std::isprint(code))) {
            text += c;
        } else {
            text += '\\';
            if (code >= 7 && code <= 13)
                text += "abtnvfr"[code - 7];
            else
                text += QByteArray::number(code, 8).rightJustified(3, '0');
        }
    }
    if (quote)
        text += '"';
    return ofText(QString::fromLatin1(text), quint32(bytes.size()));
}

void ExpressionValue::setKind(Kind kind)
{
    const bool holdsFloat = m_size == 4 || (m_size == 0 && m_bitSize == 32);
    if (kind == Float && (m_kind == Boolean || isInteger()) && holdsFloat)
        m_payload = std::bit_cast<quint64>(double(std::bit_cast<float>(quint32(m_payload))));
    m_kind = kind;
}

qint64 ExpressionValue::asSigned() const
{
    switch (m_kind) {
    case Boolean: return m_payload & 0xFF;
    case Signed:
    case Unsigned: {
        const quint32 bits = m_bitSize ? m_bitSize : m_size == 1 || m_size == 2 || m_size == 4 ? 8 * m_size : 64;
        const quint32 unused = 64 - qMin(bits, 64u);
        return qint64(m_payload << unused) >> unused;
    }
    case Float: {
        const double value = std::bit_cast<double>(m_payload);
        if (std::isnan(value))
            return 0;
        if (value >= 0x1p63)
            return std::numeric_limits<qint64>::max();
        return value < -0x1p63 ? std::numeric_limits<qint64>::min() : qint64(value);
    }
    default: return 0;
    }
}

quint64 ExpressionValue::asUnsigned() const
{
    switch (m_kind) {
    case Boolean: return m_payload & 0xFF;
    case Signed:
    case Unsigned:
        switch (m_size) {
        case 1: return quint8(m_payload);
        case 2: return quint16(m_payload);
        case 4: return quint32(m_payload);
        default: return m_payload;
        }
    case Float:
        if (m_size == 4)
            return std::bit_cast<quint32>(float(std::bit_cast<double>(m_payload)));
        return m_size == 8 ? m_payload : 0;
    default: return 0;
    }
}

double ExpressionValue::asDouble() const
{
    switch (m_kind) {
    case Boolean: return double(m_payload & 0xFF);
    case Signed: return double(asSigned());
    case Unsigned: return double(asUnsigned());
    case Float: return std::bit_cast<double>(m_payload);
    default: return 0;
    }
}

MarkerType *ExpressionValue::marker() const
{
    return m_kind == Marker ? reinterpret_cast<MarkerType *>(quintptr(m_payload)) : nullptr;
}

QString ExpressionValue::typeName(bool byteForChar) const
{
    const auto integerName = [this](const QString &one) {
        switch (m_size) {
        case 1: return one;
        case 2: return u"short"_s;
        case 4: return u"int"_s;
        case 8: return u"long long"_s;
        default: return QString();
        }
    };
    QString name;
    switch (m_kind) {
    case Boolean: return u"boolean"_s;
    case Signed: name = integerName(byteForChar ? u"byte"_s : u"char"_s); break;
    case Unsigned:
        name = integerName(u"char"_s);
        if (!name.isEmpty())
            name.prepend(u"unsigned ");
        break;
    case String: return u"string"_s;
    case Marker: return u"marker"_s;
    case Float: return m_size == 4 ? u"float"_s : u"double"_s;
    case None: break;
    }
    return name.isEmpty() ? u"unknown"_s : name;
}

bool ExpressionValue::operator==(const ExpressionValue &other) const
{
    if (m_kind != other.m_kind)
        return false;
    switch (m_kind) {
    case Boolean: return asBool() == other.asBool();
    case Signed:
    case Unsigned: return m_size == other.m_size && m_payload == other.m_payload;
    case String: return m_text == other.m_text;
    case Marker: return marker()->equals(*other.marker());
    case Float: return m_size == other.m_size && asDouble() == other.asDouble();
    case None: return true;
    }
    return false;
}
