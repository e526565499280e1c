#include "xml/preprocessor/XMLPP2Walk.h"

#include "base/Pattern.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype textPerElement = 256; // bytes of expanded text that count as an element
constexpr quint64 elementsPerFile = 200;  // an included file, which must be opened and read, counts as so many

QString textOf(QByteArrayView bytes)
{
    return QString::fromUtf8(bytes);
}

QString attributeText(const XMLElement &element, QByteArrayView name)
{
    return textOf(element.attribute(name));
}

void setAttributeText(XMLElement &element, QByteArrayView name, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    element.setAttribute(name, QByteArrayView(bytes.constData(), bytes.size())); // never null
}

quint64 elementCount(const XMLElement &top)
{
    quint64 count = 0;
    for (const XMLNode *node = &top; node; node = node->nextInTree(&top))
        count += node->toElement() ? 1 : 0;
    return count;
}

QString upperHex(quint64 value)
{
    return u"0x"_s + QString::number(value, 16).toUpper();
}

} // namespace

const XMLPP2::Walk::Directive XMLPP2::Walk::directives[] = {
    {"if", &Walk::processIf},           {"ifnot", &Walk::processIf},      {"ifex", &Walk::processIfex},
    {"ifdef", &Walk::processIfdef},     {"ifndef", &Walk::processIfdef},  {"switch", &Walk::processSwitch},
    {"include", &Walk::processInclude}, {"define", &Walk::processDefine}, {"for", &Walk::processFor},
    {"xmldef", &Walk::processXmldef},   {"xmlput", &Walk::processXmlput}, {"foreach", &Walk::processForeach},
};

void XMLPP2::Walk::run(XMLNode *first, const QString &file, const MacroMap &macros, bool expand)
{
    m_chains.push_back({first, nullptr, macros, expand, {file, file}});
    while (!m_chains.empty()) {
        Chain &chain = m_chains.back();
        if (chain.next == chain.end) {
            m_ownMacros -= chain.ownMacros;
            m_chains.pop_back();
            continue;
        }
        XMLElement *element = chain.next->toElement();
        chain.next = chain.next->nextSibling();
        if (element)
            processElement(chain, *element);
    }
}

void XMLPP2::Walk::processElement(Chain &chain, XMLElement &element)
{
    if (chain.expand)
        expandAttributes(chain, element, chain.macros);
    for (const Directive &directive : directives) {
        if (directive.tag != element.name())
            continue;
        if (element.parent())
            return (this->*directive.process)(chain, element);
        report(chain, element, u"<%1> cannot be the root of a document"_s.arg(textOf(element.name())));
        break;
    }
    keep(chain, element);
}

void XMLPP2::Walk::keep(Chain &chain, XMLElement &element)
{
    if (element.firstChild())
        m_chains.push_back(Chain{element.firstChild(), nullptr, chain.macros, chain.expand, chain.origin});
}

void XMLPP2::Walk::drop(XMLElement &element)
{
    element.parent()->removeChild(&element);
}

void XMLPP2::Walk::splice(Chain &chain, XMLElement &directive, XMLElement &body)
{
    giveWay(chain, directive, body.takeChildren(), {chain.macros, chain.expand}, chain.origin);
}

void XMLPP2::Walk::giveWay(Chain &chain, XMLElement &directive, XMLNodeChain children, Context context,
                           const Origin &origin)
{
    XMLNode *first = children.first();
    directive.parent()->insertAfter(&directive, std::move(children));
    drop(directive);
    if (first)
        m_chains.push_back(Chain{first, chain.next, std::move(context.macros), context.expand, origin});
}

void XMLPP2::Walk::decide(Chain &chain, XMLElement &element, bool holds)
{
    if (holds)
        splice(chain, element, element);
    else
        drop(element);
}

