#include "base/CommandLine.h"

#include "base/HException.h"

#include <QCommandLineParser>
#include <QFile>
#include <QLoggingCategory>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int exitDone = 0, exitFailed = 1, exitUsage = 2;

QString text(const char *latin1)
{
    return QString::fromLatin1(latin1);
}

// "-c, --config NAME"
QString optionHead(const CommandOption &option)
{
    QStringList names;
    for (const QString &name : text(option.names).split(u','))
        names += (name.size() == 1 ? u"-"_s : u"--"_s) + name;
    QString head = (names.first().startsWith(u"--") ? u"    "_s : QString()) + names.join(u", "_s);
    return option.valueName ? head + u' ' + text(option.valueName) : head;
}

// Of every program.
constexpr CommandOption commonOptions[] = {
    {"trace", "CATEGORY,...", "tell what these libraries do (debug/dwarf; * for all), on standard error"},
    {"h,help", nullptr, "this text"},
};

// A library's category is its folder below src/.
void startTracing(const QString &categories)
{
    QString rules;
    for (const QString &category : categories.split(u','))
        rules += category + u".debug=true\n"_s;
    QLoggingCategory::setFilterRules(rules);
    qSetMessagePattern(u"%{category}: %{message}"_s);
}

void say(const char *program, const QString &message)
{
    std::fprintf(stderr, "%s: %s\n", program, message.toLocal8Bit().constData());
}

// A verb's arguments name something, but for those whose place says that they are plain text.
void checkNames(const CommandVerb &verb, const QStringList &given)
{
    static const QStringList texts = {u"ARGUMENT"_s, u"EXPRESSION"_s, u"TEXT"_s};
    QString arguments = text(verb.arguments);
    for (const char16_t mark : u"[].")
        arguments.remove(QChar(mark));
    const QStringList places = arguments.split(u' ', Qt::SkipEmptyParts);
    for (qsizetype i = 0; i < given.size() && !places.isEmpty(); ++i) {
        const QString &place = places[std::min(i, places.size() - 1)];
        if (given[i].isEmpty() && !texts.contains(place))
            throw UsageError(u"the name of %1 is empty"_s.arg(place));
    }
}

// A standard stream that is closed gets a file that fails as it would: else the next file to be opened would
// have its number, and messages would go into that.
void occupyStandardStreams()
{
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(number, F_GETFD) < 0) // the lowest free number, so open() takes it
            [[maybe_unused]]
            const int taken = ::open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

} // namespace

bool CommandArguments::has(const char *option) const
{
    return m_parser->isSet(text(option));
}

QString CommandArguments::value(const char *option, const QString &otherwise) const
{
    return has(option) ? m_parser->value(text(option)) : otherwise;
}

QStringList CommandArguments::values(const char *option) const
{
    return m_parser->values(text(option));
}

QString CommandLine::help(const CommandVerb *verb) const
{
    const QString program = text(m_program);
    if (!verb) {
        QString page = u"usage: %1 VERB ...\n%2\n\n"_s.arg(program, text(m_summary));
        for (const CommandVerb &row : m_verbs)
            page += u"  %1 %2\n        %3\n"_s.arg(text(row.name), text(row.arguments), text(row.help));
        return page + u"\n%1 VERB --help tells the options of a verb; --version the version.\n"_s.arg(program);
    }
    QStringList head{program, text(verb->name), u"[options]"_s, text(verb->arguments)};
    head.removeAll(QString());
    QString page = u"usage: %1\n%2\n\n"_s.arg(head.join(u' '), text(verb->help));
    for (const auto options : {verb->options, std::span<const CommandOption>(commonOptions)}) {
        for (const CommandOption &option : options)
            page += u"  %1 %2\n"_s.arg(optionHead(option).leftJustified(26), text(option.help));
    }
    return page;
}

int CommandLine::run(const QStringList &arguments, const char *version) const
{
    occupyStandardStreams();
    const QString first = arguments.value(1);
    try {
        int status = exitDone;
        const bool hasVerbs = *m_verbs.front().name;
        if (first == u"--version") {
            printOut(u"%1 (Veldane) %2\n"_s.arg(text(m_program), text(version)));
        } else if (hasVerbs && (first == u"--help" || first == u"-h")) {
            printOut(help(nullptr));
        } else if (!hasVerbs) {
            status = runVerb(m_verbs.front(), arguments);
        } else if (first.isEmpty()) {
            throw UsageError(u"a verb is missing"_s);
        } else {
            const auto named = [&](const CommandVerb &verb) { return first == QLatin1StringView(verb.name); };
            const auto verb = std::ranges::find_if(m_verbs, named);
            if (verb == m_verbs.end())
                throw UsageError(u"unknown verb '%1'"_s.arg(first));
            status = runVerb(*verb, arguments.mid(1));
        }
        if (std::fflush(stdout) != 0 || std::ferror(stdout))
            throw HException(u"cannot write to standard output"_s);
        return status;
    } catch (const UsageError &error) {
        say(m_program, u"%1; try '%2 --help'"_s.arg(error.message(), text(m_program)));
        return exitUsage;
    } catch (const HException &error) {
        std::fflush(stdout);
        say(m_program, error.message());
    } catch (const StudioCancelException &) {
        say(m_program, u"cancelled"_s);
    } catch (const std::bad_alloc &) {
        say(m_program, u"out of memory"_s);
    }
    return exitFailed;
}

int CommandLine::run(int argumentCount, char **arguments, const char *version) const
{
    QStringList words;
    for (int i = 0; i < argumentCount; ++i)
        words += QFile::decodeName(arguments[i]);
    return run(words, version);
}

int CommandLine::runVerb(const CommandVerb &verb, const QStringList &arguments) const
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    if (verb.endsAtArgument)
        parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    for (const auto options : {verb.options, std::span<const CommandOption>(commonOptions)}) {
        for (const CommandOption &option : options)
            parser.addOption(QCommandLineOption(text(option.names).split(u','), QString(), text(option.valueName)));
    }
    if (!parser.parse(arguments))
        throw UsageError(parser.errorText().chopped(parser.errorText().endsWith(u'.')));
    if (parser.isSet(u"help"_s)) {
        printOut(help(&verb));
        return exitDone;
    }
    if (parser.isSet(u"trace"_s))
        startTracing(parser.value(u"trace"_s));
    CommandArguments given;
    given.m_parser = &parser;
    given.m_positional = parser.positionalArguments();
    const qsizetype count = given.m_positional.size();
    if (count < verb.minimumArguments)
        throw UsageError(u"arguments are missing: %1 %2"_s.arg(text(verb.name), text(verb.arguments)).simplified());
    if (verb.maximumArguments >= 0 && count > verb.maximumArguments)
        throw UsageError(u"too many arguments: '%1'"_s.arg(given.m_positional[verb.maximumArguments]));
    checkNames(verb, given.m_positional);
    return verb.run(given);
}

quint32 parseAddress(const QString &address)
{
    bool ok = false;
    const quint32 value = address.toUInt(&ok, 0);
    if (!ok)
        throw UsageError(u"'%1' is no 32-bit address"_s.arg(address));
    return value;
}

void printOut(QByteArrayView bytes)
{
    if (!bytes.isEmpty()) // an empty view may have no data at all
        std::fwrite(bytes.data(), 1, size_t(bytes.size()), stdout);
}

void printOut(QStringView text)
{
    printOut(text.toUtf8());
}

QString addressText(quint32 address)
{
    return u"0x%1"_s.arg(address, 8, 16, QChar(u'0'));
}
