#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVConversationRepository.h>
#include <ZAVEventRepository/ZAVEventRowRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVMessageRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Rows = std::vector<std::string>;

ZAVKeyedValuesContext metadataOfEvent(ZAVDatabaseIdentifier row) {
    return ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableRemote, "event", row,
                                                   ZAVKeyedValuesKeyTypeTransient);
}

ZAVDictionaryValue text(std::string_view value) {
    return std::string(value);
}

class KeyedValues : public testing::Test {
protected:
    void store(const ZAVKeyedValuesContext& context, const ZAVDictionary& dictionary,
               std::optional<ZAVDate> timestamp = std::nullopt) {
        ZAVError error;
        EXPECT_TRUE(values_.setKeyedValuesWithDictionary(dictionary, timestamp, context, &error))
            << error.description();
    }

    ZAVDictionary stored(const ZAVKeyedValuesContext& context) {
        ZAVError error;
        const auto values = values_.keyedValuesInContext(context, &error);
        EXPECT_TRUE(values) << error.description();
        return values ? values->keyedValues() : ZAVDictionary();
    }

    TestStore store_;
    ZAVKeyedValueRepository values_ =
        ZAVKeyedValueRepository::repositoryWithDatabase(store_.sharedDatabase());
};

TEST_F(KeyedValues, KeepTextAsTextAndBytesAsBytes) {
    const ZAVDictionary dictionary{
        {"text", text("value")},
        {"digits", text("0012")},
        {"empty text", text("")},
        {"zero byte", text(std::string_view("a\0b", 3))},
        {"bytes", ZAVData::fromText("value")},
        {"no bytes", ZAVData()},
        {"high bytes", ZAVData::fromText("\xFF\xFE")},
        {"", text("the key is empty")},
        {"\xC3\xA9", text("\xF0\x9F\x98\x80")},
    };
    store(metadataOfEvent(1), dictionary);
    EXPECT_EQ(stored(metadataOfEvent(1)), dictionary);
}

TEST_F(KeyedValues, AreExactlyThoseThatWereSetLast) {
    store(metadataOfEvent(1), {{"kept", text("1")}, {"changed", text("2")}, {"dropped", text("3")}});
    const ZAVDictionary second{
        {"kept", text("1")}, {"changed", ZAVData::fromText("now bytes")}, {"new", text("4")}};
    store(metadataOfEvent(1), second);
    EXPECT_EQ(stored(metadataOfEvent(1)), second);
    store(metadataOfEvent(1), {});
    EXPECT_TRUE(stored(metadataOfEvent(1)).empty());
    EXPECT_EQ(store_.rows("SELECT COUNT(*) FROM keyed_values_remote"), Rows{"0"});
}

TEST_F(KeyedValues, AreLeftAloneWhenTheyAreStoredAlready) {
    const ZAVDictionary dictionary{{"a", text("1")}, {"b", ZAVData::fromText("2")}, {"c", text("")}};
    const auto statements = [&](const ZAVDictionary& values, std::optional<ZAVDate> timestamp) {
        const StatementTrace trace(store_.database());
        store(metadataOfEvent(1), values, timestamp);
        EXPECT_EQ(stored(metadataOfEvent(1)), values);
        return trace.statements().size() - 1;  // without the one that reads them back
    };
    EXPECT_EQ(statements(dictionary, std::nullopt), 4U) << "one reads, and one writes each of the three";
    EXPECT_EQ(statements(dictionary, std::nullopt), 1U) << "nothing has changed";
    EXPECT_EQ(statements({{"a", text("1")}, {"b", text("2")}, {"c", text("")}}, std::nullopt), 2U)
        << "only b has changed: bytes are not the text of the same letters";
    EXPECT_EQ(statements({{"a", text("1")}, {"c", text("3")}}, std::nullopt), 3U)
        << "c has changed and b has gone";
    const ZAVDate moment = ZAVDateFromSecondsSince1970(5);
    EXPECT_EQ(statements({{"a", text("1")}, {"c", text("3")}}, moment), 3U) << "each gets the time";
    EXPECT_EQ(statements({{"a", text("1")}, {"c", text("3")}}, moment), 1U);
    EXPECT_EQ(store_.rows("SELECT key, value, timestamp FROM keyed_values_remote ORDER BY key"),
              (Rows{"a|1|5.0", "c|3|5.0"}));
}