// An undefined macro becomes defined and empty by being asked for.
QString XMLPP2::Walk::macroValue(Chain &chain, const XMLElement &element, const QString &name)
{
    const auto found = chain.macros.constFind(name);
    if (found != chain.macros.constEnd())
        return *found;
    setMacro(chain, element, name, QString());
    return {};
}

// A chain's first change copies the macros of the chain around it, so what all the open ones hold is bounded.
void XMLPP2::Walk::setMacro(Chain &chain, const XMLElement &element, const QString &name, const QString &value)
{
    if (chain.ownMacros == 0) {
        const quint64 count = quint64(chain.macros.size()) + 1;
        if (m_ownMacros + count > m_document.m_maximumProduced) {
            if (!std::exchange(m_toldOfMacros, true))
                report(chain, element,
                       u"more than %1 macros were to be defined inside each other"_s.arg(m_document.m_maximumProduced));
            return;
        }
        m_ownMacros += chain.ownMacros = count;
    }
    chain.macros[name] = value;
}

void XMLPP2::Walk::processIf(Chain &chain, XMLElement &element)
{
    if (element.attributes().size() != 1) {
        report(chain, element, u"one condition required for <if[not]>"_s);
        return keep(chain, element);
    }
    const XMLAttribute &condition = element.attributes().front();
    const QString value = macroValue(chain, element, textOf(condition.name()));
    const bool isListed = conditionList(textOf(condition.value())).contains(value);
    decide(chain, element, isListed == (element.name() == "if"));
}

void XMLPP2::Walk::processIfex(Chain &chain, XMLElement &element)
{
    const QString expression = attributeText(element, "expression");
    if (expression.isEmpty())
        return keep(chain, element);
    bool ok = false;
    decide(chain, element, m_calculator.evaluateBool(expandWith(chain.macros, expression), &ok));
}

void XMLPP2::Walk::processIfdef(Chain &chain, XMLElement &element)
{
    const bool isDefined = chain.macros.contains(attributeText(element, "name"));
    decide(chain, element, isDefined == (element.name() == "ifdef"));
}

void XMLPP2::Walk::processSwitch(Chain &chain, XMLElement &element)
{
    const QString value = macroValue(chain, element, attributeText(element, "name"));
    XMLElement *chosen = nullptr, *otherwise = nullptr;
    for (XMLElement *child = element.firstChildElement(); child && !chosen; child = child->nextSiblingElement()) {
        if (child->name() == "case" && conditionList(attributeText(*child, "value")).contains(value))
            chosen = child;
        else if (child->name() == "default")
            otherwise = child;
    }
    if (!chosen)
        chosen = otherwise;
    if (chosen)
        splice(chain, element, *chosen);
    else
        drop(element);
}

void XMLPP2::Walk::processDefine(Chain &chain, XMLElement &element)
{
    const bool hasName = element.hasAttribute("name");
    if (!hasName)
        report(chain, element, u"missing name in <define>"_s);
    else if (!defineValue(chain, element, attributeText(element, "name")))
        report(chain, element, u"missing value or expression in <define>"_s);
    if (element.hasAttribute("expand_macros"))
        chain.expand = element.attribute("expand_macros") == "Yes";
    drop(element);
}

// False when there is nothing to define the macro with.
bool XMLPP2::Walk::defineValue(Chain &chain, const XMLElement &element, const QString &name)
{
    if (element.hasAttribute("value")) {
        setMacro(chain, element, name, attributeText(element, "value"));
        return true;
    }
    const bool isDecimal = element.hasAttribute("expression");
    if (!isDecimal && !element.hasAttribute("hex_expression"))
        return false;
    const QString expression = attributeText(element, isDecimal ? "expression" : "hex_expression");
    bool ok = false;
    const qint64 number = m_calculator.evaluateSigned(expandWith(chain.macros, expression), &ok);
    if (ok)
        setMacro(chain, element, name, isDecimal ? QString::number(number) : upperHex(quint64(number)));
    return true;
}

