#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Store/EventStoreFixture.h"
#include "Support/DatabaseHandles.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Outcome = ZAVReceivedEvent::Outcome;
using Events = std::vector<std::shared_ptr<ZAVEvent>>;

constexpr const char* user = "ada";

const ZAVUUID& room() {
    static const ZAVUUID uuid = uuidNumber(1);
    return uuid;
}

/// An event of `author` that the service has sequenced.
std::shared_ptr<ZAVEvent> received(ZAVSequence seq, int number, const std::string& author = "bruno") {
    auto event = makeEvent(EventType_MESSAGE, room(), number);
    event->set_seq(seq);
    event->set_creator_id(author);
    event->set_server_timestamp(1000 + seq);
    return event;
}

std::shared_ptr<ZAVEvent> withText(std::shared_ptr<ZAVEvent> event, const std::string& text) {
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("text/plain");
    part->set_body(ZAVData::fromText(text));
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
    return event;
}

std::shared_ptr<ZAVEvent> withPicture(std::shared_ptr<ZAVEvent> event, const std::string& url,
                                      std::int64_t expiration) {
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("image/png");
    part->set_size(15);
    part->set_external_url(url);
    part->set_external_access_expiration(expiration);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
    return event;
}

std::shared_ptr<ZAVEvent> deletionOf(ZAVSequence target, ZAVSequence seq, int number) {
    auto event = received(seq, number);
    event->set_type(EventType_EVENT_DELETED);
    event->set_target_seq(target);
    return event;
}

class Receiving : public EventStore {
protected:
    Receiving() : ada_(open(optionsOfUser())) {}

    [[nodiscard]] ZAVEventStoreOptions optionsOfUser() {
        ZAVEventStoreOptions options = optionsWithLoop();
        options.userID = user;
        options.appID = uuidNumber(99);
        return options;
    }

    [[nodiscard]] ZAVEventStore& ada() { return *ada_; }

    std::vector<ZAVReceivedEvent> receive(const Events& events, const ZAVReceiveOptions& options = {}) {
        ZAVError error;
        const auto answers = ada().receive(room(), events, options, &error);
        EXPECT_TRUE(answers) << error.description();
        return answers.value_or(std::vector<ZAVReceivedEvent>(events.size()));
    }

    ZAVReceivedEvent receiveOne(const std::shared_ptr<ZAVEvent>& event,
                                const ZAVReceiveOptions& options = {}) {
        return receive({event}, options).front();
    }

    /// Stores an event of one's own that waits for its sequence. Answers its row.
    ZAVDatabaseIdentifier storeWaiting(int number, const std::optional<std::string>& author) {
        auto event = withText(makeEvent(EventType_MESSAGE, room(), number), "mine");
        event->set_creator_id(author);
        event->set_client_seq(7);
        EXPECT_TRUE(ada().write([&](const ZAVRepositories& repositories) {
            return repositories.streams.findOrCreateStreamWithUUID(room()) != ZAVDatabaseIdentifierNotSet &&
                   repositories.events.persistEvents({event});
        }));
        return event->databaseIdentifier();
    }

    std::vector<std::string> rows(const std::string& sql) {
        std::vector<std::string> answer;
        EXPECT_TRUE(ada().read([&](const ZAVRepositories& repositories) {
            answer = rowsOf(repositories.events.database(), sql);
        }));
        return answer;
    }

    void execute(const std::string& sql) {
        EXPECT_TRUE(ada().write([&](const ZAVRepositories& repositories) {
            return repositories.events.database().executeUpdate(sql);
        }));
    }

private:
    std::unique_ptr<ZAVEventStore> ada_;
};

using Rows = std::vector<std::string>;

// New events

