#pragma once

#include <QByteArrayView>
#include <QString>
#include <bit>

class MarkerType;

// What all evaluation passes around: a plain record of a kind, eight bytes, a size and a text, copied freely.
// Integers are held in 64 bits and narrowed to their size when they are read.
class ExpressionValue
{
public:
    enum Kind : quint32 { Boolean, Signed, Unsigned, String, Marker, Float, None };

    ExpressionValue() = default; // kind None, size 2
    static ExpressionValue ofBool(bool b) { return {Boolean, b, 1}; }
    // Sizes are bytes; `bitSize` is not 0 for a bit field.
    static ExpressionValue ofSigned(qint64 value, quint32 size = 8, quint32 bitSize = 0)
    {
        return {Signed, quint64(value), size, bitSize};
    }
    static ExpressionValue ofUnsigned(quint64 value, quint32 size, quint32 bitSize = 0)
    {
        return {Unsigned, value, size, bitSize};
    }
    // `size` is the length that was read; `number` that of an enumerator.
    static ExpressionValue ofText(const QString &text, quint32 size = 0, quint64 number = 0)
    {
        return {String, number, size, 0, text};
    }
    static ExpressionValue ofFloat(double value, quint32 size = 8)
    {
        return {Float, std::bit_cast<quint64>(value), size};
    }
    // The marker must outlive the value; null gives a value of kind None.
    static ExpressionValue ofMarker(MarkerType *marker);
    // Text of a target: up to the first NUL, at most all of `bytes`. `escape` shows what isn't printable as C
    // does, else bytes are taken as Latin-1; `quote` puts double quotes around it. The size is what was read.
    static ExpressionValue ofCText(QByteArrayView bytes, bool escape, bool quote);

    Kind kind() const { return m_kind; }
    quint32 size() const { return m_size; }
    quint32 bitSize() const { return m_bitSize; }
    const QString &text() const { return m_text; }
    // Only the kind changes, except that the low half of a 4-byte value becomes a number when it is read as `float`.
    void setKind(Kind kind);

    // Kinds that a number can't be made of give 0. A float is cut towards zero; beyond 64 bits the nearest
    // bound is given and NaN is 0.
    qint64 asSigned() const;
    // A float gives its bits: 32 of them at size 4, 64 at 8, else 0.
    quint64 asUnsigned() const;
    double asDouble() const;
    bool asBool() const { return m_payload & 0xFF; }
    bool isNumeric() const { return m_kind == Signed || m_kind == Unsigned || m_kind == Float; }
    bool isInteger() const { return m_kind == Signed || m_kind == Unsigned; }
    MarkerType *marker() const;

    // The C name of the kind and size, "unknown" for what has none. `byteForChar`: a 1-byte signed is "byte".
    QString typeName(bool byteForChar = false) const;

    bool operator==(const ExpressionValue &other) const;

private:
    ExpressionValue(Kind kind, quint64 payload, quint32 size, quint32 bitSize = 0, const QString &text = {})
        : m_kind(kind), m_size(size), m_payload(payload), m_bitSize(bitSize), m_text(text)
    {}

    Kind m_kind = None;
    quint32 m_size = 2;
    quint64 m_payload = 0; // the boolean in the low byte, the integer, a double's bits or a marker's address
    quint32 m_bitSize = 0;
    QString m_text;
};