TEST_F(KeyedValues, ReplaceWhatOnlyReadsAsTheSame) {
    store_.execute(
        "INSERT INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, "
        "value) VALUES (1, 'event', 0, 'number', 7), (1, 'event', 0, 'nothing', NULL)");
    store(metadataOfEvent(1), {{"number", text("7")}, {"nothing", text("")}});
    EXPECT_EQ(store_.rows("SELECT key, typeof(value) FROM keyed_values_remote ORDER BY key"),
              (Rows{"nothing|text", "number|text"}));
}

TEST_F(KeyedValues, AreThoseOfTheCallWhateverAnObserverDoesToTheDictionary) {
    ZAVDictionary dictionary{{"a", text("1")}, {"b", text("2")}, {"c", text("3")}};
    store_.database().setStatementObserver([&](const FMStatementRun&) {
        dictionary = ZAVDictionary{{"x", text("other")}};
    });
    EXPECT_TRUE(values_.setKeyedValuesWithDictionary(dictionary, std::nullopt, metadataOfEvent(1)));
    store_.database().setStatementObserver({});
    EXPECT_EQ(stored(metadataOfEvent(1)),
              (ZAVDictionary{{"a", text("1")}, {"b", text("2")}, {"c", text("3")}}));
}

TEST_F(KeyedValues, AreFoundAgainUnderAKeyTypeWithoutAName) {
    for (const std::uint32_t number : {3U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        const auto context = ZAVKeyedValuesContext::contextWithTable(
            ZAVKeyedValuesTableLocal, "event", 1, static_cast<ZAVKeyedValuesKeyType>(number));
        store(context, {{"key", text(std::to_string(number))}});
        EXPECT_EQ(stored(context), (ZAVDictionary{{"key", text(std::to_string(number))}}));
    }
}

TEST_F(KeyedValues, BelongToOneTableObjectTypeObjectAndKeyType) {
    const auto context = [](ZAVKeyedValuesTable table, std::string_view type, ZAVDatabaseIdentifier row,
                            ZAVKeyedValuesKeyType keyType) {
        return ZAVKeyedValuesContext::contextWithTable(table, type, row, keyType);
    };
    const std::vector<ZAVKeyedValuesContext> contexts = {
        context(ZAVKeyedValuesTableRemote, "event", 1, ZAVKeyedValuesKeyTypeTransient),
        context(ZAVKeyedValuesTableLocal, "event", 1, ZAVKeyedValuesKeyTypeTransient),
        context(ZAVKeyedValuesTableRemote, "message", 1, ZAVKeyedValuesKeyTypeTransient),
        context(ZAVKeyedValuesTableRemote, "event", 2, ZAVKeyedValuesKeyTypeTransient),
        context(ZAVKeyedValuesTableRemote, "event", 1, ZAVKeyedValuesKeyTypeSyncable),
        context(ZAVKeyedValuesTableRemote, "event", 1, ZAVKeyedValuesKeyTypeConfiguration),
    };
    for (std::size_t index = 0; index < contexts.size(); ++index) {
        store(contexts[index], {{"key", text(std::to_string(index))}});
    }
    store(contexts[0], {});
    EXPECT_TRUE(stored(contexts[0]).empty());
    for (std::size_t index = 1; index < contexts.size(); ++index) {
        EXPECT_EQ(stored(contexts[index]), (ZAVDictionary{{"key", text(std::to_string(index))}}))
            << "the values of one object are another's";
    }
}

TEST_F(KeyedValues, AreStoredInTheColumnsOfTheirContext) {
    store(metadataOfEvent(7), {{"k", text("v")}, {"l", ZAVData::fromText("b")}},
          ZAVDateFromSecondsSince1970(1.5));
    store(ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableLocal, "message", -1,
                                                  ZAVKeyedValuesKeyTypeConfiguration),
          {{"k", text("v")}});
    EXPECT_EQ(store_.rows("SELECT object_database_identifier, object_type, key_type, key, value, timestamp "
                          "FROM keyed_values_remote ORDER BY key"),
              (Rows{"7|event|0|k|v|1.5", "7|event|0|l|X'62'|1.5"}));
    EXPECT_EQ(store_.rows("SELECT object_database_identifier, object_type, key_type, key, value, timestamp "
                          "FROM keyed_values_local"),
              Rows{"-1|message|2|k|v|NULL"});
}

