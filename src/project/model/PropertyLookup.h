#pragma once

#include "project/properties/PropertyClass.h"

#include <vector>

class ProjectElement;

// How a node's value is found. From the node upwards, across imports, each node with configurations is asked
// for the configuration itself, then for those that it inherits from in their order, then for "Common"; the first
// answer counts, and else the class's default. For "Common" only "Common" is asked.
//
// Of a StringList all answers count, joined by ";": the outermost first and, within a node, the most specific last.
//
// Inheritance isn't transitive: the list in the solution names all. A "Common" in it is passed over there.

// Where a part of a value comes from, in the order found.
struct PropertyContribution
{
    QString value;
    QString configuration;                   // empty: the class's default
    const ProjectElement *element = nullptr; // null: the class's default
};
using PropertyTrace = std::vector<PropertyContribution>;

// The raw text, with macros in it. `trace` gets what contributed.
QString propertyValue(const ProjectElement *element, const PropertyClass &propertyClass, const QString &configuration,
                      PropertyTrace *trace = nullptr);

// The configuration in which this one node answers; null when it doesn't.
QString sourceOfValue(const ProjectElement *element, const PropertyClass &propertyClass, const QString &configuration);

// What the configuration inherits from, by the nearest solution from the element upwards that says something.
QStringList inheritedConfigurations(const ProjectElement *element, const QString &configuration);
