#include "xml/macros/MacroExpansion.h"

#include "xml/macros/SystemMacroTable.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

constexpr QChar lead = u'$';
constexpr int maximumPasses = 100;

// The places where a name is looked up, in their order; null ones are left out.
class TableSource : public MacroSource
{
public:
    TableSource(const SystemMacroTable &table, const MacroMap &macros, bool useGlobal, bool useSystem)
        : m_table(table),
          m_maps{&macros, useGlobal ? &table.globalMacros() : nullptr, useSystem ? &table.systemMacros() : nullptr}
    {}

    std::optional<QString> value(const QString &name) override
    {
        for (const MacroMap *map : m_maps) {
            if (!map)
                continue;
            const auto found = map->constFind(name);
            if (found != map->constEnd())
                return m_table.currentTime(name).value_or(*found);
        }
        return std::nullopt;
    }

private:
    const SystemMacroTable &m_table;
    const MacroMap *const m_maps[3];
};

// Where the bracket that is open before `from` is closed, or the text's length. Notes a lead character inside.
qsizetype endOfReference(QStringView text, qsizetype from, bool &isNested)
{
    for (int depth = 1; from < text.size(); ++from) {
        const QChar c = text[from];
        if (c == u'(')
            ++depth;
        else if (c == u')' && --depth == 0)
            break;
        else if (c == lead)
            isNested = true;
    }
    return from;
}

// One walk over the text. `rescan` is set when another is asked for.
QString expandOnce(MacroSource &source, QStringView text, bool &rescan)
{
    QString result;
    result.reserve(2 * text.size() + 64); // values are longer than their names as a rule
    rescan = false;
    for (qsizetype i = 0; i < text.size() && result.size() <= maximumExpandedLength;) {
        const qsizetype start = text.indexOf(lead, i);
        if (start < 0) {
            result += text.sliced(i);
            break;
        }
        result += text.sliced(i, start - i);
        const QStringView behind = text.sliced(start + 1);
        if (!behind.startsWith(u'(')) {
            result += lead;
            i = start + (behind.startsWith(lead) ? 2 : 1);
            continue;
        }
        const qsizetype end = endOfReference(text, start + 2, rescan);
        if (end == text.size())
            break;
        i = end + 1;
        const QStringView reference = text.sliced(start, i - start);
        const QStringView inside = reference.sliced(2).chopped(1);
        const qsizetype colon = inside.indexOf(u':');
        const bool isFinal = colon >= 0 && inside.sliced(colon + 1).startsWith(u':');
        if (isFinal)
            rescan = false;
        const QStringView name = colon < 0 ? inside : inside.first(colon);
        if (const auto value = source.value(QString::fromRawData(name.data(), name.size()))) // no copy
            result += *value;
        else if (colon < 0)
            result += reference;
        else
            result += inside.sliced(colon + (isFinal ? 2 : 1));
    }
    return result;
}

} // namespace

QString expandMacros(const SystemMacroTable &table, const MacroMap &macros, const QString &text, bool useGlobal,
                     bool useSystem)
{
    TableSource source(table, macros, useGlobal, useSystem);
    return expandMacros(source, text);
}

QString expandMacros(MacroSource &source, const QString &text)
{
    if (!text.contains(lead))
        return text;
    QString current = text;
    qsizetype written = 0;
    for (int pass = 0; pass < maximumPasses; ++pass) {
        bool rescan = false;
        QString next = expandOnce(source, current, rescan);
        written += next.size();
        if (next.size() > maximumExpandedLength || written > 4 * maximumExpandedLength)
            break;
        const bool isStable = next == current;
        current = std::move(next);
        if (!rescan || isStable)
            break;
    }
    return current;
}

QString expandWith(const MacroMap &macros, const QString &text)
{
    return expandMacros(SystemMacroTable::instance(), macros, text, false, false);
}

QString expandSystem(const QString &text)
{
    return expandMacros(SystemMacroTable::instance(), {}, text, false, true);
}

QString expandGlobal(const QString &text)
{
    return expandMacros(SystemMacroTable::instance(), {}, text, true, true);
}

QStringList splitAtSemicolons(const QString &text)
{
    QStringList entries;
    QString entry;
    const auto finish = [&] {
        if (!entry.isEmpty())
            entries += entry;
        entry.clear();
    };
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u';')
            finish();
        else
            entry += text[i] == u'\\' && i + 1 < text.size() ? text[++i] : text[i];
    }
    finish();
    return entries;
}

MacroMap readMacroString(const QString &text)
{
    MacroMap macros;
    for (const QString &entry : splitAtSemicolons(text))
        macros.insert(entry.section(u'=', 0, 0), entry.section(u'=', 1));
    return macros;
}

bool hasNestedReference(const QString &text)
{
    for (qsizetype at = text.indexOf("$("_L1); at >= 0; at = text.indexOf("$("_L1, at + 2)) {
        const qsizetype end = text.indexOf(u')', at);
        const QStringView inside = QStringView(text).sliced(at + 2, qMax<qsizetype>(end - at - 2, 0));
        if (end < 0 || inside.contains(u'$') || inside.contains(u'('))
            return true;
    }
    return false;
}
