#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVTimeline.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "Connection.h"
#include "Require.h"
#include "Support/TemporaryDirectory.h"
#include "Workloads.h"

namespace {

std::atomic<std::size_t> heldBytes{0};
std::atomic<std::size_t> heldBlocks{0};

}  // namespace

void* operator new(std::size_t size) {
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    heldBytes += malloc_usable_size(block);
    ++heldBlocks;
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) {
        heldBytes -= malloc_usable_size(block);
        --heldBlocks;
        std::free(block);
    }
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

namespace zav::bench {
namespace {

constexpr std::size_t eventCount = 100'000;
constexpr std::size_t operations = 1'000'000;
constexpr std::size_t allowedGrowthKiB = 512;
constexpr std::size_t pagedEvents = 1'000'000;
constexpr std::size_t eventsOfAPage = 50;
constexpr std::size_t allowedForPagingKiB = 12 * 1'024;

/// A figure of this process from the kernel, in KiB.
std::size_t status(const std::string& field) {
    std::ifstream file("/proc/self/status");
    std::string word;
    while (file >> word) {
        if (word == field + ":") {
            std::size_t kibibytes = 0;
            file >> kibibytes;
            return kibibytes;
        }
    }
    throw std::runtime_error("the kernel does not tell " + field);
}

/// Short text messages in a store of their own: what most of a conversation is.
void reportHeldByEvents() {
    const test::TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    StoreShape none;
    none.events = 1'000;  // only its streams are used
    none.unprocessed = 0;
    makeStore(path, none);
    const auto contender = openLibrary(path);
    for (std::size_t generation = 0; generation < eventCount / 1'000; ++generation) {
        contender->persist(makeEvents({1, false}, 1'000, generation));
    }
    const std::size_t bytesBefore = heldBytes;
    const std::size_t blocksBefore = heldBlocks;
    const std::size_t residentBefore = status("VmRSS");
    const auto events = contender->revivedStream(1);
    const auto each = [&](std::size_t total) {
        return static_cast<double>(total) / static_cast<double>(events.size());
    };
    std::printf("%zu short text messages held: %.0f bytes in %.2f blocks each, %.0f bytes resident each\n",
                events.size(), each(heldBytes - bytesBefore), each(heldBlocks - blocksBefore),
                each((status("VmRSS") - residentBefore) * 1'024));
}

/// One operation after the other, of every kind that a client repeats all day.
void operate(Session& session, std::size_t number) {
    Contender& contender = session.contender;
    const Samples& samples = session.samples;
    const std::size_t key = number % samples.eventRows.size();
    switch (number % 8) {
        case 0:
            return void(contender.eventInRow(samples.eventRows[key]));
        case 1:
            return void(contender.eventWithSeq(samples.positions[key].seq, samples.positions[key].stream));
        case 2:
            return contender.updatePart(*contender.partInRow(samples.partRows[key]));
        case 3:
            return void(contender.partForExternalURL(samples.externalURLs[key]));
        case 4:
            return void(contender.incompleteUploads(5));
        case 5:
            return void(contender.expiredDownloads({number % 3 == 0 ? "image/png" : "image/jpeg"}, 1'000, 5));
        case 6:
            return contender.persist(session.toStore);
        default:
            return void(contender.partForObjectIdentifier(samples.objectIdentifiers[key]));
    }
}

/// Whether memory stays what it was while a million operations run.
bool staysFlat() {
    const test::TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    StoreShape shape;
    shape.events = 2'000;
    makeStore(path, shape);
    const Samples samples = takeSamples(path, 1'000);
    const auto contender = openLibrary(path);
    Session session(*contender, samples);
    session.toStore = makeEvents({1, false}, 1, 0);
    std::size_t peakBefore = 0;
    std::size_t heldBefore = 0;
    sqlite3* const connection = contender->connection();
    execute(connection, "PRAGMA synchronous=OFF");  // memory is looked at, not the disk
    for (std::size_t number = 0; number < operations; ++number) {
        if (number == operations / 10) {
            peakBefore = status("VmHWM");
            heldBefore = heldBytes;
        }
        operate(session, number);
    }
    const std::size_t growth = status("VmHWM") - peakBefore;
    const auto heldMore = static_cast<long long>(heldBytes) - static_cast<long long>(heldBefore);
    std::printf(
        "%zu operations: peak resident memory grew by %zu KiB after the first tenth, held memory by %lld "
        "bytes\n",
        operations, growth, heldMore);
    return growth <= allowedGrowthKiB && heldMore < 1'024;
}

/// What the allocator has given out, to the engine too, in bytes.
std::size_t allocatedBytes() {
    const auto figures = mallinfo2();
    return figures.uordblks + figures.hblkhd;
}

/// Whether a store whose reader pages through all of its streams, from the newest events of each to its
/// oldest, takes no more than it may.
bool pagesWithinLimit() {
    const test::TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    StoreShape shape;
    shape.events = pagedEvents;
    makeStore(path, shape);
    const std::size_t before = allocatedBytes();
    std::size_t most = before;
    std::size_t count = 0;
    ZAVError error;
    const auto store = ZAVEventStore::open(path, {}, &error);
    require(store != nullptr, error);
    for (std::size_t stream = 1; stream <= streamsOf(shape); ++stream) {
        const ZAVTimeline timeline(*store, static_cast<ZAVDatabaseIdentifier>(stream));
        auto page = timeline.latest(eventsOfAPage, &error);
        for (; page && !page->events.empty();
             page = timeline.before(page->cursors.front(), eventsOfAPage, &error)) {
            count += page->events.size();
            most = std::max(most, allocatedBytes());
        }
        require(page.has_value(), error);
    }
    const std::size_t atEnd = allocatedBytes();
    store->releaseMemory();
    const std::size_t released = allocatedBytes();
    const auto kibibytesAbove = [&](std::size_t bytes) {
        return (static_cast<double>(bytes) - static_cast<double>(before)) / 1'024;
    };
    std::printf(
        "%zu events read in pages of %zu: at most %.0f KiB allocated above those before opening, %.0f at the "
        "end, %.0f when memory is released\n",
        count, eventsOfAPage, kibibytesAbove(most), kibibytesAbove(atEnd), kibibytesAbove(released));
    return count == pagedEvents && kibibytesAbove(most) <= static_cast<double>(allowedForPagingKiB);
}

}  // namespace
}  // namespace zav::bench

int main() {
    try {
        // The flat part comes first: it looks at a peak.
        const bool flat = zav::bench::staysFlat();
        zav::bench::reportHeldByEvents();
        const bool isWithinLimit = zav::bench::pagesWithinLimit();
        if (!flat) {
            std::fprintf(stderr, "memory grows with use\n");
        }
        if (!isWithinLimit) {
            std::fprintf(stderr, "a reader that pages through a store takes too much memory\n");
        }
        return flat && isWithinLimit ? 0 : 1;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return 2;
    }
}
