#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVRepositories.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Conversations.h"
#include "RepeatedPage.h"
#include "RunMain.h"

namespace zav::bench {

/// What is counted. `check_joined.py` looks for its name.
[[gnu::noinline]] void readCounted(const std::function<void()>& reading) {
    reading();
}

namespace {

/// The events of a stream once more, in rows that follow one another, as those of a first synchronisation do.
Stream storedTogether(ZAVEventStore& store, const Stream& stream) {
    Stream together = stream;
    ZAVError error;
    const auto copy = [&](const ZAVRepositories& repositories) {
        const auto events =
            repositories.events.eventsFromRevivedStreamWithStreamDatabaseIdentifier(stream.row, &error);
        require(events.has_value(), error);
        together.row = repositories.streams.findOrCreateStreamWithUUID(
            *ZAVUUIDFromData(ZAVData::fromText("stream-000000000")), &error);
        ZAVSet<ZAVTEvent> copies;
        for (const auto& event : *events) {
            event->setDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
            event->setStreamDatabaseIdentifier(together.row);
            event->set_stream_id(std::nullopt);
            copies.append(event);
        }
        return repositories.events.persistEvents(copies, &error);
    };
    require(store.write(copy, &error), error);
    return together;
}

/// Reads the events of one page again and again: jointly, as a page, or one by one.
int run(int count, char** arguments) {
    constexpr int times = 20;
    constexpr std::size_t length = 49;
    const std::string_view way = count == 3 ? arguments[1] : "";
    const std::string_view rowsOfEvents = count == 3 ? arguments[2] : "";
    if ((way != "jointly" && way != "singly") ||
        (rowsOfEvents != "scattered" && rowsOfEvents != "together")) {
        throw std::runtime_error("usage: zav_joined jointly|singly scattered|together");
    }
    ZAVDatabaseEngine::configureProcess();
    const MadeConversations made(10'000);
    const auto store = made.open();
    const Stream scattered = made.shape().longStream();
    const Stream stream = rowsOfEvents == "scattered" ? scattered : storedTogether(*store, scattered);
    const RepeatedPage page(*store, stream, stream.length / 2, length);
    std::vector<ZAVDatabaseIdentifier> rows;
    for (const auto& event : page.read().events) {
        rows.push_back(event->databaseIdentifier());
    }
    const auto readSingly = [&](const ZAVEventRepository& events) {
        std::vector<std::shared_ptr<ZAVEvent>> found;
        for (const ZAVDatabaseIdentifier row : rows) {
            found.push_back(events.eventForDatabaseIdentifier(row));
        }
        require(found.back() != nullptr, ZAVError());
    };
    std::function<void()> reading = [&] { page.read(); };
    if (way == "singly") {
        reading = [&] {
            ZAVError error;
            require(store->read(readSingly, &error), error);
        };
    }
    reading();  // its statements are prepared then
    for (int time = 0; time < times; ++time) {
        readCounted(reading);
    }
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
