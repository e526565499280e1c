#pragma once

#include <QtGlobal>

class HDataLink;

// The requests that the host makes of a small loader program on the target. A request is its code, the bytes
// 4D 39 EA F6 and its fields; a reply is the complement of the code and its fields. All fields are little-endian.
//
//     code                 fields of the request               fields of the reply
//     1  connect           -                                   u8 status: 0xFF busy
//     2  disconnect        -                                   u8 status
//     3  write memory      u32 address, u32 length, data       u8 status
//     4  read memory       u32 address, u32 length             u8 status, then data unless it is 0
//     5  erase range       u32 address, u32 length             u8 status
//     6  erase all         -                                   u8 status, 2 bytes without meaning
//     7  CRC of a range    u32 address, u32 length             1 byte without meaning, u32 CRC (crc32Bzip2)
//     8  loader info       -                                   LoaderInfo
//     9  control           four u32                            u32 result
//
// A status of 0 means failure. The host waits for the reply before it makes the next request.
//
// A failed request throws HException with one sentence and leaves the link open; where the stream stands then is
// not known. A peer that doesn't answer is told by the time-out of the link.

// What a loader says about itself. The fields belong to the loader programs; the host passes them through.
struct LoaderInfo
{
    quint16 first;
    quint16 second;
    quint32 words[7];
    quint16 tenth;
    quint16 eleventh;
    quint8 trailing[36];
};

// Without `waitForReply` only sends the request. A busy loader is asked again every `busyDelayMs`, ten times in all.
void loaderConnect(HDataLink &link, bool waitForReply, quint32 busyDelayMs = 1000);
void loaderDisconnect(HDataLink &link);
void loaderWriteMemory(HDataLink &link, quint32 address, quint32 length, const void *data);
void loaderReadMemory(HDataLink &link, quint32 address, quint32 length, void *dest);
void loaderEraseRange(HDataLink &link, quint32 address, quint32 length);
void loaderEraseAll(HDataLink &link);
void loaderGetInfo(HDataLink &link, LoaderInfo &info);
quint32 loaderControl(HDataLink &link, quint32 a, quint32 b, quint32 c, quint32 d);
quint32 loaderRangeCrc(HDataLink &link, quint32 address, quint32 length);
// Whether the target's CRC of the range equals that of `data`.
bool loaderVerifyRange(HDataLink &link, quint32 address, quint32 length, const void *data);
