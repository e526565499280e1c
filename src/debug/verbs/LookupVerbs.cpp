#include "debug/verbs/LookupVerbs.h"

#include "debug/verbs/ReportingFile.h"
#include "debug/verbs/Results.h"
#include "debug/verbs/SymbolSearch.h"

using namespace Qt::StringLiterals;

namespace {

// The arguments behind the file as addresses; all are checked before anything is read.
std::vector<std::pair<QString, quint32>> askedAddresses(const CommandArguments &arguments)
{
    std::vector<std::pair<QString, quint32>> asked;
    for (const QString &text : arguments.positional().mid(1))
        asked.emplace_back(text, parseAddress(text));
    return asked;
}

// line

void writeLine(Results &results, const QString &query, quint32 address, const SymbolicLocation &location)
{
    const auto &position = location.position;
    if (!position)
        results.notFound();
    if (!results.isJson()) {
        const QString function = location.function.isEmpty() ? u"??"_s : location.type + u' ' + location.function;
        results.line(addressText(address) + u' ' + function + u' ' +
                     (position ? u"%1:%2 %3-%4"_s.arg(position->path)
                                     .arg(position->line)
                                     .arg(addressText(position->start), addressText(position->end))
                               : u"??"_s));
        return;
    }
    JsonWriter &json = results.json;
    json.beginObject();
    json.field("query", query);
    json.addressField("address", address);
    textField(json, "function", location.function);
    textField(json, "type", location.type);
    if (position) {
        json.field("file", position->path);
        json.field("line", position->line);
        json.addressField("start", position->start);
        json.addressField("end", position->end);
    } else {
        for (const char *key : {"file", "line", "start", "end"})
            json.nullField(key);
    }
    json.end();
}

// address

struct SourceLine
{
    QString query, path;
    int line;
};

SourceLine parseSourceLine(const QString &text)
{
    const qsizetype colon = text.lastIndexOf(u':');
    bool isNumber = false;
    const int line = text.mid(colon + 1).toInt(&isNumber);
    if (colon <= 0 || !isNumber || line <= 0)
        throw UsageError(u"'%1' is no SOURCE:LINE"_s.arg(text));
    return {text, text.left(colon), line};
}

// The sources that a user means by a path: that one, else those whose paths end with it.
std::vector<quint32> sourcesMeant(SourceAddressMap &map, const QString &path)
{
    const QByteArray asked = SourcePaths::canonical(path.toUtf8());
    std::vector<quint32> sources = map.sources();
    if (const auto exact = map.paths().find(asked); exact && std::ranges::find(sources, *exact) != sources.end())
        return {*exact};
    std::erase_if(sources, [&](quint32 source) { return !map.paths().path(source).endsWith('/' + asked); });
    return sources;
}

void writeAddresses(Results &results, SourceAddressMap &map, const SourceLine &asked)
{
    QString path = asked.path;
    QList<quint32> addresses;
    const std::vector<quint32> sources = sourcesMeant(map, asked.path);
    if (sources.empty())
        map.addressesOfLine(asked.path, asked.line, addresses); // by a relative path that it ends with
    for (const quint32 source : sources) {
        const bool isFirst = addresses.isEmpty();
        if (map.addressesOfLine(map.paths().text(source), asked.line, addresses) && isFirst)
            path = map.paths().text(source);
    }
    std::ranges::sort(addresses);
    if (addresses.isEmpty())
        results.notFound();
    if (!results.isJson()) {
        QStringList texts;
        for (const quint32 address : addresses)
            texts += addressText(address);
        results.line(
            u"%1:%2 %3"_s.arg(path, QString::number(asked.line), texts.isEmpty() ? u"??"_s : texts.join(u' ')));
        return;
    }
    JsonWriter &json = results.json;
    json.beginObject();
    json.field("query", asked.query);
    json.field("file", path);
    json.field("line", asked.line);
    json.beginArray("addresses");
    for (const quint32 address : addresses)
        json.value(addressText(address));
    json.end();
    json.end();
}

// frame

const char *ruleName(RegisterRule::Kind kind)
{
    switch (kind) {
    case RegisterRule::Undefined: return "undefined";
    case RegisterRule::SameValue: return "same";
    case RegisterRule::Offset: return "offset";
    case RegisterRule::Register: return "register";
    case RegisterRule::Value: return "value";
    case RegisterRule::Architecture: break;
    }
    return "architecture";
}

QString ruleText(const RegisterRule &rule)
{
    switch (rule.kind) {
    case RegisterRule::Offset: return u"at CFA%1%2"_s.arg(rule.offset < 0 ? u""_s : u"+"_s).arg(rule.offset);
    case RegisterRule::Register: return u"in r%1"_s.arg(rule.reg);
    case RegisterRule::Value: return u"r%1%2%3"_s.arg(rule.reg).arg(rule.offset < 0 ? u""_s : u"+"_s).arg(rule.offset);
    default: return QString::fromLatin1(ruleName(rule.kind));
    }
}

void writeFrame(Results &results, const QString &query, quint32 address, DwarfFrameTable &frames)
{
    std::map<qint32, RegisterRule> rules;
    if (frames.computeRegisters(address))
        rules = frames.rules();
    else
        results.notFound();
    const auto found = rules.find(DwarfFrameTable::cfaKey);
    const std::optional<RegisterRule> cfa = found == rules.end() ? std::nullopt : std::optional(found->second);
    rules.erase(DwarfFrameTable::cfaKey);
    if (!results.isJson()) {
        QString text = addressText(address) + u" CFA = "_s + (cfa ? ruleText(*cfa) : u"??"_s);
        for (const auto &[reg, rule] : rules)
            text += u"; r%1 %2"_s.arg(reg).arg(ruleText(rule));
        results.line(text);
        return;
    }
    JsonWriter &json = results.json;
    json.beginObject();
    json.field("query", query);
    json.addressField("address", address);
    if (cfa) {
        json.beginObject("cfa");
        json.field("register", cfa->reg);
        json.field("offset", cfa->offset);
        json.end();
    } else {
        json.nullField("cfa");
    }
    json.beginArray("registers");
    for (const auto &[reg, rule] : rules) {
        json.beginObject();
        json.field("register", reg);
        json.field("rule", QString::fromLatin1(ruleName(rule.kind)));
        if (rule.kind == RegisterRule::Register || rule.kind == RegisterRule::Value)
            json.field("source", rule.reg);
        if (rule.kind == RegisterRule::Offset || rule.kind == RegisterRule::Value)
            json.field("offset", rule.offset);
        json.end();
    }
    json.end();
    json.end();
}

void writeStackUsage(Results &results, quint32 address, const QString &function, qint32 usage)
{
    if (!results.isJson()) {
        results.line(u"%1 %2 %3"_s.arg(addressText(address), usage < 0 ? u"?"_s : QString::number(usage),
                                       function.isEmpty() ? u"??"_s : function));
        return;
    }
    results.json.beginObject();
    results.json.addressField("address", address);
    textField(results.json, "function", function);
    results.json.field("stackUsage", usage);
    results.json.end();
}

// The functions of the symbol table, each address once; the first name of several counts.
std::map<quint32, const ElfSymbol *> functionSymbols(const ElfFile &elf)
{
    std::map<quint32, const ElfSymbol *> functions;
    for (const ElfSymbol *symbol : elf.symbolsByAddress()) {
        if (symbol->isFunction() && symbol->sectionIndex() != SHN_UNDEF)
            functions.emplace(symbol->value(), symbol);
    }
    return functions;
}

int dumpStackUsage(const CommandArguments &arguments)
{
    const auto asked = askedAddresses(arguments);
    Results results(arguments);
    ReportingFile file(arguments.positional().first());
    const auto functions = functionSymbols(file.elf());
    if (asked.empty()) {
        for (const auto &[address, symbol] : functions)
            writeStackUsage(results, address, symbol->name(), file.stackUsage(*symbol));
    }
    for (const auto &[query, address] : asked) {
        const qint32 usage = file.dwarf().frames().stackUsage(address);
        if (usage < 0)
            results.notFound();
        const auto next = functions.upper_bound(address);
        const ElfSymbol *symbol = next == functions.begin() ? nullptr : std::prev(next)->second;
        const bool isInside = symbol && address - symbol->value() < std::max<quint32>(symbol->size(), 1);
        writeStackUsage(results, address, isInside ? symbol->name() : file.dwarf().subprogramAt(address).name(), usage);
    }
    return results.finish();
}

// symbol

const char *const symbolTypes[] = {"NOTYPE", "OBJECT", "FUNC", "SECTION", "FILE", "COMMON", "TLS"};
const char *const symbolBindings[] = {"LOCAL", "GLOBAL", "WEAK"};

QString nameOf(std::span<const char *const> names, quint32 number)
{
    return number < names.size() ? QString::fromLatin1(names[number]) : QString::number(number);
}

void writeSymbol(Results &results, const ElfFile &elf, const QString &query, const ElfSymbol *symbol, quint32 offset)
{
    if (!symbol)
        results.notFound();
    const ElfSection *section = symbol && symbol->sectionIndex() != SHN_UNDEF ? elf.sectionOfSymbol(symbol) : nullptr;
    const QString type = symbol ? nameOf(symbolTypes, symbol->isFunction() ? STT_FUNC : symbol->type()) : QString();
    const QString binding = symbol ? nameOf(symbolBindings, symbol->binding()) : QString();
    QString mode;
    if (const auto *arm = elf.isArm() ? static_cast<const ARMElfSymbol *>(symbol) : nullptr)
        mode = arm->mode() == ARMElfSymbol::Thumb ? u"thumb"_s
               : arm->mode() == ARMElfSymbol::Arm ? u"arm"_s
                                                  : u"data"_s;
    if (!results.isJson()) {
        if (!symbol)
            return results.line(query + u" ??"_s);
        results.line(u"%1 %2 %3 %4 %5 %6%7%8"_s.arg(addressText(symbol->value()), QString::number(symbol->size()), type,
                                                    binding, section ? section->name() : u"-"_s, symbol->name(),
                                                    offset ? u"+%1"_s.arg(offset) : QString(),
                                                    mode.isEmpty() ? QString() : u" ("_s + mode + u')'));
        return;
    }
    JsonWriter &json = results.json;
    json.beginObject();
    json.field("query", query);
    if (symbol) {
        json.field("name", symbol->name());
        json.addressField("address", symbol->value());
        json.field("size", symbol->size());
    } else {
        for (const char *key : {"name", "address", "size"})
            json.nullField(key);
    }
    textField(json, "type", type);
    textField(json, "binding", binding);
    textField(json, "section", section ? section->name() : QString());
    textField(json, "mode", mode);
    if (symbol)
        json.field("offset", offset);
    else
        json.nullField("offset");
    json.end();
}

} // namespace