void XMLPP2::Walk::processXmldef(Chain &chain, XMLElement &element)
{
    if (!element.hasAttribute("name"))
        return keep(chain, element);
    m_document.m_fragments[attributeText(element, "name")] = {&element, chain.origin.writtenIn};
    m_document.m_fragmentElements.push_back(element.parent()->removeChild(&element));
}

void XMLPP2::Walk::processXmlput(Chain &chain, XMLElement &element)
{
    if (!element.hasAttribute("name"))
        return keep(chain, element);
    const QString name = attributeText(element, "name");
    const Fragment fragment = m_document.m_fragments.value(name);
    if (!fragment.element) {
        report(chain, element, u"xmlput cannot fine xmldef named "_s + name);
        return keep(chain, element);
    }
    if (isTooNested(chain, element) || !charge(elementCount(*fragment.element), chain, element))
        return keep(chain, element);
    const Origin origin = {chain.origin.file, fragment.file, chain.origin.inclusion + 1};
    giveWay(chain, element, copyOf(*fragment.element)->takeChildren(), contextFor(chain, element), origin);
}

void XMLPP2::Walk::processInclude(Chain &chain, XMLElement &element)
{
    if (!element.hasAttribute("filename")) {
        report(chain, element, u"missing filename in <include>"_s);
        return keep(chain, element);
    }
    if (isTooNested(chain, element) || !charge(elementsPerFile, chain, element))
        return keep(chain, element);
    const QString path = includePath(expandSystem(attributeText(element, "filename")), chain.origin);
    auto [root, ok] = m_document.readInclude(path);
    if (!ok || !root) {
        const QString problem = textOf(m_document.errorText());
        if (root)
            report(chain, element,
                   u"error \"%1\" in include file %2 line:%3"_s.arg(problem, path,
                                                                    QString::number(m_document.errorLine() + 1)));
        else
            report(chain, element,
                   u"error: include file '%1' is empty"_s.arg(path) + (ok ? QString() : u" (%1)"_s.arg(problem)));
        return keep(chain, element);
    }
    if (!charge(elementCount(*root), chain, element))
        return keep(chain, element);

    Context context = contextFor(chain, element);
    if (context.expand)
        expandAttributes(chain, *root, context.macros);
    for (const QString &inherited : attributeText(element, "inherit_attributes").split(u';', Qt::SkipEmptyParts)) {
        const QByteArray name = inherited.toUtf8();
        if (element.hasAttribute(name))
            root->setAttribute(name, element.attribute(name));
    }
    const Origin origin = {path, path, chain.origin.inclusion + 1};
    if (element.hasAttribute("no_root") || root->name() == "envelope")
        return giveWay(chain, element, root->takeChildren(), std::move(context), origin);
    XMLNode *first = root->firstChild();
    element.parent()->replaceChild(&element, std::move(root));
    if (first)
        m_chains.push_back(Chain{first, nullptr, std::move(context.macros), context.expand, origin});
}

// Own macros are honoured only where references are expanded.
XMLPP2::Walk::Context XMLPP2::Walk::contextFor(const Chain &chain, const XMLElement &element) const
{
    const bool expands = chain.expand || element.hasAttribute("expand_macros");
    if (expands && element.hasAttribute("macros"))
        return {overriddenBy(chain.macros, attributeText(element, "macros")), true};
    return {chain.macros, chain.expand};
}

bool XMLPP2::Walk::isTooNested(const Chain &chain, const XMLElement &element)
{
    if (chain.origin.inclusion < maximumInclusion)
        return false;
    if (!std::exchange(m_toldOfNesting, true))
        report(chain, element, u"<%1> is nested more than %2 deep"_s.arg(textOf(element.name())).arg(maximumInclusion));
    return true;
}