TEST_F(Receiving, StoresANewEventInAStreamThatItRegisters) {
    const auto event = withText(received(3, 10), "hello");
    const ZAVReceivedEvent answer = receiveOne(event);
    EXPECT_EQ(answer.outcome, Outcome::added);
    EXPECT_EQ(answer.row, event->databaseIdentifier());
    EXPECT_EQ(rows("SELECT database_identifier, seq, creator_id, timestamp FROM events"),
              Rows{"1|3|bruno|1003"});
    EXPECT_EQ(rows("SELECT seq FROM streams"), Rows{"3"});
}

TEST_F(Receiving, MakesAPartWithABodyComplete) {
    receive({withText(received(1, 10), "hello")});
    EXPECT_EQ(rows("SELECT transfer_status FROM event_content_parts"), Rows{"4"});
}

TEST_F(Receiving, PreparesAPartWithAURLForItsDownload) {
    receive({withPicture(received(1, 10), "https://content.example.com/a", 1760000100)});
    EXPECT_EQ(rows("SELECT transfer_status, file_path IS NOT NULL, CAST(access_expiration AS INTEGER)"
                   " FROM event_content_parts"),
              Rows{"2|1|1760000100"});
}

TEST_F(Receiving, TakesTheExpirationAsTheApplicationReadsIt) {
    ZAVReceiveOptions options;
    options.expirationOf = [](std::int64_t milliseconds) {
        return ZAVDateFromSecondsSince1970(static_cast<double>(milliseconds) / 1000);
    };
    receiveOne(withPicture(received(1, 10), "https://content.example.com/a", 1760000100000), options);
    EXPECT_EQ(rows("SELECT CAST(access_expiration AS INTEGER) FROM event_content_parts"), Rows{"1760000100"});
}