TEST_F(KeyedValues, NeedATable) {
    const auto nowhere = ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableInvalid, "event", 1,
                                                                 ZAVKeyedValuesKeyTypeTransient);
    try {
        static_cast<void>(values_.keyedValuesInContext(nowhere));
        FAIL() << "values were read from no table";
    } catch (const NSInternalInconsistencyException& exception) {
        EXPECT_EQ(exception.reason(), "The keyed values context names no table.");
    }
    EXPECT_THROW(values_.setKeyedValuesWithDictionary({}, std::nullopt, nowhere),
                 NSInternalInconsistencyException);
}

TEST_F(KeyedValues, AreTooManyRatherThanTooFewWhenSettingThemFailsPartWay) {
    store(metadataOfEvent(1), {{"old", text("1")}});
    store_.execute(
        "CREATE TEMP TRIGGER refuse BEFORE INSERT ON keyed_values_remote WHEN NEW.key = 'refused' "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END");
    ZAVError error;
    EXPECT_FALSE(values_.setKeyedValuesWithDictionary({{"new", text("2")}, {"refused", text("3")}},
                                                      std::nullopt, metadataOfEvent(1), &error));
    EXPECT_EQ(error.message(), "refused");
    EXPECT_EQ(stored(metadataOfEvent(1)), (ZAVDictionary{{"new", text("2")}, {"old", text("1")}}));
}

TEST_F(KeyedValues, AreTooManyRatherThanTooFewWhenWhatIsObsoleteCannotBeRemoved) {
    store(metadataOfEvent(1), {{"old", text("1")}});
    store_.execute(
        "CREATE TEMP TRIGGER keep BEFORE DELETE ON keyed_values_remote BEGIN SELECT RAISE(ABORT, 'kept'); END");
    ZAVError error;
    EXPECT_FALSE(
        values_.setKeyedValuesWithDictionary({{"new", text("2")}}, std::nullopt, metadataOfEvent(1), &error));
    EXPECT_EQ(error.message(), "kept");
    EXPECT_EQ(stored(metadataOfEvent(1)), (ZAVDictionary{{"new", text("2")}, {"old", text("1")}}));
}

class Streams : public testing::Test {
protected:
    TestStore store_;
    ZAVStreamRepository streams_ = store_.streams();
};

TEST_F(Streams, AreFoundUnderTheUUIDTheyWereRegisteredWith) {
    const auto first = streams_.findOrCreateStreamWithUUID(uuidNumber(1));
    const auto second = streams_.findOrCreateStreamWithUUID(uuidNumber(2));
    EXPECT_NE(first, ZAVDatabaseIdentifierNotSet);
    EXPECT_NE(first, second);
    EXPECT_EQ(streams_.findOrCreateStreamWithUUID(uuidNumber(1)), first) << "a stream was registered twice";
    EXPECT_EQ(streams_.streamDatabaseIdentifierForUUID(uuidNumber(2)), second);
    EXPECT_EQ(streams_.countOfStreams(), 2U);
    EXPECT_EQ(store_.rows("SELECT stream_id, seq FROM streams ORDER BY database_identifier"),
              (Rows{"X'11111111111111111111111111111101'|NULL", "X'11111111111111111111111111111102'|NULL"}));
}

TEST_F(Streams, WaitForTheirUUID) {
    const auto first = streams_.createStreamWithoutUUID();
    const auto second = streams_.createStreamWithoutUUID();
    EXPECT_NE(first, second);
    EXPECT_EQ(store_.rows("SELECT stream_id FROM streams"), (Rows{"NULL", "NULL"}));
    EXPECT_TRUE(streams_.setUUID(uuidNumber(1), second));
    EXPECT_EQ(streams_.streamDatabaseIdentifierForUUID(uuidNumber(1)), second);
    EXPECT_EQ(streams_.findOrCreateStreamWithUUID(uuidNumber(1)), second);
}

TEST_F(Streams, CannotShareAUUID) {
    const auto first = streams_.findOrCreateStreamWithUUID(uuidNumber(1));
    const auto second = streams_.createStreamWithoutUUID();
    ZAVError error;
    EXPECT_FALSE(streams_.setUUID(uuidNumber(1), second, &error));
    EXPECT_EQ(error.message(), "UNIQUE constraint failed: streams.stream_id");
    EXPECT_EQ(streams_.streamDatabaseIdentifierForUUID(uuidNumber(1)), first);
}

TEST_F(Streams, RememberTheirLatestSequence) {
    const auto row = streams_.findOrCreateStreamWithUUID(uuidNumber(1));
    streams_.findOrCreateStreamWithUUID(uuidNumber(2));
    EXPECT_TRUE(streams_.setSeq(41, row));
    EXPECT_TRUE(streams_.setSeq(42, row));
    EXPECT_EQ(store_.rows("SELECT seq FROM streams ORDER BY database_identifier"), (Rows{"42", "NULL"}));
}

TEST_F(Streams, NeverGetTheRowOfOneThatWasDeleted) {
    const auto first = streams_.findOrCreateStreamWithUUID(uuidNumber(1));
    store_.execute("DELETE FROM streams");
    EXPECT_GT(streams_.findOrCreateStreamWithUUID(uuidNumber(2)), first);
}

TEST(SyncedChanges, AreRecordedOneByOne) {
    const TestStore store;
    const ZAVSyncedChangeRepository changes(store.sharedDatabase());
    EXPECT_TRUE(changes.recordChange(ZAVSyncedChangeTableNameEvents, 7, ZAVSyncedChangeTypeInsert));
    EXPECT_TRUE(changes.recordChange(ZAVSyncedChangeTableNameEvents, 7, ZAVSyncedChangeTypeInsert));
    EXPECT_TRUE(changes.recordChange(ZAVSyncedChangeTableNameEvents, 7, ZAVSyncedChangeTypeUpdate));
    EXPECT_TRUE(changes.recordChange("streams", -1, ZAVSyncedChangeTypeDelete));
    EXPECT_EQ(store.rows("SELECT table_name, row_identifier, change_type FROM synced_changes ORDER BY rowid"),
              (Rows{"events|7|0", "events|7|0", "events|7|1", "streams|-1|2"}));
}

TEST(SyncedChanges, NameTheEventsTableWithoutAQuote) {
    EXPECT_FALSE(ZAVSyncedChangeTableNameEvents.empty());
    EXPECT_EQ(ZAVSyncedChangeTableNameEvents.find('\''), std::string_view::npos)
        << "a statement carries the name between quotes";
}

/// A cache directory of the test's own.
class ContentCache : public testing::Test {
protected:
    ContentCache() {
        ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath("/var/cache/parts"));
    }
    ~ContentCache() override { ZAVSetMessageRepositoryCacheBaseDirectoryURL(before_); }

    /// The file of part 3 of an event of a user.
    static ZAVURL fileOfUser(std::string_view user) {
        const auto file = ZAVMessageRepositoryMakeMessagePartFileURL(
            3, ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(uuidNumber(1), user, uuidNumber(2)));
        EXPECT_TRUE(file) << "no file for the user '" << user << "'";
        return file.value_or(ZAVURL::fileURLWithDirectoryPath("/none"));
    }

private:
    const ZAVURL before_ = ZAVMessageRepositoryCacheBaseDirectoryURL();
};

