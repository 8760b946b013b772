#include <ZAVEventRepository/ZAVKeyedValuesContext.h>
#include <ZAVEventRepository/ZAVTimelineWindow.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <list>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Store/WindowFixture.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

/// A window beside what it should show, which is read anew.
class WatchedWindow {
public:
    WatchedWindow(const ZAVTimeline& timeline, const ZAVTimelineWindowOptions& options)
        : timeline_(timeline), options_(options) {
        ZAVError error;
        window_ = ZAVTimelineWindow::open(timeline_, screen_.observer(), options, &error);
        EXPECT_NE(window_, nullptr) << error.description();
    }

    /// Reads what it should show. `sequenceOf` answers that of the event in a row, if it has one.
    void expect(ZAVDatabaseIdentifier stream,
                const std::function<std::optional<ZAVSequence>(ZAVDatabaseIdentifier)>& sequenceOf) {
        std::optional<ZAVTimelinePage> page;
        if (first_ && first_->stream() == stream) {
            if (const auto waited = first_->waitingEvent()) {
                if (const auto seq = sequenceOf(*waited)) {
                    first_ = ZAVTimelineCursor::atSequence(stream, *seq);
                }
            }
            page = timeline_.between(first_, last_);
        }
        if (!page || page->events.empty()) {
            const auto* const seq = std::get_if<ZAVSequence>(&options_.around);
            page = hadEvents_ || seq == nullptr ? timeline_.latest(options_.count)
                                                : timeline_.around(*seq, options_.count);
            first_.reset();
            if (!page->events.empty()) {
                first_ = page->cursors.front();
                last_ = placeOf(page->cursors.back());
                hadEvents_ = true;
            }
        }
        if (!page->hasLater) {
            last_.reset();
        }
        expected_.emplace(*page);
    }

    [[nodiscard]] bool showsIt() const {
        return screen_.deliveries() > 0 && !screen_.last().error &&
               PageRecord(screen_.last().page) == *expected_;
    }

    void extendEarlier(std::size_t count) {
        window_->extendEarlier(count);
        if (first_) {
            const auto page = timeline_.before(*first_, count);
            first_ = page->cursors.empty() ? first_ : page->cursors.front();
        }
    }

    void extendLater(std::size_t count) {
        window_->extendLater(count);
        if (first_ && last_) {
            const auto page = timeline_.after(*last_, count);
            last_ = page->cursors.empty() ? *last_ : placeOf(page->cursors.back());
        }
    }

    void trim(const std::function<std::size_t(std::size_t)>& below) {
        const auto& cursors = screen_.last().page.cursors;
        if (!cursors.empty()) {
            const std::size_t first = below(cursors.size());
            const std::size_t last = first + below(cursors.size() - first);
            window_->trim(cursors[first], cursors[last]);
            first_ = cursors[first];
            // One that reaches the newest end, and is to keep its last event, goes on to follow.
            const bool keepsEnd = last + 1 == cursors.size() && !screen_.last().page.hasLater;
            last_ = keepsEnd ? std::nullopt : std::optional(placeOf(cursors[last]));
        }
    }

    [[nodiscard]] std::string steps() const { return screen_.steps(); }

private:
    /// The place of a cursor that stays where it is when its event gets a sequence: behind it, where no event
    /// can stand, since each has a `client_seq` of its own.
    static ZAVTimelineCursor placeOf(const ZAVTimelineCursor& cursor) {
        return cursor.waitingEvent() ? ZAVTimelineCursor::atWaiting(cursor.stream(), cursor.clientSeq(),
                                                                    std::numeric_limits<std::int64_t>::max())
                                     : cursor;
    }

    ZAVTimeline timeline_;
    ZAVTimelineWindowOptions options_;
    Screen screen_;
    std::unique_ptr<ZAVTimelineWindow> window_;
    std::optional<ZAVTimelineCursor> first_;
    std::optional<ZAVTimelineCursor> last_;
    bool hadEvents_ = false;
    std::optional<PageRecord> expected_;
};

/// Days of a client, of which windows show several places.
class RandomWindows : public TimelineStore, public testing::WithParamInterface<int> {
protected:
    RandomWindows() : random_(static_cast<std::uint32_t>(GetParam())) {
        ZAVEventStoreOptions options = optionsWithLoop();
        options.userID = "ada";
        options.appID = uuidNumber(99);
        options.database.synchronous = FMDatabaseOptions::Synchronous::normal;
        store_ = open(options);
        other_ = open(options);
        const ZAVTimelineOptions messages{.types = {EventType_MESSAGE}, .tombstones = false};
        show({*store_, room()}, {.count = 5});
        show({*store_, room()}, {.count = 8, .around = ZAVSequence{20}});
        show({*store_, room(), messages}, {.count = 4});
        show({*store_, room(), {.types = {EventType_MESSAGE_READ}}}, {.count = 3, .around = ZAVSequence{30}});
        show({*store_, room()}, {.count = 1000});
    }