TEST_F(Receiving, SaysSoWhenItCannotPrepareDownloads) {
    ZAVError error;
    EXPECT_FALSE(store().receive(room(), Events{received(1, 10)}, {}, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 4") << error.description();
    ZAVReceiveOptions options;
    options.preparesDownloads = false;
    EXPECT_TRUE(store().receive(room(), Events{received(1, 10)}, options, &error)) << error.description();
}

TEST_F(Receiving, LeavesToTheCallerWhatIsSwitchedOff) {
    ZAVReceiveOptions options;
    options.completesParts = false;
    options.preparesDownloads = false;
    options.advancesStream = false;
    receive({withText(received(1, 10), "hello"),
             withPicture(received(2, 11), "https://content.example.com/a", 1760000100)},
            options);
    EXPECT_EQ(
        rows("SELECT transfer_status, file_path, access_expiration FROM event_content_parts ORDER BY 1"),
        (Rows{"0|NULL|NULL", "0|NULL|NULL"}));
    EXPECT_EQ(rows("SELECT seq FROM streams"), Rows{"NULL"});
}

TEST_F(Receiving, NeverTakesAStreamBack) {
    receive({received(5, 10)});
    receive({received(2, 11), received(3, 12)});
    EXPECT_EQ(rows("SELECT seq FROM streams"), Rows{"5"});
}

TEST_F(Receiving, RecordsChangesWhenItIsAskedTo) {
    ZAVReceiveOptions options;
    options.recordsChanges = true;
    receive({received(1, 10)}, options);
    receive({received(1, 10), received(2, 11)}, options);
    EXPECT_EQ(rows("SELECT row_identifier, change_type FROM synced_changes ORDER BY 1"),
              (Rows{"1|0", "2|0"}));
}

// Known events

TEST_F(Receiving, KnowsAnEventThatComesTwice) {
    receive({withText(received(1, 10), "hello")});
    const auto before = rows("SELECT * FROM events");
    const auto again = withText(received(1, 10), "hello");
    const ZAVReceivedEvent answer = receiveOne(again);
    EXPECT_EQ(answer.outcome, Outcome::known);
    EXPECT_EQ(answer.row, 1);
    EXPECT_EQ(again->databaseIdentifier(), 1);
    EXPECT_EQ(rows("SELECT * FROM events"), before);
}

TEST_F(Receiving, WritesNothingForAnEventThatItKnows) {
    const auto event = withText(received(1, 10), "hello");
    ZAVDictionary metadata;
    metadata.set("key", std::string("value"));
    event->set_transient_metadata(metadata);
    receive({event});
    int commits = 0;
    const auto subscription =
        ada().subscribe([&](const ZAVStoreCommit& commit) { commits += commit.changes.empty() ? 0 : 1; });
    EXPECT_EQ(receiveOne(event).outcome, Outcome::known);
    loop().runWaiting();
    EXPECT_EQ(commits, 0);
}

TEST_F(Receiving, BringsAnEventUpToDateThatHasChanged) {
    receive({received(1, 10)});
    const auto again = received(1, 10);
    again->set_creator_name("Bruno B.");
    EXPECT_EQ(receiveOne(again).outcome, Outcome::changed);
    EXPECT_EQ(rows("SELECT creator_name FROM events"), Rows{"Bruno B."});
    const auto withMetadata = received(1, 10);
    withMetadata->set_creator_name("Bruno B.");
    ZAVDictionary metadata;
    metadata.set("key", std::string("value"));
    withMetadata->set_transient_metadata(metadata);
    EXPECT_EQ(receiveOne(withMetadata).outcome, Outcome::changed);
    EXPECT_EQ(rows("SELECT key, value FROM keyed_values_remote"), Rows{"key|value"});
    EXPECT_EQ(receiveOne(withText(withMetadata, "late")).outcome, Outcome::changed);
    EXPECT_EQ(rows("SELECT CAST(value AS TEXT) FROM event_content_parts"), Rows{"late"});
}

TEST_F(Receiving, RenewsTheURLOfAPartThatIsNotComplete) {
    receive({withPicture(received(1, 10), "https://content.example.com/old", 100),
             withPicture(received(2, 11), "https://content.example.com/done", 100)});
    execute("UPDATE event_content_parts SET transfer_status = 4 WHERE url LIKE '%done'");
    const auto answers = receive({withPicture(received(1, 10), "https://content.example.com/new", 200),
                                  withPicture(received(2, 11), "https://content.example.com/again", 200)});
    EXPECT_EQ(answers[0].outcome, Outcome::changed);
    EXPECT_EQ(answers[1].outcome, Outcome::known);
    EXPECT_EQ(rows("SELECT url, CAST(access_expiration AS INTEGER) FROM event_content_parts ORDER BY 2"),
              (Rows{"https://content.example.com/done|100", "https://content.example.com/new|200"}));
}

// One's own events

class ReceivingOnesOwn : public Receiving, public testing::WithParamInterface<std::optional<std::string>> {};

TEST_P(ReceivingOnesOwn, KnowsItForTheRowThatWaits) {
    const auto row = storeWaiting(10, GetParam());
    const ZAVReceivedEvent answer = receiveOne(received(4, 10, user));
    EXPECT_EQ(answer.outcome, Outcome::own);
    EXPECT_EQ(answer.row, row);
    EXPECT_EQ(rows("SELECT database_identifier, seq, creator_id, timestamp, client_seq FROM events"),
              Rows{std::to_string(row) + "|4|ada|1004|7"});
    EXPECT_EQ(rows("SELECT CAST(value AS TEXT) FROM event_content_parts"), Rows{"mine"});
}

INSTANTIATE_TEST_SUITE_P(WhoseRow, ReceivingOnesOwn,
                         testing::Values(std::optional<std::string>(user), std::optional<std::string>()),
                         [](const auto& author) { return author.param ? "NamesTheUser" : "NamesNobody"; });

TEST_F(Receiving, TakesNobodyElsesEventForOnesOwn) {
    storeWaiting(10, std::nullopt);
    EXPECT_EQ(receiveOne(received(4, 10, "bruno")).outcome, Outcome::added);
    EXPECT_EQ(rows("SELECT seq FROM events ORDER BY database_identifier"), (Rows{"NULL", "4"}));
}

TEST_F(Receiving, TakesAnEventOfAnotherStreamForNoneOfThisOne) {
    auto elsewhere = makeEvent(EventType_MESSAGE, uuidNumber(2), 10);
    EXPECT_TRUE(ada().write([&](const ZAVRepositories& repositories) {
        return repositories.streams.findOrCreateStreamWithUUID(uuidNumber(2)) !=
                   ZAVDatabaseIdentifierNotSet &&
               repositories.events.persistEvents({elsewhere});
    }));
    EXPECT_EQ(receiveOne(received(4, 10, user)).outcome, Outcome::added);
}

TEST_F(Receiving, TakesAnEventOfTheUsersFromAnotherDeviceForNew) {
    storeWaiting(10, user);
    EXPECT_EQ(receiveOne(received(4, 11, user)).outcome, Outcome::added);
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"2"});
}

