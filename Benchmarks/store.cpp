#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Require.h"
#include "RunMain.h"
#include "Store.h"
#include "Support/TemporaryDirectory.h"
#include "Timer.h"

namespace zav::bench {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t eventsOfAWork = 100;

/// A store of 20,000 events, as an application has it, and a handle of its own on the same file.
class Bench {
public:
    Bench() {
        makeStore(path_, {});
        rows_ = takeSamples(path_, eventsOfAWork).eventRows;
        ZAVEventStoreOptions options;
        options.database.synchronous = FMDatabaseOptions::Synchronous::normal;
        ZAVError error;
        store_ = ZAVEventStore::open(path_, options, &error);
        require(store_ != nullptr, error);
        handle_ = ZAVDatabaseSchema::openDatabase(path_, options.database, &error);
        require(handle_ != nullptr, error);
    }

    void readThroughStore() const {
        ZAVError error;
        require(store_->read([this](const ZAVEventRepository& events) { readFrom(events); }, &error), error);
    }

    void readDirectly() const { readFrom(ZAVEventRepository(handle_)); }

    void writeThroughStore(const ZAVSet<ZAVTEvent>& events) const {
        ZAVError error;
        require(store_->write(
                    [&](const ZAVEventRepository& repository) { return repository.persistEvents(events); },
                    &error),
                error);
    }

    void writeDirectly(const ZAVSet<ZAVTEvent>& events) const {
        ZAVError error;
        auto transaction = ZAVTransaction::begin(*handle_, &error);
        require(transaction && ZAVEventRepository(handle_).persistEvents(events, &error) &&
                    transaction->commit(&error),
                error);
    }

    ZAVSet<ZAVTEvent> nextEvents() { return makeEvents({}, eventsOfAWork, ++generation_); }

private:
    void readFrom(const ZAVEventRepository& events) const {
        for (const ZAVDatabaseIdentifier row : rows_) {
            if (events.eventForDatabaseIdentifier(row) == nullptr) {
                throw std::runtime_error("an event is not there");
            }
        }
    }

    test::TemporaryDirectory directory_;
    std::string path_ = directory_.file("store.db");
    std::vector<ZAVDatabaseIdentifier> rows_;
    std::unique_ptr<ZAVEventStore> store_;
    std::shared_ptr<FMDatabase> handle_;
    std::size_t generation_ = 0;
};

/// How many works so many threads do in a second, all of them together.
double worksPerSecond(int threadCount, const std::function<void()>& work) {
    std::atomic<bool> isOver = false;
    std::atomic<std::size_t> works = 0;
    const auto begin = Clock::now();
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back([&] {
            while (!isOver) {
                work();
                ++works;
            }
        });
    }
    std::this_thread::sleep_for(500ms);
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    return static_cast<double>(works) / std::chrono::duration<double>(Clock::now() - begin).count();
}

void printReaders(const Bench& bench) {
    constexpr int rounds = 9;
    std::vector<double> ratios;
    std::vector<double> ones;
    for (int round = 0; round < rounds; ++round) {
        const auto read = [&bench] { bench.readThroughStore(); };
        ones.push_back(worksPerSecond(1, read));
        ratios.push_back(worksPerSecond(2, read) / ones.back());
    }
    std::printf(
        "two readers beside each other read %.2f times what one does (%.0f works of %zu events a second)\n",
        median(ratios), median(ones), eventsOfAWork);
}

double percentile(std::vector<double>& values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

/// Writes of a hundred events each, alone and beside a reader, in turns.
void printWrites(Bench& bench) {
    constexpr int rounds = 20;
    constexpr int writesOfARound = 250;
    std::vector<double> alone;
    std::vector<double> beside;
    for (int round = 0; round < rounds; ++round) {
        for (const bool hasReader : {false, true}) {
            std::atomic<bool> isOver = false;
            std::thread reader([&] {
                while (hasReader && !isOver) {
                    bench.readThroughStore();
                }
            });
            auto& times = hasReader ? beside : alone;
            for (int write = 0; write < writesOfARound; ++write) {
                const auto events = bench.nextEvents();
                const auto begin = Clock::now();
                bench.writeThroughStore(events);
                times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
            }
            isOver = true;
            reader.join();
        }
    }
    for (const double share : {0.5, 0.99}) {
        const double one = percentile(alone, share);
        const double other = percentile(beside, share);
        std::printf("a write of %zu events, p%.0f: %.3f ms alone, %.3f ms beside a reader (%.2f)\n",
                    eventsOfAWork, share * 100, one, other, other / one);
    }
}

/// What the store adds to a hundred events, by processor time.
void printShares(Bench& bench) {
    constexpr int rounds = 400;
    std::vector<double> reading;
    std::vector<double> writing;
    const auto timeOf = [](const auto& work) {
        const double begin = processorSeconds();
        work();
        return processorSeconds() - begin;
    };
    for (int round = 0; round < rounds; ++round) {
        const double direct = timeOf([&] { bench.readDirectly(); });
        reading.push_back(timeOf([&] { bench.readThroughStore(); }) / direct);
        const auto first = bench.nextEvents();
        const auto second = bench.nextEvents();
        const double directly = timeOf([&] { bench.writeDirectly(first); });
        writing.push_back(timeOf([&] { bench.writeThroughStore(second); }) / directly);
    }
    std::printf("%zu events through the store take %.3f times the processor time to read, %.3f to write\n",
                eventsOfAWork, median(reading), median(writing));
}

/// One way to read or to write, so many times: for counting what it executes.
void repeat(Bench& bench, std::string_view way, int times) {
    for (int time = 0; time < times; ++time) {
        if (way == "read") {
            bench.readThroughStore();
        } else if (way == "read-directly") {
            bench.readDirectly();
        } else if (way == "write") {
            bench.writeThroughStore(bench.nextEvents());
        } else if (way == "write-directly") {
            bench.writeDirectly(bench.nextEvents());
        } else {
            throw std::runtime_error("usage: zav_store [WAY TIMES]");
        }
    }
}

int run(int count, char** arguments) {
    ZAVDatabaseEngine::configureProcess();
    Bench bench;
    if (count == 3) {
        repeat(bench, arguments[1], std::stoi(arguments[2]));
        return 0;
    }
    printReaders(bench);
    printWrites(bench);
    printShares(bench);
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