/// Expects a process with these environment variables, of which null ones are not set, to have a directory by
/// default.
void expectDefaultDirectory(const char* cacheHome, const char* home, const std::string& expected) {
    const auto set = [](const char* name, const char* value) {
        return value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const bool ready = set("XDG_CACHE_HOME", cacheHome) == 0 && set("HOME", home) == 0;
            std::cerr << ZAVMessageRepositoryCacheBaseDirectoryURL().text();
            std::exit(ready ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^" + expected + "$");
}

TEST(ContentCacheDeathTest, LiesInTheUsersCacheDirectoryUntilTheApplicationSetsOne) {
    expectDefaultDirectory("/caches", "/home/somebody", "file:///caches/ZAVEventRepository/");
    expectDefaultDirectory(nullptr, "/home/somebody", "file:///home/somebody/.cache/ZAVEventRepository/");
}

TEST(ContentCacheDeathTest, PassesOverDirectoriesThatDependOnWhereTheProcessIs) {
    expectDefaultDirectory("caches", "/home/somebody", "file:///home/somebody/.cache/ZAVEventRepository/");
    expectDefaultDirectory("", "somebody", "file:///var/tmp/ZAVEventRepository/");
}

TEST(ContentCacheDeathTest, LiesWhereTemporaryFilesSurviveForAUserWithoutAHome) {
    expectDefaultDirectory(nullptr, nullptr, "file:///var/tmp/ZAVEventRepository/");
}

TEST_F(ContentCache, HasTheDirectoryThatTheApplicationSet) {
    EXPECT_EQ(ZAVMessageRepositoryCacheBaseDirectoryURL().text(), "file:///var/cache/parts/");
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath("/elsewhere"));
    EXPECT_EQ(ZAVMessageRepositoryCacheBaseDirectoryURL().filePath(), "/elsewhere/");
}

TEST_F(ContentCache, KeepsAMessageUnderApplicationUserAndEvent) {
    const auto directory =
        ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(uuidNumber(1), "alice", uuidNumber(2));
    ASSERT_TRUE(directory);
    EXPECT_EQ(directory->relativePath(),
              "11111111-1111-1111-1111-111111111101/alice/11111111-1111-1111-1111-111111111102/");
    EXPECT_EQ(directory->baseURL(), ZAVMessageRepositoryCacheBaseDirectoryURL());
    EXPECT_EQ(directory->filePath(),
              "/var/cache/parts/11111111-1111-1111-1111-111111111101/alice/"
              "11111111-1111-1111-1111-111111111102/");
}

TEST_F(ContentCache, NamesAFileByTheIndexOfItsPart) {
    const auto directory =
        ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(uuidNumber(1), "alice", uuidNumber(2));
    const auto first = ZAVMessageRepositoryMakeMessagePartFileURL(0, directory);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->relativePath(),
              "11111111-1111-1111-1111-111111111101/alice/11111111-1111-1111-1111-111111111102/part-0");
    EXPECT_EQ(first->baseURL(), ZAVMessageRepositoryCacheBaseDirectoryURL())
        << "a stored path is relative to the cache directory";
    EXPECT_EQ(first->absoluteString(), "file:///var/cache/parts/" + first->relativePath());
    const auto last = ZAVMessageRepositoryMakeMessagePartFileURL(18446744073709551615U, directory);
    ASSERT_TRUE(last);
    EXPECT_TRUE(last->text().ends_with("/part-18446744073709551615")) << last->text();
}

