#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>

#include <limits>
#include <stdexcept>
#include <utility>

#include "Contender.h"

namespace zav::bench {
namespace {

[[noreturn]] void fail(const ZAVError& error) {
    throw std::runtime_error("library: " + error.description());
}

template <class Call>
auto require(const Call& call) {
    ZAVError error;
    auto result = call(&error);
    if (error) {
        fail(error);
    }
    return result;
}

class LibraryContender : public Contender {
public:
    explicit LibraryContender(const std::string& path) : repository_(open(path)) {}

    sqlite3* connection() override { return repository_.database().sqliteHandle(); }

    void persist(const ZAVSet<ZAVTEvent>& events) override {
        require([&](ZAVError* error) { return repository_.persistEvents(events, error); });
    }
    void updatePart(const ZAVEventContent& part) override {
        require([&](ZAVError* error) { return repository_.persistEventContentUpdate(part, error); });
    }
    void forgetUnprocessed(const Events& events) override {
        require([&](ZAVError* error) { return repository_.deleteUnprocessedEvents(events, error); });
    }
    void deleteEvents(const Events& events) override {
        require([&](ZAVError* error) { return repository_.deleteEvents(events, error); });
    }

    Events allEvents() override {
        return *require([&](ZAVError* error) { return repository_.allEvents(error); });
    }
    Events publishableEvents() override {
        return *require([&](ZAVError* error) { return repository_.publishableEvents(error); });
    }
    Events unprocessedEvents() override {
        return *require([&](ZAVError* error) { return repository_.unprocessedEvents(error); });
    }
    Events revivedStream(ZAVDatabaseIdentifier stream) override {
        return *require([&](ZAVError* error) {
            return repository_.eventsFromRevivedStreamWithStreamDatabaseIdentifier(stream, error);
        });
    }
    Event eventInRow(ZAVDatabaseIdentifier row) override {
        return require([&](ZAVError* error) { return repository_.eventForDatabaseIdentifier(row, error); });
    }
    Event eventWithSeq(ZAVSequence seq, const ZAVUUID& stream) override {
        return require([&](ZAVError* error) { return repository_.eventWithSeq(seq, stream, error); });
    }

    Part partInRow(ZAVDatabaseIdentifier row) override {
        return require(
            [&](ZAVError* error) { return repository_.eventContentDatabaseIdentifier(row, error); });
    }
    Part partOfEvent(ZAVDatabaseIdentifier event, std::int64_t index) override {
        return require([&](ZAVError* error) {
            return repository_.eventContentForEventDatabaseIdentifier(event, index, error);
        });
    }
    Part partOfMessage(const ZAVMessagePart& messagePart) override {
        return require(
            [&](ZAVError* error) { return repository_.eventContentForMessagePart(messagePart, error); });
    }
    Part partForObjectIdentifier(const ZAVURL& identifier) override {
        return require([&](ZAVError* error) {
            return repository_.eventContentForMessagePartObjectIdentifier(identifier, error);
        });
    }
    Part partForExternalURL(const ZAVURL& url) override {
        return require(
            [&](ZAVError* error) { return repository_.eventContentForExternalContentURL(url, error); });
    }

    Parts partsWithoutURL() override {
        return *require(
            [&](ZAVError* error) { return repository_.eventContentsHavingUnassignedURLsWithError(error); });
    }
    Parts incompleteUploads(ZAVSize limit) override {
        return *require([&](ZAVError* error) {
            return repository_.eventContentsHavingIncompleteUploadsWithLimit(limit, error);
        });
    }
    Parts expiredDownloads(const std::set<std::string>& types, ZAVSize maxSize, ZAVSize limit) override {
        return *require([&](ZAVError* error) {
            return repository_.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(types, maxSize,
                                                                                               limit, error);
        });
    }
    Parts incompleteDownloads(ZAVSize limit) override {
        return *require([&](ZAVError* error) {
            return repository_.eventContentsHavingIncompleteDownloadsWithLimit(limit, error);
        });
    }
    ZAVSize diskUtilization() override {
        return require([&](ZAVError* error) {
            return repository_.totalDiskUtilizationOfEventContentPartsWithError(error);
        });
    }
    Parts leastRecentlyAccessed(ZAVSize size) override {
        return *require([&](ZAVError* error) {
            return repository_.leastRecentlyAccessedEventContentPartsForSize(size, error);
        });
    }

private:
    static std::shared_ptr<FMDatabase> open(const std::string& path) {
        ZAVError error;
        auto database = ZAVDatabaseSchema::openDatabase(path, {}, &error);
        if (!database) {
            fail(error);
        }
        return database;
    }

    ZAVEventRepository repository_;
};

}  // namespace

std::unique_ptr<Contender> openLibrary(const std::string& path) {
    return std::make_unique<LibraryContender>(path);
}

}  // namespace zav::bench
