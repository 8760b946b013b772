#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVConversationRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVMessageRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "Support/LogCapture.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

bool succeed() {
    return true;
}

TEST(RepositoryFrame, AttemptingNoUnitOfWorkReturnsFalse) {
    const TestStore store;
    EXPECT_FALSE(store.repository().attemptBlock(nullptr));
}

TEST(RepositoryFrame, AnEmptyFunctionIsNoUnitOfWork) {
    const TestStore store;
    EXPECT_FALSE(store.repository().attemptBlock(std::function<bool()>()));
    const std::function<bool()> empty;
    EXPECT_FALSE(store.repository().attemptBlock(empty));
}

TEST(RepositoryFrame, ANullFunctionPointerIsNoUnitOfWork) {
    const TestStore store;
    bool (*none)() = nullptr;
    const ZAVUnitOfWork unitOfWork(none);
    ASSERT_FALSE(unitOfWork) << "there is nothing to call";
    EXPECT_FALSE(store.repository().attemptBlock(unitOfWork));
}

TEST(RepositoryFrame, AUnitOfWorkMayBeAnythingThatCanBeCalled) {
    const TestStore store;
    bool (*pointer)() = succeed;
    EXPECT_TRUE(store.repository().attemptBlock(pointer));
    EXPECT_TRUE(store.repository().attemptBlock(succeed));
    EXPECT_TRUE(store.repository().attemptBlock([] { return true; }));
    EXPECT_TRUE(store.repository().attemptBlock([calls = 0]() mutable { return ++calls == 1; }));
    EXPECT_TRUE(store.repository().attemptBlock(std::function<bool()>(succeed)));
    const std::function<bool()> kept(succeed);
    EXPECT_TRUE(store.repository().attemptBlock(kept));
    struct Work {
        bool operator()() const { return true; }
        explicit operator bool() const { return true; }
    };
    EXPECT_TRUE(store.repository().attemptBlock(Work()));
}

TEST(RepositoryFrame, AUnitOfWorkIsCalledOnceAndItsAnswerReturned) {
    const TestStore store;
    for (const bool answer : {true, false}) {
        int calls = 0;
        EXPECT_EQ(store.repository().attemptBlock([&] {
            ++calls;
            return answer;
        }),
                  answer);
        EXPECT_EQ(calls, 1) << "a unit of work that answers " << answer << " is not tried again";
    }
}

TEST(RepositoryFrame, TheAnswerIsReturnedAlsoWhenSomethingFailedInside) {
    const TestStore store;
    ZAVError outError;
    EXPECT_TRUE(store.repository().attemptBlock([&] {
        EXPECT_FALSE(store.database().executeUpdate("INSERT INTO nowhere VALUES (1)"));
        outError = store.database().lastError();
        return true;
    }));
    EXPECT_TRUE(outError);
    EXPECT_FALSE(store.repository().attemptBlock([] { return false; })) << "although nothing failed";
}

TEST(RepositoryFrame, AnExceptionPassesThroughAndNothingIsRolledBack) {
    const TestStore store;
    const LogCapture log;
    int calls = 0;
    EXPECT_THROW(store.repository().attemptBlock([&]() -> bool {
        ++calls;
        store.execute("INSERT INTO events (type, client_id) VALUES (2, x'01')");
        throw std::runtime_error("work");
    }),
                 std::runtime_error);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM events"), std::vector<std::string>{"1"});
    EXPECT_EQ(log.records(), std::vector<LogRecord>{});
}

TEST(RepositoryFrame, AttemptingOpensNoTransactionRunsNoStatementAndLogsNothing) {
    const TestStore store;
    const LogCapture log;
    const StatementTrace trace(store.database());
    bool inTransaction = true;
    EXPECT_FALSE(store.repository().attemptBlock([&] {
        inTransaction = store.database().inTransaction();
        return false;
    }));
    EXPECT_FALSE(inTransaction);
    EXPECT_EQ(trace.statements(), std::vector<std::string>{});
    EXPECT_EQ(log.records(), std::vector<LogRecord>{});
}

TEST(RepositoryFrame, ATransactionOfTheCallersIsLeftOpen) {
    const TestStore store;
    store.execute("BEGIN");
    EXPECT_FALSE(store.repository().attemptBlock([&] {
        store.execute("INSERT INTO events (type, client_id) VALUES (2, x'01')");
        return false;
    }));
    ASSERT_TRUE(store.database().inTransaction());
    store.execute("COMMIT");
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM events"), std::vector<std::string>{"1"});
}

