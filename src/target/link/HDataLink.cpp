#include "target/link/HDataLink.h"

#include "base/HException.h"

using namespace Qt::StringLiterals;

void linkReadExact(HIOInterface &link, void *buffer, quint32 count)
{
    if (link.read(static_cast<quint8 *>(buffer), count) != count)
        throw HException(u"hardware error: target JTAG adapter data link read timed out"_s);
}

void linkWriteExact(HIOInterface &link, const void *buffer, quint32 count)
{
    if (link.write(static_cast<const quint8 *>(buffer), count) != count)
        throw HException(u"write timed out"_s);
}
