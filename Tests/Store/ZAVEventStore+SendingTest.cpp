#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Store/EventStoreFixture.h"
#include "Support/DatabaseHandles.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Rows = std::vector<std::string>;

const ZAVUUID& room() {
    static const ZAVUUID uuid = uuidNumber(1);
    return uuid;
}

std::shared_ptr<ZAVEvent> message(int number, const ZAVUUID& stream = room()) {
    auto event = makeEvent(EventType_MESSAGE, stream, number);
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("text/plain");
    part->set_body(ZAVData::fromText("text " + std::to_string(number)));
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
    return event;
}

std::shared_ptr<ZAVEvent> messageWithFile(int number, const std::string& file) {
    auto event = message(number);
    const auto part = event->contentParts().front();
    part->set_body(std::nullopt);
    const std::filesystem::path path(file);
    part->setFileURL(ZAVURL::URLWithString(path.filename().string(),
                                           ZAVURL::fileURLWithDirectoryPath(path.parent_path().string())));
    return event;
}

class Sending : public EventStore {
protected:
    Sending() : ada_(open(optionsOfUser())) {}

    [[nodiscard]] ZAVEventStore& ada() { return *ada_; }

    ZAVSentEvent send(const std::shared_ptr<ZAVEvent>& event) {
        ZAVError error;
        const auto sent = ada().send(event, &error);
        EXPECT_TRUE(sent) << error.description();
        return sent.value_or(ZAVSentEvent());
    }

    /// The code with which sending an event is refused.
    std::string refusalOf(const std::shared_ptr<ZAVEvent>& event) {
        ZAVError error;
        EXPECT_FALSE(ada().send(event, &error));
        return domainAndCode(error);
    }

    std::vector<ZAVDatabaseIdentifier> outbox(const ZAVOutboxOptions& options = {}) {
        ZAVError error;
        const auto events = ada().outbox(options, &error);
        EXPECT_TRUE(events) << error.description();
        std::vector<ZAVDatabaseIdentifier> rows;
        for (const auto& event : events.value_or(std::vector<std::shared_ptr<ZAVEvent>>())) {
            rows.push_back(event->databaseIdentifier());
        }
        return rows;
    }

    Rows rows(const std::string& sql) {
        Rows answer;
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

    [[nodiscard]] std::string makeFile() const {
        const std::string file = path() + ".picture";
        std::ofstream(file) << "picture";
        return file;
    }

private:
    [[nodiscard]] ZAVEventStoreOptions optionsOfUser() {
        ZAVEventStoreOptions options = optionsWithLoop();
        options.userID = "ada";
        options.appID = uuidNumber(99);
        options.contentDirectory =
            ZAVURL::fileURLWithDirectoryPath(std::filesystem::path(path()).parent_path().string());
        return options;
    }

    std::unique_ptr<ZAVEventStore> ada_;
};

TEST_F(Sending, StoresAnEventOfTheUsersThatWaits) {
    const auto event = message(10);
    const ZAVSentEvent sent = send(event);
    EXPECT_TRUE(sent.isNew);
    EXPECT_EQ(sent.row, event->databaseIdentifier());
    EXPECT_EQ(rows("SELECT database_identifier, creator_id, seq, client_seq, preceding_seq FROM events"),
              Rows{"1|ada|NULL|1|0"});
    EXPECT_EQ(rows("SELECT transfer_status FROM event_content_parts"), Rows{"4"});
}

TEST_F(Sending, SaysWhatTheAuthorHadSeen) {
    send(message(10));
    execute("UPDATE streams SET seq = 12");
    send(message(11));
    EXPECT_EQ(rows("SELECT preceding_seq FROM events ORDER BY database_identifier"), (Rows{"0", "12"}));
}

TEST_F(Sending, CountsWhatIsSentIntoEachStream) {
    for (int number = 10; number < 13; ++number) {
        send(message(number));
    }
    send(message(20, uuidNumber(2)));
    EXPECT_EQ(rows("SELECT stream_database_identifier, client_seq FROM events ORDER BY database_identifier"),
              (Rows{"1|1", "1|2", "1|3", "2|1"}));
}

TEST_F(Sending, NeverCountsBack) {
    send(message(10));
    send(message(11));
    execute("DELETE FROM events");
    send(message(12));
    EXPECT_EQ(rows("SELECT client_seq FROM events"), Rows{"3"});
}

TEST_F(Sending, CountsOnBehindWhatWasSentBeforeThereWasACounter) {
    execute("INSERT INTO streams (database_identifier, stream_id) VALUES (1, X'" + std::string(30, '1') +
            "01')");
    execute(
        "INSERT INTO events (type, client_id, client_seq, stream_database_identifier) VALUES (4, X'00', 41, 1)");
    send(message(10));
    EXPECT_EQ(rows("SELECT MAX(client_seq) FROM events"), Rows{"42"});
}

TEST_F(Sending, LeavesWhatAnApplicationKeepsBesideTheCounter) {
    send(message(10));
    const auto context = ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableLocal, "stream", 1,
                                                                 ZAVKeyedValuesKeyTypeConfiguration);
    EXPECT_TRUE(ada().write([&](const ZAVRepositories& repositories) {
        ZAVDictionary values = repositories.keyedValues.keyedValuesInContext(context)->keyedValues();
        values.set("colour", std::string("green"));
        return repositories.keyedValues.setKeyedValuesWithDictionary(values, std::nullopt, context);
    }));
    send(message(11));
    EXPECT_EQ(rows("SELECT key, value FROM keyed_values_local ORDER BY key"),
              (Rows{"client_seq|2", "colour|green"}));
}

