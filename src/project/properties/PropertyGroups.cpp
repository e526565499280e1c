#include "project/properties/PropertyGroups.h"

#include "base/Log.h"
#include "project/properties/LoadProblem_p.h"

#include <QFileInfo>
#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

QString textOf(const XMLElement &element, const char *name)
{
    return QString::fromUtf8(element.attribute(name));
}

PropertyTexts textsOf(const XMLElement &element)
{
    const QString page = textOf(element, "page");
    return {page.isEmpty() ? u"General"_s : page, textOf(element, "group"), textOf(element, "short"),
            textOf(element, "long")};
}

// As C reads numbers: decimal, 0x, 0.
int orderOf(const XMLElement &element)
{
    return int(std::strtol(element.attribute("order").toByteArray().constData(), nullptr, 0));
}

QStringList choicesOf(const XMLElement &element)
{
    QStringList choices;
    for (const XMLElement *entry = element.firstChildElement("groupEntry"); entry;
         entry = entry->nextSiblingElement("groupEntry")) {
        const QString family = textOf(*entry, "family");
        choices.append(family.isEmpty() ? textOf(*entry, "name") : textOf(*entry, "name") + "~~"_L1 + family);
    }
    return choices;
}

using Contribution = PropertyValueGroupClass::Contribution;

struct ContributionTag
{
    const char *tag;
    Contribution::Kind kind;
};
constexpr ContributionTag contributionTags[] = {
    {"cdefine", Contribution::Define}, {"cinclude", Contribution::Include},  {"library", Contribution::Library},
    {"macro", Contribution::Macro},    {"property", Contribution::Property}, {"file", Contribution::File},
};

} // namespace

bool Contribution::appliesTo(const QString &built, const QStringList &inherited) const
{
    return configuration == "Common"_L1 || configuration == built || inherited.contains(configuration);
}

QString Contribution::text() const
{
    if (kind == Include)
        return value;
    return value.isNull() ? name : name + u'=' + value;
}

PropertyValueGroupClass::PropertyValueGroupClass(const XMLElement &element)
    : PropertyClass(textOf(element, "name"), PropertyType::Enumeration, choicesOf(element), textsOf(element),
                    textOf(element, "default"), orderOf(element))
{
    for (const XMLElement *made = element.firstChildElement("groupEntry"); made;
         made = made->nextSiblingElement("groupEntry")) {
        Entry &entry = m_entries.emplace_back(Entry{textOf(*made, "name"), {}});
        for (const XMLElement *child = made->firstChildElement(); child; child = child->nextSiblingElement()) {
            const auto known = std::find_if(std::begin(contributionTags), std::end(contributionTags),
                                            [child](const ContributionTag &row) { return child->name() == row.tag; });
            if (known == std::end(contributionTags))
                continue;
            const bool hasConfiguration = child->hasAttribute("configuration");
            entry.contributions.push_back({known->kind, textOf(*child, "name"), textOf(*child, "value"),
                                           hasConfiguration ? textOf(*child, "configuration") : u"Common"_s,
                                           hasConfiguration, textOf(*child, "property"),
                                           textOf(*child, "property_value"), textOf(*child, "file_name"),
                                           textOf(*child, "folder")});
        }
    }
}

const PropertyValueGroupClass::Entry *PropertyValueGroupClass::entryFor(const QString &value) const
{
    for (const QString &wanted : {value, defaultValue}) {
        const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                        [&wanted](const Entry &entry) { return entry.name == wanted; });
        if (found != m_entries.end())
            return &*found;
    }
    return nullptr;
}

bool PropertyValueGroupFile::loadGroups(const QString &path)
{
    m_groups.clear();
    const bool isRead = load(path, QString(), false);
    if (!isRead || !root()) {
        reportError(loadProblem(path, *this, isRead));
        return false;
    }
    for (const XMLElement *element = root()->firstChildElement("group"); element;
         element = element->nextSiblingElement("group"))
        m_groups.push_back(std::make_unique<PropertyValueGroupClass>(*element));
    return true;
}

PropertyValueGroupClass *PropertyValueGroupFile::group(const QString &key) const
{
    const auto found =
        std::find_if(m_groups.begin(), m_groups.end(), [&key](const auto &known) { return known->name == key; });
    return found == m_groups.end() ? nullptr : found->get();
}

void PropertyValueGroupFile::reportError(const QString &message)
{
    logMessage(logWarnings, "warning", 1, "%s", qPrintable(message));
}

const PropertyValueGroupFile *PropertyValueGroupFiles::file(const QString &path)
{
    const QFileInfo info(path);
    const auto known =
        std::find_if(m_files.begin(), m_files.end(), [&path](const Loaded &loaded) { return loaded.path == path; });
    if (!info.isFile()) {
        if (known != m_files.end()) {
            m_former.push_back(std::move(known->file));
            m_files.erase(known);
        }
        return nullptr;
    }
    if (known == m_files.end())
        m_files.push_front({path, {}, std::make_unique<PropertyValueGroupFile>()});
    else
        m_files.splice(m_files.begin(), m_files, known);
    Loaded &front = m_files.front();
    if (front.time != info.lastModified()) {
        front.time = info.lastModified();
        m_former.push_back(std::move(front.file));
        front.file = std::make_unique<PropertyValueGroupFile>();
        front.file->loadGroups(path);
    }
    return front.file.get();
}

void PropertyValueGroupFiles::clear()
{
    m_files.clear();
    m_former.clear();
}

bool PropertyValueGroupFiles::haveChanged() const
{
    return std::any_of(m_files.begin(), m_files.end(),
                       [](const Loaded &loaded) { return loaded.time != QFileInfo(loaded.path).lastModified(); });
}
