#include "xml/tool/XmlCommands.h"

#include "base/Directories.h"
#include "base/HException.h"
#include "base/JsonWriter.h"
#include "expression/ExpressionParser.h"
#include "expression/ParserException.h"
#include "xml/macros/SystemMacroTable.h"
#include "xml/preprocessor/XMLPP2.h"
#include "xml/tree/XMLFormat.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int exitDone = 0, exitFailed = 1;

// "-" is standard input.
QString inputPath(const QString &argument)
{
    return argument == u"-" ? u"/dev/stdin"_s : argument;
}

// The number of columns or spaces that an option gives.
quint32 widthOption(const CommandArguments &arguments, const char *option, quint32 otherwise)
{
    constexpr quint32 widest = 10'000;
    if (!arguments.has(option))
        return otherwise;
    bool ok = false;
    const quint32 width = arguments.value(option).toUInt(&ok);
    if (!ok || width > widest)
        throw UsageError(u"--%1 takes a number up to %2"_s.arg(QLatin1StringView(option)).arg(widest));
    return width;
}

void writeTo(QFile &output)
{
    if (!output.open(stdout, QIODevice::WriteOnly))
        throw HException(u"cannot write to standard output"_s);
}

void addInstallation()
{
    SystemMacroTable::instance().addInstallationMacros(QDir(installationDirectory()),
                                                       QDir(userDirectory(UserFiles::Data)));
}

// A description whose messages go to standard error.
class ShownDescription : public XMLPP2
{
public:
    using XMLPP2::XMLPP2;

    void reportError(const QString &message) override
    {
        m_hasErrors = true;
        std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
    }
    bool hasErrors() const { return m_hasErrors; }

protected:
    bool parseInclude(const QString &path) override
    {
        const bool ok = XMLPP2::parseInclude(path);
        if (ok && keepsText())
            removeLayout(root(), path);
        return ok;
    }

private:
    bool m_hasErrors = false;
};

const CommandOption processOptions[] = {
    {"macros", "LIST", "the macros: NAME=VALUE;NAME=VALUE"},
    {"expand", nullptr, "replace $(NAME) in attribute values"},
    {"keep-text", nullptr, "keep text and comments"},
};

int process(const CommandArguments &arguments)
{
    const QString argument = arguments.positional().first(), path = inputPath(argument);
    ShownDescription document(arguments.has("keep-text"));
    if (!document.parseFile(path)) {
        const QString error = QString::fromUtf8(document.errorText());
        const bool hasLine = !error.startsWith(u"couldn't read ");
        throw HException(hasLine ? u"%1:%2: %3"_s.arg(argument, QString::number(document.errorLine() + 1), error)
                                 : error);
    }
    requireRoot(document, argument);
    addInstallation();
    if (document.keepsText())
        removeLayout(document.root(), argument);
    document.processConditionals(document.root(), argument == u"-" ? QString() : argument,
                                 readMacroString(arguments.value("macros")), arguments.has("expand"));
    if (document.keepsText())
        removeLayout(document.root(), argument);
    checkDepth(document.root(), argument, XMLFormat().indent);
    document.setIndent(XMLFormat().indent);
    document.setWrapWidth(XMLFormat().wrapWidth);
    QFile output;
    writeTo(output);
    if (!document.writeTo(output))
        throw HException(u"cannot write to standard output"_s);
    return document.hasErrors() ? exitFailed : exitDone;
}

const CommandOption formatOptions[] = {
    {"indent", "N", "spaces a nesting level, 0 for all on one line; default 2"},
    {"wrap", "N", "column at which attributes are broken onto lines of their own, 0 for never; default 75"},
    {"keep-text", nullptr, "keep text and comments"},
};

int format(const CommandArguments &arguments)
{
    XMLFormat layout;
    layout.indent = widthOption(arguments, "indent", layout.indent);
    layout.wrapWidth = widthOption(arguments, "wrap", layout.wrapWidth);
    layout.keepText = arguments.has("keep-text");
    QFile output;
    writeTo(output);
    formatXml(inputPath(arguments.positional().first()), layout, output);
    return exitDone;
}

int doctype(const CommandArguments &arguments)
{
    const QString argument = arguments.positional().first(), path = inputPath(argument);
    if (!QFile(path).open(QIODevice::ReadOnly))
        throw HException(u"couldn't read "_s + argument);
    const QByteArray name = readDoctype(path);
    if (name.isNull())
        throw HException(argument + u": no document type"_s);
    printOut(name + '\n');
    return exitDone;
}

