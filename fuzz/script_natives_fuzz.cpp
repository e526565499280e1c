#include "script/engine/ESContext.h"

#include <iterator>

using namespace Qt::StringLiterals;

namespace {

const char *const receivers[] = {
    "a",      "o",     "s",      "n",    "d",        "e",    "f",    "Math",       "Object",
    "String", "Array", "Number", "Date", "Function", "this", "a[0]", "'\\ud800x'", "new String('w')",
};
const char *const methods[] = {
    "toString",
    "valueOf",
    "hasOwnProperty",
    "isPrototypeOf",
    "propertyIsEnumerable",
    "toLocaleString",
    "concat",
    "join",
    "pop",
    "push",
    "reverse",
    "shift",
    "slice",
    "sort",
    "fromCharCode",
    "charAt",
    "charCodeAt",
    "indexOf",
    "lastIndexOf",
    "localeCompare",
    "match",
    "replace",
    "search",
    "split",
    "substring",
    "toLowerCase",
    "toUpperCase",
    "trim",
    "toFixed",
    "abs",
    "max",
    "round",
    "pow",
    "getDay",
    "getFullYear",
    "setTime",
    "setHours",
    "setMonth",
    "setFullYear",
    "setMilliseconds",
    "toUTCString",
    "length",
    "prototype",
    "eval",
    "parseInt",
    "parseFloat",
    "isNaN",
    "constructor",
};
const char *const values[] = {
    "undefined",  "null",        "true",  "0",       "-1",         "1",
    "2.5",        "NaN",         "1 / 0", "-1 / 0",  "4294967295", "4294967296",
    "2147483647", "-2147483648", "1e300", "8.64e15", "''",         "'a'",
    "'0x1f'",     "'length'",    "s",     "a",       "o",          "f",
    "d",          "e",           "evil",  "shrink",  "this",       "String.prototype.toString",
    "x",          "s + s",
};

// Ends a program after a number of instructions.
class LimitedContext : public ESContext
{
public:
    LimitedContext() : ESContext(64 << 20) {}
    bool step() override { return ++m_steps < 20000; }

private:
    int m_steps = 0;
};

} // namespace

// Each four bytes are a call with two arguments: programs of natives on odd receivers with odd arguments.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QString source =
        u"var a = [3, undefined, 'b', null, [1]], o = {length: 3, 0: 'p', 2: 'q'}, s = 'some text', n = -7.5, x;"
        "var d = new Date(2020, 1, 2), e = new RangeError('m'), f = function (p, q) { return p > q ? 1 : -1 };"
        "var evil = {toString: function () { a.length = 1; return {} }, valueOf: function () { throw 1 }};"
        "var shrink = function () { a.length = a.length / 2; return 1 };"
        "o.sort = a.sort; o.join = a.join; o.shift = a.shift; o.reverse = a.reverse; o.getDay = d.getDay;\n"_s;
    for (; size >= 4 && source.size() < 20000; data += 4, size -= 4)
        source += u"try { x = %1.%2(%3, %4) } catch (c) { x = c }\n"_s.arg(
            QLatin1StringView(receivers[data[0] % std::size(receivers)]),
            QLatin1StringView(methods[data[1] % std::size(methods)]),
            QLatin1StringView(values[data[2] % std::size(values)]),
            QLatin1StringView(values[data[3] % std::size(values)]));
    LimitedContext context;
    try {
        const ESCompletion completion = context.evaluate(u"f.js"_s, source);
        context.toQString(completion.value);
    } catch (const ESException &) {
    } catch (const HException &) {
    }
    return 0;
}
