#pragma once

#include <QAnyStringView>
#include <QByteArray>
#include <QString>
#include <concepts>

// Writes one JSON document into a buffer, keys in the order in which they are given. Commas and line breaks
// come by themselves: each entry stands on a line of its own.
//
//     JsonWriter json;
//     json.beginObject();
//     json.field("name", u"main");
//     json.beginArray("lines"); json.value(12); json.end();
//     json.end();
//     printOut(json.text());
//
// A key belongs to every entry of an object and to none of an array. Text that isn't valid Unicode is shown
// with replacement characters.
class JsonWriter
{
public:
    void beginObject(const char *key = nullptr) { begin(key, '{'); }
    void beginArray(const char *key = nullptr) { begin(key, '['); }
    void end();

    void field(const char *key, QAnyStringView text);
    void field(const char *key, qint64 number);
    void field(const char *key, quint64 number);
    void field(const char *key, int number) { field(key, qint64(number)); }
    void field(const char *key, quint32 number) { field(key, qint64(number)); }
    // The shortest digits that read back as the same number; null for infinities and NaN, which JSON lacks.
    void field(const char *key, double number);
    template <std::same_as<bool> Flag> // a template, so that no pointer turns into a truth value
    void field(const char *key, Flag flag)
    {
        rawField(key, flag ? "true" : "false");
    }
    void nullField(const char *key) { rawField(key, "null"); }
    // As an address: "0x" and 8 lower-case digits.
    void addressField(const char *key, quint32 address);

    void value(QAnyStringView text) { field(nullptr, text); }
    void value(qint64 number) { field(nullptr, number); }

    // The document so far, with a line feed at its end.
    QByteArray text() const { return m_text + '\n'; }
    void clear();

private:
    void begin(const char *key, char bracket);
    void startEntry(const char *key);
    void rawField(const char *key, QByteArrayView token);

    QByteArray m_text;
    QByteArray m_open; // the closing brackets that are due, innermost last
    bool m_isFirst = true;
};