TEST(RepositoryFrame, TheVerboseLineIsWrittenBeforeTheWork) {
    /// A sink that notes how many statements had been started when a line came.
    class Sink final : public DDLogSink {
    public:
        explicit Sink(const StatementTrace& trace) : trace_(trace) {}
        void write(const DDLogMessage&) override { startedBefore.push_back(trace_.statements().size()); }
        std::vector<std::size_t> startedBefore;

    private:
        const StatementTrace& trace_;
    };
    const TestStore store;
    const StatementTrace trace(store.database());
    const auto sink = std::make_shared<Sink>(trace);
    const LogCapture guards;
    DDLog::setSink(sink);
    EXPECT_EQ(store.repository().countOfEvents(), 0U);
    EXPECT_EQ(sink->startedBefore, std::vector<std::size_t>{0});
    EXPECT_EQ(trace.statements(), std::vector<std::string>{"SELECT COUNT(*) FROM events"});
}

TEST(RepositoryFrame, ALogThatFailsChangesNothingAboutAnOperation) {
    /// A sink that fails.
    class Sink final : public DDLogSink {
    public:
        void write(const DDLogMessage&) override { throw std::runtime_error("the disk is full"); }
    };
    const TestStore store;
    store.execute("INSERT INTO events (type, client_id) VALUES (2, x'01'), (2, x'01')");
    const LogCapture guards;
    DDLog::setSink(std::make_shared<Sink>());
    EXPECT_EQ(store.repository().countOfEvents(), 2U);
    store.execute("DROP TABLE events");
    ZAVError error;
    EXPECT_EQ(store.repository().allEvents(&error), std::nullopt);
    EXPECT_EQ(error, ZAVError("SQLite", 1, "no such table: events"));
}

