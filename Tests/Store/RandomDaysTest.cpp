#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

const ZAVUUID& room() {
    static const ZAVUUID uuid = uuidNumber(1);
    return uuid;
}

/// A `client_id` of its own for each number.
ZAVUUID clientID(int number) {
    std::string text = std::to_string(number);
    text.insert(0, 12 - text.size(), '0');
    return *ZAVUUID::fromString("22222222-2222-2222-2222-" + text);
}

/// What the service has of one stream: a log, whose events keep their place.
class Service {
public:
    struct Event {
        int number;
        std::string author;
        std::optional<ZAVSequence> deletes{};
    };

    /// Takes an event, or knows that it has it. Answers its sequence.
    ZAVSequence post(Event event) {
        const auto [place, isNew] = places_.emplace(event.number, static_cast<ZAVSequence>(log_.size()) + 1);
        if (isNew) {
            log_.push_back(std::move(event));
        }
        return place->second;
    }

    [[nodiscard]] const Event& at(ZAVSequence seq) const { return log_[static_cast<std::size_t>(seq) - 1]; }
    [[nodiscard]] ZAVSequence last() const { return static_cast<ZAVSequence>(log_.size()); }

private:
    std::vector<Event> log_;
    std::map<int, ZAVSequence> places_;
};

/// Whether an event is a message with a picture, which the service keeps.
bool isPicture(const Service::Event& event) {
    return event.author == "bruno" && !event.deletes && event.number % 3 == 0;
}

std::string textOf(int number) {
    return "text " + std::to_string(number);
}

std::shared_ptr<ZAVEvent> record(int number, const std::optional<ZAVSequence>& deletes) {
    auto event = std::make_shared<ZAVEvent>();
    event->set_type(deletes ? EventType_EVENT_DELETED : EventType_MESSAGE);
    event->set_stream_id(ZAVDataFromUUID(room()));
    event->set_client_id(ZAVDataFromUUID(clientID(number)));
    if (deletes) {
        event->set_target_seq(*deletes);
    } else {
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart(textOf(number))});
    }
    return event;
}

std::shared_ptr<ZAVEventContent> pictureOf(int number) {
    auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("image/png");
    part->set_external_url("https://files.example/" + std::to_string(number));
    return part;
}

/// The days of one client, step by step, and what it must have stored.
class Days {
public:
    explicit Days(std::uint32_t seed) : random_(seed) { reopen(); }

    void step() {
        switch (below(14)) {
            case 0:
                return send();
            case 1:
                return post(below(3) != 0);
            case 2:
                service_.post({++lastNumber_, "bruno"});
                return;
            case 3:
                return deleteSomething();
            case 4:
            case 5:
            case 6:
                return receive();
            case 7:
                return recordPostedAgain();
            case 8:
            case 9:
                return download();
            case 10:
                return purge();
            case 11:
                return deleteHere();
            case 12:
                return repair();
            default:
                if (below(10) == 0) {
                    reopen();
                }
        }
    }

