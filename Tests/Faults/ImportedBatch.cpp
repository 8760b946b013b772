#include "Faults/ImportedBatch.h"

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace zav::test {
namespace {

constexpr int eventsAtMost = 60;

std::optional<std::int64_t> number(FMDatabase& database, std::string_view sql) {
    auto rows = database.executeQuery(sql);
    if (!rows || !rows->next()) {
        return std::nullopt;
    }
    return rows->longLongIntForColumnIndex(0);
}

std::size_t countOf(FMDatabase& database, const std::string& rows) {
    const auto count = number(database, "SELECT COUNT(*) FROM " + rows);
    EXPECT_TRUE(count) << rows << " cannot be counted: " << database.lastError().description();
    return static_cast<std::size_t>(count.value_or(0));
}

ZAVUUID uuidOf(std::uint8_t kind, int first, int second) {
    ZAVUUID::Bytes bytes{};
    bytes[0] = kind;
    bytes[6] = 0x40;
    bytes[8] = 0x80;
    for (std::size_t index = 0; index < 4; ++index) {
        bytes[1 + index] = static_cast<std::uint8_t>(first >> (8 * index));
        bytes[15 - index] = static_cast<std::uint8_t>(second >> (8 * index));
    }
    return ZAVUUID(bytes);
}

class Maker {
public:
    explicit Maker(int number) : random_(static_cast<std::uint32_t>(number) * 2654435761U + 1) {}

    std::size_t below(std::size_t limit) { return random_() % limit; }

    std::string text(std::size_t size) {
        std::string result;
        while (result.size() < size) {
            result += static_cast<char>('a' + below(26));
        }
        return result;
    }

    std::shared_ptr<ZAVEventContent> part() {
        auto result = std::make_shared<ZAVEventContent>();
        // Some fill pages of their own.
        const std::size_t size = below(25) == 0 ? 3000 + below(6000) : 5 + below(200);
        result->set_media_type(below(2) == 0 ? "text/plain" : "image/png");
        result->set_size(static_cast<std::int64_t>(size));
        if (below(4) == 0) {
            result->set_external_url("https://content.test/" + text(12));
            result->setTransferStatus(ZAVContentTransferReadyForDownload);
        } else {
            result->set_body(ZAVData::fromText(text(size)));
            result->setTransferStatus(ZAVContentTransferComplete);
        }
        return result;
    }

    std::shared_ptr<ZAVEvent> event(const ZAVUUID& stream, int seq) {
        auto result = std::make_shared<ZAVEvent>();
        const std::size_t parts = below(4);
        result->set_type(parts == 0 ? EventType_MESSAGE_READ : EventType_MESSAGE);
        result->set_stream_id(ZAVDataFromUUID(stream));
        result->set_client_id(ZAVDataFromUUID(uuidOf(0xC1, seq, seq)));
        result->set_seq(seq);
        result->set_creator_id("creator-" + text(6));
        result->set_server_timestamp(1400000000000 + seq);
        if (parts != 0) {
            std::vector<std::shared_ptr<ZAVTContent>> content;
            for (std::size_t index = 0; index < parts; ++index) {
                content.push_back(part());
            }
            result->set_content(std::move(content));
        }
        if (below(3) == 0) {
            ZAVDictionary metadata;
            metadata.set("push-text", text(40));
            metadata.set("sound", text(5));
            result->set_transient_metadata(std::move(metadata));
        }
        return result;
    }

private:
    std::minstd_rand random_;
};

std::string textOf(const std::optional<std::string>& text) {
    return text.value_or("none");
}

/// What an event is about, whether it was made or read.
std::string descriptionOf(const ZAVEvent& event) {
    std::string text = std::to_string(event.type()) + " " + std::to_string(event.seq()) + " " +
                       textOf(event.creator_id()) + " " + std::to_string(event.server_timestamp()) + " " +
                       ZAVUUIDFromData(event.client_id()).value_or(ZAVUUID()).UUIDString();
    if (event.transient_metadata()) {
        for (const auto& [key, value] : *event.transient_metadata()) {
            const auto* const bytes = std::get_if<ZAVData>(&value);
            text += " " + key + "=" + (bytes ? std::string(bytes->asText()) : std::get<std::string>(value));
        }
    }
    for (const auto& part : event.contentParts()) {
        text += "\n  " + textOf(part->media_type()) + " " + std::to_string(part->size()) + " " +
                std::to_string(part->transferStatus()) + " " + textOf(part->external_url()) + " " +
                (part->body() ? std::string(part->body()->asText()) : "none");
    }
    return text;
}

}  // namespace

ImportedRows ImportedRows::in(FMDatabase& database) {
    return {countOf(database, "events"), countOf(database, "event_content_parts"),
            countOf(database, "keyed_values_remote"), countOf(database, "synced_changes")};
}

ImportedRows& ImportedRows::operator+=(const ImportedRows& more) {
    events += more.events;
    parts += more.parts;
    metadata += more.metadata;
    changes += more.changes;
    return *this;
}

std::ostream& operator<<(std::ostream& stream, const ImportedRows& rows) {
    return stream << rows.events << " events, " << rows.parts << " parts, " << rows.metadata << " metadata, "
                  << rows.changes << " changes";
}

ImportedBatch::ImportedBatch(int number) : number_(number), stream_(uuidOf(0x57, number % 3, 0)) {
    Maker maker(number);
    const std::size_t count = 20 + maker.below(eventsAtMost - 19);
    for (std::size_t position = 0; position < count; ++position) {
        events_.append(maker.event(stream_, seqAt(position)));
    }
}

ZAVSequence ImportedBatch::seqAt(std::size_t position) const {
    return number_ * eventsAtMost + static_cast<int>(position) + 1;
}

ImportedRows ImportedBatch::rows() const {
    ImportedRows rows{events_.size(), 0, 0, events_.size()};
    for (const auto& event : events_) {
        rows.parts += event->content() ? event->content()->size() : 0;
        rows.metadata += event->transient_metadata() ? event->transient_metadata()->size() : 0;
    }
    return rows;
}

bool ImportedBatch::storeWithin(const std::shared_ptr<FMDatabase>& database, ZAVError* error) const {
    if (ZAVStreamRepository(database).findOrCreateStreamWithUUID(stream_, error) ==
            ZAVDatabaseIdentifierNotSet ||
        !ZAVEventRepository(database).persistEvents(events_, error)) {
        return false;
    }
    const ZAVSyncedChangeRepository changes(database);
    for (const auto& event : events_) {
        if (!changes.recordChange(ZAVSyncedChangeTableNameEvents, event->databaseIdentifier(),
                                  ZAVSyncedChangeTypeInsert, error)) {
            return false;
        }
    }
    return true;
}

bool ImportedBatch::store(const std::shared_ptr<FMDatabase>& database, ZAVError* error) const {
    auto transaction = ZAVTransaction::begin(*database, error);
    return transaction && storeWithin(database, error) && transaction->commit(error);
}

std::string ImportedBatch::presenceIn(const std::shared_ptr<FMDatabase>& database) const {
    const ZAVEventRepository repository(database);
    std::size_t found = 0;
    std::string lacks;
    for (const auto& event : events_) {
        const auto stored = repository.eventWithSeq(event->seq(), stream_);
        if (!stored) {
            lacks = "no event with sequence " + std::to_string(event->seq());
            continue;
        }
        ++found;
        const auto changes = number(*database,
                                    "SELECT COUNT(*) FROM synced_changes WHERE table_name = 'events'"
                                    " AND change_type = 0 AND row_identifier = " +
                                        std::to_string(stored->databaseIdentifier()));
        if (changes != 1) {
            lacks = "not one change for the event with sequence " + std::to_string(event->seq());
        } else if (descriptionOf(*stored) != descriptionOf(*event)) {
            lacks = "another event with sequence " + std::to_string(event->seq()) + ":\n" +
                    descriptionOf(*stored) + "\ninstead of\n" + descriptionOf(*event);
        }
    }
    if (found == 0) {
        return absent;
    }
    return lacks.empty() ? whole
                         : std::to_string(found) + " of " + std::to_string(events_.size()) +
                               " events of batch " + std::to_string(number_) + ", and " + lacks;
}

}  // namespace zav::test
