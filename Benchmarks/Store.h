#pragma once

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVMessagePart.h>
#include <ZAVEventRepository/ZAVSet.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zav::bench {

struct StoreShape {
    std::size_t events = 20'000;

    /// How many of the events, the first ones, are recorded in `synced_changes`.
    std::size_t unprocessed = 10'000;

    /// How many events, spread evenly, the service has not sequenced.
    std::size_t unsequenced = 200;

    /// One part in so many is not completely transferred.
    std::size_t incompleteEvery = 100;
};

/// How many streams a store of that shape has. None has more than 200 events or so.
std::size_t streamsOf(const StoreShape& shape);

/// Makes a database file with the library's schema: events of all kinds in streams of 200, most of them
/// messages with one to three parts, some with metadata. The same shape gives the same file.
void makeStore(const std::string& path, const StoreShape& shape);

/// What a new event consists of, and among how many of the store's streams such events are scattered.
struct EventShape {
    std::size_t parts = 1;
    bool metadata = false;
    std::size_t streams = 1;
};

/// `count` new events. `generation` tells the events of one call from those of
/// another.
ZAVSet<ZAVTEvent> makeEvents(const EventShape& shape, std::size_t count, std::size_t generation);

/// Keys of records that are in the store, scattered over it.
struct Samples {
    struct Position {
        ZAVSequence seq;
        ZAVUUID stream;
    };

    std::vector<ZAVDatabaseIdentifier> eventRows;
    std::vector<Position> positions;
    std::vector<ZAVDatabaseIdentifier> partRows;
    std::vector<ZAVDatabaseIdentifier> eventsOfParts;
    std::vector<std::shared_ptr<ZAVMessagePart>> messageParts;
    std::vector<ZAVURL> objectIdentifiers;
    std::vector<ZAVURL> externalURLs;
};

/// `count` keys of each kind. Another `draw` gives other keys.
Samples takeSamples(const std::string& path, std::size_t count, std::uint64_t draw = 0);

}  // namespace zav::bench
