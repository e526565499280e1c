#include "project/model/PropertyLookup.h"

#include "project/model/ProjectElement.h"

#include <optional>

using namespace Qt::StringLiterals;

namespace {

std::optional<QString> localValue(const ProjectElement &node, const QString &key, const QString &configuration)
{
    const ProjectElement *values = node.configuration(configuration);
    if (!values)
        return std::nullopt;
    const auto found = values->properties().constFind(key);
    return found == values->properties().constEnd() ? std::nullopt : std::optional(*found);
}

// Asks one node and hands each answer to `take` until that gives true.
template <typename Take>
bool askNode(const ProjectElement &node, const QString &key, const QString &configuration, const Take &take)
{
    const auto ask = [&](const QString &name) {
        const std::optional<QString> value = localValue(node, key, name);
        return value && take(*value, name);
    };
    if (node.configurations().isEmpty())
        return false;
    if (ask(configuration))
        return true;
    if (configuration == "Common"_L1)
        return false;
    for (const QString &inherited : inheritedConfigurations(&node, configuration)) {
        if (inherited != "Common"_L1 && ask(inherited))
            return true;
    }
    return ask(u"Common"_s);
}

} // namespace

QString propertyValue(const ProjectElement *element, const PropertyClass &propertyClass, const QString &configuration,
                      PropertyTrace *trace)
{
    const bool isList = propertyClass.type == PropertyType::StringList;
    std::optional<QString> result;
    for (const ProjectElement *node = element; node; node = node->parentElement()) {
        const bool isDone =
            askNode(*node, propertyClass.name, configuration, [&](const QString &value, const QString &name) {
                result = result && !result->isEmpty() ? value + u';' + *result : value;
                if (trace)
                    trace->push_back({value, name, node});
                return !isList;
            });
        if (isDone)
            break;
    }
    if (!result && trace)
        trace->push_back({propertyClass.defaultValue, QString(), nullptr});
    return result.value_or(propertyClass.defaultValue);
}

QString sourceOfValue(const ProjectElement *element, const PropertyClass &propertyClass, const QString &configuration)
{
    QString source;
    askNode(*element, propertyClass.name, configuration, [&source](const QString &, const QString &name) {
        source = name;
        return true;
    });
    return source;
}

QStringList inheritedConfigurations(const ProjectElement *element, const QString &configuration)
{
    for (const ProjectElement *node = element; node; node = node->parentElement()) {
        if (node->type() != ProjectElement::Type::Solution)
            continue;
        const QStringList names = localValue(*node, u"inherited_configurations"_s, configuration)
                                      .value_or(QString())
                                      .split(u';', Qt::SkipEmptyParts);
        if (!names.isEmpty())
            return names;
    }
    return {};
}
