#pragma once

#include "base/CommandLine.h"
#include "base/JsonWriter.h"

// Results of a verb as they come: an array of objects (or one object), or lines of text. The exit status is 1 when
// something that was asked for isn't there.
class Results
{
public:
    enum Document { Array, OneObject };

    explicit Results(const CommandArguments &arguments, Document document = Array) : m_isJson(arguments.has("json"))
    {
        if (m_isJson && document == Array)
            json.beginArray();
        else if (m_isJson)
            json.beginObject();
    }
    bool isJson() const { return m_isJson; }
    void line(const QString &text)
    {
        if (!m_isJson)
            printOut(text + u'\n');
    }
    void notFound() { m_status = 1; }
    int finish()
    {
        if (m_isJson) {
            json.end();
            printOut(QByteArrayView(json.text()));
        }
        return m_status;
    }

    JsonWriter json;

private:
    bool m_isJson;
    int m_status = 0;
};

// A text that may be missing.
inline void textField(JsonWriter &json, const char *key, const QString &text)
{
    if (text.isEmpty())
        json.nullField(key);
    else
        json.field(key, text);
}
