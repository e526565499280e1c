#include "script/engine/ESNativeSupport.h"
#include "script/engine/ESNatives.h"

#include <QDateTime>
#include <array>
#include <cmath>

using namespace Qt::StringLiterals;

// A date is a count of milliseconds since 1970 in a double. Local time is taken for UTC throughout: `new Date`
// stores what the clock on the wall shows.

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double msPerSecond = 1000, msPerMinute = 60000, msPerHour = 3600000, msPerDay = 86400000;
constexpr double farthest = 8.64e15; // ms on either side of 1970
const QDate epoch(1970, 1, 1);

enum Part { year, month, day, hours, minutes, seconds, milliseconds, partCount }; // month counts from 0
using Parts = std::array<double, partCount>;

// The remainder that is never negative, so that dates before 1970 come apart as they were put together.
double wrapped(double number, double range)
{
    const double rest = std::fmod(number, range);
    return rest < 0 ? rest + range : rest;
}

double timeInDay(double ms)
{
    return wrapped(ms, msPerDay);
}

QDate dateOf(double ms)
{
    return epoch.addDays(qint64(std::floor(ms / msPerDay)));
}

Parts apart(double ms)
{
    if (std::isnan(ms)) {
        Parts none;
        none.fill(notANumber);
        return none;
    }
    const QDate date = dateOf(ms);
    return {double(date.year()),
            double(date.month() - 1),
            double(date.day()),
            wrapped(std::floor(ms / msPerHour), 24),
            wrapped(std::floor(ms / msPerMinute), 60),
            wrapped(std::floor(ms / msPerSecond), 60),
            wrapped(ms, 1000)};
}

double clipped(double ms)
{
    return std::isfinite(ms) && std::abs(ms) <= farthest ? ms + 0.0 : notANumber;
}

// NaN when there is no such day or a part isn't finite; hours and what is below may exceed their range.
double together(const Parts &parts)
{
    constexpr double farthestYear = 300000;
    for (double part : parts)
        if (!std::isfinite(part))
            return notANumber;
    if (std::abs(parts[year]) > farthestYear || std::abs(parts[month]) > 12 || std::abs(parts[day]) > 31)
        return notANumber;
    const QDate date(int(std::floor(parts[year])), int(std::floor(parts[month])) + 1, int(std::floor(parts[day])));
    if (!date.isValid())
        return notANumber;
    return clipped(double(epoch.daysTo(date)) * msPerDay + std::floor(parts[hours]) * msPerHour +
                   std::floor(parts[minutes]) * msPerMinute + std::floor(parts[seconds]) * msPerSecond +
                   std::floor(parts[milliseconds]));
}

double fromClock(const QDateTime &time)
{
    return time.isValid() ? double(epoch.daysTo(time.date())) * msPerDay + time.time().msecsSinceStartOfDay()
                          : notANumber;
}

// What toString gives, and the common formats of the net. A zone is converted to UTC.
double fromText(const QString &text)
{
    for (Qt::DateFormat format : {Qt::TextDate, Qt::ISODateWithMs, Qt::RFC2822Date}) {
        const QDateTime time = QDateTime::fromString(text.trimmed(), format);
        if (time.isValid())
            return clipped(fromClock(time.timeSpec() == Qt::LocalTime ? time : time.toUTC()));
    }
    return notANumber;
}

double fromArguments(ESContext &context, const ESCall &call)
{
    if (call.argc == 0)
        return fromClock(QDateTime::currentDateTime());
    if (call.argc > 1) {
        Parts parts = {notANumber, notANumber, 1};
        for (int i = 0; i < qMin(call.argc, int(partCount)); ++i)
            parts[i] = context.toNumber(call.argv[i]);
        return together(parts);
    }
    const ESValue &given = call.argv[0];
    if (esIsInstance(given, context.classes().date))
        return context.toNumber(given.object->primitive());
    const ESValue value = context.toPrimitive(given, ESHint::Default);
    return value.isString() ? fromText(context.toQString(value)) : clipped(context.toNumber(value));
}

ESValue dateNative(ESContext &context, const ESCall &call)
{
    if (!call.construct)
        context.raise(ESErrorKind::Error, "bad signature in builtin call");
    return context.makeWrapper(context.prototypes().date, context.classes().date, fromArguments(context, call));
}

double receiver(ESContext &context, const ESCall &call)
{
    if (!esIsInstance(call.self, context.classes().date))
        context.raise(ESErrorKind::TypeError, "Date object required");
    return context.toNumber(call.self.object->primitive());
}

ESValue store(ESContext &context, const ESCall &call, double ms)
{
    context.setPrimitive(call.self.object, ms);
    return ms;
}

