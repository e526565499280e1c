// What a ProjectSystem expands, and keeps of it.
#include "project/model/NodeMacros_p.h"

using namespace Qt::StringLiterals;

const MacroMap &ProjectSystem::userMacros(const ProjectElement *element, const QString &configuration) const
{
    const QString text = value(element, ProjectProperty::macros, configuration);
    if (m_lastMacros.text != text || m_lastMacros.generation != changeCount())
        m_lastMacros = {text, changeCount(), readMacroString(expandSystem(text))};
    return m_lastMacros.macros;
}

NodeContext &ProjectSystem::context(const ProjectElement *element, const QString &configuration) const
{
    const quint64 generation = changeCount();
    if (m_lastContext.isFor(element, configuration, generation))
        return *m_lastContext.found;
    const bool isMember = element && element->type() == ProjectElement::Type::File &&
                          element->configurations().isEmpty() && element->parentElement();
    ElementCache &cache = !element ? *m_noNode : isMember ? element->parentElement()->cache() : element->cache();
    bool isCurrent;
    NodeContext &found =
        cachedEntry(isMember ? cache.memberContexts : cache.ownContexts, configuration, generation, isCurrent);
    if (!isCurrent)
        NodeMacros::fill(*this, element, found);
    m_lastContext = {&found, element, configuration, generation};
    return found;
}

const void *ProjectSystem::contextOf(const ProjectElement *element, const QString &configuration) const
{
    return &context(element, configuration);
}

QString ProjectSystem::expand(const ProjectElement *element, const QString &configuration, const QString &text,
                              const MacroMap &extra, bool *isOwn) const
{
    if (!text.contains(u'$'))
        return text;
    NodeMacros macros(*this, element, context(element, configuration), extra.isEmpty() ? nullptr : &extra);
    const QString expanded = expandMacros(macros, text);
    if (isOwn)
        *isOwn |= macros.isOwn();
    return expanded;
}

QString ProjectSystem::expandedValue(const ProjectElement *element, ProjectProperty property,
                                     const QString &configuration, bool *isOwn) const
{
    const QString raw = value(element, property, configuration);
    if (!raw.contains(u'$'))
        return raw;
    NodeContext &shared = context(element, configuration);
    if (const QString *known = shared.values.find(quint32(property)))
        return *known;
    NodeMacros macros(*this, element, shared);
    const MacroPattern *pattern = shared.patterns.find(quint32(property));
    if (pattern && pattern->isUsable && !element->cache().isResolving) {
        if (isOwn)
            *isOwn = true;
        return macros.expand(*pattern);
    }
    const QString expanded = expandMacros(macros, raw);
    if (!macros.isOwn()) {
        shared.values.insert(quint32(property), expanded);
        return expanded;
    }
    if (isOwn)
        *isOwn = true;
    if (element && !pattern)
        shared.patterns.insert(quint32(property), macros.patternOf(raw));
    return expanded;
}

QStringList ProjectSystem::propertyList(const ProjectElement *element, ProjectProperty property,
                                        const QString &configuration, int options, bool *isOwn) const
{
    NodeContext &shared = context(element, configuration);
    const quint32 key = quint32(property) << 8 | quint32(options);
    if (const QStringList *known = shared.lists.find(key))
        return *known;
    bool isItsOwn = false;
    const QStringList items =
        listItems(element, value(element, property, configuration), configuration, options, &isItsOwn);
    if (!isItsOwn)
        shared.lists.insert(key, items);
    else if (isOwn)
        *isOwn = true;
    return items;
}

QStringList ProjectSystem::propertyList(const ProjectElement *element, const PropertyClass &propertyClass,
                                        const QString &configuration, int options, bool *isOwn) const
{
    if (const auto id = m_schema.idOf(&propertyClass))
        return propertyList(element, *id, configuration, options, isOwn);
    return listItems(element, value(element, propertyClass, configuration), configuration, options, isOwn);
}

QStringList ProjectSystem::listItems(const ProjectElement *element, const QString &text, const QString &configuration,
                                     int options, bool *isOwn) const
{
    QStringList items = options & EscapedList ? splitAtSemicolons(text) : text.split(u';', Qt::SkipEmptyParts);
    if (options & ExpandItems) {
        for (QString &item : items)
            item = expand(element, configuration, item, {}, isOwn);
        items.removeAll(QString());
    }
    return items;
}

MacroMap ProjectSystem::buildMacros(const ProjectElement *element, const QString &configuration) const
{
    return NodeMacros(*this, element, context(element, configuration)).all();
}