TEST_F(Receiving, NeverCountsAnEventOfTheUsersFromAnotherDeviceAsUnread) {
    ZAVReceiveOptions options;
    options.recordsChanges = true;
    receive({received(1, 10, "bruno")}, options);
    const auto elsewhere = receiveOne(received(2, 11, "ada"), options);
    EXPECT_EQ(elsewhere.outcome, Outcome::added) << "it is new here";
    EXPECT_EQ(elsewhere.row, 2);
    EXPECT_EQ(rows("SELECT row_identifier, change_type FROM synced_changes"), Rows{"1|0"});
    EXPECT_TRUE(ada().read([](const ZAVRepositories& repositories) {
        const auto unread = repositories.events.unprocessedEvents();
        ASSERT_TRUE(unread && unread->size() == 1);
        EXPECT_EQ((*unread->begin())->creator_id(), "bruno");
    }));

    options.recognisesOwnEvents = false;
    receive({received(3, 12, "ada")}, options);
    EXPECT_EQ(rows("SELECT COUNT(*) FROM synced_changes"), Rows{"1"}) << "whether it is looked for or not";
}

TEST_F(Receiving, RecordsWhatTheUserDeletesOnAnotherDevice) {
    ZAVReceiveOptions options;
    options.recordsChanges = true;
    receive({received(1, 10, "bruno")}, options);
    auto deletion = received(2, 11, "ada");
    deletion->set_type(EventType_EVENT_DELETED);
    deletion->set_target_seq(1);
    receive({deletion}, options);
    EXPECT_EQ(rows("SELECT row_identifier, change_type FROM synced_changes"), Rows{"1|1"})
        << "the tombstone is a change, the deletion is no news";
    auto late = received(4, 13, "ada");
    receive({deletionOf(4, 3, 12), late}, options);
    EXPECT_EQ(rows("SELECT row_identifier, change_type FROM synced_changes WHERE row_identifier > 1"),
              Rows{"3|0"})
        << "nor is what was deleted before it came";
}

TEST_F(Receiving, CountsEveryNewEventWhileNoUserIsKnown) {
    ZAVReceiveOptions options;
    options.recordsChanges = true;
    options.preparesDownloads = false;
    ASSERT_TRUE(store().receive(room(), Events{received(1, 10, "ada"), received(2, 11, "bruno")}, options));
    EXPECT_EQ(rows("SELECT row_identifier, change_type FROM synced_changes ORDER BY 1"),
              (Rows{"1|0", "2|0"}));
}

TEST_F(Receiving, RecognisesNothingThatNamesNobodyWhileNoUserIsKnown) {
    storeWaiting(10, std::nullopt);
    ZAVReceiveOptions options;
    options.preparesDownloads = false;
    const auto answers = store().receive(room(), Events{received(4, 10, user)}, options);
    ASSERT_TRUE(answers);
    EXPECT_EQ(answers->front().outcome, Outcome::added);
}

