#include "project/properties/PropertyValue.h"

#include "base/Log.h"

#include <algorithm>

PropertyValue::PropertyValue(const PropertyClass *propertyClass)
    : m_class(propertyClass), m_isReadOnly(propertyClass && propertyClass->isReadOnly)
{}

void PropertyValue::setValue(int number)
{
    const auto warn = [](const char *text) { logMessage(logWarnings, "warning", 1, "%s", text); };
    if (m_class->isListed()) {
        const QStringList entries = m_class->enumerates();
        if (number < 0 || number >= entries.size()) {
            warn("PropertyValue::setValue(int): Setting an enumeration to a value which isn't in its enumerates");
            warn(qPrintable(QStringLiteral("--- setting %1 to %2").arg(m_class->name, QString::number(number))));
        }
        setValue(entries.value(number, QStringLiteral("")));
        return;
    }
    switch (m_class->type) {
    case PropertyType::IntegerHex: setValue(hexadecimalText(number, m_class->maximum)); break;
    case PropertyType::Integer:
    case PropertyType::IntegerRange: setValue(QString::number(number)); break;
    default: warn("PropertyValue::setValue(int): Setting a non-integer property");
    }
}

void PropertyValue::setValue(bool isTrue)
{
    if (m_class->type != PropertyType::Boolean)
        logMessage(logWarnings, "warning", 1, "PropertyValue::setValue(int): Setting a non-Boolean property");
    setValue(isTrue ? 1 : 0);
}

PropertyValue *PropertyValueList::appendUnique(std::unique_ptr<PropertyValue> value)
{
    if (!value || !value->propertyClass()) {
        logMessage(logErrors, "error", 1, "Bad property value in PropertyValueList::appendUnique");
        return nullptr;
    }
    if (PropertyValue *known = valueOf(value->propertyClass()))
        return known;
    const auto behind = std::upper_bound(m_values.begin(), m_values.end(), value->propertyClass()->shortText,
                                         [](const QString &text, const std::unique_ptr<PropertyValue> &other) {
                                             return QString::compare(text, other->propertyClass()->shortText) < 0;
                                         });
    return m_values.insert(behind, std::move(value))->get();
}

PropertyValue *PropertyValueList::valueOf(const PropertyClass *propertyClass) const
{
    const auto found = std::find_if(m_values.begin(), m_values.end(), [propertyClass](const auto &value) {
        return value->propertyClass() == propertyClass;
    });
    return found == m_values.end() ? nullptr : found->get();
}
