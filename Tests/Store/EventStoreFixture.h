#pragma once

#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "Store/MainLoop.h"
#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestStore.h"

namespace zav::test {

/// Which error it is.
inline std::string domainAndCode(const ZAVError& error) {
    return std::string(error.domain()) + " " + std::to_string(error.code());
}

/// A store in a file of its own, whose executor is the `loop`.
class EventStore : public testing::Test {
protected:
    EventStore() : store_(open(optionsWithLoop())) {}

    [[nodiscard]] ZAVEventStoreOptions optionsWithLoop() {
        ZAVEventStoreOptions options;
        options.executor = loop_.executor();
        return options;
    }

    [[nodiscard]] MainLoop& loop() { return loop_; }
    void closeStore() { store_.reset(); }

    [[nodiscard]] std::unique_ptr<ZAVEventStore> open(const ZAVEventStoreOptions& options) const {
        ZAVError error;
        auto store = ZAVEventStore::open(path(), options, &error);
        if (store == nullptr) {
            throw std::runtime_error(error.description());
        }
        return store;
    }

    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }
    [[nodiscard]] ZAVEventStore& store() { return *store_; }

    static int countOf(const ZAVRepositories& repositories) {
        return std::stoi(scalar(repositories.events.database(), "SELECT COUNT(*) FROM streams"));
    }

    /// How many streams a read sees.
    int countOfStreams() { return countOfStreamsIn(store()); }
    static int countOfStreamsIn(ZAVEventStore& store) {
        int count = -1;
        ZAVError error;
        EXPECT_TRUE(
            store.read([&](const ZAVRepositories& repositories) { count = countOf(repositories); }, &error))
            << error.description();
        return count;
    }

    static void addStream(const ZAVRepositories& repositories, int number) {
        ZAVError error;
        EXPECT_NE(repositories.streams.findOrCreateStreamWithUUID(uuidNumber(number), &error),
                  ZAVDatabaseIdentifierNotSet)
            << error.description();
    }

    void writeStream(int number) {
        ZAVError error;
        EXPECT_TRUE(store().write(
            [&](const ZAVRepositories& repositories) {
                addStream(repositories, number);
                return true;
            },
            &error))
            << error.description();
    }

private:
    TemporaryDirectory directory_;
    MainLoop loop_;
    std::unique_ptr<ZAVEventStore> store_;
};

}  // namespace zav::test
