#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStandardErrorSink.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <barrier>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Support/LogCapture.h"
#include "Support/TestStore.h"
#include "Support/Tool.h"

namespace zav::test {
namespace {

constexpr int threadCount = 4;

void logLine(DDLogFlag flag, int thread, int number) {
    DDLog::log(flag == DDLogFlagVerbose, 31, flag, 0, "file", "-[Subject act:]", 1, nullptr,
               "thread %d line %d", thread, number);
}

/// Every hundredth line is an error line.
void logLines(int thread, int count) {
    for (int number = 0; number < count; ++number) {
        logLine(number % 100 == 99 ? DDLogFlagError : DDLogFlagVerbose, thread, number);
    }
}

/// Runs something on several threads at once and waits for all of them.
void onThreads(const std::function<void(int thread)>& work) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back(work, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// What standard error holds: of each thread the number of its lines, all of which are whole, one after the
/// other.
class LinesOfThreads {
public:
    explicit LinesOfThreads(std::string_view text) {
        std::istringstream stream{std::string(text)};
        for (std::string line; std::getline(stream, line);) {
            take(line);
        }
    }

    [[nodiscard]] bool isOrderly() const { return complaint_.empty(); }
    [[nodiscard]] const std::string& complaint() const { return complaint_; }
    [[nodiscard]] int countOf(int thread) const {
        const auto found = counts_.find(thread);
        return found == counts_.end() ? 0 : found->second;
    }

private:
    void take(const std::string& line) {
        int thread = -1;
        int number = -1;
        const auto start = line.rfind(" -[Subject act:]: thread ");
        if (start == std::string::npos ||
            std::sscanf(line.c_str() + start, " -[Subject act:]: thread %d line %d", &thread, &number) != 2) {
            complain("a line is \"" + line + "\"");
        } else if (number != counts_[thread]++) {
            complain("line " + std::to_string(number) + " of thread " + std::to_string(thread) +
                     " comes out of turn");
        }
    }
    void complain(const std::string& what) {
        if (complaint_.empty()) {
            complaint_ = what;
        }
    }

    std::map<int, int> counts_;
    std::string complaint_;
};

/// Matches when standard error holds so many lines of each thread, or at least so many. What a process writes
/// in the moment in which it is killed may be cut off; it then is of no account.
class HoldsLinesOfThreads : public testing::MatcherInterface<const std::string&> {
public:
    HoldsLinesOfThreads(std::array<int, threadCount> counts, bool mayHoldMore)
        : counts_(counts), mayHoldMore_(mayHoldMore) {}

    bool MatchAndExplain(const std::string& text, testing::MatchResultListener* listener) const override {
        const std::size_t end = mayHoldMore_ ? text.rfind('\n') + 1 : text.size();
        const LinesOfThreads lines(std::string_view(text).substr(0, end));
        if (!lines.isOrderly()) {
            *listener << lines.complaint();
            return false;
        }
        for (int thread = 0; thread < threadCount; ++thread) {
            const int count = lines.countOf(thread);
            const int expected = counts_[static_cast<std::size_t>(thread)];
            if (count < expected || (count > expected && !mayHoldMore_)) {
                *listener << "thread " << thread << " has " << count << " lines";
                return false;
            }
        }
        return true;
    }
    void DescribeTo(std::ostream* stream) const override {
        *stream << (mayHoldMore_ ? "at least " : "") << testing::PrintToString(counts_)
                << " lines of the threads, in their order";
    }

private:
    std::array<int, threadCount> counts_;
    bool mayHoldMore_;
};

testing::Matcher<const std::string&> holdsLines(int ofEachThread) {
    std::array<int, threadCount> counts{};
    counts.fill(ofEachThread);
    return testing::MakeMatcher(new HoldsLinesOfThreads(counts, false));
}

testing::Matcher<const std::string&> holdsAtLeast(int ofEachThread, int ofTheFirst) {
    std::array<int, threadCount> counts{};
    counts.fill(ofEachThread);
    counts[0] = ofTheFirst;
    return testing::MakeMatcher(new HoldsLinesOfThreads(counts, true));
}

/// A child that is a process of its own, and not a copy of this one with one of its threads.
class LoggingProcessDeathTest : public testing::Test {
protected:
    LoggingProcessDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LoggingProcessDeathTest, ThatExitsHasWrittenEveryLineOfEveryThread) {
    EXPECT_EXIT(
        {
            onThreads([](int thread) { logLines(thread, 1099); });
            std::exit(0);
        },
        testing::ExitedWithCode(0), holdsLines(1099));
}

TEST_F(LoggingProcessDeathTest, ThatReplacedItsSinksHasWrittenEveryLine) {
    EXPECT_EXIT(
        {
            onThreads([](int thread) {
                for (int number = 0; number < 300; ++number) {
                    // An error line has been written when it returns, so what follows cannot overtake it.
                    logLine(DDLogFlagError, thread, number);
                    if (number % 20 == thread) {
                        DDLog::setSink(thread == 0 ? nullptr : std::make_shared<ZAVStandardErrorSink>());
                    }
                }
            });
            std::exit(0);
        },
        testing::ExitedWithCode(0), holdsLines(300));
}

TEST_F(LoggingProcessDeathTest, ThatIsKilledHasWrittenAllUpToTheLastErrorLineOfEachThread) {
    EXPECT_EXIT(
        {
            std::barrier written(threadCount);
            onThreads([&](int thread) {
                logLines(thread, 700);
                written.arrive_and_wait();
                ::kill(::getpid(), SIGKILL);
            });
        },
        testing::KilledBySignal(SIGKILL), holdsLines(700));
}

TEST_F(LoggingProcessDeathTest, ThatIsKilledWhileOthersLogHasWrittenAllBeforeAnErrorLine) {
    EXPECT_EXIT(
        {
            std::barrier begun(threadCount);
            onThreads([&](int thread) {
                logLines(thread, 300);
                begun.arrive_and_wait();
                if (thread == 0) {
                    logLine(DDLogFlagVerbose, thread, 300);
                    logLine(DDLogFlagError, thread, 301);
                    ::kill(::getpid(), SIGKILL);
                }
                for (int number = 300; true; ++number) {
                    logLine(DDLogFlagVerbose, thread, number);
                }
            });
        },
        testing::KilledBySignal(SIGKILL), holdsAtLeast(300, 302));
}

TEST_F(LoggingProcessDeathTest, ThatExitsWhileOthersLogDoesSoInPeace) {
    EXPECT_EXIT(
        {
            auto* const begun = new std::barrier(threadCount + 1);
            for (int thread = 0; thread < threadCount; ++thread) {
                std::thread([begun, thread] {
                    logLines(thread, 100);
                    begun->arrive_and_wait();
                    for (int number = 100; true; ++number) {
                        logLine(number % 10 == 0 ? DDLogFlagError : DDLogFlagVerbose, thread, number);
                    }
                }).detach();
            }
            begun->arrive_and_wait();
            std::exit(0);
        },
        testing::ExitedWithCode(0), holdsAtLeast(100, 100));
}

/// Something that the application keeps to its very end, and that logs when it goes.
struct LastWord {
    ~LastWord() {
        for (int thread = 0; thread < threadCount; ++thread) {
            logLine(DDLogFlagVerbose, thread, 1);
            logLine(DDLogFlagError, thread, 2);
            for (int number = 3; number < 3000; ++number) {
                logLine(DDLogFlagVerbose, thread, number);
            }
        }
    }
};

TEST_F(LoggingProcessDeathTest, ThatLogsAtItsVeryEndHasWrittenThatToo) {
    EXPECT_EXIT(
        {
            static const LastWord lastWord;
            for (int thread = 0; thread < threadCount; ++thread) {
                logLine(DDLogFlagVerbose, thread, 0);
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), holdsLines(3000));
}

TEST(LoggingProcess, ThatReturnsFromMainHasWrittenItsVerboseLines) {
    const ToolStore store;
    store.importWell(lines({eventJSON(1)}));
    const ToolRun run = store.run("events", {"--log", "verbose"});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.err.find("fetching publishable events\n"), std::string::npos) << run.err;
}

/// A sink that only counts.
class CountingSink final : public DDLogSink {
public:
    void write(const DDLogMessage&) override { ++count_; }
    [[nodiscard]] int count() const { return count_; }

private:
    std::atomic<int> count_ = 0;
};

TEST(LogSettings, MayChangeWhileOperationsRun) {
    const LogCapture afterwards;
    const auto sink = std::make_shared<CountingSink>();
    DDLog::setSink(sink);
    std::atomic<int> running = threadCount - 1;
    onThreads([&](int thread) {
        if (thread == 0) {
            while (running > 0) {
                gZAVLogPreferences[ZAVLogComponentModel] = 1;
                ddLogLevel = 0;
                std::this_thread::yield();
                gZAVLogPreferences[ZAVLogComponentModel] = 5;
                ddLogLevel = ~std::uint32_t{0};
                std::this_thread::yield();
            }
            return;
        }
        const TestStore store;
        for (int number = 0; number < 200; ++number) {
            ZAVError error;
            EXPECT_EQ(store.repository().countOfEvents(&error), 0U);
            EXPECT_FALSE(store.repository().eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
                {{"it's"}}, 1, 1, &error));
            EXPECT_TRUE(error) << "whether a failure is logged does not matter to the caller";
        }
        --running;
    });
    const auto greatest = 3 * 200 * (threadCount - 1);
    EXPECT_LE(sink->count(), greatest) << "a line was written twice";
    const int before = sink->count();
    gZAVLogPreferences[ZAVLogComponentModel] = 5;
    ddLogLevel = ~std::uint32_t{0};
    static_cast<void>(TestStore().repository().countOfEvents());
    EXPECT_EQ(sink->count(), before + 1) << "the guard that was opened last counts";
}

}  // namespace
}  // namespace zav::test
