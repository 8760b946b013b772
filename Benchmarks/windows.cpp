#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTimelineWindow.h>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
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

namespace zav::bench {

/// What is counted: a commit of one event, on the thread that makes it. `check_windows.py` looks for its
/// name.
[[gnu::noinline]] bool commitOneEvent(ZAVEventStore& store, const ZAVSet<ZAVTEvent>& events,
                                      ZAVError& error) {
    return store.write([&](const ZAVEventRepository& repository) { return repository.persistEvents(events); },
                       &error);
}

namespace {

using namespace std::chrono_literals;

/// The main loop of an application.
class Loop {
public:
    [[nodiscard]] ZAVExecutor executor() {
        return [this](std::function<void()> call) {
            const std::lock_guard lock(mutex_);
            calls_.push_back(std::move(call));
        };
    }

    void runWaiting() {
        for (;;) {
            std::function<void()> call;
            {
                const std::lock_guard lock(mutex_);
                if (calls_.empty()) {
                    return;
                }
                call = std::move(calls_.front());
                calls_.pop_front();
            }
            call();
        }
    }

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> calls_;
};

/// Commits events one by one with so many windows open: `here`, on the stream that they come into, each of
/// which finds the windows at rest and has them read anew at once; or `elsewhere`, on others, which have
/// their usual coalescing time.
int run(int count, char** arguments) {
    constexpr std::size_t commits = 50;
    const std::string_view place = count == 3 ? arguments[1] : "";
    if (place != "here" && place != "elsewhere") {
        throw std::runtime_error("usage: zav_windows here|elsewhere WINDOWS");
    }
    ZAVDatabaseEngine::configureProcess();
    const test::TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    StoreShape shape;
    shape.unsequenced = 1;  // others would all be the newest of one stream
    makeStore(path, shape);
    Loop loop;
    ZAVEventStoreOptions options;
    options.database.synchronous = FMDatabaseOptions::Synchronous::normal;
    options.executor = loop.executor();
    ZAVError error;
    const auto store = ZAVEventStore::open(path, options, &error);
    require(store != nullptr, error);

    // An application has several threads, and so has the one without windows.
    bool isRead = false;
    require(store
                ->readAsync([](const ZAVRepositories&) {}, [&](const ZAVWorkOutcome&) { isRead = true; }, {},
                            &error)
                .has_value(),
            error);
    while (!isRead) {
        loop.runWaiting();
        std::this_thread::sleep_for(1ms);
    }

    std::vector<ZAVSet<ZAVTEvent>> events;
    for (std::size_t number = 0; number <= commits; ++number) {
        events.push_back(makeEvents({1, true}, 1, number));
    }
    require(commitOneEvent(*store, events.back(), error), error);
    const auto stream = static_cast<const ZAVEvent&>(**events.back().begin()).streamDatabaseIdentifier();
    std::vector<std::unique_ptr<ZAVTimelineWindow>> windows;
    std::size_t deliveries = 0;
    for (int number = 1; number <= std::stoi(arguments[2]); ++number) {
        const ZAVTimeline timeline(*store, place == "here" ? stream : stream + number);
        windows.push_back(ZAVTimelineWindow::open(
            timeline, [&](const ZAVTimelineDelivery&) { ++deliveries; },
            {.coalescing = place == "here" ? 0ms : 50ms}, &error));
        require(windows.back() != nullptr, error);
    }
    std::size_t expected = windows.size();
    for (std::size_t number = 0; number < commits; ++number) {
        while (deliveries < expected) {
            loop.runWaiting();
            std::this_thread::sleep_for(1ms);
        }
        std::this_thread::sleep_for(5ms);
        require(commitOneEvent(*store, events[number], error), error);
        expected += place == "here" ? windows.size() : 0;
    }
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
