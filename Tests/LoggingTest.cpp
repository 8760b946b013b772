#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVStandardErrorSink.h>
#include <ZAVEventRepository/ZAVUTF8.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>
#include <regex>
#include <stdexcept>
#include <thread>

#include "Support/LogCapture.h"
#include "Support/StandardError.h"
#include "Support/TemporaryDirectory.h"

namespace zav::test {
namespace {

/// A sink that keeps the messages of the lines it takes.
class KeepingSink final : public DDLogSink {
public:
    void write(const DDLogMessage& line) override {
        const std::lock_guard lock(mutex_);
        messages_.emplace_back(line.message);
    }
    [[nodiscard]] std::vector<std::string> messages() const {
        const std::lock_guard lock(mutex_);
        return messages_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> messages_;
};

/// The default sink afterwards, whatever a test put in its place.
class DefaultSinkAfterwards {
public:
    DefaultSinkAfterwards() = default;
    ~DefaultSinkAfterwards() { DDLog::setSink(nullptr); }
    DefaultSinkAfterwards(const DefaultSinkAfterwards&) = delete;
    DefaultSinkAfterwards& operator=(const DefaultSinkAfterwards&) = delete;
};

DDLogMessage verbose(std::string_view message) {
    return {true, 31, DDLogFlagVerbose, 0, "file", "-[Subject act:]", 1, nullptr, message, message};
}

DDLogMessage error(std::string_view message) {
    return {false, 31, DDLogFlagError, 0, "file", "-[Subject act:]", 1, nullptr, message, message};
}

std::string numbered(int number) {
    return "line " + std::to_string(number);
}

/// Each line must end in the function and the message with the same place in `messages`.
void expectMessages(const std::vector<std::string>& lines, const std::vector<std::string>& messages) {
    ASSERT_EQ(lines.size(), messages.size());
    for (std::size_t index = 0; index < lines.size(); ++index) {
        EXPECT_TRUE(lines[index].ends_with(" -[Subject act:]: " + messages[index]))
            << "line " << index << " is \"" << lines[index] << "\", expected \"" << messages[index] << '"';
    }
}

std::vector<std::string> numberedUpTo(int count) {
    std::vector<std::string> messages;
    for (int number = 0; number < count; ++number) {
        messages.push_back(numbered(number));
    }
    return messages;
}

TEST(Logger, ALineReachesTheSinkWithEveryArgumentInItsPlace) {
    class Sink final : public DDLogSink {
    public:
        void write(const DDLogMessage& line) override {
            EXPECT_TRUE(line.asynchronous);
            EXPECT_EQ(line.level, 23U);
            EXPECT_EQ(line.flag, 16U);
            EXPECT_EQ(line.context, 5);
            EXPECT_EQ(line.file, "Code/File");
            EXPECT_EQ(line.function, "-[Subject act:]");
            EXPECT_EQ(line.line, 42U);
            EXPECT_EQ(line.tag, this);
            EXPECT_EQ(line.format, "%d of %@");
            EXPECT_EQ(line.message, "3 of all");
            ++lines;
        }
        int lines = 0;
    };
    const DefaultSinkAfterwards afterwards;
    const auto sink = std::make_shared<Sink>();
    DDLog::setSink(sink);
    DDLog::log(true, 23, 16, 5, "Code/File", "-[Subject act:]", 42, sink.get(), "%d of %@", 3, "all");
    EXPECT_EQ(sink->lines, 1);
}

TEST(Logger, TheLoggerItselfTestsNoGuard) {
    const LogCapture log;
    gZAVLogPreferences[ZAVLogComponentModel] = 0;
    ddLogLevel = 0;
    DDLog::log(false, 0, DDLogFlagError, 0, "file", "function", 1, nullptr, "text");
    EXPECT_EQ(
        log.records(),
        (std::vector<LogRecord>{{false, 0, DDLogFlagError, 0, "file", "function", nullptr, "text", "text"}}));
}

template <class... Arguments>
void log(ZAVFormatString<std::type_identity_t<Arguments>...> format, const Arguments&... arguments) {
    DDLog::log(true, 31, 16, 0, "file", "function", 1, nullptr, format, arguments...);
}

TEST(Logger, ArgumentsArePrintedAsTheirDirectivesSay) {
    const auto sink = std::make_shared<KeepingSink>();
    const DefaultSinkAfterwards afterwards;
    DDLog::setSink(sink);
    log("%d %d", -1, std::int32_t{2147483647});
    log("%lld %ld", std::int64_t{-9223372036854775807}, -1L);
    log("%llu %lu", std::uint64_t{18446744073709551615U}, std::size_t{7});
    log("%u", std::uint32_t{4294967295U});
    log("%@ %@", std::string("text"), ZAVUUID());
    log("%@", ZAVError("SQLite", 1, "no such table: events"));
    log("%@", std::optional<std::string>());
    log("100%% %d", 1);
    EXPECT_EQ(sink->messages(),
              (std::vector<std::string>{"-1 2147483647", "-9223372036854775807 -1", "18446744073709551615 7",
                                        "4294967295", "text 00000000-0000-0000-0000-000000000000",
                                        "Error Domain=SQLite Code=1 \"no such table: events\"", "(null)",
                                        "100% 1"}));
}

TEST(Logger, EveryComponentHasAPreferenceThatLetsErrorLinesPassAtFirst) {
    EXPECT_EQ(gZAVLogPreferences.size(), 15U);
    for (unsigned component = 0; component < 15; ++component) {
        EXPECT_EQ(gZAVLogPreferences[component], 1) << "component " << component;
    }
    EXPECT_EQ(ddLogLevel, 0xFFFFFFFFU);
}

TEST(Logger, TheComponentsAreNumbered) {
    EXPECT_EQ(ZAVLogComponentUndefined, 0U);
    EXPECT_EQ(ZAVLogComponentInitialization, 1U);
    EXPECT_EQ(ZAVLogComponentCertification, 2U);
    EXPECT_EQ(ZAVLogComponentAuthentication, 3U);
    EXPECT_EQ(ZAVLogComponentTransport, 4U);
    EXPECT_EQ(ZAVLogComponentTransportPush, 5U);
    EXPECT_EQ(ZAVLogComponentPlatformPush, 6U);
    EXPECT_EQ(ZAVLogComponentModel, 7U);
    EXPECT_EQ(ZAVLogComponentSQLite, 8U);
    EXPECT_EQ(ZAVLogComponentSynchronization, 9U);
    EXPECT_EQ(ZAVLogComponentInboundReconciliation, 10U);
    EXPECT_EQ(ZAVLogComponentOutboundReconciliation, 11U);
    EXPECT_EQ(ZAVLogComponentMessagingPublicAPI, 12U);
    EXPECT_EQ(ZAVLogComponentRichContent, 13U);
    EXPECT_EQ(ZAVLogComponentApplicationState, 14U);
    EXPECT_EQ(ZAVLogComponentCount, 15U);
    EXPECT_EQ(DDLogFlagError, 1U);
    EXPECT_EQ(DDLogFlagVerbose, 16U);
}

TEST(Logger, AGuardIsOpenWhenTheComponentsPreferenceAndTheLevelsBitAllowIt) {
    const LogCapture restoresTheSettings;
    for (const std::int32_t preference : {-1, 0, 1, 4, 5, 6}) {
        for (const std::uint32_t level : {0U, 1U, 16U, 17U, ~1U, ~16U}) {
            gZAVLogPreferences[ZAVLogComponentModel] = preference;
            ddLogLevel = level;
            EXPECT_EQ(DDLog::verboseIsOpen(ZAVLogComponentModel), preference >= 5 && (level & 16) != 0)
                << "preference " << preference << ", level " << level;
            EXPECT_EQ(DDLog::errorIsOpen(ZAVLogComponentModel), preference >= 1 && (level & 1) != 0)
                << "preference " << preference << ", level " << level;
            EXPECT_FALSE(DDLog::verboseIsOpen(ZAVLogComponentSQLite)) << "that component stands at 1";
        }
    }
}

TEST(Logger, TheGuardOfANumberThatIsNoComponentIsClosed) {
    const LogCapture restoresTheSettings;
    for (const unsigned number : {15U, 16U, 1000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        EXPECT_FALSE(DDLog::verboseIsOpen(static_cast<ZAVLogComponent>(number))) << number;
        EXPECT_FALSE(DDLog::errorIsOpen(static_cast<ZAVLogComponent>(number))) << number;
    }
}

/// A sink that fails.
class FailingSink final : public DDLogSink {
public:
    void write(const DDLogMessage&) override { throw std::runtime_error("the disk is full"); }
    void flush() override { throw 7; }
};

TEST(Logger, NothingThatASinkThrowsComesOutOfALine) {
    const DefaultSinkAfterwards afterwards;
    DDLog::setSink(std::make_shared<FailingSink>());
    EXPECT_NO_THROW(DDLog::log(true, 31, 16, 0, "file", "function", 1, nullptr, "verbose"));
    EXPECT_NO_THROW(DDLog::log(false, 31, 1, 0, "file", "function", 1, nullptr, "error"));
    EXPECT_THROW(DDLog::flush(), int) << "who asks for a flush is told";
}

TEST(Logger, ALineWhoseArgumentCannotBePrintedHasItsFormatForItsMessage) {
    /// A record of the application.
    class Unprintable final : public ZAVObject {
    public:
        [[nodiscard]] std::string_view className() const noexcept override { return "Unprintable"; }

    protected:
        void describeFields(std::string&) const override { throw std::runtime_error("no description"); }
    };
    const DefaultSinkAfterwards afterwards;
    const auto sink = std::make_shared<KeepingSink>();
    DDLog::setSink(sink);
    EXPECT_NO_THROW(DDLog::log(false, 31, 1, 0, "file", "function", 1, nullptr, "failed with %@ and %d",
                               Unprintable(), 7));
    EXPECT_EQ(sink->messages(), std::vector<std::string>{"failed with %@ and %d"});
}

TEST(Logger, ASinkReceivesTextsAndURLsAndErrorsAsTheyAre) {
    const DefaultSinkAfterwards afterwards;
    const auto sink = std::make_shared<KeepingSink>();
    DDLog::setSink(sink);
    const std::string text = "two\nlines \x1b[2J" + std::string(100'000, 'x');
    const auto url = ZAVURL::URLWithString("https://example.org/" + std::string(100'000, 'y'));
    DDLog::log(false, 31, 1, 0, "file", "function", 1, nullptr, "%@ %@ %@", text, url,
               ZAVError("SQLite", 1, "near \"\n\": syntax error"));
    EXPECT_EQ(sink->messages(),
              std::vector<std::string>{text + " https://example.org/" + std::string(100'000, 'y') +
                                       " Error Domain=SQLite Code=1 \"near \"\n\": syntax error\""});
}

TEST(Logger, ANewSinkTakesTheLinesFromThenOn) {
    const DefaultSinkAfterwards afterwards;
    const auto first = std::make_shared<KeepingSink>();
    const auto second = std::make_shared<KeepingSink>();
    const auto log = [](std::string_view text) {
        DDLog::log(false, 31, 1, 0, "file", "function", 1, nullptr, ZAVRuntimeFormat(text));
    };
    DDLog::setSink(first);
    log("to the first");
    DDLog::setSink(second);
    log("to the second");
    EXPECT_EQ(first->messages(), std::vector<std::string>{"to the first"});
    EXPECT_EQ(second->messages(), std::vector<std::string>{"to the second"});
}

TEST(Logger, AReplacedSinkIsLetGo) {
    const DefaultSinkAfterwards afterwards;
    std::weak_ptr<DDLogSink> watched;
    {
        const auto sink = std::make_shared<KeepingSink>();
        watched = sink;
        DDLog::setSink(sink);
    }
    EXPECT_FALSE(watched.expired()) << "the logger shares the sink in use";
    DDLog::setSink(std::make_shared<KeepingSink>());
    EXPECT_TRUE(watched.expired());
}

TEST(Logger, NoSinkPutsTheDefaultSinkBack) {
    DDLog::setSink(nullptr);
    const StandardErrorFile standardError;
    const auto sink = std::make_shared<KeepingSink>();
    DDLog::setSink(sink);
    DDLog::setSink(nullptr);
    DDLog::log(false, 31, DDLogFlagError, 0, "file", "-[Subject act:]", 1, nullptr, "failed with %d", 7);
    expectMessages(standardError.lines(), {"failed with 7"});
    EXPECT_EQ(sink->messages(), std::vector<std::string>{});
    DDLog::setSink(nullptr);
}

TEST(Logger, FlushingHandsOnToTheSink) {
    class Sink final : public DDLogSink {
    public:
        void write(const DDLogMessage&) override {}
        void flush() override { ++flushes; }
        int flushes = 0;
    };
    const DefaultSinkAfterwards afterwards;
    const auto sink = std::make_shared<Sink>();
    DDLog::setSink(sink);
    DDLog::flush();
    EXPECT_EQ(sink->flushes, 1);
}

TEST(Logger, FlushingASinkThatHasNothingToFlushDoesNothing) {
    const DefaultSinkAfterwards afterwards;
    const auto sink = std::make_shared<KeepingSink>();
    DDLog::setSink(sink);
    DDLog::log(true, 31, 16, 0, "file", "-[Subject act:]", 1, nullptr, "before");
    DDLog::flush();
    DDLog::log(true, 31, 16, 0, "file", "-[Subject act:]", 1, nullptr, "after");
    EXPECT_EQ(sink->messages(), (std::vector<std::string>{"before", "after"}));
}

TEST(Logger, FlushingTheDefaultSinkWritesTheVerboseLines) {
    DDLog::setSink(nullptr);
    const StandardErrorFile standardError;
    for (int number = 0; number < 100; ++number) {
        DDLog::log(true, 31, 16, 0, "file", "-[Subject act:]", 1, nullptr, "line %d", number);
    }
    DDLog::flush();
    expectMessages(standardError.lines(), numberedUpTo(100));
    DDLog::setSink(nullptr);
}

TEST(Logger, NoLineIsLostWhileTheSinkIsReplaced) {
    constexpr int threadCount = 2;
    constexpr int lineCount = 2000;
    const DefaultSinkAfterwards afterwards;
    std::vector<std::shared_ptr<KeepingSink>> sinks = {std::make_shared<KeepingSink>()};
    DDLog::setSink(sinks.back());
    std::atomic<int> running = threadCount;
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back([&running] {
            for (int line = 0; line < lineCount; ++line) {
                DDLog::log(true, 31, 16, 0, "file", "function", 1, nullptr, "text");
            }
            --running;
        });
    }
    while (running > 0) {
        sinks.push_back(std::make_shared<KeepingSink>());
        DDLog::setSink(sinks.back());
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::size_t taken = 0;
    for (const auto& sink : sinks) {
        taken += sink->messages().size();
    }
    EXPECT_EQ(taken, std::size_t{threadCount * lineCount});
}

TEST(StandardErrorSink, ALineTellsWhenWhichThreadHowSevereWhoAndWhat) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    sink.write(verbose("fetching"));
    sink.write(error("failed"));
    const auto lines = standardError.lines();
    ASSERT_EQ(lines.size(), 2U);
    const std::string start = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} \[\d+\] )";
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(start + R"(trace -\[Subject act:\]: fetching)")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(start + R"(error -\[Subject act:\]: failed)")))
        << lines[1];
}

TEST(StandardErrorSink, AnErrorLineAndAllBeforeItAreWrittenWhenWriteReturns) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    for (int number = 0; number < 200; ++number) {
        if (number % 10 == 9) {
            sink.write(error(numbered(number)));
            EXPECT_EQ(standardError.lines().size(), static_cast<std::size_t>(number) + 1);
        } else {
            sink.write(verbose(numbered(number)));
        }
    }
    expectMessages(standardError.lines(), numberedUpTo(200));
}

TEST(StandardErrorSink, AVerboseLineDoesNotWaitForSlowStandardError) {
    const FullPipe pipe;
    pipe.makeWritersWait();
    std::string text;
    {
        const StandardErrorInto full(pipe.writingEnd());
        ZAVStandardErrorSink sink;
        auto written = std::async(std::launch::async, [&] { sink.write(verbose("patient")); });
        EXPECT_EQ(written.wait_for(std::chrono::seconds(10)), std::future_status::ready)
            << "the caller waits although nothing asks it to";
        text = pipe.readAll();
        sink.flush();
    }
    text += pipe.readAll();
    EXPECT_TRUE(text.ends_with(" -[Subject act:]: patient\n")) << "the line comes when there is room";
}

TEST(StandardErrorSink, AnErrorLineWaitsForStandardErrorAlsoWhereThatRefusesToWait) {
    const FullPipe pipe;
    std::string text;
    {
        const StandardErrorInto full(pipe.writingEnd());
        ZAVStandardErrorSink sink;
        auto written = std::async(std::launch::async, [&] { sink.write(error("patient")); });
        while (written.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
            text += pipe.readAll();
        }
    }
    text += pipe.readAll();
    EXPECT_TRUE(text.ends_with(" -[Subject act:]: patient\n"))
        << "standard error that is full for a moment costs no line";
}

TEST(StandardErrorSink, FlushingWritesEveryLineTakenSoFar) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    sink.flush();
    EXPECT_EQ(standardError.lines(), std::vector<std::string>{});
    for (int number = 0; number < 100; ++number) {
        sink.write(verbose(numbered(number)));
    }
    sink.flush();
    expectMessages(standardError.lines(), numberedUpTo(100));
}

TEST(StandardErrorSink, NoLineIsLostWhenTheSinkIsDestroyed) {
    const StandardErrorFile standardError;
    {
        ZAVStandardErrorSink sink;
        for (int number = 0; number < 1000; ++number) {
            sink.write(verbose(numbered(number)));
        }
    }
    expectMessages(standardError.lines(), numberedUpTo(1000));
}

TEST(StandardErrorSink, NoLineIsDroppedWhenMoreComeThanTheQueueHolds) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    for (int number = 0; number < 20000; ++number) {
        sink.write(verbose(numbered(number)));
    }
    sink.write(error("the last"));
    auto expected = numberedUpTo(20000);
    expected.emplace_back("the last");
    expectMessages(standardError.lines(), expected);
}