int dumpLines(const CommandArguments &arguments)
{
    const auto asked = askedAddresses(arguments);
    Results results(arguments);
    ReportingFile file(arguments.positional().first());
    for (const auto &[query, address] : asked)
        writeLine(results, query, address, file.dwarf().symbolicLocationAt(address));
    return results.finish();
}

int dumpAddresses(const CommandArguments &arguments)
{
    std::vector<SourceLine> asked;
    for (const QString &text : arguments.positional().mid(1))
        asked.push_back(parseSourceLine(text));
    Results results(arguments);
    ReportingFile file(arguments.positional().first());
    for (const SourceLine &line : asked)
        writeAddresses(results, file.dwarf().lineMap(), line);
    return results.finish();
}

int dumpFrames(const CommandArguments &arguments)
{
    if (arguments.has("stack-usage"))
        return dumpStackUsage(arguments);
    const auto asked = askedAddresses(arguments);
    if (asked.empty())
        throw UsageError(u"an address is missing"_s);
    Results results(arguments);
    ReportingFile file(arguments.positional().first());
    for (const auto &[query, address] : asked)
        writeFrame(results, query, address, file.dwarf().frames());
    return results.finish();
}

int dumpSymbols(const CommandArguments &arguments)
{
    Results results(arguments);
    ReportingFile file(arguments.positional().first());
    for (const QString &query : arguments.positional().mid(1)) {
        bool isAddress = false;
        const quint32 address = query.toUInt(&isAddress, 0);
        const ElfSymbol *symbol = isAddress ? symbolOfAddress(file.elf(), address) : symbolOfName(file.elf(), query);
        writeSymbol(results, file.elf(), query, symbol, isAddress && symbol ? address - symbol->value() : 0);
    }
    return results.finish();
}