enum Form { dateForm = 1, timeForm = 2 };

// "Thu Jan 1 1970", "00:00:00", and both as "Thu Jan 1 00:00:00 1970".
template <int form>
ESValue text(ESContext &context, const ESCall &call)
{
    const double ms = receiver(context, call);
    if (std::isnan(ms))
        return esNames().empty;
    const QDate date = dateOf(ms);
    const QTime time = QTime::fromMSecsSinceStartOfDay(int(timeInDay(ms)));
    if (form == dateForm)
        return context.makeString(QString(date.toString(Qt::TextDate)));
    if (form == timeForm)
        return context.makeString(QString(time.toString(Qt::TextDate)));
    const QString both = QDateTime(date, time, Qt::UTC).toString(Qt::TextDate);
    return context.makeString(QStringView(both).chopped(both.endsWith(u" GMT") ? 4 : 0));
}

ESValue value(ESContext &context, const ESCall &call)
{
    return receiver(context, call);
}

template <Part part>
ESValue get(ESContext &context, const ESCall &call)
{
    return apart(receiver(context, call))[part];
}

// 1 for Monday to 7 for Sunday.
ESValue getDay(ESContext &context, const ESCall &call)
{
    const double ms = receiver(context, call);
    return std::isnan(ms) ? ms : double(dateOf(ms).dayOfWeek());
}

ESValue getTimezoneOffset(ESContext &context, const ESCall &call)
{
    receiver(context, call);
    return 0;
}

ESValue setTime(ESContext &context, const ESCall &call)
{
    receiver(context, call);
    return store(context, call, clipped(context.toNumber(call.argument(0))));
}

// The arguments are `first` and at most `count` - 1 parts behind it; what isn't given stays.
template <Part first, int count>
ESValue set(ESContext &context, const ESCall &call)
{
    Parts parts = apart(receiver(context, call));
    for (int i = 0; i < count; ++i)
        if (i == 0 || !call.argument(i).isUndefined())
            parts[first + i] = context.toNumber(call.argument(i));
    return store(context, call, together(parts));
}

constexpr ESNativeRow rows[] = {
    {"toString", 0, text<dateForm | timeForm>},
    {"toDateString", 0, text<dateForm>},
    {"toTimeString", 0, text<timeForm>},
    {"toLocaleString", 0, text<dateForm | timeForm>},
    {"toLocaleDateString", 0, text<dateForm>},
    {"toLocaleTimeString", 0, text<timeForm>},
    {"valueOf", 0, value},
    {"getTime", 0, value},
    {"getFullYear", 0, get<year>},
    {"getUTCFullYear", 0, get<year>},
    {"getMonth", 0, get<month>},
    {"getUTCMonth", 0, get<month>},
    {"getDate", 0, get<day>},
    {"getUTCDate", 0, get<day>},
    {"getDay", 0, getDay},
    {"getUTCDay", 0, getDay},
    {"getHours", 0, get<hours>},
    {"getUTCHours", 0, get<hours>},
    {"getMinutes", 0, get<minutes>},
    {"getUTCMinutes", 0, get<minutes>},
    {"getSeconds", 0, get<seconds>},
    {"getUTCSeconds", 0, get<seconds>},
    {"getMilliseconds", 0, get<milliseconds>},
    {"getUTCMilliseconds", 0, get<milliseconds>},
    {"getTimezoneOffset", 0, getTimezoneOffset},
    {"setTime", 1, setTime},
    {"setMilliseconds", 1, set<milliseconds, 1>},
    {"setUTCMilliseconds", 1, set<milliseconds, 1>},
    {"setSeconds", 2, set<seconds, 2>},
    {"setUTCSeconds", 2, set<seconds, 2>},
    {"setMinutes", 2, set<minutes, 3>},
    {"setUTCMinutes", 3, set<minutes, 3>},
    {"setHours", 4, set<hours, 4>},
    {"setUTCHours", 4, set<hours, 4>},
    {"setDate", 1, set<day, 1>},
    {"setUTCDate", 1, set<day, 1>},
    {"setMonth", 2, set<month, 2>},
    {"setUTCMonth", 2, set<month, 2>},
    {"setFullYear", 3, set<year, 3>},
    {"setUTCFullYear", 3, set<year, 3>},
    {"toUTCString", 0, text<dateForm | timeForm>},
};

} // namespace

void ESNativeDate::init(ESContext &context)
{
    ESObject *prototype = context.prototypes().date;
    context.setPrimitive(prototype, notANumber);
    esInstallUnpadded(context, this, "Date", dateNative, 1, prototype);
    context.install(prototype, this, "Date.prototype.", rows, 1);
}
