#pragma once

#include <QString>
#include <QStringView>

class ESObject;
class ESString;
class ESSymbol;

// What a value is. The numbers are part of the host interface; 6 is unused.
enum ESType : quint64 {
    esUndefined = 0,
    esNull = 1,
    esBoolean = 2,
    esNumber = 3,
    esString = 4,
    esObject = 5,
    esSymbol = 7, // an interned string; scripts can't tell it from type 4
    esAbsent = 8, // inside the engine only: a hole in an array's elements
};

// A value of a script: passed and stored by value. What it points to lives as long as its context.
struct ESValue
{
    ESType type = esUndefined;
    union {
        double number; // also booleans: 1.0 and 0.0
        ESString *string;
        ESObject *object;
        quint64 bits = 0;
    };

    ESValue() = default;
    ESValue(double value) : type(esNumber), number(value) {}
    ESValue(int value) : type(esNumber), number(value) {}
    ESValue(quint32 value) : type(esNumber), number(value) {}
    explicit ESValue(bool value) : type(esBoolean), number(value ? 1.0 : 0.0) {}
    ESValue(ESObject *value) : type(value ? esObject : esNull), object(value) {}
    inline ESValue(ESString *value);
    inline ESValue(ESSymbol *value);
    ESValue(const void *) = delete;
    static ESValue null() { return ESValue(static_cast<ESObject *>(nullptr)); }

    bool isUndefined() const { return type == esUndefined; }
    bool isNull() const { return type == esNull; }
    bool isBoolean() const { return type == esBoolean; }
    bool isNumber() const { return type == esNumber; }
    bool isString() const { return type == esString || type == esSymbol; }
    bool isObject() const { return type == esObject; }
};

// The characters of a string value: flat, or the concatenation of two others until somebody reads it
// (ESContext::view). Strings never change; equal ones may be different records.
class ESString
{
public:
    quint32 length() const { return m_length; } // in UTF-16 units
    bool isFlat() const { return m_characters; }
    QStringView flat() const { return {m_characters, qsizetype(m_length)}; } // of a flat one only
    bool isSymbol() const { return m_symbol == static_cast<const void *>(this); }

protected:
    friend class ESContext;
    // The room behind a flat string, so that appending to it again and again is linear.
    struct Buffer
    {
        quint32 used;
        quint32 capacity;
    };

    const char16_t *m_characters = nullptr; // null: m_left and m_right in this order
    quint32 m_length = 0;
    quint32 m_unused = 0;
    union {
        Buffer *m_buffer = nullptr; // of a flat one: null if nothing may be appended in place
        ESString *m_left;
    };
    union {
        ESSymbol *m_symbol = nullptr; // of a flat one: its interned twin, once somebody asked for it
        ESString *m_right;
    };
};

// An interned string, one for each text in the process. Property names are symbols, compared by address.
class ESSymbol : public ESString
{
public:
    static constexpr quint32 noIndex = 0xFFFFFFFF;

    const QString &text() const { return m_text; }
    // The integer below 0x7FFFFFFF that the text is the decimal form of, else noIndex.
    quint32 index() const { return m_index; }

private:
    friend class ESSymbolTable;
    explicit ESSymbol(const QString &text);

    QString m_text;
    quint32 m_index;
};

ESValue::ESValue(ESString *value) : type(value->isSymbol() ? esSymbol : esString), string(value) {}
ESValue::ESValue(ESSymbol *value) : type(esSymbol), string(value) {}

// The symbol of a text, made on first use. The table belongs to the process and has no locks: contexts on
// different threads must not run at the same time.
ESSymbol *esIntern(QStringView text);
ESSymbol *esIntern(const char *latin1);
ESSymbol *esSymbolOf(quint32 index); // its decimal digits; 0 to 1023 without a search

// The names that the engine itself needs.
struct ESNames
{
    ESSymbol *empty, *length, *prototype, *constructor, *arguments, *callee, *index, *eval, *null, *undefined, *true_,
        *false_, *name, *message, *fileName, *lineNumber, *sourceLine, *stack, *toString, *valueOf, *help, *anonymous;
};
const ESNames &esNames();
