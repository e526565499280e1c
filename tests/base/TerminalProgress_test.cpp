#include "base/HException.h"
#include "base/TerminalProgress.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

TEST(TerminalProgress, AnInterruptCancelsAndOnlyThen)
{
    const auto before = std::signal(SIGINT, SIG_DFL);
    {
        TerminalProgress progress(true);
        progress.update(1, 2);
        std::raise(SIGINT);
        EXPECT_THROW(progress.update(1, 2), StudioCancelException);
    }
    {
        TerminalProgress progress(true);
        progress.update(0, 0);
    }
    std::signal(SIGINT, SIG_IGN);
    {
        TerminalProgress progress(true);
        std::raise(SIGINT);
        EXPECT_NO_THROW(progress.update(0, 0)) << "who started the program doesn't want it interrupted";
    }
    std::signal(SIGINT, before);
}

TEST(TerminalProgress, IsSilentWithoutATerminal)
{
    testing::internal::CaptureStderr(); // a file
    {
        TerminalProgress progress(false);
        for (quint64 i = 0; i < 1000; ++i)
            progress.update(i, 1000);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