TEST_F(Sending, KnowsAnEventThatIsSentTwice) {
    const ZAVSentEvent first = send(message(10));
    const auto again = message(10);
    const ZAVSentEvent second = send(again);
    EXPECT_FALSE(second.isNew);
    EXPECT_EQ(second.row, first.row);
    EXPECT_EQ(again->databaseIdentifier(), first.row);
    EXPECT_EQ(rows("SELECT COUNT(*), MAX(client_seq) FROM events"), Rows{"1|1"});
}

TEST_F(Sending, KnowsAnEventThatTheServiceHasSequencedMeanwhile) {
    const ZAVSentEvent first = send(message(10));
    execute("UPDATE events SET seq = 7");
    EXPECT_EQ(send(message(10)).row, first.row);
}

TEST_F(Sending, AwaitsTheUploadOfAFile) {
    send(messageWithFile(10, makeFile()));
    EXPECT_EQ(rows("SELECT transfer_status, file_path FROM event_content_parts"), Rows{"0|chat.db.picture"});
    EXPECT_TRUE(outbox().empty()) << "it cannot go before its content has";
}

TEST_F(Sending, RefusesWhatItCannotSend) {
    EXPECT_EQ(refusalOf(nullptr), "ZAVEventStore 9");
    const auto sequenced = message(10);
    sequenced->set_seq(3);
    EXPECT_EQ(refusalOf(sequenced), "ZAVEventStore 9");
    const auto ofBruno = message(10);
    ofBruno->set_creator_id("bruno");
    EXPECT_EQ(refusalOf(ofBruno), "ZAVEventStore 9");
    const auto nowhere = message(10);
    nowhere->set_stream_id(std::nullopt);
    EXPECT_EQ(refusalOf(nowhere), "ZAVEventStore 9");
    EXPECT_EQ(refusalOf(messageWithFile(10, path() + ".nothing")), "ZAVEventStore 9");
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"0"});
    EXPECT_EQ(rows("SELECT COUNT(*) FROM streams"), Rows{"0"});
}

TEST_F(Sending, GivesARecordBackWhatItHadWhenTheDatabaseFails) {
    EXPECT_TRUE(ada().write([](const ZAVRepositories& repositories) {
        return repositories.events.database().executeStatements(
            "CREATE TEMP TRIGGER refuse BEFORE INSERT ON keyed_values_local BEGIN SELECT RAISE(ABORT, 'no'); END");
    }));
    const auto event = message(10);
    ZAVError error;
    EXPECT_FALSE(ada().send(event, &error));
    EXPECT_EQ(error.message(), "no");
    EXPECT_EQ(event->databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_FALSE(event->creator_id());
    EXPECT_FALSE(event->client_seqIsSet());
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"0"});
}

// The outbox

TEST_F(Sending, HasAnOutboxInTheOrderInWhichItWasSent) {
    send(message(20, uuidNumber(2)));
    send(message(10));
    send(message(21, uuidNumber(2)));
    execute("UPDATE events SET client_seq = 9 WHERE database_identifier = 1");
    EXPECT_EQ(outbox(), (std::vector<ZAVDatabaseIdentifier>{3, 1, 2}))
        << "by stream, and by what its author counted";
    execute("UPDATE events SET seq = 1 WHERE database_identifier = 3");
    EXPECT_EQ(outbox(), (std::vector<ZAVDatabaseIdentifier>{1, 2}));
}

TEST_F(Sending, HoldsBackWhatFollowsAnUploadWhenItIsAskedTo) {
    send(message(10));
    send(messageWithFile(11, makeFile()));
    send(message(12));
    send(message(20, uuidNumber(2)));
    EXPECT_EQ(outbox(), (std::vector<ZAVDatabaseIdentifier>{1, 3, 4}));
    ZAVOutboxOptions options;
    options.holdsBackBehindUploads = true;
    EXPECT_EQ(outbox(options), (std::vector<ZAVDatabaseIdentifier>{1, 4})) << "other streams do not wait";
    execute("UPDATE event_content_parts SET transfer_status = 4");
    EXPECT_EQ(outbox(options), (std::vector<ZAVDatabaseIdentifier>{1, 2, 3, 4}));
}

// Streams that were begun offline

