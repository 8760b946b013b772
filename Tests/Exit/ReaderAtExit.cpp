#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

// A detached thread reads on while `main` returns and whatever is destroyed at the end of a program is
// destroyed. The program ends with 0 when every operation answered to the last what it answered at first.

namespace {

using namespace zav;

constexpr int roundsBeforeTheEnd = 20;
constexpr int roundsAfterTheEnd = 200;

std::atomic<int> rounds = 0;

[[noreturn]] void failed(const std::string& what) {
    std::fprintf(stderr, "in round %d: %s\n", rounds.load(), what.c_str());
    _exit(1);
}

void require(bool succeeded, const char* what, const ZAVError& error) {
    if (!succeeded) {
        failed(std::string(what) + " failed: " + error.description());
    }
}

/// Every operation that reads, and those of its neighbours that a reader needs.
void readEverything(const std::shared_ptr<FMDatabase>& database, const ZAVUUID& stream) {
    const ZAVEventRepository repository(database);
    ZAVError e;
    const auto events = repository.allEvents(&e);
    require(events && events->size() == 1, "allEvents", e);
    const ZAVEvent& event = *(*events)[0];
    require(event.content() && event.content()->size() == 1, "the content of an event", e);
    require(event.transient_metadata() && event.transient_metadata()->empty() &&
                event.transient_metadata()->find("key") == nullptr,
            "the metadata of an event", e);
    require(repository.countOfEvents(&e) == 1, "countOfEvents", e);
    require(repository.publishableEvents(&e).has_value(), "publishableEvents", e);
    require(repository.unpublishableEvents(&e).has_value(), "unpublishableEvents", e);
    require(repository.unprocessedEvents(&e).has_value(), "unprocessedEvents", e);
    require(repository.postedAndProcessedEvents(&e).has_value(), "postedAndProcessedEvents", e);
    require(repository.eventsFromRevivedStreamWithStreamDatabaseIdentifier(1, &e).has_value(),
            "eventsFromRevivedStream", e);
    require(repository.eventForDatabaseIdentifier(1, &e) != nullptr, "eventForDatabaseIdentifier", e);
    require(!repository.eventWithSeq(7, stream, &e) && !e, "eventWithSeq", e);
    const auto part = repository.eventContentDatabaseIdentifier(1, &e);
    require(part && part->fileURL() && part->fileURL()->absoluteString().ends_with("/a/file"),
            "eventContentDatabaseIdentifier", e);
    require(repository.eventContentForEventDatabaseIdentifier(1, 0, &e) != nullptr,
            "eventContentForEventDatabaseIdentifier", e);
    require(
        !repository.eventContentForMessagePart(ZAVMessagePart(std::make_shared<ZAVMessage>(1), 0), &e) && !e,
        "eventContentForMessagePart", e);
    require(repository.eventContentForMessagePartObjectIdentifier(
                ZAVMakeMessagePartObjectIdentifier(*ZAVUUIDFromData(event.client_id()), 0), &e) != nullptr,
            "eventContentForMessagePartObjectIdentifier", e);
    require(repository.eventContentForExternalContentURL(*ZAVURL::URLWithString("https://store.example/a"),
                                                         &e) != nullptr,
            "eventContentForExternalContentURL", e);
    require(repository.eventContentsHavingUnassignedURLsWithError(&e).has_value(), "unassigned URLs", e);
    require(repository.eventContentsHavingIncompleteUploadsWithLimit(9, &e).has_value(), "incomplete uploads",
            e);
    require(repository.eventContentsHavingIncompleteDownloadsWithLimit(9, &e).has_value(),
            "incomplete downloads", e);
    for (const auto& types :
         {std::optional<std::set<std::string>>(), std::optional(std::set<std::string>{"a"})}) {
        require(repository.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(types, 9, 9, &e)
                    .has_value(),
                "expired downloads", e);
    }
    require(repository.leastRecentlyAccessedEventContentPartsForSize(9, &e).has_value(),
            "least recently accessed", e);
    require(repository.totalDiskUtilizationOfEventContentPartsWithError(&e) == 3, "the disk utilization", e);
    require(!e, "an operation", e);
}

/// Made before everything that the library makes when it is first needed, and so destroyed after it.
class Finale {
public:
    ~Finale() {
        const int begin = rounds;
        if (begin < roundsBeforeTheEnd) {
            _exit(2);  // main had something to say
        }
        while (rounds < begin + roundsAfterTheEnd) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        _exit(0);
    }
};

const Finale finale;

}  // namespace

int main() {
    const auto stream = ZAVUUID::random();
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase(":memory:", {}, &error);
    require(database != nullptr, "opening a store", error);
    const auto event =
        std::make_shared<ZAVEvent>(ZAVDatabaseIdentifierNotSet,
                                   ZAVStreamRepository(database).findOrCreateStreamWithUUID(stream, &error));
    event->set_type(EventType_MESSAGE);
    event->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("text/plain");
    part->set_size(3);
    part->set_external_url("https://store.example/a");
    part->setFileURL(ZAVURL::URLWithString("a/file"));
    part->setTransferStatus(ZAVContentTransferComplete);
    event->set_content({{part}});
    require(ZAVEventRepository(database).persistEvents({event}, &error), "persistEvents", error);
    std::thread([database, stream] {
        while (true) {
            readEverything(database, stream);
            ++rounds;
        }
    }).detach();
    while (rounds < roundsBeforeTheEnd) {
        std::this_thread::yield();
    }
    return 0;
}
