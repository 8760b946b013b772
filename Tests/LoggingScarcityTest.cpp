#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVStandardErrorSink.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <thread>

#include "Support/LogCapture.h"
#include "Support/ScarceMemory.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

constexpr unsigned secondsAtMost = 60;

template <class... Arguments>
void logLine(DDLogFlag flag, ZAVFormatString<std::type_identity_t<Arguments>...> format,
             const Arguments&... arguments) {
    DDLog::log(flag == DDLogFlagVerbose, 31, flag, 0, "file", "-[Subject act:]", 1, nullptr, format,
               arguments...);
}

/// A child process that is short of something, and that is ended when it hangs.
class LoggingInScarcityDeathTest : public testing::Test {
protected:
    LoggingInScarcityDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// From now on no thread can be started: none finds room for its stack.
    static void noMoreThreads() {
        pthread_attr_t attributes;
        ::pthread_attr_init(&attributes);
        ::pthread_attr_setstacksize(&attributes, std::size_t{1} << 46);
        ASSERT_EQ(::pthread_setattr_default_np(&attributes), 0);
        ASSERT_ANY_THROW(std::thread([] {}).join()) << "a thread was started after all";
    }
};

TEST_F(LoggingInScarcityDeathTest, AnOperationFailsAsEverWhereNoThreadCanBeStarted) {
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            const TestStore store;
            store.execute("DROP TABLE events");
            noMoreThreads();
            gZAVLogPreferences[ZAVLogComponentModel] = 5;
            ZAVError error;
            const auto events = store.repository().allEvents(&error);
            const bool failed = !events && error == ZAVError("SQLite", 1, "no such table: events");
            std::_Exit(failed ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "trace -\\[ZAVEventRepository allEvents:\\]: fetching publishable events\n"
        ".* error -\\[ZAVEventRepository allEvents:\\]: failed to fetch publishable events with Error "
        "Domain=SQLite Code=1 \"no such table: events\"\n");
}

TEST_F(LoggingInScarcityDeathTest, VerboseLinesAreWrittenAtOnceWhereNoThreadCanBeStarted) {
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            noMoreThreads();
            logLine(DDLogFlagVerbose, "first");
            logLine(DDLogFlagVerbose, "second");
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "trace .*: first\n.* trace .*: second\n");
}

TEST_F(LoggingInScarcityDeathTest, TheThreadOfTheLogGoesOnWithoutMemory) {
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            logLine(DDLogFlagVerbose, "before");
            DDLog::flush();
            makeMemoryScarceFor(MemoryScarcity::otherThreads);
            for (int number = 0; number < 100; ++number) {
                logLine(DDLogFlagVerbose, "%d%@", number, std::string(3000, 'x'));
            }
            DDLog::flush();
            logLine(DDLogFlagError, "failed %@", std::string(3000, 'y'));
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), ": before\n(.*x\n)*.*: 99x*\n.* error .*: failed y*\n");
}

TEST_F(LoggingInScarcityDeathTest, AnErrorLineIsWrittenByACallerWithoutMemory) {
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            logLine(DDLogFlagVerbose, "before");
            makeMemoryScarceFor(MemoryScarcity::everybody);
            logLine(DDLogFlagVerbose, "a verbose line that is longer than what a text holds in place");
            logLine(DDLogFlagError, "an error line that is longer than what a text holds in place");
            logLine(DDLogFlagError, "one with %@ that cannot be printed", 1.5);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "trace .*: before\n"
        ".* trace .*: a verbose line that is longer than what a text holds in place\n"
        ".* error .*: an error line that is longer than what a text holds in place\n"
        ".* error .*: one with %@ that cannot be printed\n");
}

TEST_F(LoggingInScarcityDeathTest, TheVeryFirstLineNeedsNoMemoryEither) {
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            makeMemoryScarceFor(MemoryScarcity::everybody);
            logLine(DDLogFlagError, "an error line that is longer than what a text holds in place");
            makeMemoryScarceFor(MemoryScarcity::nobody);
            logLine(DDLogFlagError, "another");
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        "^-\\[Subject act:\\]: an error line that is longer than what a text holds in place\n"
        ".* error .*: another\n");
}

}  // namespace
}  // namespace zav::test