void XMLPP2::Walk::processFor(Chain &chain, XMLElement &element)
{
    const auto given = [&](QByteArrayView name) { return element.hasAttribute(name); };
    if (!given("index") || !given("start") || !given("end") || !given("incr") || !element.firstChild()) {
        report(chain, element, u"<for index=\"i\" start=\"0\" end=\"32\" incr=\"1\">"_s);
        return drop(element);
    }
    bool ok = false;
    const auto bound = [&](QByteArrayView name) {
        return quint32(m_calculator.evaluateSigned(attributeText(element, name), &ok));
    };
    const auto expanded = [&](QByteArrayView name) {
        return quint64(m_calculator.evaluateSigned(expandWith(chain.macros, attributeText(element, name)), &ok));
    };
    const quint32 start = bound("start"), end = bound("end"), incr = bound("incr");
    const quint64 offset = given("add") ? expanded("add") : given("sub") ? 0 - expanded("sub") : 0;
    const quint64 factor = given("mul") ? expanded("mul") : 1;
    if (incr == 0 || (start < end && quint64(start) + (end - 1 - start) / incr * quint64(incr) + incr > 0xFFFFFFFF)) {
        report(chain, element, u"the index of <for> never reaches its end"_s);
        return drop(element);
    }
    const QString name = attributeText(element, "index");
    const QString alphaName = name + u"_alpha"_s, hexName = name + u"_hex"_s, apName = name + u"_ap"_s,
                  apHexName = name + u"_ap_hex"_s;
    const Body body = bodyOf(element);
    XMLNodeChain products;
    MacroMap macros;
    for (quint32 i = start; i < end; i += incr) {
        const qint64 ap = qint64(factor * i + offset);
        macros[name] = QString::number(i);
        macros[alphaName] = QChar(char16_t('A' + i));
        macros[hexName] = upperHex(i);
        macros[apName] = QString::number(ap);
        macros[apHexName] = upperHex(ap < 0 ? quint32(ap) : quint64(ap)); // negative ones as 32 bits
        if (!addCopies(chain, element, body, macros, products))
            break;
    }
    place(chain, element, std::move(products));
}

void XMLPP2::Walk::processForeach(Chain &chain, XMLElement &element)
{
    const std::vector<LoopVariable> variables = loopVariables(chain, element);
    const auto isEmpty = [](const LoopVariable &variable) { return variable.items.isEmpty(); };
    const Body body = bodyOf(element);
    XMLNodeChain products;
    std::vector<qsizetype> positions(variables.size(), 0);
    for (bool more = std::ranges::none_of(variables, isEmpty); more;) {
        MacroMap macros;
        for (size_t i = 0; i < variables.size(); ++i)
            macros.insert(variables[i].name, variables[i].items[positions[i]]);
        if (!addCopies(chain, element, body, macros, products))
            break;
        // The last variable is the innermost loop.
        size_t i = variables.size();
        while (i > 0 && ++positions[i - 1] == variables[i - 1].items.size())
            positions[--i] = 0;
        more = i > 0;
    }
    place(chain, element, std::move(products));
}

// The attributes act in their order: each concerns those behind it.
std::vector<XMLPP2::Walk::LoopVariable> XMLPP2::Walk::loopVariables(Chain &chain, const XMLElement &element)
{
    std::vector<LoopVariable> variables;
    QString separator = u","_s;
    bool expands = false;
    QStringList excluded;
    QSet<QString> excludedItems; // the same
    QList<QRegularExpression> patterns;
    for (const XMLAttribute &attribute : element.attributes()) {
        const QString value = textOf(attribute.value());
        if (attribute.name() == "split_by") {
            separator = value;
            continue;
        }
        if (attribute.name() == "expand_macros") {
            expands = true;
            continue;
        }
        QString list = expands ? expandWith(chain.macros, value) : value;
        QStringList items = list.remove(u'\r').remove(u'\n').split(separator, Qt::SkipEmptyParts);
        if (attribute.name() == "exclude_entries") {
            excluded += items;
            excludedItems.unite(QSet<QString>(items.cbegin(), items.cend()));
        } else if (attribute.name() == "exclude_wildcard") {
            for (const QString &item : items)
                patterns += wildcardPattern(item);
        } else {
            const QSet<QString> given(items.cbegin(), items.cend());
            for (const QString &entry : excluded) {
                if (!given.contains(entry))
                    report(chain, element, u"exclude_entries cannot find entry named "_s + entry);
            }
            // A pattern and an item to match it with cost about that part of an element.
            constexpr quint64 matchesPerElement = 16;
            if (!charge(quint64(items.size()) * quint64(patterns.size()) / matchesPerElement, chain, element))
                items.clear();
            items.removeIf([&](const QString &item) {
                const auto matches = [&](const QRegularExpression &pattern) { return pattern.match(item).hasMatch(); };
                return excludedItems.contains(item) || std::ranges::any_of(patterns, matches);
            });
            variables.push_back({textOf(attribute.name()), items});
        }
    }
    return variables;
}

