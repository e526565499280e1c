#include "expression/ExpressionParser.h"
#include "expression/ParserException.h"
#include "support/QtPrinters.h"

#include <QRegularExpression>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// The value as text: "7", "true", "1.5", "\"abc\"", "none", or "! " and the message of a failure.
QString shown(const ExpressionValue &value)
{
    switch (value.kind()) {
    case ExpressionValue::Boolean: return value.asBool() ? u"true"_s : u"false"_s;
    case ExpressionValue::Signed: return QString::number(value.asSigned());
    case ExpressionValue::Unsigned: return QString::number(value.asUnsigned()) + u'u';
    case ExpressionValue::Float: return QString::number(value.asDouble());
    case ExpressionValue::String: return u'"' + value.text() + u'"';
    default: return u"none"_s;
    }
}

QString calculated(const QString &text, ExpressionParser &&parser = SimpleExpressionParser())
{
    try {
        return shown(parser.evaluate(text));
    } catch (const ParserException &error) {
        return u"! "_s + error.message();
    }
}

struct CalculatorRow
{
    const char *text, *result;
};

TEST(SimpleExpressionParser, Calculates)
{
    const CalculatorRow rows[] = {
        {"", "none"},
        {"  \t", "none"},
        {"1 + 2 * 3", "7"},
        {"2 * 3 + 1", "7"},
        {"7 - 2 - 1", "4"},
        {"(7 - (2 - 1)) % 4", "2"},
        {"1 << 2 + 1", "8"},
        {"-8 >> 1", "-4"},
        {"1 << 65", "2"},
        {"1 | 6 & 3 ^ 1", "3"},
        {"~5 + -+-3", "-3"},
        {"!0 == 1", "true"}, // the boolean takes the right side as one
        {"017", "15"},
        {"09", "9"},
        {"0b101", "5"},
        {"0x", "0"},
        {"0xFFul + 1", "256"},
        {"10UL", "10"},
        {"1.5", "1.5"},
        {"1 + 0.5", "1.5"},
        {"3 / 2", "1"},
        {"3.0 / 2", "1.5"},
        {"-1.5", "-1.5"},
        {"1 == 1", "true"},
        {"(1 == 1) + 1", "true"},
        {"(1 == 1) - (2 == 2)", "false"},
        {"1 && 0 || 1", "1"},
        {"\"b\" > \"a\"", "true"},
        {"\"a\" == \"a\"", "true"},
        {"\"two words\"", "\"two words\""},
        {"-9223372036854775807 - 1", "-9223372036854775808"},
        {"(-9223372036854775807 - 1) / -1", "-9223372036854775808"},
        {"(-9223372036854775807 - 1) % -1", "0"},
        {"9223372036854775807 + 1", "-9223372036854775808"},
        {"3 ) 4", "3"}, // the rest is the caller's
    };
    for (const auto &row : rows)
        EXPECT_EQ(calculated(QString::fromLatin1(row.text)), QString::fromLatin1(row.result)) << row.text;
}

