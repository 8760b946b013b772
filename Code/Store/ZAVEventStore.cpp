#include <ZAVEventRepository/ZAVEventStore.h>

#include <utility>

#include "Store/Internal/ZAVStoreCore.h"
#include "Store/Internal/ZAVStoreErrors.h"
#include "Store/Internal/ZAVStoreOpening.h"

namespace zav {
namespace {

ZAVError badOption(const std::string& message) {
    return ZAVErrorOfStore(ZAVEventStoreErrorBadOption, message);
}

/// Why a store cannot be opened so, if there is a reason that is known before.
ZAVError objectionTo(const std::string& path, const ZAVEventStoreOptions& options) {
    constexpr std::size_t mostReaders = 1000;
    if (path == ":memory:") {
        return ZAVErrorOfStore(ZAVEventStoreErrorNoFile,
                               "a database in memory is seen by one handle alone, and a store has several");
    }
    if (options.readers < 1 || options.readers > mostReaders) {
        return badOption("the option readers is " + std::to_string(options.readers) + ", but must be 1 to " +
                         std::to_string(mostReaders));
    }
    if (options.pageCacheKiB < 0) {
        return badOption("the option pageCacheKiB is " + std::to_string(options.pageCacheKiB) +
                         ", but may not be negative");
    }
    if (options.readerPageCacheKiB < 0) {
        return badOption("the option readerPageCacheKiB is " + std::to_string(options.readerPageCacheKiB) +
                         ", but may not be negative");
    }
    if (options.lookForCommitsOfOthersEvery.count() < 0) {
        return badOption("the option lookForCommitsOfOthersEvery is " +
                         std::to_string(options.lookForCommitsOfOthersEvery.count()) +
                         " ms, but may not be negative");
    }
    if (options.database.key) {
        return badOption("the option database.key would have to be kept: database.keyProvider gives it");
    }
    return {};
}

}  // namespace

std::unique_ptr<ZAVEventStore> ZAVEventStore::open(const std::string& path,
                                                   const ZAVEventStoreOptions& options, ZAVError* error) {
    if (const ZAVError objection = objectionTo(path, options)) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    const auto database = ZAVOpenToWrite(path, ZAVWritingOptions(options), error);
    return database == nullptr ? nullptr
                               : std::unique_ptr<ZAVEventStore>(
                                     new ZAVEventStore(std::make_unique<ZAVStoreCore>(database, options)));
}

ZAVEventStore::ZAVEventStore(std::unique_ptr<ZAVStoreCore> core)
    : content_(new ZAVContentCache(*core)), core_(std::move(core)) {}

ZAVEventStore::~ZAVEventStore() {
    content_->recordAccesses();
}

bool ZAVEventStore::read(const ReadingWork& work, ZAVError* error) {
    return ZAVIsDone(core_->read(work), error);
}

bool ZAVEventStore::write(const WritingWork& work, ZAVError* error) {
    return ZAVIsDone(core_->write(work), error);
}

std::optional<ZAVPendingWork> ZAVEventStore::readAsync(ReadingWork work, ZAVWorkCompletion completion,
                                                       const ZAVWorkOptions& options, ZAVError* error) {
    return core_->readAsync(std::move(work), std::move(completion), options, error);
}

std::optional<ZAVPendingWork> ZAVEventStore::writeAsync(WritingWork work, ZAVWorkCompletion completion,
                                                        const ZAVWorkOptions& options, ZAVError* error) {
    return core_->writeAsync(std::move(work), std::move(completion), options, error);
}

ZAVStoreSubscription ZAVEventStore::subscribe(ZAVStoreObserver observer, ZAVError* error) {
    return core_->subscribe(std::move(observer), error);
}

std::optional<bool> ZAVEventStore::lookForCommitsOfOthers(ZAVError* error) {
    return core_->lookForCommitsOfOthers(error);
}

bool ZAVEventStore::suspend(std::chrono::steady_clock::time_point deadline, SuspendedWorks waiting,
                            ZAVError* error) {
    return core_->suspend(deadline, waiting, content_->recordingOfAccesses(), error);
}

bool ZAVEventStore::resume(ZAVError* error) {
    const bool isAwake = core_->resume(error);
    if (isAwake && content_->recordingOfAccesses()) {
        content_->recordAccessesLater();
    }
    return isAwake;
}

void ZAVEventStore::releaseMemory() {
    core_->releaseMemory();
}

bool ZAVEventStore::close(QueuedWorks queued, ZAVError* error) {
    content_->recordAccesses();
    return core_->close(queued, error);
}

}  // namespace zav
