#pragma once

#include "project/properties/PropertyClass.h"

#include <vector>

// A property at one place where it has a value. What the place is, the subclasses say.
class PropertyValue
{
public:
    explicit PropertyValue(const PropertyClass *propertyClass);
    virtual ~PropertyValue() = default;

    // Another value of the same class at the same place.
    virtual std::unique_ptr<PropertyValue> clone() const = 0;
    virtual bool isReadOnly() const { return m_isReadOnly; }
    virtual bool isInherited() const { return true; }
    virtual QString description() const { return m_class->description(); }
    virtual void setValue(const QString &text) = 0;
    virtual QString value() const = 0;

    // Of an integer class the number as its text; of an enumeration or Boolean the entry with that index, and
    // the empty text when there is none. Others are left alone. What doesn't fit is logged as a warning.
    void setValue(int number);
    void setValue(bool isTrue);
    void setValue(const char *) = delete; // would be a bool

    const PropertyClass *propertyClass() const { return m_class; }
    void setReadOnly(bool readOnly) { m_isReadOnly = readOnly; }
    bool isChanged() const { return m_isChanged; }
    void setChanged(bool changed) { m_isChanged = changed; }
    bool isVisible() const { return m_isVisible; }
    void setVisible(bool visible) { m_isVisible = visible; }

private:
    const PropertyClass *m_class;
    bool m_isReadOnly;
    bool m_isChanged = false;
    bool m_isVisible = true;
};

// A value of its own.
class SimplePropertyValue : public PropertyValue
{
public:
    explicit SimplePropertyValue(const PropertyClass *propertyClass, const QString &text = {})
        : PropertyValue(propertyClass), m_value(text)
    {}

    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override { return std::make_unique<SimplePropertyValue>(*this); }
    void setValue(const QString &text) override { m_value = text; }
    QString value() const override { return m_value; }

private:
    QString m_value;
};

// One of a dynamic folder's properties while they are edited; nothing is scanned until all are stored.
class DynamicFolderPropertyValue : public SimplePropertyValue
{
public:
    using SimplePropertyValue::SimplePropertyValue;
    std::unique_ptr<PropertyValue> clone() const override
    {
        return std::make_unique<DynamicFolderPropertyValue>(*this);
    }
};

// A text that belongs to somebody else, such as what a template lets its user choose. It outlives this.
class ChooseInfoPropertyValue : public PropertyValue
{
public:
    ChooseInfoPropertyValue(const PropertyClass *propertyClass, QString *slot)
        : PropertyValue(propertyClass), m_slot(slot)
    {}

    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override { return std::make_unique<ChooseInfoPropertyValue>(*this); }
    void setValue(const QString &text) override { *m_slot = text; }
    QString value() const override { return *m_slot; }

private:
    QString *m_slot;
};

// Values by the short text of their classes, at most one of a class.
class PropertyValueList
{
public:
    // The value of that class in the list: the one that was there, else the new one. A null value and one
    // without class are logged as errors and give null.
    PropertyValue *appendUnique(std::unique_ptr<PropertyValue> value);
    PropertyValue *valueOf(const PropertyClass *propertyClass) const; // null when there is none

    size_t size() const { return m_values.size(); }
    PropertyValue &operator[](size_t index) const { return *m_values[index]; }
    auto begin() const { return m_values.begin(); }
    auto end() const { return m_values.end(); }

private:
    std::vector<std::unique_ptr<PropertyValue>> m_values;
};