TEST(SimpleExpressionParser, Refuses)
{
    const CalculatorRow rows[] = {
        {"a", "a symbol not found"},
        {"a::b::c", "a::b::c symbol not found"},
        {"::a", "a symbol not found"},
        {"@r0", "r0unknown register"},
        {"1, 2", "operator not supported"},
        {"1 ? 2 : 3", "operator not supported"},
        {"8 >>> 1", "operator not supported"},
        {"1, )", "unexpected token TOKEN_RPAREN"}, // what is wrong further on comes first
        {"1 / 0", "divide by zero"},
        {"1.0 / 0.0", "divide by zero"},
        {"1 % 0", "divide by zero"},
        {"1 / (1 == 0)", "divide by zero"},
        {"1.5 < 2.5", "unsupported comparison operation"},
        {"1.5 % 2", "unsupported binary numeric operation"},
        {"\"a\" + \"b\"", "unsupported binary numeric operation"},
        {"1 << 1.0", "integer shift value expected"},
        {"1.0 << 1", "can only shift numeric values"},
        {"~(1 == 1)", "unsupported unary num operation"},
        {"-\"a\"", "unsupported unary num operation"},
        {"(1", "')' expected"},
        {"1 +", "unexpected token TOKEN_EOL"},
        {"{", "unexpected token TOKEN_LCURLY"},
        {"1 # 2", "unrecognised token: # 2"},
        {"\"open", "unrecognised token: \"open"},
        {"(int)5", "cannot cast"},
        {"(unsigned long int *[3])5", "cannot cast"},
        {"(struct none)5", "struct type not found"},
        {"(struct 5)5", "'{' expected"},
        {"(struct { x; })5", "struct parse error"},
        {"(struct { int x:y; })5", "integer must follow ':'"},
        {"(struct { int x })5", "';' expected"},
        {"(register x)5", "size expected"},
        {"(register 4 5)5", "fieldname expected"},
        {"(register 4 low)5", "bitoffset expected"},
        {"(register 4 low 0)5", "bitsize expected"},
        {"(int x)5", "')' expected"},
        {"(int[3)5", "']' expected"},
        {"(int::x)5", "UserType expected"},
        {"sizeof(int)", "sizeof(typename) not implemented"},
        {"sizeof 5", "cannot determine sizeof of a constant"},
        {"sizeof(5", "')' expected"},
        {"&5", "cannot take address of a constant"},
        {"5[1]", "bad expression type"},
        {"5[1", "expected ']'"},
        {"*5", "bad expression type"},
        {"5.x", "bad expression type"},
        {"5->7", "identifier expected"},
        {"5 = 6", "bad expression type"},
        {"++5", "bad expression type"},
        {"(1 + 2)++", "cannot duplicate expression"},
        {"(1 + 2) += 1", "cannot duplicate expression"},
        {"5(1, 2)", "function calling not implemented"},
        {"5(1, 2", "')' expected"},
        {"addressof 5", "'(' expected"},
        {"addressof(5)", "string expected"},
        {"addressof(\"f\" 5)", "',' expected"},
        {"addressof(\"f\", x)", "int expected"},
        {"addressof(\"f\", 5", "')' expected"},
        {"addressof(\"f\", 5)", "addressof not implemented"},
        {"::5", "identifier expected"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(calculated(QString::fromLatin1(row.text)), u"! "_s + QString::fromLatin1(row.result)) << row.text;
}

TEST(SimpleExpressionParser, TellsWhereTheRestBegins)
{
    SimpleExpressionParser parser;
    int end = -1;
    parser.evaluate(u"1 + 2 rest"_s, &end);
    EXPECT_EQ(end, 6);
    parser.evaluate(u"1 + 2  "_s, &end);
    EXPECT_EQ(end, 7);
    EXPECT_EQ(parser.parse(u" "_s, &end), nullptr);
    EXPECT_EQ(end, 1);
}

TEST(SimpleExpressionParser, QuietFormsTellOfTheKindTheyAskFor)
{
    SimpleExpressionParser parser;
    bool ok = false;
    EXPECT_EQ(parser.evaluateSigned(u"-5"_s, &ok), -5);
    EXPECT_TRUE(ok);
    EXPECT_EQ(parser.evaluateUnsigned(u"-1"_s, &ok), ~quint64(0));
    EXPECT_TRUE(ok);
    EXPECT_TRUE(parser.evaluateBool(u"2 > 1"_s, &ok));
    EXPECT_TRUE(ok);
    for (const char *none : {"1 == 1", "x", "", "\"1\""}) {
        EXPECT_EQ(parser.evaluateSigned(QString::fromLatin1(none), &ok), 0) << none;
        EXPECT_FALSE(ok) << none;
    }
    EXPECT_FALSE(parser.evaluateBool(u"1"_s, &ok));
    EXPECT_FALSE(ok);
}

TEST(SimpleExpressionParser, IsBoundedInDepth)
{
    const QString deep = u"! expression is nested too deeply"_s;
    const auto times = [](const QString &text) { return text.repeated(200'000); };
    EXPECT_EQ(calculated(times(u"("_s)), deep);
    EXPECT_EQ(calculated(times(u"-"_s) + u'1'), deep);
    EXPECT_EQ(calculated(u"1"_s + times(u"+1"_s)), deep);
    EXPECT_EQ(calculated(u"a"_s + times(u".a"_s)), deep);
    EXPECT_EQ(calculated(u"(int"_s + times(u"*"_s) + u")1"_s), deep);
    EXPECT_EQ(calculated(u"(int[1"_s + times(u"+1"_s) + u"])1"_s), deep);
    EXPECT_EQ(calculated(u"f("_s + times(u"f("_s)), deep);
    EXPECT_EQ(calculated(u"("_s.repeated(900) + u'7' + u")"_s.repeated(900)), u"7"_s);
    EXPECT_EQ(calculated(u"1"_s + u"+1"_s.repeated(900)), u"901"_s);
}

// Each rule of the tokens as a regular expression, in the order in which they are tried.
struct LexerRule
{
    Token token;
    const char *pattern;
};
const LexerRule lexerRules[] = {
    {TOKEN_SPACE, "[\\s]+"},
    {TOKEN_STRING, "\"[^\"]*\""},
    {TOKEN_HEXINTEGER, "0x[0-9A-Fa-f]*U?L?L?u?l?l?"},
    {TOKEN_BININTEGER, "0b[0-1]*"},
    {TOKEN_FLOAT, "\\d+\\.\\d+"},
    {TOKEN_INTEGER, "\\d+U?L?L?u?l?l?"},
    {TOKEN_IDENT, "[A-Za-z_$][A-Za-z_0-9$]*"},
    {TOKEN_REGISTER, "@[A-Za-z_0-9]*"},
    {TOKEN_SEMICOLON, ";"},
    {TOKEN_COLONCOLON, "::"},
    {TOKEN_COLON, ":"},
    {TOKEN_POINTSAT, "->"},
    {TOKEN_INCREMENT, "\\+\\+"},
    {TOKEN_DECREMENT, "\\-\\-"},
    {TOKEN_NE, "!="},
    {TOKEN_LOGNOT, "!"},
    {TOKEN_MINUS_ASSIGN, "\\-="},
    {TOKEN_PLUS_ASSIGN, "\\+="},
    {TOKEN_PLUS, "\\+"},
    {TOKEN_MINUS, "-"},
    {TOKEN_LSHIFT_ASSIGN, "<<="},
    {TOKEN_LSHIFT, "<<"},
    {TOKEN_ARSHIFT_ASSIGN, ">>>="},
    {TOKEN_ARSHIFT, ">>>"},
    {TOKEN_RSHIFT_ASSIGN, ">>="},
    {TOKEN_RSHIFT, ">>"},
    {TOKEN_LE, "<="},
    {TOKEN_LT, "<"},
    {TOKEN_GE, ">="},
    {TOKEN_GT, ">"},
    {TOKEN_EQ, "=="},
    {TOKEN_BITAND_ASSIGN, "&="},
    {TOKEN_LOGAND, "&&"},
    {TOKEN_BITAND, "&"},
    {TOKEN_CONDITION, "\\?"},
    {TOKEN_ASSIGN, "="},
    {TOKEN_COMMA, ","},
    {TOKEN_DOT, "\\."},
};

TEST(CStyleLexer, CutsAsTheRulesDo)
{
    std::vector<QRegularExpression> patterns;
    for (const LexerRule &rule : lexerRules)
        patterns.emplace_back(QString::fromLatin1(rule.pattern));
    const char pieces[] = "0123xbULul.Ff$_@ \t\"<>=&!+-;:?,aZ";
    quint32 seed = 12345;
    CStyleLexer lexer;
    for (int round = 0; round < 3000; ++round) {
        QString text;
        for (int i = 0; i < 12; ++i) {
            seed = seed * 1664525 + 1013904223;
            text += QLatin1Char(pieces[(seed >> 8) % (sizeof pieces - 1)]);
        }
        lexer.setInput(text);
        for (qsizetype position = 0; position < text.size();) {
            size_t rule = 0;
            QRegularExpressionMatch match;
            for (; rule < patterns.size() && !match.hasMatch(); ++rule)
                match = patterns[rule].match(text, position, QRegularExpression::NormalMatch,
                                             QRegularExpression::AnchorAtOffsetMatchOption);
            if (!match.hasMatch()) {
                EXPECT_THROW(lexer.next(), ParserException) << text.toStdString();
                break;
            }
            position += match.capturedLength();
            if (lexerRules[rule - 1].token == TOKEN_SPACE)
                continue;
            ASSERT_EQ(lexer.next(), lexerRules[rule - 1].token) << text.toStdString();
            ASSERT_EQ(lexer.text(), match.captured());
        }
    }
}

class MacroLexer : public CStyleLexer
{
public:
    QString expandMacro(const QString &name) override
    {
        static const QMap<QString, QString> macros = {
            {u"TWO"_s, u"(ONE + ONE)"_s}, {u"ONE"_s, u"1"_s},     {u"SELF"_s, u"SELF"_s},
            {u"PING"_s, u"PONG"_s},       {u"PONG"_s, u"PING"_s}, {u"TREE"_s, u"TREE TREE "_s},
        };
        return macros.value(name);
    }
};

TEST(Lexer, ReadsMacrosAsLines)
{
    const auto result = [](const QString &text) {
        return calculated(text, ExpressionParser(std::make_unique<MacroLexer>()));
    };
    EXPECT_EQ(result(u"TWO * 3"_s), u"6"_s);
    EXPECT_EQ(result(u"SELF"_s), u"! SELF symbol not found"_s);
    EXPECT_TRUE(result(u"PING"_s).endsWith(u"NG symbol not found")) << "ends after a number of levels";
    MacroLexer lexer;
    lexer.setInput(u"TREE"_s); // two to the power of levels, were it not for the limit
    int tokens = 0;
    while (lexer.next() != TOKEN_EOL)
        ++tokens;
    EXPECT_LT(tokens, 1'000'000);
    int end = 0;
    ExpressionParser parser(std::make_unique<MacroLexer>());
    parser.evaluate(u"ONE ONE"_s, &end);
    EXPECT_EQ(end, 4) << "the macro that the rest begins with";
}

TEST(ExpressionValue, NarrowsToItsSize)
{
    const auto bits = [](quint32 size, quint32 bitSize = 0) {
        return ExpressionValue::ofUnsigned(0xFFFFFFFFFFFFFFF7, size, bitSize);
    };
    EXPECT_EQ(bits(1).asUnsigned(), 0xF7u);
    EXPECT_EQ(bits(1).asSigned(), -9);
    EXPECT_EQ(bits(4).asUnsigned(), 0xFFFFFFF7u);
    EXPECT_EQ(bits(3).asUnsigned(), 0xFFFFFFFFFFFFFFF7u) << "sizes that no integer has are whole";
    EXPECT_EQ(ExpressionValue::ofUnsigned(7, 1, 3).asSigned(), -1);
    EXPECT_EQ(ExpressionValue::ofUnsigned(7, 1, 3).asUnsigned(), 7u);
    EXPECT_EQ(ExpressionValue::ofUnsigned(~quint64(0), 8).asDouble(), 0x1p64);
    EXPECT_EQ(ExpressionValue::ofFloat(1.5, 4).asUnsigned(), 0x3FC00000u);
    EXPECT_EQ(ExpressionValue::ofFloat(1.5, 8).asUnsigned(), 0x3FF8000000000000u);
    EXPECT_EQ(ExpressionValue::ofFloat(1.5, 2).asUnsigned(), 0u);
    EXPECT_EQ(ExpressionValue::ofFloat(-1e300).asSigned(), std::numeric_limits<qint64>::min());
    EXPECT_EQ(ExpressionValue::ofFloat(std::nan("")).asSigned(), 0);
    ExpressionValue raw = ExpressionValue::ofUnsigned(0x3FC00000, 4);
    raw.setKind(ExpressionValue::Float);
    EXPECT_EQ(raw.asDouble(), 1.5);
}

TEST(ExpressionValue, HasTypeNamesAndEquality)
{
    EXPECT_EQ(ExpressionValue::ofSigned(1, 1).typeName(), u"char"_s);
    EXPECT_EQ(ExpressionValue::ofSigned(1, 1).typeName(true), u"byte"_s);
    EXPECT_EQ(ExpressionValue::ofUnsigned(1, 8).typeName(), u"unsigned long long"_s);
    EXPECT_EQ(ExpressionValue::ofUnsigned(1, 3).typeName(), u"unknown"_s);
    EXPECT_EQ(ExpressionValue::ofFloat(1, 4).typeName(), u"float"_s);
    EXPECT_EQ(ExpressionValue().typeName(), u"unknown"_s);
    EXPECT_TRUE(ExpressionValue() == ExpressionValue());
    EXPECT_FALSE(ExpressionValue::ofSigned(1, 4) == ExpressionValue::ofSigned(1, 8));
    EXPECT_FALSE(ExpressionValue::ofSigned(1, 4) == ExpressionValue::ofUnsigned(1, 4));
}

TEST(ExpressionValue, ShowsTargetTextAsC)
{
    const auto cText = [](QByteArrayView bytes, bool escape, bool quote) {
        return ExpressionValue::ofCText(bytes, escape, quote).text();
    };
    EXPECT_EQ(cText(QByteArrayView("a\n\x01\xFF\0b", 6), true, true), u"\"a\\n\\001\\377\""_s);
    EXPECT_EQ(cText("\a\b\t\v\f\r", true, false), u"\\a\\b\\t\\v\\f\\r"_s);
    EXPECT_EQ(cText("a\n", false, false), u"a\n"_s);
    EXPECT_EQ(ExpressionValue::ofCText(QByteArrayView("abc\0d", 5), true, true).size(), 3u);
}

TEST(Arithmetic, TheLeftSideDecides)
{
    using enum BinaryOperator;
    const ExpressionValue small = ExpressionValue::ofUnsigned(250, 1), ten = ExpressionValue::ofSigned(10, 4);
    EXPECT_EQ(compute(Plus, small, ten).asUnsigned(), 4u) << "wraps at the left side's size";
    EXPECT_EQ(compute(Plus, ten, small).asSigned(), 4) << "250 in one byte reads as -6 for a signed left side";
    EXPECT_EQ(compute(Divide, ExpressionValue::ofUnsigned(~0ull, 8), ExpressionValue::ofSigned(2)).asUnsigned(),
              ~0ull / 2);
    EXPECT_EQ(compute(Rshift, ExpressionValue::ofUnsigned(0x80, 1), ExpressionValue::ofSigned(4)).asUnsigned(), 8u);
    EXPECT_EQ(compute(Rshift, ExpressionValue::ofSigned(-128, 1), ExpressionValue::ofSigned(4)).asSigned(), -8);
    EXPECT_EQ(compute(Multiply, ten, ExpressionValue::ofFloat(0.25)).size(), 4u);
    EXPECT_TRUE(compute(Gt, small, ten).asBool());
    EXPECT_FALSE(compute(Gt, ten, ExpressionValue::ofText(u"z"_s)).kind() == ExpressionValue::String);
    EXPECT_EQ(compute(UnaryOperator::Negate, ExpressionValue::ofUnsigned(1, 4)).asUnsigned(), 0xFFFFFFFFu);
    EXPECT_EQ(compute(UnaryOperator::Abs, ExpressionValue::ofSigned(-5)).asSigned(), 5);
    EXPECT_EQ(compute(UnaryOperator::Abs, ExpressionValue::ofUnsigned(0xFF, 1)).asSigned(), 1);
}

} // namespace
