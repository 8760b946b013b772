#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVStandardErrorSink.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Support/Sanitizers.h"
#include "Support/StandardError.h"

namespace zav::test {
namespace {

constexpr unsigned secondsAtMost = 60;

void logLine(DDLogFlag flag, std::string_view text) {
    DDLog::log(flag == DDLogFlagVerbose, 31, flag, 0, "file", "-[Subject act:]", 1, nullptr,
               ZAVRuntimeFormat(text));
}

/// Runs something in a process that is forked from this one, and answers whether that process came to its end
/// by itself.
bool endsWell(const std::function<void()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(secondsAtMost);
        work();
        std::_Exit(3);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Each test forks in a process of its own, whose log nobody else has used.
class LoggingForkDeathTest : public testing::Test {
protected:
    LoggingForkDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LoggingForkDeathTest, AForkedProcessWritesItsLinesAtOnce) {
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            logLine(DDLogFlagVerbose, "of the parent");
            DDLog::flush();
            const bool well = endsWell([] {
                logLine(DDLogFlagVerbose, "first of the child");
                logLine(DDLogFlagError, "second of the child");
                std::_Exit(0);
            });
            logLine(DDLogFlagError, "the last");
            std::_Exit(well ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "^[^\n]*: of the parent\n[^\n]* trace [^\n]*: first of the child\n"
        "[^\n]* error [^\n]*: second of the child\n[^\n]*: the last\n$");
}

TEST_F(LoggingForkDeathTest, AForkedProcessHasNoPartInWhatItsParentHasStillToWrite) {
    if (isSanitized) {
        GTEST_SKIP() << "what the child leaves of its parent's lines counts as leaked";
    }
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            const StandardErrorFile ofTheChild;
            const FullPipe ofTheParent;
            ofTheParent.makeWritersWait();
            bool well = false;
            std::string written;
            {
                const StandardErrorInto full(ofTheParent.writingEnd());
                for (int number = 0; number < 100; ++number) {
                    logLine(DDLogFlagVerbose, "of the parent");
                }
                well = endsWell([&] {
                    ::dup2(::open(ofTheChild.path().c_str(), O_WRONLY | O_APPEND), STDERR_FILENO);
                    logLine(DDLogFlagError, "of the child");
                    std::exit(
                        0);  // not before all lines are written, but those of the parent are not its own
                });
                std::atomic<bool> flushed = false;
                std::thread flushing([&] {
                    DDLog::flush();
                    flushed = true;
                });
                while (!flushed) {
                    written += ofTheParent.readAll();
                    std::this_thread::yield();
                }
                flushing.join();
                written += ofTheParent.readAll();
            }
            const auto lines = ofTheChild.lines();
            well = well && lines.size() == 1 && lines[0].ends_with(": of the child");
            std::size_t count = 0;
            for (std::size_t at = 0; (at = written.find(": of the parent\n", at)) != std::string::npos;
                 ++at) {
                ++count;
            }
            std::_Exit(well && count == 100 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(LoggingForkDeathTest, ASinkMayBeDestroyedInAForkedProcess) {
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            auto sink = std::make_shared<ZAVStandardErrorSink>();
            DDLog::setSink(sink);
            logLine(DDLogFlagVerbose, "of the parent");
            DDLog::flush();
            if (isSanitized) {
                // By then the sink's thread sleeps, and holds no lock of the sanitizers' allocator.
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
            }
            const bool well = endsWell([&] {
                DDLog::setSink(nullptr);
                sink.reset();
                logLine(DDLogFlagError, "of the child");
                std::_Exit(0);
            });
            std::_Exit(well ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^[^\n]*: of the parent\n[^\n]*: of the child\n$");
}

TEST_F(LoggingForkDeathTest, AProcessMayBeForkedWhileOthersLog) {
    if (isSanitized) {
        GTEST_SKIP() << "the sanitizers' own allocator, other than the system's, may be locked in the child";
    }
    EXPECT_EXIT(
        {
            ::alarm(secondsAtMost);
            const StandardErrorInto nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
            std::atomic<bool> over = false;
            std::vector<std::thread> threads;
            for (int thread = 0; thread < 3; ++thread) {
                threads.emplace_back([&over] {
                    for (int number = 0; !over; ++number) {
                        logLine(number % 10 == 0 ? DDLogFlagError : DDLogFlagVerbose, "of the parent");
                    }
                });
            }
            bool well = true;
            for (int number = 0; well && number < 200; ++number) {
                well = endsWell([] {
                    logLine(DDLogFlagError, "of the child");
                    logLine(DDLogFlagVerbose, "of the child");
                    DDLog::flush();
                    std::_Exit(0);
                });
            }
            over = true;
            for (std::thread& thread : threads) {
                thread.join();
            }
            std::_Exit(well ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace zav::test
