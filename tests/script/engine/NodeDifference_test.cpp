// The same programs here and in Node, where the two agree by design: no fractions in texts, no undefined or
// null among joined elements, no order of for-in, no `===`, no effects in arguments and indices (what they belong
// to is evaluated after them).

#include "script/engine/ESContext.h"
#include "support/QtPrinters.h"
#include "support/RunProgram.h"
#include "support/TemporaryFolder.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <gtest/gtest.h>
#include <random>

using namespace Qt::StringLiterals;

namespace {

const char *const sharedSnippets[] = {
    "1 + '2' - 3",
    "[1, 2, 3].concat([4, [5]], 6).join('-')",
    "var s = ''; for (var i = 0; i < 5; i++) { if (i == 2) continue; if (i == 4) break; s += i } s",
    "var s = ''; outer: for (var i = 0; i < 4; i++) for (var j = 0; j < 4; j++) { if (j == 2) continue outer;"
    " if (i == 3) break outer; s += i + '' + j + ' ' } s",
    "var n = 10; do n--; while (n > 3); n",
    "function fact(n) { return n < 2 ? 1 : n * fact(n - 1) } fact(18)",
    "function counter() { var n = 0; return function () { return ++n } } var a = counter(), b = counter(); a(); a(); "
    "b(); a() + b()",
    "var o = {a: 1, 'b c': 2, 3: 4}; o.a + o['b c'] + o[3] + (delete o.a) + o.a",
    "function P(x) { this.x = x } P.prototype.get = function () { return this.x * 2 }; new P(21).get()",
    "function A() {} function B() {} B.prototype = new A; A.prototype.n = 5; var b = new B; b.n + "
    "(b.hasOwnProperty('n') ? 1 : 0)",
    "var r = ''; switch (3) { case 1: r += 1; case 3: r += 3; case 4: r += 4; break; default: r += 'd' } r",
    "var r = ''; switch ('3') { case 3: r = 'number'; break; default: r = 'other' } r",
    "function f() { return arguments.length + ':' + arguments[0] + arguments[2] } f(1, 2, 3)",
    "function f(a, b) { return typeof b } f(1)",
    "typeof null + typeof undefined + typeof {} + typeof f + typeof 1 + typeof '' + typeof true; function f() {}",
    "var r = ''; try { r += 'a'; throw 'x' } catch (e) { r += e } finally { r += 'f' } r",
    "function f() { try { return 'r' } finally { g = 'done' } } var g; f() + g",
    "function f() { for (var i = 0; i < 3; i++) { try { continue } finally { if (i == 1) break } } return i } f()",
    "function f() { try { throw 1 } catch (e) { try { throw e + 1 } catch (e) { return e } } } f()",
    "var e; try { throw new RangeError('m') } catch (x) { e = x.name + x.message } e",
    "var x = 1; with ({x: 2}) { x = x + 5 } x",
    "var o = {x: 1}; with (o) { x = 7; var y = 2 } o.x + y",
    "var o = {n: 0}, c = 0; function k() { c++; return 'n' } o[k()]++; ++o[k()]; o[k()] += 5; o.n + '/' + c",
    "var s = 0; for (var k in {a: 1, b: 2, c: 3}) s += k.length; s",
    "(0xFF ^ 0x0F) + (1 << 31) + (-1 >>> 28) + (-9 >> 1) + ~7 + (5 & 6 | 8)",
    "-7 % 3 + 7 % -3 + 2147483648 * 2",
    "[10, 9, 1].sort().join() + [10, 9, 1].sort(function (a, b) { return a - b }).join()",
    "['b', 'a', 'C', 'ab'].sort().join()",
    "[1, 2, 3].reverse().join() + [1, 2, 3, 4].slice(1, -1).join() + [5, 6].pop() + [5, 6].shift() + [5].push(1, 2)",
    "var a = [1, 2, 3]; a.length = 1; a[3] = 9; a.length + ',' + a[1] + a.hasOwnProperty(2)",
    "'Hello, World'.toUpperCase().substring(7) + 'abc'.charAt(1) + 'abc'.charCodeAt(2) + 'abcabc'.lastIndexOf('b')",
    "'a,b,,c'.split(',').length + 'x-y'.split('-').join('+') + 'abc'.slice(-2) + 'abc'.indexOf('c', 1)",
    "'abc'.split('').join('|') + 'abc'.concat(1, true) + 'aXa'.replace('X', 'y') + 'a b'.search('b')",
    "String.fromCharCode(72, 105) + 'é'.charCodeAt(0) + '\\u00e9\\x41\\n'.length",
    "(255).toString(16) + (255).toString(2) + (-255).toString(36) + (3).toFixed(2) + (2.345).toFixed(1)",
    "Math.max(3, 1, 2) + Math.min(3, 1, 2) + Math.abs(-4) + Math.floor(-1.5) + Math.ceil(1.2) + Math.round(2.5) + "
    "Math.pow(2, 8)",
    "isNaN(NaN) + '' + isFinite(1) + isNaN('a') + parseInt('42') + parseInt('0x1f') + parseInt('zz', 36) + "
    "parseInt('x')",
    "Number('0x10') + Number(' 12 ') + Number(true) + Number(null) + '' + Number('a')",
    "var f = new Function('a', 'b', 'return a * b'); f(6, 7)",
    "eval('var q = 3; q * 2') + q",
    "(1, 2, 3) + (true && 'y') + (0 || 'n') + !1 + void 0",
    "null == undefined && !(null == 0) && '1' == 1 && true == '1' && !(NaN == NaN)",
    "var d = new Date(0); d.setUTCHours(5, 6, 7, 8); d.getTime() + d.getUTCMinutes() + d.getUTCFullYear()",
    "var a = [3, 1, 2], o = {}; for (var i = 0; i < a.length; i++) o[a[i]] = i; o[1] + '' + o[2] + o[3]",
    "'b' > 'a' && 'B' < 'a' && '10' < '9' && 10 > '9'",
    "function f(a) { a = 5; return a + arguments.length } f(1, 2)",
    "var s = ''; for (var i = 0, j = 10; i < j; i += 3, j--) s += i + ':' + j + ' '; s",
    "var x = 5; x <<= 2; x |= 3; x ^= 1; x %= 7; x *= -3; x >>>= 1; x -= 4; x",
    "function f() { if (f.n == undefined) f.n = 0; return ++f.n } f(); f(); f.n",
    "var u; try { u = u.x } catch (e) { u = 'caught' } u",
    "function fib(n) { return n < 2 ? n : fib(n - 1) + fib(n - 2) } fib(15)",
    "var p = []; for (var i = 2; p.length < 20; i++) { var ok = 1; for (var j = 0; j < p.length; j++) if (i % p[j] == "
    "0) { ok = 0; break } if (ok) p.push(i) } p.join()",
};

// Programs of random numbers, texts and control flow. Numbers stay within 32 bits; each loop has its own
// counter, so that every program ends.
class RandomProgram
{
public:
    explicit RandomProgram(quint32 seed) : m_random(seed) {}