    void step() {
        switch (below(20)) {
            case 0:
            case 1:
            case 2:
                return send();
            case 3:
            case 4:
                return recordPosted();
            case 5:
                return deleteEvents();
            case 6:
                static_cast<void>(writer().makeTombstone(room(), anySeq()));
                return;
            case 7:
            case 8:
                return transfer();
            case 9:
            case 10:
                return changeMetadata();
            case 11:
                if (below(15) == 0) {
                    static_cast<void>(writer().deleteStream(stream()));
                }
                return;
            case 12:
                windowAtRandom().extendEarlier(1 + below(4));
                return awaitWhatWasAsked();
            case 13:
                windowAtRandom().extendLater(1 + below(4));
                return awaitWhatWasAsked();
            case 14:
                windowAtRandom().trim([this](std::size_t bound) { return below(bound); });
                return awaitWhatWasAsked();
            case 15:
                return elsewhere();
            default:
                return receive();
        }
    }

    void check() {
        if (isByOthers_) {
            EXPECT_TRUE(store_->lookForCommitsOfOthers());
        }
        isByOthers_ = below(4) == 0;
        const auto row = stream();
        for (WatchedWindow& window : windows_) {
            window.expect(row, [this](ZAVDatabaseIdentifier event) { return sequenceOf(event); });
            loop().runUntil([&] { return window.showsIt(); });
        }
    }

private:
    void show(const ZAVTimeline& timeline, ZAVTimelineWindowOptions options) {
        options.coalescing = std::chrono::milliseconds(GetParam() % 3);
        windows_.emplace_back(timeline, options);
    }

    /// What changes nothing now might do so if it were done after the next step. Windows that are opened are
    /// read later than what was asked before; the second one also than what waited for a delivery.
    void awaitWhatWasAsked() {
        for (int count = 0; count < 2; ++count) {
            Screen screen;
            const auto window = ZAVTimelineWindow::open({*store_, room()}, screen.observer());
            loop().runUntil([&] { return screen.deliveries() > 0; });
        }
    }

