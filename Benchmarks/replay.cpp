#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "Support/TemporaryDirectory.h"
#include "Timer.h"

namespace zav::bench {
namespace {

constexpr std::size_t batchSize = 1'000;

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

ZAVSet<ZAVEvent> readAll(const std::string& path) {
    ZAVError error;
    auto events = ZAVEventRepository(open(path)).allEvents(&error);
    require(events.has_value(), error);
    return *std::move(events);
}

/// Stores the events in a new file as somebody who has just received them.
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
        if (batch.size() == batchSize) {
            store();
        }
    }
    store();
}

int run(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: zav_replay STORE\n");
        return 2;
    }
    const double begin = processorSeconds();
    const ZAVSet<ZAVEvent> events = readAll(arguments[1]);
    const double read = processorSeconds() - begin;
    if (events.empty()) {
        throw std::runtime_error("the store holds no events");
    }
    for (const auto& event : events) {
        if (!event->streamUUID() || event->seq() == 0) {
            throw std::runtime_error("every event must have a sequence and a stream with a UUID");
        }
        event->setDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
        event->setStreamDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
    }
    const test::TemporaryDirectory directory;
    const double beforeWrite = processorSeconds();
    persist(events, directory.file("store.db"));
    std::printf("%zu %.4f %.4f\n", events.size(), read, processorSeconds() - beforeWrite);
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    try {
        return zav::bench::run(count, arguments);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return 2;
    }
}
