#include "debug/verbs/PrintVerb.h"

#include "base/Directories.h"
#include "debug/values/DisplayTree.h"
#include "debug/values/ElfImageEvaluator.h"
#include "debug/values/TypeDescriptions.h"
#include "debug/values/ValueText.h"
#include "debug/verbs/ReportingFile.h"
#include "debug/verbs/Results.h"

#include <QFile>
#include <QSet>

using namespace Qt::StringLiterals;

namespace {

constexpr const char *shippedDescriptions = "/types/gnu_cxx.xml"; // below the installation

struct PrintOptions
{
    int depth = DisplayTree::maximumDepth; // levels of rows within rows
    int pointers = 0;                      // levels of pointers that are followed
    quint32 elements = ~quint32(0);        // of each array
    bool isHexadecimal = false;
};

int numberOption(const CommandArguments &arguments, const char *name, int otherwise)
{
    if (!arguments.has(name))
        return otherwise;
    bool ok = false;
    const int number = arguments.value(name).toInt(&ok);
    if (!ok || number < 0)
        throw UsageError(u"--%1 takes a number"_s.arg(QString::fromLatin1(name)));
    return number;
}

// Tells what is wrong with type descriptions, each once.
class PrintEvaluator : public ElfImageEvaluator
{
public:
    using ElfImageEvaluator::ElfImageEvaluator;
    void report(const QString &text) override
    {
        constexpr qsizetype maximumReports = 20;
        if (m_reports.size() < maximumReports && !m_reports.contains(text)) {
            m_reports.insert(text);
            std::fprintf(stderr, "vnDump: %s\n", qPrintable(text));
        }
    }

private:
    QSet<QString> m_reports;
};

// Rows as text or as JSON objects within each other.
class PrintedRows : public VariableListBuilder
{
public:
    PrintedRows(Results &results, const PrintOptions &options) : m_results(results), m_options(options) {}

    void setQuery(const QString &query) { m_query = query; }

    Mode pointerMode(const QString &, const QString &typeName, quint64, quint32 *) override
    {
        if (typeName == u"char" || typeName == u"const char")
            return Text;
        return m_followed < m_options.pointers ? Follow : Plain;
    }
    Mode arrayMode(const QString &, const QString &typeName, quint32 *count) override
    {
        *count = std::min(*count, m_options.elements);
        return typeName == u"char[]" || typeName == u"const char[]" ? Plain : Elements;
    }
    void addValue(const QString &name, const QString &expression, const ExpressionValue &value, const QString &typeName,
                  const QString &location) override
    {
        beginRow(name, expression, valueText(value, typeName), typeName, location);
        endRow();
    }
    Token beginStruct(const QString &name, const QString &expression, const ExpressionValue &value,
                      const QString &typeName, const QString &location) override
    {
        const bool isPointer = value.isInteger();
        beginRow(name, expression, valueText(value, typeName), typeName, location);
        m_followed += isPointer;
        return isPointer;
    }
    void endStruct(Token isPointer) override
    {
        m_followed -= int(isPointer);
        endRow();
    }
    Token beginArray(const QString &name, const QString &expression, const ExpressionValue &value,
                     const QString &typeName, const QString &location) override
    {
        return beginStruct(name, expression, value, typeName, location);
    }
    void endArray(Token token) override { endStruct(token); }
    void addError(const QString &name, const QString &expression, const QString &message, const QString &typeName,
                  const QString &location) override
    {
        beginRow(name, expression, QString(), typeName, location, message);
        endRow();
    }

private:
    static bool isPointerType(const QString &typeName) { return typeName.endsWith(u'*'); }

    QString valueText(const ExpressionValue &value, const QString &typeName) const
    {
        if (value.kind() == ExpressionValue::String)
            return value.text();
        if (isPointerType(typeName) || typeName.endsWith(u')'))
            return toText(value, 16);
        if (m_options.isHexadecimal && value.isInteger())
            return toText(value, 16);
        if (value.isInteger() && (value.size() == 1 || value.bitSize()) && typeName.endsWith(u"char"))
            return characterText(value);
        if (value.kind() == ExpressionValue::Unsigned)
            return QString::number(value.asUnsigned()); // all 20 digits
        return toText(value, 10, false, false, value.size() == 4 ? "%.9g" : "%.17g");
    }

