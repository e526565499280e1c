#include "project/properties/PropertyClass.h"

#include "xml/macros/MacroExpansion.h"
#include "xml/settings/EnvironmentSettings.h"
#include "xml/tree/XMLNode.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

// In the order of the numbers.
constexpr std::array typeNames = {
    "Boolean", "Integer",     "IntegerHex",  "IntegerRange", "String", "FileName",       "ProjFileName", "StringList",
    "DirPath", "DirPathList", "Enumeration", "Color",        "Font",   "FixedPitchFont", "Custom",       "JavaScript"};

QString attributeText(const XMLElement &element, const char *name)
{
    return QString::fromUtf8(element.attribute(name));
}

QStringList enumerationOf(const XMLElement &element)
{
    return attributeText(element, "enumeration").split(u';', Qt::SkipEmptyParts);
}

} // namespace

QString typeName(PropertyType type)
{
    const auto number = size_t(type);
    return number < typeNames.size() ? QString::fromLatin1(typeNames[number]) : u"Unknown"_s;
}

std::optional<PropertyType> propertyTypeNamed(const QString &name)
{
    const auto found = std::find_if(typeNames.begin(), typeNames.end(),
                                    [&name](const char *known) { return name == QLatin1StringView(known); });
    if (found == typeNames.end())
        return std::nullopt;
    return PropertyType(found - typeNames.begin());
}

QString hexadecimalText(int value, int maximum)
{
    const auto width = QString::number(uint(maximum), 16).size();
    return u"0x"_s + QString::number(uint(value), 16).rightJustified(width, u'0');
}

PropertyClass::PropertyClass(const QString &key, PropertyType itsType, const PropertyTexts &texts,
                             const QString &valueByDefault, int itsOrder)
    : name(key), defaultValue(valueByDefault), type(itsType), order(itsOrder)
{
    if (type == PropertyType::Boolean && defaultValue.isNull())
        defaultValue = u"No"_s;
    setTexts(texts);
}

PropertyClass::PropertyClass(const QString &key, PropertyType itsType, int lowest, int highest,
                             const PropertyTexts &texts, int valueByDefault, int itsOrder)
    : PropertyClass(key, itsType, texts,
                    itsType == PropertyType::IntegerHex ? hexadecimalText(valueByDefault, highest)
                                                        : QString::number(valueByDefault),
                    itsOrder)
{
    minimum = lowest;
    maximum = highest;
}

PropertyClass::PropertyClass(const QString &key, PropertyType itsType, const QStringList &entries,
                             const PropertyTexts &texts, const QString &valueByDefault, int itsOrder)
    : PropertyClass(key, itsType, texts, valueByDefault, itsOrder)
{
    setChoices(entries);
}

PropertyClass::PropertyClass(const QString &key, const PropertyTexts &texts, bool valueByDefault, int itsOrder)
    : PropertyClass(key, PropertyType::Boolean, texts, valueByDefault ? u"Yes"_s : u"No"_s, itsOrder)
{}

PropertyClass::PropertyClass(const XMLElement &element)
    : PropertyClass(attributeText(element, "name"),
                    propertyTypeNamed(attributeText(element, "type")).value_or(PropertyType::Boolean),
                    {attributeText(element, "page"), attributeText(element, "group"), attributeText(element, "short"),
                     attributeText(element, "long")},
                    attributeText(element, "default"), attributeText(element, "order").toInt())
{
    setChoices(enumerationOf(element));
    minimum = attributeText(element, "minimum").toInt();
    maximum = attributeText(element, "maximum").toInt();
    specialText = attributeText(element, "specialvalue");
}

PropertyClass::PropertyClass(const EnvironmentOption &option)
    : PropertyClass(option.key, PropertyType(option.type),
                    {option.page, option.group, option.title, option.description}, option.defaultValue)
{
    minimum = option.minimum;
    maximum = option.maximum;
    specialText = option.specialValueText;
    suffix = option.suffix;
}

void PropertyClass::setTexts(const PropertyTexts &texts)
{
    setPlace(texts.page, texts.group);
    shortText = texts.shortText;
    longText = texts.longText;
}

void PropertyClass::setPlace(const QString &itsPage, const QString &itsGroup)
{
    page = itsPage;
    if (page == "General"_L1 || page == "C/C++"_L1 || page == "Linker"_L1)
        page = u"Code"_s;
    else if (page == "Debugging"_L1)
        page = u"Debug"_s;
    group = itsGroup;
    for (const auto ending : {" Options"_L1, " Settings"_L1}) {
        const qsizetype at = group.indexOf(ending);
        if (at >= 0)
            group.truncate(at);
    }
}

void PropertyClass::setChoices(const QStringList &entries)
{
    choices = entries;
    choiceGroups.clear();
    const auto mark = "~~"_L1;
    if (std::none_of(entries.begin(), entries.end(), [mark](const QString &entry) { return entry.contains(mark); }))
        return;
    for (QString &entry : choices) {
        const qsizetype at = entry.indexOf(mark);
        choiceGroups.append(at < 0 ? QString() : entry.mid(at + 2));
        if (at >= 0)
            entry.truncate(at);
    }
}

QStringList PropertyClass::enumerates() const
{
    if (type == PropertyType::Boolean && choices.isEmpty())
        return {u"No"_s, u"Yes"_s};
    return choices;
}

MacroPropertyClass::MacroPropertyClass(const QString &plainName, Kind kind, const QString &itsLongText)
    : PropertyClass(u"$(%1)"_s.arg(plainName), PropertyType::String,
                    {u"Properties"_s, kind == Kind::Project ? u"(Build Macro Values)"_s : u"System Macro Values"_s,
                     u"$(%1)"_s.arg(plainName), itsLongText}),
      macro(plainName)
{
    isReadOnly = true;
}

GenericPropertyClass::GenericPropertyClass(const XMLElement &element)
    : PropertyClass(element), m_enumerates(enumerationOf(element))
{
    if (element.hasAttribute("options"))
        m_options = QString::fromUtf8(element.attribute("options"));
}

QStringList GenericPropertyClass::optionsOf(const QString &value) const
{
    QStringList options{value};
    if (isListed() && m_options)
        options = {m_options->split(u';').value(enumerates().indexOf(value))};
    else if (type == PropertyType::Boolean)
        options.clear();
    else if (type == PropertyType::StringList)
        options = splitAtSemicolons(value);
    options.removeAll(QString());
    if (m_options && !isListed())
        for (QString &option : options)
            option.prepend(*m_options);
    return options;
}

QStringList GenericPropertyClass::enumerates() const
{
    return m_enumerates.isEmpty() ? PropertyClass::enumerates() : m_enumerates;
}