TEST_F(ContentCache, HasNoDirectoryForAnEventWithoutUUID) {
    EXPECT_EQ(ZAVMessageRepositoryMakeMessagePartBaseDirectoryURL(uuidNumber(1), "alice", std::nullopt),
              std::nullopt);
    EXPECT_EQ(ZAVMessageRepositoryMakeMessagePartFileURL(0, std::nullopt), std::nullopt);
}

TEST_F(ContentCache, TakesADirectoryThatStandsAlone) {
    const auto file =
        ZAVMessageRepositoryMakeMessagePartFileURL(4, ZAVURL::fileURLWithDirectoryPath("/some/where"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->absoluteString(), "file:///some/where/part-4");
}

TEST_F(ContentCache, MakesADirectoryNameOfAnyUser) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"alice", "alice"},
        {"Alice-1_2~", "Alice-1_2~"},
        {"alice.example", "alice.example"},
        {"a b", "a=20b"},
        {"../x", "..=2Fx"},
        {"x/..", "x=2F.."},
        {"..", "=2E=2E"},
        {".", "=2E"},
        {"...", "=2E=2E=2E"},
        {"", "="},
        {"/", "=2F"},
        {"a/b", "a=2Fb"},
        {"a\\b", "a=5Cb"},
        {"a=2Fb", "a=3D2Fb"},
        {"a%2Fb", "a=252Fb"},
        {"a?b#c", "a=3Fb=23c"},
        {"user:1@example.org", "user=3A1=40example.org"},
        {"\xC3\xA9", "=C3=A9"},
        {std::string_view("a\0b", 3), "a=00b"},
    };
    std::set<std::string> names;
    for (const auto& [user, name] : cases) {
        const ZAVURL file = fileOfUser(user);
        const std::string path = "11111111-1111-1111-1111-111111111101/" + std::string(name) +
                                 "/11111111-1111-1111-1111-111111111102/part-3";
        EXPECT_EQ(file.relativePath(), path) << "the file of the user '" << user << "'";
        EXPECT_EQ(file.filePath(), "/var/cache/parts/" + path)
            << "the user '" << user << "' reaches another directory";
        EXPECT_TRUE(names.insert(file.filePath()).second) << "two users share " << file.filePath();
    }
}

