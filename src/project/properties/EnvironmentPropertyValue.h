#pragma once

#include "project/properties/PropertyValue.h"

#include <QObject>

class EnvironmentSettings;

// An option of the environment; the class's name is its key. The settings keep the value and write it.
class EnvironmentPropertyValue : public QObject, public PropertyValue
{
    Q_OBJECT

public:
    // Both outlive this.
    EnvironmentPropertyValue(const PropertyClass *propertyClass, EnvironmentSettings *settings);

    using PropertyValue::setValue;
    std::unique_ptr<PropertyValue> clone() const override;
    void setValue(const QString &text) override;
    QString value() const override;

Q_SIGNALS:
    void changed(EnvironmentPropertyValue *value); // through this or anything else

private:
    EnvironmentSettings *m_settings;
};