TEST(StandardErrorSink, PrintableTextIsWrittenAsItIs) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    const std::vector<std::string> texts = {
        "{} {0} {:d} }{", "%s %d %@ %%",          "\u00FCber \u20AC \U0001F600", "",
        "C:\\path \\n",   std::string(16384, 'x')};
    for (const std::string& text : texts) {
        sink.write(error(text));
    }
    expectMessages(standardError.lines(), texts);
}

TEST(StandardErrorSink, NoTextForgesALineOrCommandsATerminal) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    sink.write(error("one\n2026-01-01 00:00:00.000000 [1] error -[Subject act:]: two"));
    sink.write(error(std::string("\r\t\0\a\x1b[2J\x7f", 9)));
    sink.write(error("\u0085\u009B31m\u2028\u2029"));
    sink.write(error("\u202Egnp.exe \u2066\u2069\u200F\u061C"));
    sink.write(error("\xFF \xC3( \xED\xA0\x80"));
    DDLogMessage byFunction = error("text");
    byFunction.function = "-[Subject\nact:]";
    sink.write(byFunction);
    auto lines = standardError.lines();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_TRUE(lines[5].ends_with(" -[Subject\\nact:]: text")) << lines[5];
    lines.pop_back();
    expectMessages(lines, {"one\\n2026-01-01 00:00:00.000000 [1] error -[Subject act:]: two",
                           "\\r\\t\\x00\\x07\\x1b[2J\\x7f", "\\u0085\\u009b31m\\u2028\\u2029",
                           "\\u202egnp.exe \\u2066\\u2069\\u200f\\u061c", "\\xff \\xc3( \\xed\\xa0\\x80"});
}