TEST_F(ContentCache, FindsAFileAgainWhenItsPathIsReadBack) {
    for (const std::string_view user : {"alice", "../x", "..", "", "a b", "a%2Fb"}) {
        const ZAVURL file = fileOfUser(user);
        const auto readBack =
            ZAVURL::URLWithString(file.relativePath(), ZAVMessageRepositoryCacheBaseDirectoryURL());
        ASSERT_TRUE(readBack) << file.relativePath();
        EXPECT_EQ(*readBack, file);
        EXPECT_EQ(readBack->filePath(), file.filePath());
    }
}

TEST(Conversations, OfAStreamAreMadeOnce) {
    const TestStore store;
    const ZAVConversationRepository conversations(store.sharedDatabase());
    const auto first = conversations.findOrCreateConversationWithStreamUUID(uuidNumber(1));
    const auto second = conversations.findOrCreateConversationWithStreamUUID(uuidNumber(2));
    EXPECT_NE(first, ZAVDatabaseIdentifierNotSet);
    EXPECT_NE(second, first) << "another stream has a conversation of its own";
    EXPECT_EQ(conversations.findOrCreateConversationWithStreamUUID(uuidNumber(1)), first);
    EXPECT_EQ(store.rows("SELECT stream_id FROM conversations ORDER BY database_identifier"),
              (Rows{"X'11111111111111111111111111111101'", "X'11111111111111111111111111111102'"}));
}

