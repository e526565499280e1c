// Strings, which are one cell each, and output.
#include "forth/machine/FSContext.h"
#include "forth/machine/ForthWords.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QString toText(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), qsizetype(utf8.size()));
}

// A character as its code or as a string.
char popDelimiter(FSContext &context)
{
    const Cell cell = context.pop();
    if (cell.kind == Cell::stringKind && cell.toString().size() == 1 && cell.toString()[0].unicode() < 0x80)
        return cell.toString()[0].toLatin1();
    const qint64 code = cell.toInteger();
    if (code < 0 || code >= 0x80)
        throw ForthException(ForthError::InvalidArgument);
    return char(code);
}

Cell parseCharacter(FSContext &context)
{
    const std::string_view word = context.parseWord(false);
    return word.empty() ? Cell::ofInteger(0) : context.newString(toText(word.substr(0, 1)));
}

void requireCompiling(FSContext &context)
{
    if (!context.isCompiling())
        throw ForthException(ForthError::CompileOnly);
}

} // namespace

void ForthWords::sQuote(FSContext &context)
{
    const Cell text = context.newString(toText(context.parseText('"')));
    if (context.isCompiling())
        context.appendLiteral(text);
    else
        context.push(text);
}

void ForthWords::dotQuote(FSContext &context)
{
    requireCompiling(context);
    context.openDefinition();
    context.appendLiteral(context.newString(toText(context.parseText('"'))));
    context.append(Op::CallFunction, {{.function = dot}});
}

void ForthWords::dotParen(FSContext &context)
{
    context.output(toText(context.parseText(')')));
}

void ForthWords::charWord(FSContext &context)
{
    context.push(parseCharacter(context));
}

void ForthWords::bracketChar(FSContext &context)
{
    requireCompiling(context);
    context.openDefinition();
    context.appendLiteral(parseCharacter(context));
}

void ForthWords::word(FSContext &context)
{
    const char delimiter = popDelimiter(context);
    context.pushString(toText(delimiter == ' ' ? context.parseWord(false) : context.parseText(delimiter, true)));
}

void ForthWords::parse(FSContext &context)
{
    const char delimiter = popDelimiter(context);
    context.pushString(toText(context.parseText(delimiter)));
}

void ForthWords::count(FSContext &context)
{
    const qsizetype length = context.dataStack.pop().toString().size();
    ++context.dataStack.top; // the string stays
    context.pushInteger(length);
}

void ForthWords::commaComma(FSContext &context)
{
    const QString second = context.pop().printable(), first = context.pop().printable();
    if (first.size() + second.size() > context.longestString())
        throw ForthException(ForthError::StringOverflow);
    context.pushString(first + second);
}

void ForthWords::stringArg(FSContext &context)
{
    const QString argument = context.pop().printable(), format = context.popString();
    static const QRegularExpression place(u"%L?[0-9]"_s);
    const bool hasPlace = format.contains(place); // without one QString::arg complains
    context.pushString(hasPlace ? format.arg(argument) : format);
}

// Percent signs and codes, as in a URL.
void ForthWords::htmlEscape(FSContext &context)
{
    const QString text = context.popString();
    QString escaped;
    for (const QChar c : text) {
        if (c.isLetterOrNumber())
            escaped += c;
        else
            escaped += u'%' + u"%1"_s.arg(c.unicode(), 2, 16, QChar(u'0'));
    }
    context.pushString(escaped);
}

void ForthWords::toNumber(FSContext &context)
{
    const QString text = context.popString();
    quint64 value = 0;
    qsizetype digits = 0;
    for (; digits < text.size() && text[digits] >= u'0' && text[digits] <= u'9'; ++digits)
        value = value * 10 + quint64(text[digits].unicode() - u'0');
    context.pushInteger(qint64(value));
    context.pushInteger(digits);
}

void ForthWords::cr(FSContext &context)
{
    context.pushString(u"\n"_s);
}

void ForthWords::spaces(FSContext &context)
{
    context.pushString(QString(std::clamp<qint64>(context.popInteger(), 0, 500), u' '));
}

// Output

void ForthWords::dot(FSContext &context)
{
    context.output(context.pop().printable() + u' ');
}

void ForthWords::dotR(FSContext &context)
{
    context.popInteger();
    context.output(context.pop().printable());
}

void ForthWords::space(FSContext &context)
{
    context.output(u" "_s);
}

void ForthWords::emit(FSContext &context)
{
    const qint64 code = context.popInteger();
    if (code < 0 || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000))
        throw ForthException(ForthError::InvalidArgument);
    const char32_t character = char32_t(code);
    context.output(QString::fromUcs4(&character, 1));
}

void ForthWords::dotS(FSContext &context)
{
    QString text(u'\n');
    for (int i = context.dataStack.depth() - 1; i >= 0; --i)
        text += context.dataStack.pick(i).printable() + u' ';
    context.output(text + u"<-Top "_s);
}

// The rest of the line, and comments

void ForthWords::paren(FSContext &context)
{
    while (!context.skipPast(')')) {
        if (!context.refill())
            throw ForthException(ForthError::UnexpectedEnd);
    }
}

void ForthWords::backslash(FSContext &context)
{
    context.skipLine();
}

void ForthWords::refill(FSContext &context)
{
    context.pushFlag(context.refill());
}

void ForthWords::sourceId(FSContext &context)
{
    context.pushInteger(context.fileIdentifier());
}

void ForthWords::saveInput(FSContext &)
{
    throw ForthException(ForthError::Unimplemented);
}

void ForthWords::restoreInput(FSContext &)
{
    throw ForthException(ForthError::Unimplemented);
}

void ForthWords::query(FSContext &)
{
    throw ForthException(ForthError::Obsolescent);
}

void ForthWords::convert(FSContext &)
{
    throw ForthException(ForthError::Obsolescent);
}

void ForthWords::abort(FSContext &)
{
    throw ForthException(ForthError::Abort);
}