TEST_F(Receiving, MergesTheTwoRowsThatAClientLeftWhichDidNotRecogniseItsOwn) {
    ZAVReceiveOptions options;
    options.recognisesOwnEvents = false;
    const auto row = storeWaiting(10, user);
    EXPECT_EQ(receiveOne(withText(received(4, 10, user), "echo"), options).outcome, Outcome::added);
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"2"});
    const ZAVReceivedEvent answer = receiveOne(received(4, 10, user));
    EXPECT_EQ(answer.outcome, Outcome::own);
    EXPECT_EQ(answer.row, row);
    EXPECT_EQ(rows("SELECT database_identifier, seq FROM events"), Rows{std::to_string(row) + "|4"});
    EXPECT_EQ(rows("SELECT CAST(value AS TEXT) FROM event_content_parts"), Rows{"mine"});
}

TEST_F(Receiving, LeavesToTheRowThatStaysOfTwoWhatAnEventDoesNotSay) {
    ZAVReceiveOptions options;
    options.recognisesOwnEvents = false;
    const auto row = storeWaiting(10, user);
    execute("UPDATE events SET client_seq = 3, preceding_seq = 2");
    EXPECT_EQ(receiveOne(received(4, 10, user), options).outcome, Outcome::added);
    auto again = received(4, 10, user);
    again->set_creator_name("Ada");
    EXPECT_EQ(receiveOne(again).outcome, Outcome::own);
    EXPECT_EQ(
        rows(
            "SELECT database_identifier, seq, client_seq, preceding_seq, timestamp, creator_name FROM events"),
        Rows{std::to_string(row) + "|4|3|2|1004|Ada"});
}

// What the service answers to what was sent

TEST_F(Receiving, RecordsWhatTheServiceGaveToAnEventThatWasSent) {
    const auto row = storeWaiting(10, user);
    const auto clientID = ZAVUUIDFromData(received(1, 10)->client_id());
    ZAVError error;
    const auto answer = ada().recordPosted(room(), *clientID, 4, user, 1004, &error);
    ASSERT_TRUE(answer) << error.description();
    EXPECT_EQ(answer->outcome, Outcome::own);
    EXPECT_EQ(answer->row, row);
    EXPECT_EQ(rows("SELECT seq, creator_id, timestamp FROM events"), Rows{"4|ada|1004"});
    EXPECT_EQ(ada().recordPosted(room(), *clientID, 4, user, 1004)->outcome, Outcome::known);
    EXPECT_EQ(ada().recordPosted(room(), uuidNumber(50), 9, user, 1009)->outcome, Outcome::refused)
        << "nothing waits for it";
    EXPECT_EQ(ada().recordPosted(room(), uuidNumber(50), 4, user, 1009)->outcome, Outcome::conflict);
}

TEST_F(Receiving, RefusesAnAnswerWithoutASequence) {
    storeWaiting(10, user);
    const auto clientID = ZAVUUIDFromData(received(1, 10)->client_id());
    EXPECT_EQ(ada().recordPosted(room(), *clientID, 2147483647, user, 1004)->outcome, Outcome::refused);
    EXPECT_EQ(rows("SELECT seq FROM events"), Rows{"NULL"});
}

TEST_F(Receiving, AnAnswerWithAnotherSequenceThanTheEventHasIsAConflict) {
    const auto row = storeWaiting(10, user);
    const auto clientID = ZAVUUIDFromData(received(1, 10)->client_id());
    EXPECT_EQ(ada().recordPosted(room(), *clientID, 4, user, 1004)->outcome, Outcome::own);
    const auto answer = ada().recordPosted(room(), *clientID, 7, user, 1007);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->outcome, Outcome::conflict);
    EXPECT_EQ(answer->row, row);
    EXPECT_EQ(answer->reason.message(), "it stands at the sequence 4 already");
    EXPECT_EQ(rows("SELECT seq, timestamp FROM events"), Rows{"4|1004"});
}

