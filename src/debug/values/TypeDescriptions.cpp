#include "debug/values/TypeDescriptions.h"

#include "base/HException.h"
#include "debug/values/DwarfExpressionEvaluator.h"

using namespace Qt::StringLiterals;

TypeDescriptionFile::TypeDescriptionFile(const QString &path)
{
    if (!m_document.parseFile(path))
        throw HException(u"%1 : line %2: %3"_s.arg(path, QString::number(m_document.errorLine() + 1),
                                                   QString::fromUtf8(m_document.errorText())));
    if (!m_document.root())
        throw HException(path + u" has no type descriptions"_s);
}

QString splitTemplateName(const QString &name, QStringList &arguments)
{
    const qsizetype opening = name.indexOf(u'<');
    if (opening <= 0 || !name.endsWith(u'>'))
        return name;
    int depth = 0;
    qsizetype start = opening + 1;
    for (qsizetype i = start; i < name.size(); ++i) {
        const QChar c = name[i];
        const bool isLast = i == name.size() - 1;
        if (c == u'<' || c == u'(')
            ++depth;
        if (depth == 0 && (isLast || c == u',')) {
            const QString argument = name.sliced(start, i - start).simplified();
            if (!argument.isEmpty())
                arguments += argument;
            start = i + 1;
        }
        if (depth > 0 && (c == u'>' || c == u')'))
            --depth;
    }
    return name.first(opening);
}

const XMLElement *findTypeDescription(const XMLElement *root, const QString &name, QStringList &arguments)
{
    arguments.clear();
    const QString outer = splitTemplateName(name, arguments);
    const XMLElement *ofTemplate = nullptr;
    for (const XMLElement *element = root ? root->firstChildElement() : nullptr; element;
         element = element->nextSiblingElement()) {
        const QString candidate = QString::fromUtf8(element->attribute("Name"));
        if (candidate == name)
            return element;
        if (!ofTemplate && !arguments.isEmpty() && candidate == outer)
            ofTemplate = element;
    }
    return ofTemplate;
}

namespace {

// The n-th argument of a template's instance; those of a pack count one by one.
DwarfDebuggingInformationEntry templateArgument(DwarfDebuggingInformationEntry parent, int &n)
{
    for (auto child = parent.child(); child; child = child.sibling()) {
        switch (child.tag()) {
        case DW_TAG_template_type_parameter:
        case DW_TAG_template_value_parameter:
            if (n-- == 0)
                return child;
            break;
        case DW_TAG_GNU_template_parameter_pack:
            if (parent.tag() == child.tag())
                return {}; // packs hold no packs
            if (const auto found = templateArgument(child, n))
                return found;
            break;
        }
    }
    return {};
}

// The number in "T12" for the letter T, -1 for another name.
int numberBehind(char16_t letter, QStringView name)
{
    bool ok = false;
    const int n = name.startsWith(letter) ? name.sliced(1).toInt(&ok) : -1;
    return ok ? n : -1;
}

// Of a base class of a template too, by the template's name.
DwarfDebuggingInformationEntry memberType(DwarfExpressionEvaluator &evaluator, DwarfDebuggingInformationEntry type,
                                          const QString &name)
{
    for (const TypeMember &member : evaluator.membersOf(type)) {
        if (member.name == name || (member.isBase && member.name.startsWith(name + u'<')))
            return member.type;
    }
    return {};
}

} // namespace

QString TypeBindings::valueOf(DwarfExpressionEvaluator &evaluator, const QString &path) const
{
    if (path == u"E")
        return expression;
    DwarfDebuggingInformationEntry at = type;
    QStringList steps = path.split(u'.');
    if (steps.front() == u"T")
        steps.removeFirst();
    for (const QString &step : steps) {
        const auto plain = evaluator.plainType(at);
        if (const int n = numberBehind(u'A', step); n >= 0) {
            QStringList texts = at == type ? arguments : QStringList();
            if (texts.isEmpty())
                splitTemplateName(plain.name(), texts);
            return texts.value(n);
        }
        int n = numberBehind(u'T', step);
        at = n >= 0 ? templateArgument(plain, n).target(DW_AT_type) : memberType(evaluator, plain, step);
        if (!at)
            return {};
    }
    return evaluator.textOfType(at);
}

QString TypeBindings::substituted(DwarfExpressionEvaluator &evaluator, const QString &text) const
{
    QString result;
    qsizetype done = 0;
    for (;;) {
        const qsizetype start = text.indexOf(u"$("_s, done);
        const qsizetype end = start < 0 ? -1 : text.indexOf(u')', start);
        if (end < 0)
            return result + text.sliced(done);
        const QString value = valueOf(evaluator, text.sliced(start + 2, end - start - 2));
        result += text.sliced(done, start - done);
        result += value.isEmpty() ? text.sliced(start, end + 1 - start) : value;
        done = end + 1;
    }
}