    QString make()
    {
        QString program =
            u"var a = 7, b = -3, c = 100, m, s = 'seed', t = 'Text', v = [4, 8, 15, 16, 23, 42], o = {p: 1, q: 2};\n"_s;
        program += u"function f(a, b) { var c = a - b, s = 'in'; %1return %2 }\n"_s.arg(block(2), number(3));
        program += u"function g(n) { return function (x) { n = (n + x) | 0; return n } }\nvar h = g(5);\n"_s;
        m_hasFunctions = true;
        for (int i = 0; i < 6; ++i)
            program += statement(3);
        return program + u"[a, b, c, s, t, v.join(':'), o.p, o.q, h(1)].join(';')"_s;
    }

private:
    int pick(int count) { return int(m_random() % quint32(count)); }
    QString oneOf(std::initializer_list<const char *> list)
    {
        return QString::fromLatin1(list.begin()[pick(int(list.size()))]);
    }
    QString literal() { return pick(4) ? QString::number(pick(40) - 8) : QString::number(int(m_random())); }

    QString number(int depth)
    {
        if (depth == 0)
            return pick(2) ? oneOf({"a", "b", "c"}) : u'(' + literal() + u')';
        const QString x = number(depth - 1), y = number(depth - 1);
        switch (pick(m_hasFunctions ? 15 : 12)) {
        case 0: return u"((%1 %2 %3) | 0)"_s.arg(x, oneOf({"+", "-", "*", "/", "%"}), y);
        case 1: return u"(%1 %2 %3)"_s.arg(x, oneOf({"&", "|", "^", "<<", ">>", ">>>"}), y);
        case 2:
            return u"(%1 %2 %3 ? %4 : %5)"_s.arg(x, oneOf({"<", "<=", ">", ">=", "==", "!="}), y, number(depth - 1),
                                                 literal());
        case 3: return u"%1.length"_s.arg(text(depth - 1));
        case 4: return u"%1.indexOf(%2)"_s.arg(text(depth - 1), text(0));
        case 5: return u"v[%1 & 3]"_s.arg(x);
        case 6: return oneOf({"a++", "--b", "c--", "++o.p", "o.q--", "v[0]++"});
        case 7: return u"(%1(%2) * 1)"_s.arg(oneOf({"~", "-", "+", "!"}), x);
        case 8: return u"Math.%1(%2, %3)"_s.arg(oneOf({"max", "min", "floor", "abs"}), x, y);
        case 9: return u"(%1 %2 %3)"_s.arg(x, oneOf({"&&", "||"}), y);
        case 10: return u"(%1 == %2 ? 1 : 0)"_s.arg(text(depth - 1), text(0));
        case 11: return u"(%1.charCodeAt(%2 & 3) | 0)"_s.arg(text(depth - 1), number(0));
        case 12: return u"(f(%1, %2) | 0)"_s.arg(x, y);
        case 13: return u"h(%1)"_s.arg(x);
        default: return u"(o[%1] | 0)"_s.arg(oneOf({"'p'", "'q'", "'none'"}));
        }
    }

