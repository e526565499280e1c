#include "script/engine/ESContext.h"
#include "support/QtPrinters.h"

using namespace Qt::StringLiterals;

namespace interpreterTest {

// What the script comes to, as text.
QString result(ESContext &context, const char *source)
{
    const ESCompletion completion = context.evaluate(QString(), QString::fromUtf8(source));
    return completion.kind == ESCompletion::Normal
               ? context.toQString(completion.value)
               : u"! "_s + (completion.text.isEmpty() ? context.toQString(completion.value) : completion.text);
}

QString result(const char *source)
{
    ESContext context;
    return result(context, source);
}

// Runs without the fused instructions, as every context with a step of its own does.
class CountingContext : public ESContext
{
public:
    bool step() override { return ++steps < limit; }
    int steps = 0, limit = 1 << 30;
};

const struct
{
    const char *source, *result;
} programs[] = {
    {"1 < NaN", "undefined"},
    {"1 <= NaN", "false"},
    {"'' + 0.1 + '|' + 1234567.5 + '|' + 1234567 + '|' + 1e21 + '|' + -0 + '|' + 1 / 3",
     "0.1|1.23457e+06|1234567|1e+21|0|0.333333"},
    {"typeof null + typeof undefined + typeof 'x' + typeof 1 + typeof {} + typeof function() {}",
     "objectundefinedstringnumberobjectfunction"},
    {"'' + (null == undefined) + (null == 0) + ('1' == 1) + (true == '1') + (NaN == NaN) + ({} == '[object Object]')",
     "truefalsetruetruefalsetrue"},
    {"'' + ('b' > 'a') + ('10' < 9) + ('10' < '9') + (-1 >>> 0) + (1 << 33) + (-7 % 3) + (5.5 | 0) + ~4294967296",
     "truefalsetrue42949672952-15-1"},
    {"var x = 1; x + (x = 5) + x", "11"},
    {"function f(a) { var b = a; a++; return '' + b + a++ + ++a + (a -= 2) } f(1)", "1242"},
    {"var x = '5'; x++; x + 1", "7"},
    {"function f(a, b) { return '' + a + b + arguments.length + arguments[2] + typeof arguments.callee } f(1) + f(1, "
     "2, 3)",
     "1undefined1undefinedfunction1233function"},
    {"var o = {n: 1}, calls = 0; function get() { calls++; return o } get().n++; get()['n'] += 5; --get().n; calls * "
     "10 + o.n",
     "36"},
    {"var calls = 0, a = [1, 2]; var key = {toString: function() { calls++; return '1' }}; a[key]++; '' + a + calls",
     "1,31"},
    {"function C() { this.v = 1 } C.prototype.get = function() { return this.v }; var c = new C(); C.prototype.get = "
     "function() { return this.v + 1 }; c.get()",
     "2"},
    {"function C() { return {v: 2} } function D() { this.v = 3; return 4 } '' + new C().v + new D().v", "23"},
    {"function A() {} A.prototype.k = 1; function B() {} B.prototype = new A(); var b = new B(), r = ''; for (var i = "
     "0; "
     "i < 4; i++) { r += b.k; if (i == 0) A.prototype.k = 2; if (i == 1) B.prototype.k = 3; if (i == 2) b.k = 4 } r",
     "1234"},
    {"var o = {a: 1, b: 2, c: 3}; delete o.b; o.d = 4; o.b = 5; var r = ''; for (var k in o) r += k + o[k]; r + delete "
     "o.zz",
     "a1c3d4b5true"},
    {"function P() {} P.prototype.in1 = 1; var p = new P(); p.own = 2; p[3] = 0; var r = []; for (var k in p) "
     "r.push(k); r.sort().join()",
     "3,in1,own"},
    {"function make() { var n = 0; return function() { return ++n } } var a = make(), b = make(); a(); a(); '' + a() + "
     "b()",
     "31"},
    {"function f(a) { var g = function() { return a + b }; var b = 2; a = 10; return g() } f(1)", "12"},
    {"function f() { return this.x } x = 7; f()", "7"},
    {"var r = ''; for (var i = 0; i < 6; i++) switch (i) { default: r += 'd'; case 1: r += 1; break; case 2: case 3: r "
     "+= "
     "23; continue } r",
     "d112323d1d1"},
    {"switch (1) { case '1': 'no'; break; default: x = 'yes' } x", "yes"},
    {"var r = 0; with ({a: 1, b: 2}) { r = a + b; a = 5; c = a } r * 10 + c", "35"},
    {"function f(o) { for (var i = 0; i < 3; i++) with (o) { if (i == 1) continue; if (i == 2) break; n = 7 } return n "
     "} n = "
     "1; f({n: 2}) + n",
     "2"},
    {"var r = ''; outer: for (var i = 0; i < 3; i++) for (var j = 0; j < 3; j++) { if (j == 1) continue outer; if (i "
     "== 2) "
     "break outer; r += i + '' + j + ' ' } r",
     "00 10 "},
    {"var s = ''; for (var i = 0; i < 20000; i++) s = i % 10 + s; s.length + s.charAt(0) + s.charAt(19999)", "2000090"},
    {"var a = []; for (var i = 300; i >= 0; i--) a[i] = i; a.length = 2; a[100000] = 1; '' + a[1] + a[2] + a.length",
     "1undefined100001"},
    {"x && y || 3", "3"},
    {"var a = 1, b = 0; '' + (a && !b ? 1 : 2) + (!(a > 0) || !(b < 1)) + (a > 0 && b > 0 || b == 0)", "1falsetrue"},
    {"(function() { return 1 })", "<<function>>"},
};

TEST(ESInterpreter, GivesWhatTheLanguageSays)
{
    for (const auto &row : programs) {
        EXPECT_EQ(result(row.source), QString::fromUtf8(row.result)) << row.source;
        CountingContext stepping;
        EXPECT_EQ(result(stepping, row.source), QString::fromUtf8(row.result)) << "stepping: " << row.source;
    }
}

const struct
{
    const char *source, *result;
} exceptionPrograms[] = {
    {"try { throw 1 } catch (e) { r = e + 1 } r", "2"},
    {"var l = ''; function f() { try { try { throw 1 } finally { l += 'a' } } catch (e) { l += 'c' + e; return l } "
     "finally "
     "{ l += 'z' } } f() + l",
     "ac1ac1z"},
    {"function f() { try { return 1 } finally { return 2 } } f()", "2"},
    {"function f() { var x = 1; try { return x } finally { x = 5 } } f()", "1"},
    {"var l = ''; for (var i = 0; i < 5; i++) try { if (i == 1) continue; if (i == 3) break; l += i } finally { l += "
     "'f' + i } l",
     "0f0f12f2f3"},
    {"var l = ''; function f() { for (;;) { try { try { return 'r' } finally { l += 1 } } finally { l += 2; break } } "
     "return l } f()",
     "12"},
    {"var f = []; for (var i = 0; i < 3; i++) try { throw i } catch (e) { f.push(function() { return e }) } var g = "
     "f[1]; g()",
     "1"},
    {"var n = 1; function f(o) { try { with (o) { throw n } } catch (e) { return e + n } } f({n: 5})", "6"},
    {"function deep(n) { if (n == 0) throw 'x'; try { return deep(n - 1) } finally { c++ } } c = 0; try { deep(50) } "
     "catch (e) "
     "{ c += e } c",
     "50x"},
    {"[3, 1, 2].sort(function(a, b) { throw 'cmp' })", "! cmp"},
    {"try { [3, 1, 2].sort(function(a, b) { throw 'cmp' }) } catch (e) { r = e } r", "cmp"},
    {"try { null.x() } catch (e) { r = e.message + e.lineNumber } r", "can't convert null to an object1"},
    {"undefinedFunction()", "! not a function object"},
    {"x = {}; x.f()", "! not a function object"},
    {"new 5", "! new must be given a constructor object"},
    {"throw {toString: function() { return 'own' }}", "! own"},
};

TEST(ESInterpreter, ExceptionsRunWhatTheyPass)
{
    for (const auto &row : exceptionPrograms) {
        EXPECT_EQ(result(row.source), QString::fromUtf8(row.result)) << row.source;
        CountingContext stepping;
        EXPECT_EQ(result(stepping, row.source), QString::fromUtf8(row.result)) << "stepping: " << row.source;
    }
}

TEST(ESInterpreter, ErrorsTellWhereTheyCameFrom)
{
    ESContext context;
    const ESCompletion completion =
        context.evaluate(u"a.js"_s, u"function inner(o) {\n  return o.x.y;\n}\n\ninner({});"_s);
    ASSERT_EQ(completion.kind, ESCompletion::Exception);
    ESObject *error = completion.value.object;
    EXPECT_TRUE(context.isError(completion.value));
    EXPECT_EQ(completion.text, u"can't convert undefined to an object"_s);
    EXPECT_EQ(context.toQString(context.get(error, "fileName")), u"a.js"_s);
    EXPECT_EQ(context.get(error, "lineNumber").number, 2);
    EXPECT_EQ(context.toQString(context.get(error, "sourceLine")), u"  return o.x.y;"_s);
    EXPECT_EQ(context.toQString(context.get(error, "stack")), u"inner (a.js:2)\n(program) (a.js:5)"_s);
}

TEST(ESInterpreter, AContextGoesOnAfterWhatFailed)
{
    ESContext context;
    EXPECT_EQ(result(context, "var kept = 5; function f() { with ({kept: 1}) g() } f()"), u"! not a function object"_s);
    for (int i = 0; i < 3; ++i)
        EXPECT_THROW(context.evaluate(QString(), u"function r() { return r() + 1 } r()"_s), ESFatalError);
    EXPECT_EQ(result(context, "kept + (this == this.self ? 0 : 1)"), u"6"_s);
    EXPECT_EQ(result(context, "function d(n) { return n ? 1 + d(n - 1) : 0 } d(100000)"), u"100000"_s);
    // Natives and scripts calling each other use the native stack.
    EXPECT_THROW(context.evaluate(QString(), u"var o = {toString: function() { return '' + o }}; '' + o"_s),
                 ESFatalError);
    EXPECT_EQ(result(context, "kept"), u"5"_s);
}

TEST(ESInterpreter, MemoryEndsWithAFatalError)
{
    ESContext context(16 << 20);
    EXPECT_THROW(context.evaluate(QString(), u"var a = []; for (;;) a = [a, 1, 2]"_s), ESFatalError);
    ESContext strings(16 << 20);
    EXPECT_THROW(strings.evaluate(QString(), u"var s = 'x'; for (;;) s += s"_s), ESFatalError);
    ESContext arrays(16 << 20);
    EXPECT_THROW(arrays.evaluate(QString(), u"var a = [], i = 0; for (;;) a[i++] = 1"_s), ESFatalError);
}

TEST(ESInterpreter, StepEndsARunWithoutAWord)
{
    CountingContext context;
    EXPECT_EQ(result(context, "x = 1"), u"1"_s);
    EXPECT_EQ(context.steps, 4); // NUM_1, DUP, PUTG, RET
    context.limit = 1000;
    const ESCompletion completion =
        context.evaluate(QString(), u"n = 0; function f() { for (;;) try { n++ } finally { n++ } } f(); x = 2"_s);
    EXPECT_EQ(completion.kind, ESCompletion::Normal);
    EXPECT_TRUE(completion.value.isUndefined());
    context.limit = 1 << 30;
    EXPECT_EQ(result(context, "x"), u"1"_s);
}

class HostClass : public ESClass
{
public:
    HostClass() : ESClass("Host") {}
    ESValue get(ESContext &context, ESObject *object, ESSymbol *name) override
    {
        return name->text() == u"answer" ? ESValue(42) : ESClass::get(context, object, name);
    }
    void put(ESContext &context, ESObject *object, ESSymbol *name, ESValue value) override
    {
        puts += name->text();
        ESClass::put(context, object, name, value);
    }
    ESValue call(ESContext &context, const ESCall &call) override
    {
        if (context.nativeId(call.function) == 1)
            return context.call(call.argument(0).object, call.self, std::span(call.argv + 1, size_t(call.argc - 1)));
        throw HException(u"host failure"_s);
    }
    void init(ESContext &context) override
    {
        static const ESNativeRow rows[] = {{"apply", 1, nullptr, "<b>Host.apply(f, ...)</b> calls f"}, {"fail", 0}};
        ESObject *object = context.makeObject(context.prototypes().object, this);
        context.install(object, this, "Host.prototype.", rows, 1);
        context.defineProperty(context.global(), esDontEnumerate, esIntern(name()), object);
    }
    QStringList puts;
};

TEST(ESClass, HooksTakePart)
{
    ESContext context;
    auto owned = std::make_unique<HostClass>();
    HostClass &host = *owned;
    context.addClass(std::move(owned));
    EXPECT_EQ(result(context, "function s(a, b) { return this.answer + a + b } Host.apply(s, 1, 2) + Host.apply.help"),
              u"45<b>Host.apply(f, ...)</b> calls f"_s);
    EXPECT_EQ(
        result(context, "for (var i = 0; i < 3; i++) { Host.x = i; Host[i] = i } '' + Host.x + Host[1] + Host.answer"),
        u"2142"_s);
    EXPECT_EQ(host.puts.join(u','), u"x,0,x,1,x,2"_s);
    EXPECT_EQ(result(context, "try { Host.apply(function() { throw 'up' }) } catch (e) { r = e } r"), u"up"_s);
    EXPECT_THROW(context.evaluate(QString(), u"try { Host.fail() } catch (e) { }"_s), HException);
    EXPECT_EQ(result(context, "Host.x"), u"2"_s);
}

TEST(ESContext, CallsAndConstructsFromNativeCode)
{
    ESContext context;
    result(context, "function F(a) { this.a = a } function add(a, b) { return a + b }");
    const ESValue arguments[] = {2, 3};
    ESObject *add = context.get(context.global(), "add").object,
             *constructor = context.get(context.global(), "F").object;
    EXPECT_EQ(context.call(add, {}, arguments).number, 5);
    EXPECT_EQ(context.get(context.construct(constructor, arguments), "a").number, 2);
    EXPECT_THROW(context.call(context.makeObject(), {}, {}), ESException);
    EXPECT_EQ(context.get(context.compileFunction(u"x, y"_s, u"return x * y"_s), "length").number, 2);
}

} // namespace interpreterTest