TEST(StandardErrorSink, OfAVeryLongMessageTheBeginningIsWrittenAndItsSizeTold) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    const std::string letters(1'000'000, 'x');
    const std::string breaks(1'000'000, '\n');
    std::string wide;
    for (int count = 0; count < 100'000; ++count) {
        wide += "\u20AC";
    }
    for (const std::string& text : {letters, breaks, wide}) {
        sink.write(error(text));
    }
    const auto lines = standardError.lines();
    ASSERT_EQ(lines.size(), 3U);
    for (const std::string& line : lines) {
        EXPECT_GT(line.size(), 16'000U) << "as much is written as a line may hold";
        EXPECT_LT(line.size(), 17'000U) << "a line is bounded";
        EXPECT_TRUE(ZAVIsUTF8(line)) << "a character was cut in two";
    }
    EXPECT_TRUE(lines[0].ends_with("xx\u2026(1000000 bytes in all)")) << lines[0].substr(16'000);
    EXPECT_TRUE(lines[1].ends_with("\\n\\n\u2026(1000000 bytes in all)")) << lines[1].substr(16'000);
    EXPECT_TRUE(lines[2].ends_with("\u20AC\u20AC\u2026(300000 bytes in all)")) << lines[2].substr(16'000);
}

TEST(StandardErrorSink, ALineMayGoAsSoonAsWriteReturns) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink sink;
    for (int number = 0; number < 50; ++number) {
        std::string text = numbered(number);
        sink.write(verbose(text));
        std::fill(text.begin(), text.end(), '#');
    }
    sink.flush();
    expectMessages(standardError.lines(), numberedUpTo(50));
}

TEST(StandardErrorSink, LinesOfSeveralThreadsAreWholeAndInTheOrderOfEachThread) {
    constexpr int threadCount = 4;
    constexpr int lineCount = 500;
    const StandardErrorFile standardError;
    {
        ZAVStandardErrorSink sink;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&sink, thread] {
                for (int number = 0; number < lineCount; ++number) {
                    const std::string text = std::to_string(thread) + " " + std::to_string(number);
                    sink.write(number % 50 == 0 ? error(text) : verbose(text));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    const auto lines = standardError.lines();
    ASSERT_EQ(lines.size(), std::size_t{threadCount * lineCount});
    int next[threadCount] = {};
    const std::regex form(R"(.* -\[Subject act:\]: (\d) (\d+))");
    for (const std::string& line : lines) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, form)) << line;
        const auto thread = static_cast<std::size_t>(std::stoi(match[1]));
        ASSERT_LT(thread, std::size_t{threadCount}) << line;
        EXPECT_EQ(std::stoi(match[2]), next[thread]++) << line;
    }
}

TEST(StandardErrorSink, TwoSinksDoNotWaitForEachOther) {
    const StandardErrorFile standardError;
    ZAVStandardErrorSink first;
    ZAVStandardErrorSink second;
    first.write(error("of the first"));
    second.write(error("of the second"));
    expectMessages(standardError.lines(), {"of the first", "of the second"});
}

/// Matches when standard error holds exactly the numbered lines and then a last one.
class HoldsNumberedLines : public testing::MatcherInterface<const std::string&> {
public:
    explicit HoldsNumberedLines(int count) : count_(count) {}
    bool MatchAndExplain(const std::string& text, testing::MatchResultListener*) const override {
        std::size_t position = 0;
        for (int number = 0; number < count_; ++number) {
            position = text.find(": " + numbered(number) + "\n", position);
            if (position == std::string::npos) {
                return false;
            }
        }
        return std::count(text.begin(), text.end(), '\n') == count_;
    }
    void DescribeTo(std::ostream* stream) const override { *stream << count_ << " numbered lines"; }

private:
    int count_;
};

testing::Matcher<const std::string&> holdsNumberedLines(int count) {
    return testing::MakeMatcher(new HoldsNumberedLines(count));
}

TEST(StandardErrorSinkDeathTest, NoLineIsLostWhenTheProcessExits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            for (int number = 0; number < 3000; ++number) {
                DDLog::log(true, 31, 16, 0, "file", "-[Subject act:]", 1, nullptr, "line %d", number);
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), holdsNumberedLines(3000));
}

TEST(StandardErrorSinkDeathTest, AnErrorLineSurvivesAnAbortRightAfterIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            DDLog::log(true, 31, 16, 0, "file", "-[Subject act:]", 1, nullptr, "line 0");
            DDLog::log(false, 31, 1, 0, "file", "-[Subject act:]", 1, nullptr, "line 1");
            std::abort();
        },
        testing::KilledBySignal(SIGABRT), holdsNumberedLines(2));
}

TEST(StandardErrorSinkDeathTest, AClosedStandardErrorStopsNobody) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::close(STDERR_FILENO);
            DDLog::log(true, 31, 16, 0, "file", "-[Subject act:]", 1, nullptr, "lost");
            DDLog::log(false, 31, 1, 0, "file", "-[Subject act:]", 1, nullptr, "lost");
            std::exit(0);
        },
        testing::ExitedWithCode(0), holdsNumberedLines(0));
}

}  // namespace
}  // namespace zav::test