    QString text(int depth)
    {
        if (depth == 0)
            return oneOf({"s", "t", "'ab'", "'Xyz'", "''", "'e'"});
        const QString x = text(depth - 1);
        switch (pick(8)) {
        case 0: return u"(%1 + %2)"_s.arg(x, text(depth - 1));
        case 1: return u"(%1 + (%2 | 0))"_s.arg(x, number(depth - 1));
        case 2: return u"%1.%2(%3 & 7, %4 & 7)"_s.arg(x, oneOf({"substring", "slice"}), number(0), number(0));
        case 3: return u"%1.charAt(%2 & 3)"_s.arg(x, number(0));
        case 4: return u"%1.%2()"_s.arg(x, oneOf({"toUpperCase", "toLowerCase"}));
        case 5: return u"%1.split('e').join('_')"_s.arg(x);
        case 6: return u"(%1 %2 %3 ? %4 : 'no')"_s.arg(x, oneOf({"<", ">", "==", ">="}), text(0), text(depth - 1));
        default: return u"(%1 | 0).toString(%2)"_s.arg(number(depth - 1)).arg(2 + pick(35));
        }
    }

    QString block(int depth)
    {
        QString body = u"{ "_s;
        for (int i = 0, count = 1 + pick(3); i < count; ++i)
            body += statement(depth);
        return body + u"} "_s;
    }