    /// Compares what is stored with what has to be.
    void check() {
        std::vector<std::string> expected;
        for (const ZAVSequence seq : known_) {
            const Service::Event& event = service_.at(seq);
            expected.push_back(rowText(seq, event.number,
                                       isDeleted(seq)  ? 10
                                       : event.deletes ? 9
                                                       : 4,
                                       event.author, isDeleted(seq) || event.deletes || isPicture(event)));
        }
        std::vector<ZAVDatabaseIdentifier> outbox;
        for (const auto& [number, row] : rows_) {
            if (!isKnown(number)) {
                expected.push_back(rowText(std::nullopt, number, 4, "ada", false));
                outbox.push_back(row);
            }
        }
        EXPECT_EQ(stored(), expected);
        EXPECT_EQ(storedOutbox(), outbox) << "what waits is in the order in which it was sent";
        EXPECT_EQ(storedFiles(), files_) << "files are there for the parts that say so";
        const auto usage = store_->content().bytesOnDisk();
        ASSERT_TRUE(usage);
        std::uint64_t bytes = 0;
        for (const auto& file : files_) {
            bytes += file.second.size();
        }
        EXPECT_EQ(usage->total, bytes);
    }

private:
    [[nodiscard]] int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }

    void reopen() {
        store_.reset();
        ZAVEventStoreOptions options;
        options.userID = "ada";
        options.appID = uuidNumber(99);
        options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(root());
        options.database.synchronous = FMDatabaseOptions::Synchronous::normal;
        ZAVError error;
        store_ = ZAVEventStore::open(directory_.file("days.db"), options, &error);
        if (store_ == nullptr) {
            throw std::runtime_error(error.description());
        }
    }

    void send() {
        const int number = ++lastNumber_;
        ZAVError error;
        const auto sent = store_->send(record(number, std::nullopt), &error);
        ASSERT_TRUE(sent) << error.description();
        rows_.emplace(number, sent->row);
        if (below(4) == 0) {
            EXPECT_EQ(store_->send(record(number, std::nullopt))->row, sent->row) << "sent twice";
        }
    }

    /// The next event goes to the service, whose answer may be lost.
    void post(bool isAnswered) {
        const auto waiting = store_->outbox();
        ASSERT_TRUE(waiting);
        if (waiting->empty()) {
            return;
        }
        const auto row = waiting->front()->databaseIdentifier();
        const auto sent =
            std::find_if(rows_.begin(), rows_.end(), [&](const auto& one) { return one.second == row; });
        ASSERT_NE(sent, rows_.end()) << "row " << row << " was never sent";
        const ZAVSequence seq = service_.post({sent->first, "ada"});
        if (isAnswered) {
            recordPosted(seq);
        }
    }

    void recordPosted(ZAVSequence seq) {
        ZAVError error;
        const auto answer =
            store_->recordPosted(room(), clientID(service_.at(seq).number), seq, "ada", 1000 + seq, &error);
        ASSERT_TRUE(answer) << error.description();
        EXPECT_EQ(answer->row, rows_.at(service_.at(seq).number)) << "the row stays the one that was sent";
        known_.insert(seq);
    }

    void recordPostedAgain() {
        for (int attempt = 0; attempt < 5 && service_.last() > 0; ++attempt) {
            const ZAVSequence seq = 1 + below(service_.last());
            if (service_.at(seq).author == "ada" && !service_.at(seq).deletes) {
                return recordPosted(seq);
            }
        }
    }

    void deleteSomething() {
        if (service_.last() == 0) {
            return;
        }
        // Near the end, too, where the client has not come yet.
        const ZAVSequence seq = std::max(1, service_.last() - below(20));
        if (!service_.at(seq).deletes) {
            service_.post({++lastNumber_, "bruno", seq});
        }
    }

    /// A page of the service's log, in any order, with an event twice now and then.
    void receive() {
        if (service_.last() == 0) {
            return;
        }
        const ZAVSequence first = std::max(1, service_.last() - below(30));
        const ZAVSequence last = std::min(service_.last(), first + below(12));
        std::vector<ZAVSequence> page;
        for (ZAVSequence seq = first; seq <= last; ++seq) {
            page.push_back(seq);
        }
        page.push_back(page[static_cast<std::size_t>(below(static_cast<int>(page.size())))]);
        if (below(2) == 0) {
            std::shuffle(page.begin(), page.end(), random_);
        }
        std::vector<std::shared_ptr<ZAVEvent>> events;
        for (const ZAVSequence seq : page) {
            const Service::Event& event = service_.at(seq);
            events.push_back(record(event.number, event.deletes));
            if (isPicture(event)) {
                events.back()->set_content(
                    std::vector<std::shared_ptr<ZAVTContent>>{pictureOf(event.number)});
            }
            events.back()->set_creator_id(event.author);
            events.back()->set_seq(seq);
            events.back()->set_server_timestamp(1000 + seq);
        }
        ZAVError error;
        const auto answers = store_->receive(room(), events, {}, &error);
        ASSERT_TRUE(answers) << error.description();
        for (std::size_t index = 0; index < page.size(); ++index) {
            const ZAVReceivedEvent& answer = (*answers)[index];
            EXPECT_FALSE(answer.reason) << answer.reason.description();
            if (const auto sent = rows_.find(service_.at(page[index]).number); sent != rows_.end()) {
                EXPECT_EQ(answer.row, sent->second) << "the row stays the one that was sent";
            }
            known_.insert(page[index]);
            if (const auto deletes = service_.at(page[index]).deletes) {
                deleted_.insert(*deletes);
                files_.erase(fileOf(*deletes));
            }
        }
    }

    /// One of the pictures that are here, if there are any; its sequence.
    [[nodiscard]] std::optional<ZAVSequence> anyPicture() {
        std::vector<ZAVSequence> pictures;
        for (const ZAVSequence seq : known_) {
            if (isPicture(service_.at(seq))) {
                pictures.push_back(seq);
            }
        }
        return pictures.empty()
                   ? std::nullopt
                   : std::optional(
                         pictures[static_cast<std::size_t>(below(static_cast<int>(pictures.size())))]);
    }

    [[nodiscard]] ZAVDatabaseIdentifier rowAt(ZAVSequence seq) {
        ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;
        EXPECT_TRUE(store_->read([&](const ZAVRepositories& repositories) {
            row = repositories.events.eventWithSeq(seq, room())->databaseIdentifier();
        }));
        return row;
    }

    /// Whole or given up half way.
    void download() {
        const auto seq = anyPicture();
        if (!seq) {
            return;
        }
        const bool isWanted = !isDeleted(*seq) && !files_.contains(fileOf(*seq));
        auto writer = store_->content().beginDownload(rowAt(*seq), 0);
        EXPECT_EQ(writer.has_value(), isWanted)
            << "what is not there, and was not deleted, can be downloaded";
        const std::string content = "picture " + std::to_string(*seq);
        if (!writer) {
            return;
        }
        EXPECT_TRUE(writer->append({reinterpret_cast<const std::uint8_t*>(content.data()), content.size()}));
        if (below(4) != 0) {
            EXPECT_TRUE(writer->finish());
            files_[fileOf(*seq)] = content;
        }
    }

    void purge() {
        if (below(3) != 0) {
            return;
        }
        const auto result = store_->content().purge({});
        ASSERT_TRUE(result);
        files_.clear();
    }

    /// The user deletes a picture, of which the service knows nothing.
    void deleteHere() {
        if (const auto seq = anyPicture()) {
            EXPECT_EQ(store_->deleteEvents(std::vector{rowAt(*seq)}), 1U);
            known_.erase(*seq);
            files_.erase(fileOf(*seq));
        }
    }

    void repair() {
        const auto settled = store_->content().repair(std::chrono::seconds(0));
        ASSERT_TRUE(settled);
        EXPECT_TRUE(settled->files.empty() && settled->partsWithoutFile.empty())
            << "there was nothing to repair";
    }

    [[nodiscard]] std::string root() const { return directory_.file("content"); }
    [[nodiscard]] std::string fileOf(ZAVSequence seq) const {
        return root() + "/" + uuidNumber(99).UUIDString() + "/ada/" +
               clientID(service_.at(seq).number).UUIDString() + "/part-0";
    }

    [[nodiscard]] std::map<std::string, std::string> storedFiles() const {
        std::map<std::string, std::string> files;
        if (std::filesystem::exists(root())) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root())) {
                if (!entry.is_directory()) {
                    files[entry.path().string()] = bytesOfFile(entry.path().string());
                }
            }
        }
        return files;
    }

    [[nodiscard]] bool isDeleted(ZAVSequence seq) const { return deleted_.contains(seq); }

    [[nodiscard]] bool isKnown(int number) const {
        return std::any_of(known_.begin(), known_.end(),
                           [&](ZAVSequence seq) { return service_.at(seq).number == number; });
    }

    static std::string rowText(std::optional<ZAVSequence> seq, int number, int type,
                               const std::string& author, bool isEmpty) {
        return (seq ? std::to_string(*seq) : "waits") + " " + clientID(number).UUIDString() + " " +
               std::to_string(type) + " " + author + (isEmpty ? "" : " " + textOf(number));
    }

    [[nodiscard]] std::vector<std::string> stored() {
        std::vector<std::string> texts;
        EXPECT_TRUE(store_->read([&](const ZAVRepositories& repositories) {
            auto rows = repositories.events.database().executeQuery(
                "SELECT seq, client_id, type, creator_id, (SELECT CAST(value AS TEXT) FROM event_content_parts"
                " WHERE event_database_identifier = events.database_identifier) FROM events"
                " ORDER BY seq IS NULL, seq, client_seq");
            while (rows->next()) {
                const auto text = rows->stringForColumnIndex(4);
                texts.push_back(
                    (rows->columnIndexIsNull(0) ? "waits" : std::to_string(rows->intForColumnIndex(0))) +
                    " " + ZAVUUIDFromData(rows->dataForColumnIndex(1))->UUIDString() + " " +
                    std::to_string(rows->intForColumnIndex(2)) + " " +
                    rows->stringForColumnIndex(3).value_or("nobody") + (text ? " " + *text : ""));
            }
        }));
        return texts;
    }

    [[nodiscard]] std::vector<ZAVDatabaseIdentifier> storedOutbox() {
        std::vector<ZAVDatabaseIdentifier> rows;
        const auto outbox = store_->outbox().value();
        for (const auto& event : outbox) {
            rows.push_back(event->databaseIdentifier());
        }
        return rows;
    }

    TemporaryDirectory directory_;
    std::mt19937 random_;
    Service service_;
    std::unique_ptr<ZAVEventStore> store_;
    int lastNumber_ = 0;
    std::map<int, ZAVDatabaseIdentifier> rows_;  ///< of what was sent, by number
    std::set<ZAVSequence> known_;                ///< what the client was told of
    std::set<ZAVSequence> deleted_;
    std::map<std::string, std::string> files_;  ///< which are there, with their content
};

TEST(RandomDays, LeaveWhatTheServiceSaidInWhateverOrderItCame) {
    constexpr int stepsOfADay = 500;
    const int days = rounds(20, 2000);
    for (int day = 0; day < days && !testing::Test::HasFailure(); ++day) {
        SCOPED_TRACE("seed " + std::to_string(day));
        Days client(static_cast<std::uint32_t>(day));
        for (int step = 1; step <= stepsOfADay && !testing::Test::HasFailure(); ++step) {
            client.step();
            if (step % 50 == 0) {
                client.check();
            }
        }
    }
}

}  // namespace
}  // namespace zav::test