TEST(Conversations, KeepHowFarAParticipantIsWhenItIsAddedAgain) {
    const TestStore store;
    const ZAVConversationRepository conversations(store.sharedDatabase());
    const auto conversation = conversations.findOrCreateConversationWithStreamUUID(uuidNumber(1));
    ASSERT_TRUE(conversations.addParticipant("ada", conversation));
    ASSERT_TRUE(conversations.addParticipant("bob", conversation));
    EXPECT_EQ(conversations.seqOfParticipant("ada", conversation), std::nullopt);
    ASSERT_TRUE(store.repository().persistConversationsParticipantsSeq(7, "ada", uuidNumber(1)));
    ASSERT_TRUE(conversations.addParticipant("ada", conversation));
    EXPECT_EQ(conversations.seqOfParticipant("ada", conversation), 7);
    EXPECT_EQ(conversations.seqOfParticipant("bob", conversation), std::nullopt);
    EXPECT_EQ(conversations.seqOfParticipant("nobody", conversation), std::nullopt);
}

TEST(Messages, OfAnEventAreRecordedOnce) {
    const TestStore store;
    const ZAVMessageRepository messages(store.sharedDatabase());
    const auto message = messages.findOrCreateMessageForEventDatabaseIdentifier(5);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(messages.findOrCreateMessageForEventDatabaseIdentifier(5)->databaseIdentifier(),
              message->databaseIdentifier());
    EXPECT_NE(messages.findOrCreateMessageForEventDatabaseIdentifier(6)->databaseIdentifier(),
              message->databaseIdentifier());
    EXPECT_EQ(store.rows("SELECT event_database_identifier FROM messages ORDER BY 1"), (Rows{"5", "6"}));
}

TEST(Messages, HaveTheSequenceThatWasPersistedForTheirEvent) {
    const TestStore store;
    const ZAVMessageRepository messages(store.sharedDatabase());
    const auto message = messages.findOrCreateMessageForEventDatabaseIdentifier(5);
    EXPECT_EQ(messages.seqOfMessage(*message), std::nullopt);
    ASSERT_TRUE(store.repository().persistMessageSeq(12, 5));
    EXPECT_EQ(messages.seqOfMessage(*message), 12);
    EXPECT_EQ(messages.seqOfMessage(ZAVMessage(99)), std::nullopt) << "there is no such message";
}

TEST(Messages, ShowThePartsOfTheirEvent) {
    const StreamStore store;
    const auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), 1);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("hello"), makeTextPart("you")});
    ASSERT_TRUE(store.repository().persistEvents({event}));
    const auto message = ZAVMessageRepository(store.sharedDatabase())
                             .findOrCreateMessageForEventDatabaseIdentifier(event->databaseIdentifier());
    const auto part = store.repository().eventContentForMessagePart(ZAVMessagePart(message, 1));
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->body()->asText(), "you");
}

TEST(EventRows, TellWhichEventsHaveNoSequence) {
    const TestStore store;
    const auto stream = store.addStream(uuidNumber(1));
    const ZAVEventRowRepository rows(store.sharedDatabase());
    EXPECT_EQ(rows.eventsWithoutSeq(), std::set<ZAVDatabaseIdentifier>());
    store.execute(
        "INSERT INTO events (database_identifier, type, client_id, seq, stream_database_identifier) VALUES"
        " (1, 4, x'01', 0, 1), (2, 4, x'02', NULL, 1), (3, 4, x'03', 7, 1), (4, 4, x'04', NULL, NULL),"
        " (-5, 4, x'05', NULL, 1), (6, 4, x'06', 'text', 1)");
    EXPECT_EQ(stream, 1);
    EXPECT_EQ(rows.eventsWithoutSeq(), (std::set<ZAVDatabaseIdentifier>{-5, 2, 4}))
        << "an event at the sequence 0 has one";
}

