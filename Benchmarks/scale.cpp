#include <ZAVEventRepository/FMDatabaseOptions.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Connection.h"
#include "RunMain.h"
#include "Support/TemporaryDirectory.h"
#include "Timer.h"
#include "Workloads.h"

namespace zav::bench {
namespace {

constexpr std::size_t rounds = 7;
constexpr std::size_t samplesOfARound = 1'000;

/// One event in so many is stored by the library, after the others.
constexpr std::size_t agedEvery = 10;

/// Events that are stored in one transaction meanwhile.
constexpr std::size_t agingBatch = 100;
constexpr std::size_t largestReadWhole = 100'000;

struct Options {
    std::vector<std::size_t> sizes{1'000, 10'000, 100'000, 1'000'000};
    std::string output = "scale.csv";
    std::size_t incomplete = 0;  ///< parts that are not completely transferred; 0: one in a hundred
    std::int32_t pageCacheKiB = FMDatabaseOptions().pageCacheKiB;
    std::string pragma;  ///< for both contenders' connections, for trying something
};

constexpr const char* usage =
    "usage: zav_scale [--sizes=N,N...] [--output=FILE] "
    "[--page-cache=KIB] [--incomplete=N] [--pragma=NAME=VALUE]";

std::size_t numberAtBegin(std::string_view& text) {
    std::size_t number = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (status != std::errc() || number > 1'000'000'000) {
        throw std::invalid_argument(usage);
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

/// Throws for anything that `usage` does not say.
Options parse(int count, char** arguments) {
    Options options;
    for (int index = 1; index < count; ++index) {
        std::string_view argument = arguments[index];
        if (argument.starts_with("--output=")) {
            options.output = argument.substr(argument.find('=') + 1);
        } else if (argument.starts_with("--sizes=")) {
            options.sizes.clear();
            argument.remove_prefix(argument.find('=') + 1);
            while (!argument.empty()) {
                const std::size_t size = numberAtBegin(argument);
                if (size < 1'000) {
                    throw std::invalid_argument("a size is a number of events, 1000 or more");
                }
                options.sizes.push_back(size);
                argument.remove_prefix(argument.starts_with(',') ? 1 : 0);
            }
        } else if (argument.starts_with("--page-cache=")) {
            argument.remove_prefix(argument.find('=') + 1);
            options.pageCacheKiB = static_cast<std::int32_t>(numberAtBegin(argument));
        } else if (argument.starts_with("--incomplete=")) {
            argument.remove_prefix(argument.find('=') + 1);
            options.incomplete = numberAtBegin(argument);
        } else if (argument.starts_with("--pragma=")) {
            options.pragma = argument.substr(argument.find('=') + 1);
        } else {
            throw std::invalid_argument(usage);
        }
    }
    return options;
}

constexpr std::array contenders{ContenderKind{"library", openLibrary}, ContenderKind{"floor", openFloor}};

/// Whether a workload's cost says something about the size of the store. Storing again is not among them: it
/// begins with storing, and the store would grow.
bool isOfInterest(const Workload& workload, std::size_t size) {
    return workload.writes != Workload::Writes::undone && workload.name != "persist/again" &&
           (workload.name != "events/all" || size <= largestReadWhole);
}

/// Stores events as a client does, in small transactions all over the store: its indexes were built by
/// sorting, with pages that are full to the brim, and would else split under whoever writes first.
void age(const std::string& path, std::size_t events, std::size_t streams) {
    const auto library = openLibrary(path);
    sqlite3* const connection = library->connection();
    execute(connection, "PRAGMA synchronous=OFF");      // the pages are the same
    constexpr std::size_t firstGeneration = 7'000'000;  // apart from those of the workloads
    for (std::size_t number = 0; number < events / agingBatch; ++number) {
        const EventShape shape = number % 4 == 0 ? EventShape{3, true, streams}
                                                 : EventShape{number % 4 == 1 ? 0U : 1U, false, streams};
        execute(connection, "BEGIN IMMEDIATE");
        library->persist(makeEvents(shape, agingBatch, firstGeneration + number));
        execute(connection, "COMMIT");
    }
}

/// The cost of one unit in each round, of one contender after the other.
using Costs = std::array<std::vector<double>, contenders.size()>;

/// Both contenders work on the one file in turn; what they write is undone, so that it keeps its size. Each
/// round looks for other keys.
Costs measure(const Workload& workload, const std::vector<std::unique_ptr<Contender>>& opened,
              const std::vector<Samples>& samples) {
    Costs costs;
    for (std::size_t round = 0; round < samples.size(); ++round) {
        for (std::size_t turn = 0; turn < opened.size(); ++turn) {
            const std::size_t index = (turn + round) % opened.size();
            Session session(*opened[index], samples[round]);
            session.run = round;
            const double seconds = runOnce(workload, session);
            const std::size_t units = workload.units != 0 ? workload.units : session.answered;
            if (units == 0) {
                throw std::runtime_error(workload.name + ": nothing was answered");
            }
            if (round != 0) {  // in the first one statements are prepared
                costs[index].push_back(seconds / static_cast<double>(units));
            }
        }
    }
    return costs;
}

void measure(std::ostream& output, const std::string& path, std::size_t size, const Options& options) {
    std::vector<Samples> samples;
    for (std::size_t round = 0; round <= rounds; ++round) {
        samples.push_back(takeSamples(path, samplesOfARound, round));
    }
    std::vector<std::unique_ptr<Contender>> opened;
    for (const ContenderKind& kind : contenders) {
        opened.push_back(kind.open(path));
        execute(opened.back()->connection(), "PRAGMA cache_size=-" + std::to_string(options.pageCacheKiB));
        if (!options.pragma.empty()) {
            execute(opened.back()->connection(), "PRAGMA " + options.pragma);
        }
    }
    for (Workload workload : makeWorkloads()) {
        if (!isOfInterest(workload, size)) {
            continue;
        }
        if (workload.writes == Workload::Writes::kept) {
            workload.writes = Workload::Writes::undone;
        }
        const Costs costs = measure(workload, opened, samples);
        for (std::size_t index = 0; index < contenders.size(); ++index) {
            output << size << ',' << contenders[index].name << ',' << workload.name << ',' << workload.unit
                   << ',' << median(costs[index]) * 1e6 << '\n';
        }
    }
}

int run(int count, char** arguments) {
    const Options options = parse(count, arguments);
    std::ofstream output(options.output);
    output << "events,contender,workload,unit,microseconds\n";
    for (const std::size_t size : options.sizes) {
        const test::TemporaryDirectory directory;
        const std::string path = directory.file("store.db");
        StoreShape shape;
        shape.events = size - size / agedEvery;
        shape.unprocessed = 1'000;
        shape.unsequenced = 100;
        if (options.incomplete != 0) {
            shape.incompleteEvery = std::max<std::size_t>(1, size / options.incomplete);
        }
        const double before = processorSeconds();
        makeStore(path, shape);
        age(path, size / agedEvery, streamsOf(shape));
        std::printf("%zu events: %.1f MB, made in %.1f s\n", size,
                    static_cast<double>(std::filesystem::file_size(path)) / 1e6, processorSeconds() - before);
        std::fflush(stdout);
        measure(output, path, size, options);
    }
    output.close();
    if (!output) {
        throw std::runtime_error("cannot write " + options.output);
    }
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
