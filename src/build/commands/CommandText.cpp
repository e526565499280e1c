#include "build/commands/CommandText.h"

#include <QFile>

using namespace Qt::StringLiterals;

bool loadOptionsFile(const QString &path, QStringList &options, const QString &prefix)
{
    QFile file(path);
    if (!file.open(QFile::ReadOnly))
        return false;
    const QByteArray text = file.readAll();
    bool isComment = false;
    for (QByteArrayView rest = text, line; !rest.isEmpty();) {
        const qsizetype end = rest.indexOf('\n');
        line = end < 0 ? rest : rest.first(end);
        rest = end < 0 ? QByteArrayView() : rest.sliced(end + 1);
        if (line.endsWith('\r'))
            line.chop(1);
        qsizetype commentEnd = 0; // where its end may stand
        if (!isComment) {
            if (line.startsWith('#') || line.startsWith("//"))
                continue;
            const qsizetype start = line.indexOf("/*");
            isComment = start >= 0;
            commentEnd = start + 2;
        }
        if (isComment)
            isComment = line.indexOf("*/", commentEnd) < 0;
        else if (line.size() >= 2)
            options += prefix + QString::fromUtf8(line);
    }
    return true;
}

// A backslash before a blank or a number sign, and a dollar before a dollar, are make's escapes. Of several
// backslashes before a blank two stand for one each, and an odd one escapes the blank.
static void appendNames(QByteArrayView line, QStringList &names)
{
    QByteArray name;
    const auto finish = [&] {
        if (!name.isEmpty())
            names += QFile::decodeName(name);
        name.resize(0); // keeps its memory
    };
    for (qsizetype i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == ' ' || c == '\t') {
            finish();
        } else if (c == '$' && i + 1 < line.size() && line[i + 1] == '$') {
            name += line[++i];
        } else if (c == '\\') {
            qsizetype behind = i + 1;
            while (behind < line.size() && line[behind] == '\\')
                ++behind;
            const qsizetype count = behind - i;
            const char next = behind < line.size() ? line[behind] : '\0';
            const bool isBlank = next == ' ' || next == '\t';
            const bool isEscape = (isBlank && count % 2) || next == '#';
            name.append(isBlank ? count / 2 : count - isEscape, '\\');
            i = behind - 1;
            if (isEscape)
                name += line[++i];
        } else {
            name += c;
        }
    }
    finish();
}

QStringList parseDependencies(QByteArrayView text)
{
    QStringList names;
    while (!text.isEmpty()) {
        const qsizetype end = text.indexOf('\n');
        QByteArrayView line = end < 0 ? text : text.first(end);
        text = end < 0 ? QByteArrayView() : text.sliced(end + 1);
        if (line.endsWith('\r'))
            line.chop(1);
        if (!line.startsWith(' ') && !line.startsWith('\t')) {
            const qsizetype colon = line.indexOf(": "); // the targets of a rule, or a rule without prerequisites
            if (colon < 0)
                continue;
            line = line.sliced(colon + 2);
        }
        if (line.endsWith('\\'))
            line.chop(1);
        appendNames(line, names);
    }
    if (!names.isEmpty())
        names.removeFirst();
    return names;
}

QStringList readDependencyFile(const QString &path)
{
    QFile file(path);
    return file.open(QFile::ReadOnly) ? parseDependencies(file.readAll()) : QStringList();
}

MacroMap externalToolMacros(const QStringList &languageArguments)
{
    QStringList defines, includes;
    for (qsizetype i = 0; i < languageArguments.size(); ++i) {
        const QString &argument = languageArguments[i];
        if (argument.startsWith("-D"_L1)) {
            defines += argument;
        } else if (argument.startsWith("-I"_L1) || argument.startsWith("-isystem"_L1)) {
            includes += argument;
            if (argument == "-isystem"_L1 && i + 1 < languageArguments.size())
                includes += languageArguments[++i];
        }
    }
    const auto quoted = [](const QStringList &arguments) { return arguments.join(u' ').replace(u'"', "\\\""_L1); };
    return {{u"DEFINES"_s, quoted(defines)}, {u"INCLUDES"_s, quoted(includes)}};
}