    [[nodiscard]] std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }
    [[nodiscard]] ZAVEventStore& writer() { return isByOthers_ ? *other_ : *store_; }
    [[nodiscard]] WatchedWindow& windowAtRandom() {
        auto window = windows_.begin();
        std::advance(window, below(windows_.size()));
        return *window;
    }
    [[nodiscard]] ZAVSequence anySeq() { return 1 + static_cast<ZAVSequence>(below(60)); }

    [[nodiscard]] ZAVDatabaseIdentifier stream() {
        ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;
        store_->read([&](const ZAVRepositories& repositories) {
            row = repositories.streams.streamDatabaseIdentifierForUUID(room());
        });
        return row;
    }

    [[nodiscard]] std::string answer(const std::string& sql) {
        std::string text;
        store_->read(
            [&](const ZAVRepositories& repositories) { text = scalar(repositories.events.database(), sql); });
        return text;
    }

    [[nodiscard]] std::optional<ZAVSequence> sequenceOf(ZAVDatabaseIdentifier event) {
        const auto seq =
            answer("SELECT seq FROM events WHERE database_identifier = " + std::to_string(event));
        return seq.empty() || seq == "NULL" ? std::nullopt : std::optional(std::stoi(seq));
    }

    [[nodiscard]] std::optional<ZAVDatabaseIdentifier> anyRow() {
        const auto row = answer("SELECT database_identifier FROM events ORDER BY (database_identifier * " +
                                std::to_string(1 + below(1000)) + ") % 997 LIMIT 1");
        return row.empty() ? std::nullopt : std::optional(std::stoll(row));
    }

    static ZAVUUID idOf(int number) {
        std::string text = std::to_string(number);
        text.insert(0, 12 - text.size(), '0');
        return *ZAVUUID::fromString("22222222-2222-2222-2222-" + text);
    }

    [[nodiscard]] std::shared_ptr<ZAVEvent> message(int number) {
        auto event = std::make_shared<ZAVEvent>();
        event->set_type(EventType_MESSAGE);
        event->set_stream_id(ZAVDataFromUUID(room()));
        event->set_client_id(ZAVDataFromUUID(idOf(number)));
        std::vector<std::shared_ptr<ZAVTContent>> parts{makeTextPart("text " + std::to_string(below(3)))};
        if (number % 3 == 0) {
            parts.push_back(std::make_shared<ZAVEventContent>());
            parts.back()->set_media_type("image/png");
            parts.back()->set_external_url("https://files.example/" + std::to_string(number));
        }
        event->set_content(std::move(parts));
        return event;
    }

    void send() {
        ZAVError error;
        const auto sent = writer().send(message(++lastNumber_), &error);
        ASSERT_TRUE(sent) << error.description();
        sent_.push_back(lastNumber_);
    }

    void recordPosted() {
        if (!sent_.empty()) {
            const std::size_t index = below(sent_.size());
            static_cast<void>(writer().recordPosted(room(), idOf(sent_[index]), anySeq(), "ada", 7));
            sent_.erase(sent_.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }

    void receive() {
        std::vector<std::shared_ptr<ZAVEvent>> events;
        for (std::size_t count = 1 + below(5); count > 0; --count) {
            const ZAVSequence seq = anySeq();
            auto event = message(1000000 + seq);
            if (seq % 5 == 0) {
                event->set_type(EventType_MESSAGE_READ);
            } else if (seq % 11 == 0) {
                event->set_type(EventType_EVENT_DELETED);
                event->set_target_seq(anySeq());
            }
            event->set_creator_id("bruno");
            event->set_seq(seq);
            event->set_server_timestamp(static_cast<std::int64_t>(below(3)));
            events.push_back(std::move(event));
        }
        ZAVError error;
        EXPECT_TRUE(writer().receive(room(), events, {}, &error)) << error.description();
    }

    void deleteEvents() {
        std::vector<ZAVDatabaseIdentifier> rows;
        for (std::size_t count = below(4); count > 0; --count) {
            if (const auto row = anyRow()) {
                rows.push_back(*row);
            }
        }
        EXPECT_TRUE(writer().deleteEvents(rows));
    }

    /// A part is on its way, has come, was used or was purged.
    void transfer() {
        const auto row = anyRow();
        if (!row) {
            return;
        }
        EXPECT_TRUE(writer().write([&](const ZAVRepositories& repositories) {
            for (const auto& part : repositories.events.eventForDatabaseIdentifier(*row)->contentParts()) {
                part->setTransferStatus(static_cast<ZAVContentTransferStatus>(below(5)));
                part->setLastAccessed(ZAVDateFromSecondsSince1970(static_cast<double>(below(5))));
                part->setIsPurged(below(2) == 0);
                EXPECT_TRUE(repositories.events.persistEventContentUpdate(*part));
            }
            return true;
        }));
    }

    void changeMetadata() {
        const auto row = anyRow();
        if (!row) {
            return;
        }
        EXPECT_TRUE(writer().write([&](const ZAVRepositories& repositories) {
            ZAVDictionary values;
            for (std::size_t count = below(3); count > 0; --count) {
                values.set("key " + std::to_string(below(2)), std::to_string(below(2)));
            }
            return repositories.keyedValues.setKeyedValuesWithDictionary(
                values, std::nullopt,
                ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableRemote, "event", *row,
                                                        ZAVKeyedValuesKeyTypeTransient));
        }));
    }

    /// What concerns no window.
    void elsewhere() {
        EXPECT_TRUE(writer().write([&](const ZAVRepositories& repositories) {
            const auto row = repositories.streams.findOrCreateStreamWithUUID(uuidNumber(2));
            return repositories.events.database().executeUpdate(
                "INSERT INTO events (type, stream_database_identifier, client_id) VALUES (4, ?, X'01')", row);
        }));
    }

    std::mt19937 random_;
    std::unique_ptr<ZAVEventStore> store_;
    std::unique_ptr<ZAVEventStore> other_;  ///< another process, as far as the first one knows
    std::list<WatchedWindow> windows_;
    bool isByOthers_ = false;
    int lastNumber_ = 0;
    std::vector<int> sent_;  ///< numbers of events of which the service's answer has not come
};

TEST_P(RandomWindows, show_what_is_read_anew_after_each_step) {
    const int steps = rounds(400, 5000);
    check();
    for (int step = 1; step <= steps && !HasFailure(); ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        this->step();
        check();
    }
}

INSTANTIATE_TEST_SUITE_P(OnSeveralDays, RandomWindows, testing::Range(0, 5));

}  // namespace
}  // namespace zav::test
