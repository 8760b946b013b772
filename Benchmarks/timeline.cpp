#include <ZAVEventRepository/ZAVConversationList.h>
#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVEventStore.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Conversations.h"
#include "RepeatedPage.h"
#include "RunMain.h"
#include "Timer.h"

namespace zav::bench {
namespace {

constexpr std::size_t pageLength = 50;
constexpr double largestRatio = 1.5;
constexpr double longestFirstPage = 20;  // milliseconds, as the next
constexpr double longestList = 10;

constexpr const char* usage = "usage: zav_timeline [--sizes=EVENTS,EVENTS]";

double wallMilliseconds(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

double processorMilliseconds(const std::function<void()>& work) {
    const double begin = processorSeconds();
    work();
    return (processorSeconds() - begin) * 1e3;
}

/// The limits that were missed.
class Verdict {
public:
    void expectAtMost(double limit, double measured, const std::string& what) {
        if (measured > limit) {
            std::fprintf(stderr, "missed: %s: %.3f, and at most %.3f is wanted\n", what.c_str(), measured,
                         limit);
            missed_ = true;
        }
    }

    [[nodiscard]] int status() const { return missed_ ? 1 : 0; }

private:
    bool missed_ = false;
};

/// Works that take turns, in milliseconds of the processor: for each of them the times of all rounds.
std::vector<std::vector<double>> takeTurns(const std::vector<std::function<void()>>& works, int rounds) {
    std::vector<std::vector<double>> times(works.size());
    for (int round = -rounds / 10; round < rounds; ++round) {
        for (std::size_t index = 0; index < works.size(); ++index) {
            const double took = processorMilliseconds(works[index]);
            if (round >= 0) {  // before, statements are prepared and pages of the file are read
                times[index].push_back(took);
            }
        }
    }
    return times;
}

/// Pages of the large store beside one of the small store. That is a page of its longest stream, the
/// cheapest one: its events stand next to each other.
void printPages(const MadeConversations& small, const MadeConversations& large, Verdict& verdict) {
    constexpr int rounds = 1'000;
    const auto smallStore = small.open();
    const auto largeStore = large.open();
    for (const bool isLatest : {true, false}) {
        const auto pageOf = [&](ZAVEventStore& store, const Stream& stream) {
            return RepeatedPage(store, stream, isLatest ? std::nullopt : std::optional(stream.length / 2 + 1),
                                pageLength);
        };
        const RepeatedPage beside = pageOf(*smallStore, small.shape().longStream());
        for (const Stream& stream : large.shape().examples()) {
            const RepeatedPage page = pageOf(*largeStore, stream);
            const auto times = takeTurns({[&] { beside.read(); }, [&] { page.read(); }}, rounds);
            std::vector<double> ratios;
            for (std::size_t round = 0; round < times[0].size(); ++round) {
                ratios.push_back(times[1][round] / times[0][round]);
            }
            const double ratio = median(ratios);
            const std::string name = std::string(isLatest ? "the newest 50" : "50 in the middle") +
                                     " of a stream of " + std::to_string(stream.length);
            std::printf("%s: %.3f ms, in the small store %.3f ms (%.2f)\n", name.c_str(), median(times[1]),
                        median(times[0]), ratio);
            verdict.expectAtMost(largestRatio, ratio, name + ", beside the small store");
        }
    }
}

/// The time from before a store is opened until its first page is there. Answers the median, in milliseconds.
double printFirstPage(const MadeConversations& made, const Stream& stream, const char* kind, bool isCool) {
    constexpr int rounds = 41;
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        if (isCool) {
            made.cool();
        }
        std::unique_ptr<ZAVEventStore> store;
        times.push_back(wallMilliseconds([&] {
            store = made.open();
            RepeatedPage(*store, stream, std::nullopt, pageLength).read();
        }));
    }
    std::printf(
        "opening a%s store and the newest 50 of a stream of %zu%s: %.2f ms, the longest of %d %.2f ms\n",
        kind, stream.length, isCool ? ", from the device" : "", median(times), rounds,
        *std::max_element(times.begin(), times.end()));
    return median(times);
}

void printFirstPages(const MadeConversations& made, Verdict& verdict) {
    for (const Stream& stream : made.shape().examples()) {
        printFirstPage(made, stream, "", true);
        const double took = printFirstPage(made, stream, "", false);
        verdict.expectAtMost(longestFirstPage, took, "the first page after opening, in ms");
    }
    if (ZAVDatabaseEngine::canEncrypt()) {
        constexpr std::size_t events = 100'000;
        const MadeConversations encrypted(events, "a pass phrase");
        printFirstPage(encrypted, encrypted.shape().longStream(), "n encrypted", false);
    }
}

void printList(const MadeConversations& made, Verdict& verdict) {
    constexpr int rounds = 200;
    const auto store = made.open();
    const auto first = [&](const std::optional<std::string>& participant) {
        ZAVError error;
        const auto page = ZAVConversationList(*store, {.participant = participant}).first(pageLength, &error);
        require(page.has_value(), error);
        if (page->conversations.size() != pageLength || page->conversations.back().lastEvent == nullptr ||
            page->conversations.front().unread.has_value() != participant.has_value()) {
            throw std::runtime_error("the list of conversations is not what was stored");
        }
    };
    std::printf("the first call of the list of %zu streams: %.1f ms\n", made.shape().streams(),
                wallMilliseconds([&] { first(std::nullopt); }));
    const auto print = [&](const std::optional<std::string>& participant, const char* name) {
        const double took = median(takeTurns({[&] { first(participant); }}, rounds)[0]);
        std::printf("50 of the list of %zu streams, %s: %.2f ms\n", made.shape().streams(), name, took);
        verdict.expectAtMost(longestList, took,
                             std::string("the list of conversations, ") + name + ", in ms");
    };
    print(std::nullopt, "without a participant");
    print(attentiveMember, "with one who has read all but five");
    print(absentMember, "with one who has read nothing");
}

/// A page beside the whole stream, which takes its place in memory: the first of the pages after it has to
/// read the file.
void printBesideWhole() {
    constexpr int rounds = 21;
    constexpr int pagesOfARound = 50;
    constexpr std::size_t length = 49;
    const MadeConversations made(500'000);
    const Stream stream = made.shape().longStream();
    const auto store = made.open();
    const RepeatedPage page(*store, stream, stream.length / 2, length);
    const auto readWhole = [&] {
        ZAVError error;
        std::size_t count = 0;
        require(store->read(
                    [&](const ZAVEventRepository& events) {
                        const auto whole =
                            events.eventsFromRevivedStreamWithStreamDatabaseIdentifier(stream.row);
                        count = whole ? whole->size() : 0;
                    },
                    &error),
                error);
        if (count != stream.length) {
            throw std::runtime_error("a stream is not what was stored");
        }
    };
    std::vector<double> pages;
    std::vector<double> wholes;
    for (int round = 0; round < rounds; ++round) {
        wholes.push_back(processorMilliseconds(readWhole));
        page.read();
        for (int number = 0; number < pagesOfARound; ++number) {
            pages.push_back(processorMilliseconds([&] { page.read(); }));
        }
    }
    std::printf("%zu of a stream of %zu: %.3f ms; all of it at once: %.1f ms\n", length, stream.length,
                median(pages), median(wholes));
}

/// The sizes of the small and the large store; throws for anything else than `usage` says.
std::pair<std::size_t, std::size_t> sizesFrom(std::string_view argument) {
    constexpr std::string_view name = "--sizes=";
    std::pair<std::size_t, std::size_t> sizes;
    if (!argument.starts_with(name)) {
        throw std::invalid_argument(usage);
    }
    argument.remove_prefix(name.size());
    const char* const end = argument.data() + argument.size();
    const auto first = std::from_chars(argument.data(), end, sizes.first);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != ',') {
        throw std::invalid_argument(usage);
    }
    const auto second = std::from_chars(first.ptr + 1, end, sizes.second);
    if (second.ec != std::errc() || second.ptr != end) {
        throw std::invalid_argument(usage);
    }
    return sizes;
}

int run(int count, char** arguments) {
    ZAVDatabaseEngine::configureProcess();
    const std::string_view argument = count == 1 ? "--sizes=10000,10000000" : arguments[1];
    if (count > 2) {
        throw std::invalid_argument(usage);
    }
    const auto [smallSize, largeSize] = sizesFrom(argument);
    Verdict verdict;
    {
        const MadeConversations small(smallSize);
        const MadeConversations large(largeSize);
        printPages(small, large, verdict);
        printList(large, verdict);
        printFirstPages(large, verdict);
    }
    printBesideWhole();
    return verdict.status();
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