    QString statement(int depth)
    {
        const QString assignment = pick(2) ? u"%1 = %2 | 0;\n"_s.arg(oneOf({"a", "b", "c"}), number(2))
                                           : u"%1 = (%2).slice(0, 20);\n"_s.arg(oneOf({"s", "t"}), text(2));
        if (depth == 0)
            return assignment;
        const QString inner = block(depth - 1), counter = u"i%1"_s.arg(++m_counters);
        switch (pick(9)) {
        case 0: return u"if (%1) %2else %3"_s.arg(number(2), inner, block(depth - 1));
        case 1:
            return u"for (var %1 = 0; %1 < %2; %1++) { %3if (%4 > 9) break; %5}\n"_s.arg(counter)
                .arg(1 + pick(4))
                .arg(inner, number(1), statement(0));
        case 2:
            return u"var %1 = %2; while (%1-- > 0) { if (%3 & 1) continue; %4}\n"_s.arg(counter)
                .arg(1 + pick(3))
                .arg(number(1), inner);
        case 3:
            return u"switch (%1 & 3) { case 0: %2case 1: %3break; case 2: default: %4}\n"_s.arg(number(1), statement(0),
                                                                                                inner, statement(0));
        case 4:
            return u"try { %1if (%2) throw %3; %4} catch (e) { s = (e + s).slice(0, 20) } finally { %5}\n"_s.arg(
                inner, number(1), text(1), statement(0), statement(0));
        case 5:
            return u"m = %2 | 0; v[%1] = m; v = v.concat().%3;\n"_s.arg(pick(4)).arg(
                number(1), oneOf({"slice(0, 7)", "reverse()", "sort()", "concat(1)"}));
        case 6:
            return u"v.sort(function (x, y) { return x - y }); v.%1(%2 | 0);\n"_s.arg(oneOf({"push", "concat"}),
                                                                                      number(0));
        case 7: return u"with (o) { p = %1 | 0; q += p & 3; }\n"_s.arg(number(1));
        default: return assignment;
        }
    }

    std::mt19937 m_random;
    int m_counters = 0;
    bool m_hasFunctions = false;
};

// The texts of the programs' values by Node; "error" for one that throws.
QStringList nodeResults(const QString &node, const QStringList &programs)
{
    const TemporaryFolder folder;
    folder.write("programs.json", QJsonDocument(QJsonArray::fromStringList(programs)).toJson());
    folder.write("run.js",
                 "const vm = require('vm'), fs = require('fs');\n"
                 "const run = p => { try { return String(vm.runInNewContext(p)) } catch (e) { return 'error' } };\n"
                 "console.log(JSON.stringify(JSON.parse(fs.readFileSync(process.argv[2], 'utf8')).map(run)));\n");
    const ProgramResult result = runProgram(node, {folder.path("run.js"), folder.path("programs.json")});
    EXPECT_EQ(result.status, 0) << result.error.constData();
    QStringList texts;
    for (const QJsonValue &value : QJsonDocument::fromJson(result.out).array())
        texts += value.toString();
    return texts;
}

void expectAgreement(const QStringList &programs)
{
    const QString node = QStandardPaths::findExecutable(u"node"_s);
    if (node.isEmpty())
        GTEST_SKIP() << "node is not installed: nothing to compare with";
    const QStringList expected = nodeResults(node, programs);
    ASSERT_EQ(expected.size(), programs.size());
    for (qsizetype i = 0; i < programs.size(); ++i) {
        ESContext context;
        const ESCompletion completion = context.evaluate(QString(), programs[i]);
        const QString ours = completion.kind == ESCompletion::Normal ? context.toQString(completion.value) : u"error"_s;
        EXPECT_EQ(ours, expected[i]) << completion.text.toStdString() << "\n" << programs[i].toStdString();
    }
}

TEST(NodeDifference, SnippetsAgree)
{
    QStringList programs;
    for (const char *snippet : sharedSnippets)
        programs += QString::fromUtf8(snippet);
    expectAgreement(programs);
}

TEST(NodeDifference, GeneratedProgramsAgree)
{
    constexpr int count = 400;
    QStringList programs;
    for (quint32 seed = 1; seed <= count; ++seed)
        programs += RandomProgram(seed).make();
    expectAgreement(programs);
}

} // namespace