TEST(EventRows, SumTheBytesOfFilesBeyond32Bits) {
    const TestStore store;
    const ZAVEventRowRepository rows(store.sharedDatabase());
    EXPECT_EQ(rows.diskUtilization(), 0) << "there are no parts";
    store.execute(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, size,"
        " transfer_status, file_path, purged) VALUES (0, 1, 3000000000, 4, 'a', 0), (1, 1, 2000000000, 0, 'b', NULL),"
        " (2, 1, 40, 1, 'c', 0), (3, 1, 500, 2, 'd', 0), (4, 1, 600, 3, 'e', 0), (5, 1, 700, 4, NULL, 0),"
        " (6, 1, 800, 4, 'f', 1), (7, 1, NULL, 4, 'g', 0)");
    EXPECT_EQ(rows.diskUtilization(), 5000000040)
        << "what is uploaded, uploading or complete, and neither purged nor without a file";
}

TEST(EventRows, SayThatTheirSumIsTooLarge) {
    const TestStore store;
    const ZAVEventRowRepository rows(store.sharedDatabase());
    store.execute(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, size,"
        " transfer_status, file_path) VALUES (0, 1, 9223372036854775807, 4, 'a'), (1, 1, 1, 4, 'b')");
    ZAVError error;
    EXPECT_EQ(rows.diskUtilization(&error), std::nullopt);
    EXPECT_EQ(error, ZAVError("SQLite", 1, "integer overflow"));
    EXPECT_EQ(rows.diskUtilization(), std::nullopt) << "nobody asked for the reason";
}

// The row identifier that means "not set".

void expectUnusableRow(const ZAVError& error) {
    EXPECT_EQ(error.domain(), "ZAVDatabase") << error.description();
    EXPECT_EQ(error.code(), 14);
}

TEST(TheRowThatMeansNotSet, IsNoStreamsRow) {
    const TestStore store;
    store.execute("INSERT INTO streams (database_identifier) VALUES (9223372036854775806)");
    ZAVError error;
    EXPECT_EQ(store.streams().createStreamWithoutUUID(&error), ZAVDatabaseIdentifierNotSet);
    expectUnusableRow(error);
    error = {};
    store.execute(
        "UPDATE streams SET stream_id = x'11111111111111111111111111111101' WHERE "
        "database_identifier = 9223372036854775807");
    EXPECT_EQ(store.streams().streamDatabaseIdentifierForUUID(uuidNumber(1), &error),
              ZAVDatabaseIdentifierNotSet);
    expectUnusableRow(error);
    error = {};
    EXPECT_EQ(store.streams().findOrCreateStreamWithUUID(uuidNumber(1), &error), ZAVDatabaseIdentifierNotSet);
    expectUnusableRow(error);
    EXPECT_EQ(store.streams().countOfStreams(), 2U) << "the row stays, as after any failure part-way";
}

TEST(TheRowThatMeansNotSet, IsNoStreamsRowThatWasMadeJustNow) {
    const TestStore store;
    store.execute("INSERT INTO streams (database_identifier) VALUES (9223372036854775806)");
    ZAVError error;
    EXPECT_EQ(store.streams().findOrCreateStreamWithUUID(uuidNumber(1), &error), ZAVDatabaseIdentifierNotSet);
    expectUnusableRow(error);
}

TEST(TheRowThatMeansNotSet, IsNoConversationsAndNoMessagesRow) {
    const TestStore store;
    store.execute("INSERT INTO conversations (database_identifier) VALUES (9223372036854775806)");
    store.execute("INSERT INTO messages (database_identifier) VALUES (9223372036854775806)");
    ZAVError error;
    EXPECT_EQ(ZAVConversationRepository(store.sharedDatabase())
                  .findOrCreateConversationWithStreamUUID(uuidNumber(1), &error),
              ZAVDatabaseIdentifierNotSet);
    expectUnusableRow(error);
    error = {};
    EXPECT_EQ(
        ZAVMessageRepository(store.sharedDatabase()).findOrCreateMessageForEventDatabaseIdentifier(7, &error),
        nullptr);
    expectUnusableRow(error);
}

}  // namespace
}  // namespace zav::test
