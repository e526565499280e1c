#include "build/engine/FileTimes.h"

#include "support/QtPrinters.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

// Whoever asks, the second thread or the first, and whatever happens meanwhile: the answer is the file's.
TEST(FileTimes, AskedAheadAreThoseOfTheFiles)
{
    const TemporaryFolder folder;
    constexpr int count = 3000;
    FileTimes times;
    for (int i = 0; i < count; ++i) {
        const QByteArray name = QByteArray::number(i) + ".c";
        times.id(i % 3 ? folder.write(name.constData(), QByteArray(i % 7, 'x')) : folder.path(name.constData()));
    }
    for (int round = 0; round < 20; ++round) {
        times.forgetAll();
        times.askAhead([] {}, true);
        times.waitForIds();
        for (FileTimes::Id id = 0; id < count; ++id) {
            const FileStamp stamp = times.stamp(id);
            ASSERT_EQ(stamp.time != 0, id % 3 != 0) << id;
            ASSERT_EQ(stamp.size, id % 3 ? id % 7 : 0) << id;
        }
    }
    times.forgetAll();
    times.askAhead([] {}, true);
    times.waitForIds();
    for (const int written : {1, count - 2}) { // the thread may have seen it as it was
        folder.write((QByteArray::number(written) + ".c").constData(), "written since");
        times.setWritten(times.path(written));
        EXPECT_EQ(times.stamp(written).size, 13);
        EXPECT_TRUE(times.isWritten(written));
    }
    folder.write("2.c", "by nobody knows whom");
    times.forgetAll();
    EXPECT_EQ(times.stamp(2).size, 20);
}
