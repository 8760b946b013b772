#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEventRecognition.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>

#include "EventReader.h"

namespace zavevents {

/// Finds the streams of events that name none: the lines of one file that carry one number were in one
/// stream.
///
/// Such a number means nothing in another store. The stream is the one in which an event of the lines was
/// stored before the import began, found by its author and `client_id`; one that the service does not know
/// comes before one that it knows. No two numbers get the same one. Where no event is
/// stored, a new stream is made.
class UnnamedStreams {
public:
    UnnamedStreams(std::shared_ptr<zav::FMDatabase> database, const zav::ZAVEventRecognition& recognition);

    /// To be called when a transaction begins.
    /// @param othersWrote whether another connection has written since the last one.
    void begin(bool othersWrote);

    /// The row of an event's stream.
    /// @throws ToolError
    [[nodiscard]] zav::ZAVDatabaseIdentifier streamOf(const ReadEvent& read);

    [[nodiscard]] std::size_t count() const { return streams_.size(); }

private:
    struct Stream {
        zav::ZAVDatabaseIdentifier row;
        bool isNew;
    };

    /// What distinguishes stored events of one `client_id`: the author, and the sequence or one of the
    /// markers for waiting and for any sequence.
    using Key = std::pair<std::optional<std::string>, std::int64_t>;

    /// The streams of the stored events of one `client_id`, in the order in which they are considered.
    struct Candidates {
        std::map<Key, std::deque<zav::ZAVDatabaseIdentifier>> streams;
        std::size_t events = 0;
    };

    [[nodiscard]] std::optional<zav::ZAVDatabaseIdentifier> streamOfStored(const zav::ZAVEvent& event);
    [[nodiscard]] std::optional<zav::ZAVDatabaseIdentifier> firstFree(Candidates& candidates, const Key& key);
    [[nodiscard]] Candidates& candidatesFor(const zav::ZAVData& clientID);

    const zav::ZAVEventRecognition& recognition_;
    zav::ZAVStreamRepository repository_;
    std::optional<zav::ZAVDatabaseIdentifier> newestRowBefore_;
    std::map<std::optional<std::int64_t>, Stream> streams_;
    std::set<zav::ZAVDatabaseIdentifier> taken_;
    std::map<zav::ZAVData, Candidates> clients_;
};

}  // namespace zavevents