TEST_F(Receiving, LeavesWhatAnEventDoesNotSayAsItIsStored) {
    auto first = received(4, 10, "bruno");
    first->set_creator_name("Bruno");
    first->set_client_seq(7);
    first->set_preceding_seq(3);
    first->set_subtype(2);
    first->set_member_id("chloe");
    first->set_target_seq(1);
    receive({first});
    const std::string stored =
        "SELECT timestamp, client_seq, preceding_seq, subtype, target_seq, creator_name, member_id FROM events";
    const Rows before = rows(stored);
    EXPECT_EQ(before, Rows{"1004|7|3|2|1|Bruno|chloe"});
    const auto again = received(4, 10, "bruno");
    again->unset_server_timestamp();
    EXPECT_EQ(receiveOne(again).outcome, Outcome::known);
    EXPECT_EQ(rows(stored), before);
    EXPECT_FALSE(again->server_timestampIsSet()) << "the record says what it said before";
    EXPECT_FALSE(again->client_seqIsSet());
    const auto renamed = received(4, 10, "bruno");
    renamed->set_creator_name("Bruno B.");
    EXPECT_EQ(receiveOne(renamed).outcome, Outcome::changed);
    EXPECT_EQ(rows(stored), Rows{"1004|7|3|2|1|Bruno B.|chloe"});
}

/// The answer of the service (P) and its event, which says little of itself (r).
class TerseEcho : public Receiving, public testing::WithParamInterface<std::string> {};

TEST_P(TerseEcho, LeadsToTheSameRowsInWhateverOrder) {
    storeWaiting(10, user);
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events WHERE client_seq IS 3"), Rows{"0"});
    execute("UPDATE events SET client_seq = 3, preceding_seq = 2");
    const auto clientID = ZAVUUIDFromData(received(1, 10)->client_id());
    for (const char step : GetParam()) {
        if (step == 'P') {
            EXPECT_TRUE(ada().recordPosted(room(), *clientID, 4, user, 1004));
        } else {
            const auto event = received(4, 10, user);
            event->unset_server_timestamp();
            receive({event});
        }
    }
    EXPECT_EQ(rows("SELECT seq, creator_id, timestamp, client_seq, preceding_seq FROM events"),
              Rows{"4|ada|1004|3|2"});
}

INSTANTIATE_TEST_SUITE_P(Orders, TerseEcho, testing::Values("Pr", "rP", "rPr", "PrP", "rrP"),
                         [](const auto& order) { return std::string(order.param); });

/// The answer of the service (P), its event (R) and the deletion of that (D), in any order and several times.
class InAnyOrder : public Receiving, public testing::WithParamInterface<std::string> {};

