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

/// Makes a database file with the library's schema: events of all kinds in streams of 200, most of them
/// messages with one to three parts, some with metadata. The same shape gives the same file.
void makeStore(const std::string& path, const StoreShape& shape);

/// What a new event consists of.
struct EventShape {
    std::size_t parts = 1;
    bool metadata = false;
};

/// `count` new events in one of the store's streams. `generation` tells the events of one call from those of
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

Samples takeSamples(const std::string& path, std::size_t count);

}  // namespace zav::bench
