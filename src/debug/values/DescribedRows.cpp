#include "debug/values/DescribedRows.h"

#include "debug/values/PushedBlock.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int maximumApplied = 100;      // descriptions within each other
constexpr quint64 unboundLength = 256;   // elements of a container that doesn't tell how many it has
constexpr quint32 maximumText = 1024;    // bytes
constexpr int maximumTreeSteps = 10'000; // up or down to one neighbour

} // namespace

// An attribute with what its names and numbers stand for.
QString DescribedRows::text(const char *name)
{
    QString text = QString::fromUtf8(m_element->attribute(name));
    for (qsizetype start = 0; (start = text.indexOf(u"$["_s, start)) >= 0;) {
        const qsizetype end = text.indexOf(u']', start);
        const QString inner = text.sliced(start + 2, std::max(end - start - 2, qsizetype(0)));
        Expression *expression = m_evaluator.parseCached(m_evaluator.substitute(m_bindings, inner));
        if (!expression)
            throw ParserException(u"a number is missing in "_s + text);
        text.replace(start, end + 1 - start, QString::number(number(*expression, m_head)));
    }
    return m_evaluator.substitute(m_bindings, text);
}

Expression *DescribedRows::attribute(const char *name)
{
    return m_evaluator.parseCached(text(name));
}

quint64 DescribedRows::number(Expression &expression, quint32 current)
{
    const size_t mark = m_evaluator.resultCount();
    const ExpressionValue value = plainValue(m_evaluator.evaluateBound(expression, m_head, current));
    m_evaluator.dropResults(mark);
    if (!value.isInteger() && value.kind() != ExpressionValue::Boolean)
        throw ParserException(expression.toString() + u" is no number"_s);
    return value.asUnsigned();
}

bool DescribedRows::holds(Expression &expression, quint32 current)
{
    return number(expression, current) != 0;
}

// The value of an expression under a name of its own.
void DescribedRows::show(const QString &name, Expression &expression, quint32 current)
{
    const size_t mark = m_evaluator.resultCount();
    const ExpressionValue value = m_evaluator.evaluateBound(expression, m_head, current);
    const QString text = expression.toString();
    if (const auto *place = dynamic_cast<const VarInfo *>(value.marker()))
        m_tree.expandVariable(name, text, VarInfo(*place), m_depth + 1);
    else if (m_tree.takeRow())
        m_tree.addValue({name, text, value.typeName(), {}}, value);
    m_evaluator.dropResults(mark);
}

bool DescribedRows::apply(const XMLElement &element, const QString &name, const QString &expression,
                          const VarInfo &place)
{
    if (m_tree.m_applied >= maximumApplied)
        return false;
    ++m_tree.m_applied;
    m_element = &element;
    m_bindings.expression = expression;
    m_head = quint32(place.address) + place.offset;
    const size_t mark = m_evaluator.resultCount();
    const QByteArrayView tag = element.name();
    const DisplayTree::Row row = {name, expression, m_tree.typeName(m_bindings.type), place.toString(0)};
    bool isApplied = true;
    try {
        if (tag == "Type")
            isApplied = applyType(name, expression, place);
        else if (tag == "String")
            applyString(row);
        else if (tag == "Expr")
            applyExpr(name);
        else if (tag == "Tuple")
            applyTuple(row, place);
        else if (tag == "List" || tag == "RBTree" || tag == "Deque")
            applyWalk(row);
        else
            isApplied = false;
    } catch (const HException &error) { // of what is asked before the first row
        m_evaluator.report(u"the type description of "_s + row.typeName + u" doesn't fit: "_s + error.message());
        isApplied = false;
    }
    m_evaluator.dropResults(mark);
    --m_tree.m_applied;
    return isApplied;
}

bool DescribedRows::applyType(const QString &name, const QString &expression, const VarInfo &place)
{
    const QString text = m_evaluator.substitute(m_bindings, QString::fromUtf8(m_element->attribute("Type")));
    VarInfo alias = place;
    alias.type = m_evaluator.typeOfText(text);
    alias.size = m_evaluator.types().sizeOf(alias.type);
    if (!alias.type || alias.type == m_bindings.type)
        return false;
    m_tree.expandVariable(name, expression, alias, m_depth + 1);
    return true;
}

void DescribedRows::applyString(const DisplayTree::Row &row)
{
    Expression *data = attribute("Data");
    if (Expression *condition = attribute("Condition"); condition && !holds(*condition, m_head))
        data = attribute("Else");
    if (!data)
        throw ParserException(u"no data"_s);
    Expression *length = attribute("Length");
    const quint32 address = quint32(number(*data, m_head));
    const quint64 count = length ? std::min<quint64>(number(*length, m_head), maximumText) : maximumText;
    QByteArray bytes;
    if (count == maximumText) {
        bytes = m_evaluator.readCString(VarInfo::Memory, address, maximumText).toLatin1();
    } else if (count) {
        bytes.resize(qsizetype(count));
        m_evaluator.readLocation(VarInfo::Memory, address, quint32(count), bytes.data());
    }
    DisplayTree::Row textRow = row;
    textRow.typeName = u"char *"_s;
    m_tree.addValue(textRow, ExpressionValue::ofCText(bytes, true, false));
}