TEST_P(InAnyOrder, LeadsToTheSameRows) {
    const auto row = storeWaiting(10, user);
    const auto clientID = ZAVUUIDFromData(received(1, 10)->client_id());
    for (const char step : GetParam()) {
        if (step == 'P') {
            EXPECT_TRUE(ada().recordPosted(room(), *clientID, 4, user, 1004));
        } else if (step == 'R') {
            auto event = withText(received(4, 10, user), "mine");
            event->set_creator_name("Ada");
            receive({event});
        } else {
            receive({deletionOf(4, 5, 11)});
        }
    }
    const bool isDeleted = GetParam().find('D') != std::string::npos;
    const bool isReceived = GetParam().find('R') != std::string::npos;
    EXPECT_EQ(rows("SELECT database_identifier, type, seq, creator_id, timestamp FROM events WHERE seq = 4"),
              Rows{std::to_string(row) + (isDeleted ? "|10" : "|4") + "|4|ada|1004"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events WHERE seq IS NOT 5"), Rows{"1"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{isDeleted ? "0" : "1"});
    if (!isDeleted) {
        EXPECT_EQ(rows("SELECT creator_name FROM events"), Rows{isReceived ? "Ada" : "NULL"});
    }
}

std::vector<std::string> ordersOf(const std::string& steps, std::size_t longest) {
    std::vector<std::string> orders;
    std::vector<std::string> last{""};
    for (std::size_t length = 1; length <= longest; ++length) {
        std::vector<std::string> next;
        for (const std::string& order : last) {
            for (const char step : steps) {
                next.push_back(order + step);
            }
        }
        last = next;
        std::copy_if(next.begin(), next.end(), std::back_inserter(orders),
                     [](const std::string& order) { return order.find_first_of("PR") != std::string::npos; });
    }
    return orders;
}

INSTANTIATE_TEST_SUITE_P(Steps, InAnyOrder, testing::ValuesIn(ordersOf("PRD", 4)),
                         [](const auto& order) { return order.param; });

// Deletions

TEST_F(Receiving, MakesATombstoneOfWhatIsDeletedAndRemovesWhatBelongsToIt) {
    const auto event = withText(received(1, 10), "secret");
    ZAVDictionary metadata;
    metadata.set("key", std::string("value"));
    event->set_transient_metadata(metadata);
    receive({event, received(2, 11)});
    execute("INSERT INTO messages (event_database_identifier, seq) VALUES (1, 1)");
    EXPECT_EQ(receiveOne(deletionOf(1, 3, 12)).outcome, Outcome::added);
    EXPECT_EQ(rows("SELECT seq, type FROM events ORDER BY seq"), (Rows{"1|10", "2|4", "3|9"}));
    for (const char* const table : {"event_content_parts", "keyed_values_remote", "messages"}) {
        EXPECT_EQ(rows(std::string("SELECT COUNT(*) FROM ") + table), Rows{"0"}) << table;
    }
}

TEST_F(Receiving, NeverStoresTheTextOfAnEventWhoseDeletionCameBefore) {
    const auto answers = receive({deletionOf(3, 2, 12), withText(received(3, 10), "secret")});
    EXPECT_EQ(answers[1].outcome, Outcome::tombstone);
    EXPECT_EQ(rows("SELECT type, client_id IS NOT NULL FROM events WHERE seq = 3"), Rows{"10|1"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"0"});
}

TEST_F(Receiving, LeavesATombstoneATombstone) {
    receive({withText(received(1, 10), "secret"), deletionOf(1, 2, 11)});
    EXPECT_EQ(receiveOne(withText(received(1, 10), "secret")).outcome, Outcome::tombstone);
    EXPECT_EQ(rows("SELECT type FROM events WHERE seq = 1"), Rows{"10"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"0"});
}

TEST_F(Receiving, LeavesATombstoneThatTheRepositoryMadeATombstone) {
    receive({received(1, 10)});
    EXPECT_TRUE(ada().write([](const ZAVRepositories& repositories) {
        return repositories.events.persistTombstoneEventWithTargetSeq(1, 1);
    }));
    EXPECT_EQ(receiveOne(withText(received(1, 10), "secret")).outcome, Outcome::tombstone);
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"0"});
}

TEST_F(Receiving, AppliesNoDeletionWhenThatIsSwitchedOff) {
    ZAVReceiveOptions options;
    options.appliesDeletions = false;
    receive({withText(received(1, 10), "kept"), deletionOf(1, 2, 11)}, options);
    EXPECT_EQ(rows("SELECT seq, type FROM events ORDER BY seq"), (Rows{"1|4", "2|9"}));
    EXPECT_EQ(rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"1"});
}

// Conflicts and refusals

TEST_F(Receiving, StoresNothingAtASequenceThatAnotherEventHas) {
    receive({received(1, 10)});
    const ZAVReceivedEvent answer = receiveOne(received(1, 11));
    EXPECT_EQ(answer.outcome, Outcome::conflict);
    EXPECT_EQ(answer.row, 1);
    EXPECT_EQ(domainAndCode(answer.reason), "ZAVEventStore 10") << answer.reason.description();
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"1"});
}

