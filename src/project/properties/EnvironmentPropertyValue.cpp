#include "project/properties/EnvironmentPropertyValue.h"

#include "xml/settings/EnvironmentSettings.h"

EnvironmentPropertyValue::EnvironmentPropertyValue(const PropertyClass *propertyClass, EnvironmentSettings *settings)
    : PropertyValue(propertyClass), m_settings(settings)
{
    connect(settings, &EnvironmentSettings::changed, this, [this](const QString &key) {
        if (key == this->propertyClass()->name)
            Q_EMIT changed(this);
    });
}

std::unique_ptr<PropertyValue> EnvironmentPropertyValue::clone() const
{
    return std::make_unique<EnvironmentPropertyValue>(propertyClass(), m_settings);
}

void EnvironmentPropertyValue::setValue(const QString &text)
{
    m_settings->setValue(propertyClass()->name, text);
}

QString EnvironmentPropertyValue::value() const
{
    return m_settings->value(propertyClass()->name);
}
