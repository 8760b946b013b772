#include "Replay.h"

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include <memory>
#include <stdexcept>
#include <utility>

namespace zav::bench {
namespace {

void require(bool succeeded, const ZAVError& error) {
    if (!succeeded || error) {
        throw std::runtime_error(error.description());
    }
}

std::shared_ptr<FMDatabase> open(const std::string& path) {
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(path, {}, &error);
    require(database != nullptr, error);
    return database;
}

}  // namespace

ZAVSet<ZAVEvent> readAll(const std::string& path) {
    ZAVError error;
    auto events = ZAVEventRepository(open(path)).allEvents(&error);
    require(events.has_value(), error);
    if (events->empty()) {
        throw std::runtime_error("the store holds no events");
    }
    return *std::move(events);
}

void makeNew(const ZAVSet<ZAVEvent>& events) {
    for (const auto& event : events) {
        if (!event->streamUUID() || event->seq() == 0) {
            throw std::runtime_error("every event must have a sequence and a stream with a UUID");
        }
        event->setDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
        event->setStreamDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
    }
}

void persist(const ZAVSet<ZAVEvent>& events, const std::string& path) {
    const auto database = open(path);
    const ZAVEventRepository repository(database);
    const ZAVStreamRepository streams(database);
    ZAVError error;
    ZAVSet<ZAVEvent> batch;
    const auto store = [&] {
        auto transaction = ZAVTransaction::begin(*database, &error);
        require(transaction.has_value(), error);
        for (const auto& event : batch) {
            streams.findOrCreateStreamWithUUID(*event->streamUUID(), &error);
            require(true, error);
        }
        require(repository.persistEvents(batch, &error), error);
        require(transaction->commit(&error), error);
        batch.clear();
    };
    for (const auto& event : events) {
        batch.append(event);
        if (batch.size() == replayBatch) {
            store();
        }
    }
    store();
}

}  // namespace zav::bench
