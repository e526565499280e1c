#pragma once

#include <QDeadlineTimer>
#include <cerrno>
#include <poll.h>

// Waits until the descriptor is ready for `events` or has failed. Gives what it is ready for, 0 when the time is
// up first. Signals don't cut the wait short or prolong it.
inline short waitForDescriptor(int descriptor, short events, const QDeadlineTimer &deadline)
{
    for (;;) {
        pollfd entry{descriptor, events, 0};
        const qint64 leftMs = deadline.remainingTime(); // -1: for ever, to poll() too
        const int count = ::poll(&entry, 1, int(std::min<qint64>(leftMs, 1 << 30)));
        if (count > 0)
            return entry.revents;
        if (count < 0 && errno != EINTR)
            return POLLERR;
        if (deadline.hasExpired())
            return 0;
    }
}