void DescribedRows::applyExpr(const QString &name)
{
    Expression *expression = attribute("Expr");
    if (!expression)
        throw ParserException(u"no expression"_s);
    show(name, *expression, m_head);
}

void DescribedRows::applyTuple(const DisplayTree::Row &row, const VarInfo &place)
{
    const PushedBlock pushed(m_evaluator, place, true);
    const ExpressionValue own = m_evaluator.readEntry(m_bindings.type);
    const bool hasValue = own.kind() != ExpressionValue::None;
    const auto token = m_tree.beginStruct(row, hasValue ? own : DisplayTree::summaryOf(m_bindings.type));
    for (const XMLAttribute &one : m_element->attributes()) {
        const QByteArray name = one.name().toByteArray();
        if (name == "Name" || m_tree.m_level > m_tree.m_maximumLevel)
            continue;
        const QString title = QString::fromUtf8(name);
        try {
            const QString meant = text(name.constData());
            Expression *expression = meant.contains(u"$("_s) ? nullptr : m_evaluator.parseCached(meant);
            if (!expression) // or it names a type that this instance hasn't
                continue;
            if (expression->toString() == row.expression)
                throw ParserException(u"tuple expression for "_s + title + u" same as "_s + row.expression);
            show(title, *expression, m_head);
        } catch (const HException &error) {
            m_tree.addError({title, {}, {}, {}}, error.message());
        }
    }
    m_tree.endStruct(token);
}

// Containers

bool DescribedRows::isNode(quint32 address)
{
    return address && m_evaluator.isValidAddress(address);
}

void DescribedRows::applyWalk(const DisplayTree::Row &row)
{
    Walk walk = {attribute("Length"),    attribute("Condition"), attribute("Head"),      attribute("Data"),
                 attribute("Next"),      attribute("Left"),      attribute("Right"),     attribute("Parent"),
                 attribute("ChunkSize"), attribute("ChunkMap"),  attribute("ChunkData"), attribute("ChunkNext")};
    const bool isTree = m_element->name() == "RBTree", isDeque = m_element->name() == "Deque";
    const bool isComplete = walk.data && (isTree ? walk.left && walk.right && walk.parent : bool(walk.next)) &&
                            (!isDeque || (walk.chunkSize && walk.chunkMap && walk.chunkData && walk.chunkNext));
    if (!isComplete)
        throw ParserException(u"an attribute is missing"_s);
    const quint64 limit = walk.length ? number(*walk.length, m_head) : unboundLength;
    const quint32 head = walk.head ? quint32(number(*walk.head, m_head)) : m_head;
    if (isDeque && limit) {
        walk.sizeOfChunk = quint32(number(*walk.chunkSize, head));
        walk.map = quint32(number(*walk.chunkMap, head));
        walk.chunk = quint32(number(*walk.chunkData, walk.map));
    }
    const QString outer = row.typeName.section(u'<', 0, 0);
    const auto token = m_tree.beginArray(row, ExpressionValue::ofText(u'<' + outer + u'>'));
    if (m_tree.m_level <= m_tree.m_maximumLevel)
        this->walk(walk, head, limit);
    m_tree.endArray(token);
}

void DescribedRows::walk(Walk &walk, quint32 current, quint64 limit)
{
    for (quint64 i = 0; i < limit && isNode(current) && m_tree.takeRow(); ++i) {
        const QString name = QString::number(i);
        try {
            if (walk.condition && !holds(*walk.condition, current))
                return;
            show(name, *walk.data, current);
            if (i + 1 < limit)
                current = nextOf(walk, current);
        } catch (const HException &error) { // what is behind it can't be found
            m_tree.addError({name, {}, {}, {}}, error.message());
            return;
        }
    }
}

quint32 DescribedRows::nextOf(Walk &walk, quint32 current)
{
    if (!walk.next)
        return nextInTree(walk, current);
    current = quint32(number(*walk.next, current));
    if (walk.chunkSize && current == walk.chunk + walk.sizeOfChunk) {
        walk.map = quint32(number(*walk.chunkNext, walk.map));
        current = walk.chunk = quint32(number(*walk.chunkData, walk.map));
    }
    return current;
}

// The node that follows in the order of the keys; 0 behind the last.
quint32 DescribedRows::nextInTree(Walk &walk, quint32 current)
{
    int stepsLeft = maximumTreeSteps;
    quint32 node = quint32(number(*walk.right, current));
    if (isNode(node)) {
        for (;;) {
            const quint32 left = quint32(number(*walk.left, node));
            if (!isNode(left) || --stepsLeft < 0)
                return node;
            node = left;
        }
    }
    quint32 parent = quint32(number(*walk.parent, current));
    while (isNode(parent) && quint32(number(*walk.right, parent)) == current) {
        if (--stepsLeft < 0)
            return 0;
        current = parent;
        parent = quint32(number(*walk.parent, current));
    }
    return isNode(parent) ? parent : 0;
}