    void beginRow(const QString &name, const QString &expression, const QString &value, const QString &typeName,
                  const QString &location, const QString &error = {})
    {
        ++m_level;
        if (m_results.isJson()) {
            JsonWriter &json = m_results.json;
            json.beginObject();
            if (m_level == 1)
                json.field("query", m_query);
            json.field("name", name);
            json.field("expression", expression);
            if (error.isNull())
                json.field("value", value);
            else
                json.nullField("value");
            json.field("type", typeName);
            textField(json, "location", location);
            if (!error.isNull())
                json.field("error", error);
            json.beginArray("children");
            return;
        }
        QString details = typeName;
        if (!location.isEmpty())
            details += u" at "_s + location;
        const bool isText = typeName == u"char *"; // from behind a pointer
        const QString shown = !error.isNull() ? u'<' + error + u'>' : isText ? u'"' + value + u'"' : value;
        m_results.line(QString(4 * (m_level - 1), u' ') + name + u" = "_s + shown + u"  ("_s + details + u')');
    }
    void endRow()
    {
        --m_level;
        if (m_results.isJson()) {
            m_results.json.end();
            m_results.json.end();
        }
    }

    Results &m_results;
    const PrintOptions &m_options;
    QString m_query;
    int m_level = 0;    // of open rows
    int m_followed = 0; // of them, pointers
};

void writeFailure(Results &results, const QString &query, const QString &message)
{
    results.notFound();
    if (!results.isJson()) {
        std::fprintf(stderr, "vnDump: %s: %s\n", qPrintable(query), qPrintable(message));
        return;
    }
    JsonWriter &json = results.json;
    json.beginObject();
    json.field("query", query);
    json.field("name", query);
    json.field("expression", query);
    json.nullField("value");
    json.nullField("type");
    json.nullField("location");
    json.field("error", message);
    json.beginArray("children");
    json.end();
    json.end();
}

// The value of all of the text.
ExpressionValue evaluateWhole(ElfImageEvaluator &evaluator, const QString &text)
{
    int end = 0;
    const auto tree = evaluator.parse(text, &end);
    if (!tree)
        throw ParserException(u"the expression is empty"_s);
    if (end < text.size())
        throw ParserException(u"unexpected text behind the expression: "_s + text.sliced(end));
    const ExpressionValue value = tree->evaluate();
    if (value.kind() == ExpressionValue::None)
        throw ParserException(u"it has no value here"_s);
    return value;
}

// FILE@ADDRESS
void addMemory(ElfImageMemory &memory, const QString &text)
{
    const qsizetype at = text.lastIndexOf(u'@');
    if (at <= 0)
        throw UsageError(u"'%1' is no FILE@ADDRESS"_s.arg(text));
    const quint32 address = parseAddress(text.sliced(at + 1));
    QFile file(text.first(at));
    if (!file.open(QFile::ReadOnly))
        throw HException(u"cannot open "_s + file.fileName());
    constexpr qint64 maximumSize = qint64(1) << 32;
    if (file.size() > maximumSize)
        throw HException(file.fileName() + u" is larger than an address space"_s);
    memory.addPiece(address, file.readAll());
}

} // namespace

int dumpValues(const CommandArguments &arguments)
{
    PrintOptions options;
    options.depth = numberOption(arguments, "depth", options.depth);
    options.pointers = numberOption(arguments, "pointers", options.pointers);
    options.elements = quint32(numberOption(arguments, "elements", std::numeric_limits<int>::max()));
    options.isHexadecimal = arguments.has("hex");
    std::optional<quint32> pc;
    if (arguments.has("at"))
        pc = parseAddress(arguments.value("at"));

    ReportingFile file(arguments.positional().first());
    PrintEvaluator evaluator(file);
    evaluator.setOverridePc(pc);
    for (const QString &memory : arguments.values("memory"))
        addMemory(evaluator.memory(), memory);
    std::optional<TypeDescriptionFile> descriptions;
    const QString path = arguments.value("types", installationDirectory() + QString::fromLatin1(shippedDescriptions));
    if (!arguments.has("raw") && (arguments.has("types") || QFile::exists(path)))
        evaluator.setTypeDescriptions(descriptions.emplace(path).root());

    Results results(arguments);
    for (const QString &query : arguments.positional().mid(1)) {
        PrintedRows rows(results, options);
        rows.setQuery(query);
        DisplayTree tree(evaluator, rows);
        tree.setMaximumLevel(options.depth);
        try {
            tree.show(query, query, evaluateWhole(evaluator, query));
        } catch (const HException &error) {
            writeFailure(results, query, error.message());
        }
        if (tree.isTruncated())
            std::fprintf(stderr, "vnDump: %s: more than %d rows; the rest isn't shown\n", qPrintable(query),
                         DisplayTree::maximumRows);
    }
    return results.finish();
}