// All of the text must be one expression.
ExpressionValue calculate(const QString &text)
{
    SimpleExpressionParser parser;
    int end = 0;
    const ExpressionValue value = parser.evaluate(text, &end);
    if (end < text.size())
        throw ParserException(u"unexpected text behind the expression: "_s + text.sliced(end));
    return value;
}

const char *kindName(const ExpressionValue &value)
{
    switch (value.kind()) {
    case ExpressionValue::Boolean: return "boolean";
    case ExpressionValue::Signed: return "signed";
    case ExpressionValue::Unsigned: return "unsigned";
    case ExpressionValue::String: return "string";
    case ExpressionValue::Float: return "float";
    default: return "none";
    }
}

QString valueText(const ExpressionValue &value)
{
    switch (value.kind()) {
    case ExpressionValue::Boolean: return value.asBool() ? u"true"_s : u"false"_s;
    case ExpressionValue::Signed: return QString::number(value.asSigned());
    case ExpressionValue::Unsigned: return QString::number(value.asUnsigned());
    case ExpressionValue::String: return value.text();
    case ExpressionValue::Float: return QString::number(value.asDouble(), 'g', QLocale::FloatingPointShortest);
    default: return {};
    }
}

void writeValue(JsonWriter &json, const ExpressionValue &value)
{
    json.field("kind", QLatin1StringView(kindName(value)));
    switch (value.kind()) {
    case ExpressionValue::Boolean: json.field("value", value.asBool()); break;
    case ExpressionValue::Signed: json.field("value", value.asSigned()); break;
    case ExpressionValue::Float: json.field("value", value.asDouble()); break;
    case ExpressionValue::String: json.field("value", value.text()); break;
    default: json.nullField("value"); break;
    }
    json.field("size", value.size());
}

const CommandOption evalOptions[] = {{"json", nullptr, "print kind, value and size as JSON"}};

int evaluateAsJson(const QStringList &expressions)
{
    JsonWriter json;
    int status = exitDone;
    json.beginArray();
    for (const QString &text : expressions) {
        json.beginObject();
        json.field("query", text);
        try {
            writeValue(json, calculate(text));
        } catch (const ParserException &error) {
            for (const char *key : {"kind", "value", "size"})
                json.nullField(key);
            json.field("error", error.message());
            status = exitFailed;
        }
        json.end();
    }
    json.end();
    printOut(json.text());
    return status;
}

int evaluate(const CommandArguments &arguments)
{
    if (arguments.has("json"))
        return evaluateAsJson(arguments.positional());
    for (const QString &text : arguments.positional()) {
        try {
            printOut(valueText(calculate(text)) + u'\n');
        } catch (const ParserException &error) {
            throw HException(text + u": "_s + error.message());
        }
    }
    return exitDone;
}

const CommandOption macroOptions[] = {
    {"D,define", "NAME=VALUE", "a macro; may be given more than once"},
    {"no-system", nullptr, "leave the system's own macros alone"},
};

int macro(const CommandArguments &arguments)
{
    MacroMap macros;
    for (const QString &definition : arguments.values("define"))
        macros.insert(definition.section(u'=', 0, 0), definition.section(u'=', 1));
    const bool useSystem = !arguments.has("no-system");
    if (useSystem)
        addInstallation();
    for (const QString &text : arguments.positional())
        printOut(expandMacros(SystemMacroTable::instance(), macros, text, false, useSystem) + u'\n');
    return exitDone;
}

const CommandVerb verbs[] = {
    {"process", "FILE", "Resolves the directives of a description file and prints the tree.", 1, 1, processOptions,
     process},
    {"format", "FILE", "Lays an XML file out again and prints it.", 1, 1, formatOptions, format},
    {"doctype", "FILE", "Prints the name of an XML file's document type.", 1, 1, {}, doctype},
    {"eval", "EXPRESSION...", "Calculates; prints one line an expression.", 1, -1, evalOptions, evaluate},
    {"macro", "TEXT...", "Expands the macro references in texts; prints one line a text.", 1, -1, macroOptions, macro},
};

} // namespace

std::span<const CommandVerb> xmlVerbs()
{
    return verbs;
}