class OfflineStream : public Sending {
protected:
    /// Sends into a stream that the service does not know. Answers the stream's row.
    ZAVDatabaseIdentifier sendOffline(int number) {
        if (stream_ == ZAVDatabaseIdentifierNotSet) {
            EXPECT_TRUE(ada().write([&](const ZAVRepositories& repositories) {
                stream_ = repositories.streams.createStreamWithoutUUID();
                return true;
            }));
        }
        const auto event = message(number);
        event->set_stream_id(std::nullopt);
        event->setStreamDatabaseIdentifier(stream_);
        send(event);
        return stream_;
    }

private:
    ZAVDatabaseIdentifier stream_ = ZAVDatabaseIdentifierNotSet;
};

TEST_F(OfflineStream, GoesOutWhenTheServiceKnowsIt) {
    const auto stream = sendOffline(10);
    EXPECT_TRUE(outbox().empty());
    ZAVError error;
    EXPECT_EQ(ada().streamPosted(stream, room(), &error), stream) << error.description();
    EXPECT_EQ(ada().streamPosted(stream, room(), &error), stream) << "once more changes nothing";
    EXPECT_EQ(outbox(), (std::vector<ZAVDatabaseIdentifier>{1}));
}

TEST_F(OfflineStream, BecomesTheOneThatIsRegisteredAlready) {
    send(message(20));
    sendOffline(10);
    const auto stream = sendOffline(11);
    ZAVError error;
    EXPECT_EQ(ada().streamPosted(stream, room(), &error), 1) << error.description();
    EXPECT_EQ(
        rows("SELECT database_identifier, stream_database_identifier, client_seq FROM events ORDER BY 1"),
        (Rows{"1|1|1", "2|1|2", "3|1|3"}));
    EXPECT_EQ(rows("SELECT COUNT(*) FROM streams"), Rows{"1"});
    EXPECT_EQ(outbox(), (std::vector<ZAVDatabaseIdentifier>{1, 2, 3}));
    send(message(21));
    EXPECT_EQ(rows("SELECT MAX(client_seq) FROM events"), Rows{"4"});
}

TEST_F(OfflineStream, WhoseEventsHaveMovedIsToldOfOnceMore) {
    send(message(20));
    const auto stream = sendOffline(10);
    ZAVError error;
    EXPECT_EQ(ada().streamPosted(stream, room(), &error), 1) << error.description();
    EXPECT_EQ(ada().streamPosted(stream, room(), &error), 1) << error.description();
}

TEST_F(OfflineStream, ThatIsNotThereGetsNoIdentifier) {
    ZAVError error;
    EXPECT_FALSE(ada().streamPosted(7, room(), &error));
    EXPECT_EQ(error.domain(), "ZAVEventStore");
    EXPECT_EQ(error.code(), 19);
    EXPECT_EQ(error.message(), "there is no stream in row 7");
}

TEST_F(OfflineStream, KeepsTheIdentifierThatItHas) {
    const auto stream = sendOffline(10);
    ZAVError error;
    EXPECT_TRUE(ada().streamPosted(stream, room(), &error)) << error.description();
    for (const bool isRegistered : {false, true}) {
        if (isRegistered) {
            execute("INSERT INTO streams (stream_id) VALUES (x'111111111111111111111111111111cc')");
        }
        EXPECT_FALSE(ada().streamPosted(stream, uuidNumber(0xCC), &error));
        EXPECT_EQ(error.domain(), "ZAVEventStore");
        EXPECT_EQ(error.code(), 10);
        EXPECT_EQ(outbox(), (std::vector<ZAVDatabaseIdentifier>{1})) << "what waits stays where it is";
    }
}

TEST_F(OfflineStream, IsNamedByItsRowAlsoWhenTheServiceKnowsIt) {
    const auto stream = sendOffline(10);
    ZAVError error;
    EXPECT_TRUE(ada().streamPosted(stream, room(), &error)) << error.description();
    const auto event = message(11);
    event->set_stream_id(std::nullopt);
    event->setStreamDatabaseIdentifier(stream);
    send(event);
    EXPECT_EQ(event->streamUUID(), room()) << "the record is told under which identifier it goes out";
}

TEST_F(OfflineStream, IsNotTheStreamOfAnotherIdentifier) {
    const auto event = message(11);
    event->setStreamDatabaseIdentifier(sendOffline(10));
    ZAVError error;
    EXPECT_FALSE(ada().send(event, &error)) << "the event says that it is of the room";
    EXPECT_EQ(error.code(), 9);
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"1"});
}

TEST_F(OfflineStream, ThatIsNotThereTakesNoEvent) {
    const auto event = message(11);
    event->set_stream_id(std::nullopt);
    event->setStreamDatabaseIdentifier(7);
    ZAVError error;
    EXPECT_FALSE(ada().send(event, &error));
    EXPECT_EQ(error.message(), "there is no stream in row 7");
    EXPECT_EQ(rows("SELECT COUNT(*) FROM events"), Rows{"0"});
}

}  // namespace
}  // namespace zav::test
