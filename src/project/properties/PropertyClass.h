#pragma once

#include <QList>
#include <QStringList>
#include <memory>
#include <optional>

class XMLElement;
struct EnvironmentOption;

enum class PropertyType : qint32 {
    Boolean = 0,
    Integer = 1,
    IntegerHex = 2,
    IntegerRange = 3,
    String = 4,
    FileName = 5,
    ProjFileName = 6, // relative to the project where possible
    StringList = 7,   // joined by ";"; adds up over configurations and parents
    DirPath = 8,
    DirPathList = 9,
    Enumeration = 10,
    Color = 11, // as QColor names it
    Font = 12,
    FixedPitchFont = 13,
    Custom = 14,
    JavaScript = 15,
    Command = 16,
    SerialPort = 17,
    SaveFileName = 18,
};

// The name that description files have for the type; "Unknown" for those that none can ask for.
QString typeName(PropertyType type);
std::optional<PropertyType> propertyTypeNamed(const QString &name);

// "0x" and as many lower-case digits as `maximum` has, or more if the number needs them. Both are unsigned.
QString hexadecimalText(int value, int maximum);

// Where a property is shown, and how it is called there.
struct PropertyTexts
{
    QString page, group, shortText, longText;
};

// What users can set: what it is called, of which type it is, how it is shown and what holds while nobody has
// set it. The values themselves are PropertyValues; many may share a class, which outlives them.
class PropertyClass
{
public:
    PropertyClass(const QString &name, PropertyType type, const PropertyTexts &texts, const QString &defaultValue = {},
                  int order = 0);
    // Of integers.
    PropertyClass(const QString &name, PropertyType type, int minimum, int maximum, const PropertyTexts &texts,
                  int defaultValue, int order = 0);
    // Of one of `choices`. Where one of them has the form "text~~group", all are cut there.
    PropertyClass(const QString &name, PropertyType type, const QStringList &choices, const PropertyTexts &texts,
                  const QString &defaultValue, int order = 0);
    // A Boolean.
    PropertyClass(const QString &name, const PropertyTexts &texts, bool defaultValue, int order = 0);
    // From the attributes name, type, page, group, short, long, default, minimum, maximum, enumeration (joined
    // by ";"), specialvalue and order. Without a type that is known it is a Boolean.
    explicit PropertyClass(const XMLElement &element);
    explicit PropertyClass(const EnvironmentOption &option);
    PropertyClass(const PropertyClass &) = delete;
    PropertyClass &operator=(const PropertyClass &) = delete;
    virtual ~PropertyClass() = default;

    virtual QString description() const { return longText; }
    // A Boolean's without a list of its own are "No" and "Yes".
    virtual QStringList enumerates() const;
    // What is to be stored in the companion when this value is stored here; none: leave it alone.
    virtual std::optional<QString> derivedValue(const QString &) const { return std::nullopt; }

    QString typeName() const { return ::typeName(type); }
    bool isListed() const { return type == PropertyType::Enumeration || type == PropertyType::Boolean; }

    QString name; // the attribute in project files, the key in settings
    QString page, group;
    QString shortText, longText; // the description may hold simple HTML
    QString suffix;              // unit, behind the value
    QString fileFilter;          // "XML (*.xml)"
    QString defaultValue;
    QString specialText; // shown in place of a special value
    bool isReadOnly = false;
    bool isUserVisible = true;
    bool isMasked = false; // shown as dots
    bool isPersistent = false;
    PropertyType type = PropertyType::Boolean;
    QStringList choices;
    QStringList choiceGroups; // beside the choices; empty when none has a group
    int minimum = 0, maximum = 0;
    int order = 0; // by which lists may sort; negative ones come first
    const PropertyClass *companion = nullptr;

private:
    // Pages and groups have older names, which description files may still use.
    void setPlace(const QString &page, const QString &group);
    void setChoices(const QStringList &entries);
    void setTexts(const PropertyTexts &texts);
};

// A macro as lists show it.
class MacroPropertyClass : public PropertyClass
{
public:
    enum class Kind { Project, System };
    MacroPropertyClass(const QString &macro, Kind kind, const QString &longText);

    QString macro; // without "$(" and ")"
};

// A property that a tool chain's description file adds. Its choices have no groups. The attribute "options" tells
// what a value makes of the tool's command line: of an enumeration and a Boolean the options of its values in their
// order, joined by ";"; of the others what stands before the value. Without it the values are the options, and a
// Boolean makes none.
class GenericPropertyClass : public PropertyClass
{
public:
    explicit GenericPropertyClass(const XMLElement &element);

    QStringList enumerates() const override;
    // What the value stands for; of a StringList an option an item.
    QStringList optionsOf(const QString &value) const;

private:
    QStringList m_enumerates;
    std::optional<QString> m_options;
};

using PropertyClassList = QList<const PropertyClass *>;