// Up to the first child that is no element. In a document with text, text and comments between them are passed over.
XMLPP2::Walk::Body XMLPP2::Walk::bodyOf(const XMLElement &loop) const
{
    Body body;
    for (const XMLNode *child = loop.firstChild(); child; child = child->nextSibling()) {
        if (const XMLElement *element = child->toElement()) {
            body.elements.push_back(element);
            body.count += elementCount(*element);
        } else if (child->kind() == XMLNode::Kind::CDATASection) {
            break;
        }
    }
    return body;
}

// False when there is nothing to add or no more may be added.
bool XMLPP2::Walk::addCopies(const Chain &chain, const XMLElement &loop, const Body &body, const MacroMap &macros,
                             XMLNodeChain &products)
{
    if (body.elements.empty() || !charge(body.count, chain, loop))
        return false;
    for (const XMLElement *element : body.elements) {
        std::unique_ptr<XMLNode> copy = copyOf(*element);
        for (XMLNode *node = copy.get(); node; node = node->nextInTree(copy.get())) {
            if (XMLElement *copied = node->toElement())
                expandAttributes(chain, *copied, macros);
        }
        products.append(std::move(copy));
    }
    return true;
}

// The walk goes on with the products.
void XMLPP2::Walk::place(Chain &chain, XMLElement &loop, XMLNodeChain products)
{
    if (!products.isEmpty())
        chain.next = products.first();
    loop.parent()->insertAfter(&loop, std::move(products));
    drop(loop);
}

// With the lines of the original, for messages.
std::unique_ptr<XMLNode> XMLPP2::Walk::copyOf(const XMLElement &element)
{
    std::unique_ptr<XMLNode> top = m_document.copyTree(&element);
    const XMLNode *original = &element;
    for (XMLNode *copy = top.get(); copy; copy = copy->nextInTree(top.get())) {
        copy->setLine(original->line());
        original = original->nextInTree(&element);
    }
    return top;
}

void XMLPP2::Walk::expandAttributes(const Chain &chain, XMLElement &element, const MacroMap &macros)
{
    for (size_t i = 0; i < element.attributes().size(); ++i) {
        const XMLAttribute attribute = element.attributes()[i];
        if (!attribute.value().contains('$'))
            continue;
        const QString expanded = expandWith(macros, textOf(attribute.value()));
        if (!charge(quint64(expanded.size() / textPerElement), chain, element))
            return;
        setAttributeText(element, attribute.name(), expanded);
    }
}

bool XMLPP2::Walk::charge(quint64 count, const Chain &chain, const XMLElement &element)
{
    if (count <= m_document.m_maximumProduced - m_produced) {
        m_produced += count;
        return true;
    }
    m_produced = m_document.m_maximumProduced;
    if (!std::exchange(m_toldOfProduction, true))
        report(chain, element, u"more than %1 elements were to be produced"_s.arg(m_document.m_maximumProduced));
    return false;
}

void XMLPP2::Walk::report(const Chain &chain, const XMLElement &element, const QString &message)
{
    m_document.reportError(located(QLatin1StringView(messagePrefix) + message, chain.origin, element.line()));
}
