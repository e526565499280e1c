#include "script/engine/ESContext.h"
#include "support/QtPrinters.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace compilerTest {

// The names of the instructions with their operands, " ; " between them; global slots are left out.
QString code(const char *source)
{
    ESContext context;
    QString text = context.list(QString(), QString::fromUtf8(source));
    QStringList rows;
    for (const QString &line : text.split(u'\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(u"function "))
            rows += line;
        else
            rows += line.section(u":  "_s, 1).replace(u'\t', u' ');
    }
    return rows.join(u" ; "_s)
        .remove(QRegularExpression(u" \\[idx=\\d+\\]"_s))
        .replace(QRegularExpression(u"CG\\d+"_s), u"CG"_s);
}

QString syntaxError(const QString &source)
{
    ESContext context;
    const ESCompletion completion = context.evaluate(QString(), source);
    if (completion.kind == ESCompletion::Normal || !completion.value.isObject())
        return u"none"_s;
    ESObject *error = completion.value.object;
    return context.toQString(context.get(error, "lineNumber")) + u": "_s + completion.text;
}

struct CodeRow
{
    const char *source, *code;
};

TEST(ESCompiler, GeneratesThePrescribedCode)
{
    const CodeRow rows[] = {
        {"", "UNDEFINED ; RET"},
        {"a = 1\nb = 2", "NUM_1 ; PUTG a ; NUM_2 ; DUP ; PUTG b ; RET"},
        {"x\n++y; 0", "INCG y ; NUM_0 ; RET"},
        {"-1", "NUM_1 ; NEG ; RET"},
        {"a > b", "GETG b ; GETG a ; LT ; RET"},
        {"a[0] + a['k'] + a[b]", "GETG a ; GETF 0 ; GETG a ; GETF k ; ADD ; GETG a ; GETG b ; GETX ; ADD ; RET"},
        {"1; 2 + 3; new F; new F(); 4", "GETG F ; NEWA #0 ; DROP ; NUM_4 ; RET"},
        {"f(1, o.m(2), o[k](3))",
         "NUM_1 ; NUM_2 ; GETG o ; CALLF m, #1 ; NUM_3 ; GETG o ; GETG k ; CALLX #1 ; CALLG f, #3 ; RET"},
        {"a.b = c[d] = 5", "NUM 5 ; DUP ; GETG c ; GETG d ; PUTX ; DUP ; GETG a ; PUTF b ; RET"},
        {"a.b += 1; a[b] -= 2; c *= 3",
         "NUM_1 ; GETG a ; STR b ; ADDX ; DROP ; NUM_2 ; GETG a ; GETG b ; SUBX ; DROP ; "
         "GETG c ; NUM_3 ; MUL ; DUP ; PUTG c ; RET"},
        {"x = y++ - --z", "GETG y ; INCG y ; DECG z ; GETG z ; SUB ; DUP ; PUTG x ; RET"},
        {"[1,,2,]", "NUM_1 ; UNDEFINED ; NUM_2 ; UNDEFINED ; MKARRAY #4 ; RET"},
        {"x = {a: 1, 'b': 2, 3: 4}",
         "NEWOBJ ; NUM_1 ; INITF a ; NUM_2 ; INITF b ; NUM_4 ; INITF 3 ; DUP ; PUTG x ; RET"},
        {"void 0; void f()", "CALLG f, #0 ; VOID ; RET"},
        {"delete a; delete a.b; delete a[b]", "GETG a ; STR b ; DELETEX ; DROP ; GETG a ; GETG b ; DELETEX ; RET"},
        {"if (a) b(); else c();",
         "GETG a ; JF 000f ; CALLG b, #0 ; DROP ; J 0015 ; CALLG c, #0 ; DROP ; UNDEFINED ; RET"},
        {"while (a < 1) b();", "GETG a ; NUM_1 ; LT ; JF 0011 ; CALLG b, #0 ; DROP ; J 0000 ; UNDEFINED ; RET"},
        {"for (;a < 1;) b();", "J 0009 ; CALLG b, #0 ; DROP ; GETG a ; NUM_1 ; JLT 0003 ; UNDEFINED ; RET"},
        {"do continue; while (a);", "J 0003 ; GETG a ; JT 0000 ; UNDEFINED ; RET"},
        {"for (k in o) b();",
         "GETG o ; ENUM ; PUTG CG ; J 0013 ; PUTG k ; CALLG b, #0 ; DROP ; GETG CG ; NEXT 000a ; UNDEFINED ; RET"},
        {"switch (a) { case 1: b(); default: c(); }",
         "GETG a ; DUP ; NUM_1 ; IDENTITY ; JT_DROP 000d ; DROP ; J 0013 ; CALLG b, #0 ; DROP ; CALLG c, #0 ; DROP ; "
         "UNDEFINED ; RET"},
        {"with (o) x = y", "GETG o ; WITH ; GETW y ; PUTW x ; ENDWITH ; UNDEFINED ; RET"},
        {"a && b || c ? 1 : 2",
         "GETG a ; LOGAND 0009 ; GETG b ; LOGOR 000f ; GETG c ; JF 0016 ; NUM_1 ; J 0017 ; NUM_2 ; RET"},
    };
    for (const CodeRow &row : rows)
        EXPECT_EQ(code(row.source), QString::fromUtf8(row.code)) << row.source;
}

TEST(ESCompiler, ResolvesNamesOfFunctions)
{
    const CodeRow rows[] = {
        {"function f(a, b) { var c = a; c++; return c + g }",
         "CLOSURE #0 ; PUTG f ; UNDEFINED ; RET ; function #0 f ; GETA a ; PUTL c ; INCL c ; GETL c ; GETG g ; ADD ; "
         "RET ; RETU"},
        // What an inner function uses makes the whole chain keep its variables where they have names.
        {"function f(a) { var b; return function() { return a + b++ } }",
         "CLOSURE #1 ; PUTG f ; UNDEFINED ; RET ; function #0 (anonymous) ; GETW a ; STR b ; POSTINCX ; ADD ; RET ; "
         "RETU ; function #1 f ; CLOSURE #0 ; RET ; RETU"},
        {"function f(a, a) { a(arguments) }",
         "CLOSURE #0 ; PUTG f ; UNDEFINED ; RET ; function #0 f ; PUTAM arguments ; GETAM arguments ; CALLAM a, #1 ; "
         "DROP ; RETU"},
        {"function f() { eval(1) }", "CLOSURE #0 ; PUTG f ; UNDEFINED ; RET ; function #0 f ; PUTA arguments ; NUM_1 ; "
                                     "CALLG eval, #1 ; DROP ; RETU"},
        {"function f(o) { try { o() } catch (e) { return e } }",
         "CLOSURE #0 ; PUTG f ; UNDEFINED ; RET ; function #0 f ; TRY 000d ; CALLAM o, #0 ; DROP ; ENDTRY ; J 0015 ; "
         "CATCH e ; GETW e ; RET ; ENDWITH ; RETU"},
        {"function f(o) { o.n++; return --o[1] }",
         "CLOSURE #0 ; PUTG f ; UNDEFINED ; RET ; function #0 f ; GETA o ; STR n ; POSTINCF ; DROP ; GETA o ; STR 1 ; "
         "PREDECF ; RET ; RETU"},
    };
    for (const CodeRow &row : rows)
        EXPECT_EQ(code(row.source), QString::fromUtf8(row.code)) << row.source;
}

TEST(ESCompiler, TellsWhatIsWrongAndWhere)
{
    const struct
    {
        const char *source, *error;
    } rows[] = {
        {"1 = 2;", "1: not lsh?"},
        {"a\nb c", "2: expected ; found an identifier"},
        {"a === b", "1: expected ; found ==="},
        {"\n\nreturn 1", "3: return not in a function"},
        {"break", "1: 'break' not in a 'for' or 'while' loop"},
        {"for (;;) { break x }", "1: can't find label x"},
        {"x: { for (;;) continue x }", "1: labeled 'continue' doesn't mark a loop"},
        {"try {}", "1: 'catch' or 'finally' clause expected after 'try'"},
        {"switch (1) { default: default: }", "1: default case already defined"},
        {"switch (1) { x }", "1: expected 'case' or 'default' but found 'an identifier'"},
        {"for (var a, b in c) ;", "1: too many variables in for-in expression"},
        {"x = {+: 1}", "1: number, string, or identifier expected in object initialiser"},
        {"x = {a: 1,}", "1: number, string, or identifier expected in object initialiser"},
        {"[1 2]", "1: ']' or ',' expected, found a number"},
        {"1 + ;", "1: expected an expression, found ;"},
        {"f(", "1: expected an expression, found end of input"},
        {"}", "1: expected end of input found }"},
        {"'a\nb'", "1: newline in string constant"},
        {"'a", "1: end of file in string constant"},
        {"'\\x4'", "1: malformed hex escape sequence"},
        {"089", "1: digit '8' is not radix 8"},
        {"0xg", "1: digit 'g' is not radix 16"},
        {"/* \n */ #", "2: unknown character '#'"},
        {"\xc3\xa9 = 1", "1: unknown character '\xc3\xa9'"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(syntaxError(QString::fromUtf8(row.source)), QString::fromUtf8(row.error)) << row.source;
}

TEST(ESCompiler, AnyNestingEndsCleanly)
{
    for (const char *piece : {"(",  "[",   "{",     "x=(",        "f(",   "if(1)", "-",       "!",
                              "a?", "x=",  "x={a:", "try{",       "new ", "L:",    "with(o)", "x=function(){",
                              "1>", "a&&", "a.b.",  "if(1);else "}) {
        const QString error = syntaxError(QString::fromUtf8(piece).repeated(100000));
        EXPECT_TRUE(error.startsWith(u"1: ")) << piece << ": " << error.toStdString();
    }
    ESContext context;
    EXPECT_EQ(context.evaluate(QString(), u"x = 0"_s + u" + 1"_s.repeated(100000)).value.number, 100000);
    EXPECT_EQ(
        context.evaluate(QString(), u"x = "_s + u"("_s.repeated(500) + u"7"_s + u")"_s.repeated(500)).value.number, 7);
}

TEST(ESCompiler, HoldsMoreNamesThanAnOperandHasBits)
{
    QString source = u"var list = [0"_s;
    for (int i = 1; i < 10000; ++i)
        source += u",%1"_s.arg(i);
    source += u"];\n"_s;
    for (int i = 0; i < 70000; ++i)
        source += u"v%1 = 'text %1';\n"_s.arg(i);
    ESContext context;
    EXPECT_EQ(
        context.toQString(context.evaluate(QString(), source + u"v69999 + v3 + list[9999] + list.length"_s).value),
        u"text 69999text 3999910000"_s);
    EXPECT_THROW(context.evaluate(QString(), u"while (x) {"_s + u"y = 1;"_s.repeated(20000) + u"}"_s), ESFatalError);
}

TEST(ESCompiler, ReadsEscapes)
{
    ESContext context;
    const auto text = [&](const QString &source) {
        return context.toQString(context.evaluate(QString(), source).value);
    };
    EXPECT_EQ(text(uR"('\101\400\x41\u0042\q\'\n')"_s), u"A 0ABq'\n"_s);
    EXPECT_EQ(text(u"0x1F + 017 + .5 + 1e2 + 5."_s), u"151.5"_s);
}

} // namespace compilerTest