TEST(RepositoryFrame, TheLineOfAFailedWriteIsBoundedWhateverTheEventsHold) {
    const TestStore store;
    const ZAVDatabaseIdentifier stream = store.addStream(uuidNumber(0x21));
    store.execute("DROP TABLE events");
    ZAVSet<ZAVTEvent> events;
    for (int number = 0; number < 1000; ++number) {
        const auto event = makeEvent(EventType_MESSAGE, uuidNumber(0x21), number);
        event->setStreamDatabaseIdentifier(stream);
        event->set_creator_name(std::string(number == 0 ? 1'000'000 : 10'000, '\n'));
        events.insert(event);
    }
    const LogCapture log;
    ZAVError error;
    EXPECT_FALSE(store.repository().persistEvents(events, &error));
    ASSERT_EQ(log.records().size(), 2U);
    const std::string message = log.records()[1].message;
    EXPECT_TRUE(message.starts_with("failed to persist events:{(<ZAVEvent ")) << message.substr(0, 100);
    EXPECT_TRUE(message.ends_with(" more)} with " + error.description()))
        << message.substr(message.size() - 100);
    EXPECT_LT(message.size(), 32'768U);
    EXPECT_EQ(message.find('\n'), std::string::npos) << "a name broke the line";
}

/// The lines, by flag, that a failing operation writes under the given guards.
std::vector<std::uint32_t> flagsUnder(std::int32_t preference, std::uint32_t level) {
    const TestStore store;
    store.execute("DROP TABLE events");
    const LogCapture log;
    gZAVLogPreferences[7] = preference;
    ddLogLevel = level;
    ZAVError error;
    EXPECT_EQ(store.repository().allEvents(&error), std::nullopt);
    EXPECT_TRUE(error) << "the error reaches the caller whatever is logged";
    std::vector<std::uint32_t> flags;
    for (const LogRecord& record : log.records()) {
        EXPECT_EQ(record.level, level);
        flags.push_back(record.flag);
    }
    return flags;
}

TEST(RepositoryFrame, AVerboseLineNeedsPreferenceFiveAndItsBitInTheLevel) {
    using Flags = std::vector<std::uint32_t>;
    EXPECT_EQ(flagsUnder(5, 17), (Flags{16, 1}));
    EXPECT_EQ(flagsUnder(6, 17), (Flags{16, 1}));
    EXPECT_EQ(flagsUnder(4, 17), Flags{1}) << "preference too low";
    EXPECT_EQ(flagsUnder(5, 15), Flags{1}) << "bit 16 clear";
    EXPECT_EQ(flagsUnder(5, ~16U), Flags{1}) << "bit 16 clear, every other set";
}

TEST(RepositoryFrame, AnErrorLineNeedsPreferenceOneAndItsBitInTheLevel) {
    using Flags = std::vector<std::uint32_t>;
    EXPECT_EQ(flagsUnder(1, 1), Flags{1});
    EXPECT_EQ(flagsUnder(0, 17), Flags{}) << "preference too low";
    EXPECT_EQ(flagsUnder(-1, 17), Flags{}) << "preference negative";
    EXPECT_EQ(flagsUnder(5, 16), Flags{16}) << "bit 1 clear";
    EXPECT_EQ(flagsUnder(5, ~1U), Flags{16}) << "bit 1 clear, every other set";
    EXPECT_EQ(flagsUnder(5, 0), Flags{});
}

TEST(RepositoryFrame, ThePreferencesOfOtherComponentsDoNotMatter) {
    gZAVLogPreferences[ZAVLogComponentSQLite] = 5;
    EXPECT_EQ(flagsUnder(0, 17), std::vector<std::uint32_t>{});
    gZAVLogPreferences[ZAVLogComponentSQLite] = 0;
    EXPECT_EQ(flagsUnder(5, 17), (std::vector<std::uint32_t>{16, 1}));
    gZAVLogPreferences[ZAVLogComponentSQLite] = 1;
}

TEST(RepositoryFrame, ARecordIsDescribedOnlyForALineThatIsWanted) {
    /// An event that counts how often it is described.
    class CountingEvent final : public ZAVEvent {
    public:
        mutable int descriptions = 0;

    private:
        void describeFields(std::string& text) const override {
            ++descriptions;
            ZAVEvent::describeFields(text);
        }
    };
    const TestStore store;
    store.execute("DROP TABLE streams");
    const auto event = std::make_shared<CountingEvent>();
    event->set_type(EventType_MESSAGE);
    event->set_client_id(ZAVDataFromUUID(uuidNumber(7)));
    event->set_stream_id(ZAVDataFromUUID(uuidNumber(1)));
    const LogCapture log;
    for (const auto& [preference, level] : {std::pair{0, 17U}, std::pair{5, 16U}}) {
        gZAVLogPreferences[7] = preference;
        ddLogLevel = level;
        EXPECT_FALSE(store.repository().persistEvents({event}));
        EXPECT_EQ(event->descriptions, 0) << "preference " << preference << ", level " << level;
    }
    ddLogLevel = 1U;
    EXPECT_FALSE(store.repository().persistEvents({event}));
    EXPECT_EQ(event->descriptions, 1) << "the error line prints the event";
}

TEST(RepositoryFrame, TheRepositoryWorksOnTheHandleItWasGiven) {
    const TestStore store;
    EXPECT_EQ(&store.repository().database(), store.sharedDatabase().get());
}

template <class Repository>
void expectToNeedAHandle() {
    try {
        const Repository repository{std::shared_ptr<FMDatabase>()};
        ADD_FAILURE() << "a repository was made on nothing";
    } catch (const NSInternalInconsistencyException& exception) {
        EXPECT_EQ(exception.reason(), "A repository needs an open database handle.");
    }
}

TEST(RepositoryFrame, NoRepositoryIsMadeOnAHandleThatCouldNotBeOpened) {
    expectToNeedAHandle<ZAVEventRepository>();
    expectToNeedAHandle<ZAVStreamRepository>();
    expectToNeedAHandle<ZAVConversationRepository>();
    expectToNeedAHandle<ZAVMessageRepository>();
    expectToNeedAHandle<ZAVSyncedChangeRepository>();
    expectToNeedAHandle<ZAVKeyedValueRepository>();
    EXPECT_THROW(static_cast<void>(ZAVKeyedValueRepository::repositoryWithDatabase(nullptr)),
                 NSInternalInconsistencyException);
}

TEST(RepositoryFrame, TheFailureLineNamesTheMemberOfTheCallWhateverAnObserverDoesToItsText) {
    const TestStore store;
    const ZAVConversationRepository conversations(store.sharedDatabase());
    conversations.findOrCreateConversationWithStreamUUID(uuidNumber(1));
    store.execute("DROP TABLE conversation_participants");
    std::string name = "ada";
    ZAVUUID stream = uuidNumber(1);
    store.database().setStatementObserver([&](const FMStatementRun&) {
        name = "bob";
        stream = uuidNumber(2);
    });
    const LogCapture log;
    EXPECT_FALSE(store.repository().persistConversationsParticipantsSeq(7, name, stream));
    store.database().setStatementObserver({});
    ASSERT_EQ(log.records().size(), 2U);
    EXPECT_EQ(name, "bob") << "the observer was not called";
    EXPECT_EQ(log.records()[1].message,
              "failed persisting conversations participant's seq:7 for member:ada with stream "
              "identifier:11111111-1111-1111-1111-111111111101 with " +
                  store.database().lastError().description());
}

}  // namespace
}  // namespace zav::test
