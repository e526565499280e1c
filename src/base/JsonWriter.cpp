#include "base/JsonWriter.h"

#include <QLocale>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

void appendQuoted(QByteArray &out, QByteArrayView utf8)
{
    out += '"';
    for (const char c : utf8) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        default:
            if (uchar(c) < 0x20) {
                out += "\\u00";
                out += QByteArray::number(uchar(c), 16).rightJustified(2, '0');
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

} // namespace

void JsonWriter::startEntry(const char *key)
{
    if (!m_isFirst)
        m_text += ',';
    if (!m_open.isEmpty()) {
        m_text += '\n';
        m_text.append(m_open.size(), ' ');
    }
    m_isFirst = false;
    if (key) {
        appendQuoted(m_text, key);
        m_text += ": ";
    }
}

void JsonWriter::begin(const char *key, char bracket)
{
    startEntry(key);
    m_text += bracket;
    m_open += bracket == '{' ? '}' : ']';
    m_isFirst = true;
}

void JsonWriter::end()
{
    const char bracket = m_open.back();
    m_open.chop(1);
    if (!m_isFirst) {
        m_text += '\n';
        m_text.append(m_open.size(), ' ');
    }
    m_text += bracket;
    m_isFirst = false;
}

void JsonWriter::field(const char *key, QAnyStringView text)
{
    startEntry(key);
    appendQuoted(m_text, text.toString().toUtf8());
}

void JsonWriter::field(const char *key, qint64 number)
{
    rawField(key, QByteArray::number(number));
}

void JsonWriter::field(const char *key, quint64 number)
{
    rawField(key, QByteArray::number(number));
}

void JsonWriter::field(const char *key, double number)
{
    rawField(key, std::isfinite(number) ? QByteArray::number(number, 'g', QLocale::FloatingPointShortest) : "null"_ba);
}

void JsonWriter::rawField(const char *key, QByteArrayView token)
{
    startEntry(key);
    m_text += token;
}

void JsonWriter::addressField(const char *key, quint32 address)
{
    startEntry(key);
    m_text += "\"0x";
    m_text += QByteArray::number(address, 16).rightJustified(8, '0');
    m_text += '"';
}

void JsonWriter::clear()
{
    m_text.clear();
    m_open.clear();
    m_isFirst = true;
}
