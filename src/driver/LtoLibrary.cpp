#include "driver/LtoLibrary.h"

#include "base/HException.h"

#include <QFile>

using namespace Qt::StringLiterals;

void LtoLibrary::load(const QByteArray &path)
{
    const QString name = QFile::decodeName(path);
    if (!m_library.load(name))
        throw HException(u"failed to load "_s + name);
    const char *missing = nullptr;
#define LTO_LOOK_UP(result, entry, arguments)             \
    entry = m_library.function<result arguments>(#entry); \
    if (!entry && !missing)                               \
        missing = #entry;
    LTO_ENTRY_POINTS(LTO_LOOK_UP)
#undef LTO_LOOK_UP
    if (missing)
        throw HException(u"no entry point %1 in %2"_s.arg(QLatin1StringView(missing), name));
#define LTO_LOOK_UP(result, entry, arguments) entry = m_library.function<result arguments>(#entry);
    LTO_OPTIONAL_ENTRY_POINTS(LTO_LOOK_UP)
#undef LTO_LOOK_UP
}

QByteArray LtoLibrary::reason() const
{
    const char *text = lto_get_error_message ? lto_get_error_message() : nullptr;
    return text && *text ? QByteArray(": ") + text : QByteArray();
}