TEST_F(Receiving, RefusesWhatCannotBeStoredWithoutCostToTheOthers) {
    const auto withoutType = received(2, 11);
    withoutType->set_type(static_cast<ZAVTEventType>(0));
    const auto withoutSeq = received(3, 12);
    withoutSeq->unset_seq();
    const auto withoutClientID = received(4, 13);
    withoutClientID->set_client_id(std::nullopt);
    const auto ofAnotherStream = received(5, 14);
    ofAnotherStream->set_stream_id(ZAVDataFromUUID(uuidNumber(2)));
    const auto negative = withPicture(received(6, 15), "https://content.example.com/a", 1);
    negative->contentParts().front()->set_size(-1);
    const auto answers = receive({received(1, 10), withoutType, withoutSeq, withoutClientID, ofAnotherStream,
                                  negative, nullptr, received(7, 16)});
    for (std::size_t index = 1; index < 7; ++index) {
        EXPECT_EQ(answers[index].outcome, Outcome::refused) << index;
        EXPECT_EQ(domainAndCode(answers[index].reason), "ZAVEventStore 9")
            << answers[index].reason.description();
        EXPECT_EQ(answers[index].row, ZAVDatabaseIdentifierNotSet);
    }
    EXPECT_EQ(rows("SELECT seq FROM events ORDER BY seq"), (Rows{"1", "7"}));
}

TEST_F(Receiving, TakesAllBackForOneThatIsRefusedWhenAskedTo) {
    ZAVReceiveOptions options;
    options.refusesAllForOne = true;
    const auto first = withText(received(1, 10), "hello");
    const auto second = received(1, 11);
    ZAVError error;
    EXPECT_FALSE(ada().receive(room(), Events{first, second}, options, &error));
    EXPECT_EQ(domainAndCode(error), "ZAVEventStore 10") << error.description();
    EXPECT_TRUE(error.message().starts_with("event 2 of 2: ")) << error.message();
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"0"});
}

TEST_F(Receiving, GivesRecordsBackWhatTheyHadWhenTheDatabaseFails) {
    receive({received(1, 10)});
    EXPECT_TRUE(ada().write([](const ZAVRepositories& repositories) {
        return repositories.events.database().executeStatements(
            "CREATE TEMP TRIGGER refuse BEFORE INSERT ON events WHEN NEW.seq = 3"
            " BEGIN SELECT RAISE(ABORT, 'no'); END");
    }));
    const auto picture = withPicture(received(2, 11), "https://content.example.com/a", 100);
    ZAVError error;
    EXPECT_FALSE(ada().receive(room(), Events{picture, received(3, 12)}, {}, &error));
    EXPECT_EQ(error.message(), "no");
    EXPECT_EQ(picture->databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(picture->streamDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    const auto part = picture->contentParts().front();
    EXPECT_EQ(part->transferStatus(), ZAVContentTransferAwaitingUpload);
    EXPECT_FALSE(part->fileURL());
    EXPECT_FALSE(part->externalContentURLExpiration());
    EXPECT_EQ(part->eventDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(rows("SELECT seq FROM events"), Rows{"1"});
    EXPECT_EQ(rows("SELECT seq FROM streams"), Rows{"1"});
}

TEST_F(Receiving, ReceivesWithinAWrite) {
    EXPECT_FALSE(ada().write([&](const ZAVRepositories&) {
        EXPECT_TRUE(ada().receive(room(), Events{received(1, 10)}));
        return false;
    }));
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"0"});
}

// Gaps

TEST_F(Receiving, TellsWhichSequencesAreMissing) {
    receive({received(3, 10), received(4, 11), received(7, 12), received(12, 13)});
    using Gaps = std::vector<ZAVSequenceGap>;
    EXPECT_EQ(ada().missingSequences(room(), 10), (Gaps{{8, 11}, {5, 6}}));
    EXPECT_EQ(ada().missingSequences(room(), 1), (Gaps{{8, 11}}));
    EXPECT_EQ(ada().missingSequences(uuidNumber(2), 1), Gaps());
    execute("UPDATE streams SET seq = 15");
    EXPECT_EQ(ada().missingSequences(room(), 1), (Gaps{{13, 15}})) << "the stream has come further";
}

}  // namespace
}  // namespace zav::test
