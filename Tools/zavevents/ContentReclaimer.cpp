#include "ContentReclaimer.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <unordered_set>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVTransaction.h>

#include "CacheDirectory.h"
#include "ContentRows.h"
#include "StoredPath.h"
#include "TrashName.h"

namespace zavevents {

using namespace zav;

namespace {

namespace fs = std::filesystem;

/// How many files go under one lock: enough that reading the names again, when others write to the database
/// meanwhile, is not done for each, and few enough that these others need not wait for long.
constexpr std::size_t filesOfOneLock = 16;

/// A file that has its trash name.
struct Trash {
    OpenDirectory directory;
    std::string location;  ///< of the file before
    std::string name;      ///< of the file before
    std::string trashName;
};

/// What is to be done about one part.
struct Decision {
    ReclaimedContent content;
    std::vector<std::int64_t> rows{};  ///< to be marked
    std::optional<Trash> trash{};      ///< the file to be removed, which has its own name so far
    FileIdentity file{};               ///< which file that is
};

std::string reasonOf(const std::system_error& failure) {
    const bool isNoDirectory = failure.code() == std::errc::too_many_symbolic_link_levels ||
                               failure.code() == std::errc::not_a_directory;
    return isNoDirectory ? "leads through what is no directory of the cache" : failure.code().message();
}

/// Whether the file is one of an open database. Its path says nothing: it may be a link, or put otherwise.
bool isDatabaseFile(const FileIdentity& file, const std::vector<std::string>& databases) {
    for (const std::string& database : databases) {
        for (const char* const suffix : {"", "-wal", "-shm", "-journal"}) {
            const auto status = statusOfFile(database + suffix);
            if (status && status->identity == file) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

class ContentReclaimer::Run {
public:
    Run(FMDatabase& database, const std::string& directory)
        : database_(database), cache_(directory), rows_(database, cache_.path()) {}

    void reclaim(std::uint64_t bytes, const Observer& observer);
    void foretell(std::uint64_t bytes, const Observer& observer);
    void repair(const Observer& observer);

private:
    void start();
    void refresh();
    [[nodiscard]] ZAVTransaction takeLock();
    [[nodiscard]] std::optional<ContentRow> nextRow();
    [[nodiscard]] Decision decide(const ContentRow& chosen);
    [[nodiscard]] Decision decideOnFile(const ContentRow& chosen, const std::vector<std::string>& names);
    [[nodiscard]] std::string refusalOfPath(const ContentRow& row, const std::string& fault) const;
    void setAside(Decision& decision);
    std::vector<Decision> reclaimSome(std::uint64_t bytes);
    void removeTrash(std::vector<Decision>& decisions) const;
    void settle(const Trash& trash) const;
    [[nodiscard]] std::vector<Trash> findTrash() const;

    FMDatabase& database_;
    CacheDirectory cache_;
    ContentRows rows_;
    std::vector<std::string> databases_;
    std::size_t next_ = 0;                        ///< in the purgeable rows
    std::unordered_set<std::int64_t> done_;       ///< rows that were decided on
    std::map<FileIdentity, std::uint64_t> gone_;  ///< how many names files have lost, or are about to lose
};

void ContentReclaimer::Run::start() {
    done_.clear();
    gone_.clear();
    next_ = 0;
    databases_.clear();
    auto rows = database_.executeBoundedQuery("PRAGMA database_list");
    ZAVError error;
    while (rows && rows->nextWithError(&error)) {
        std::error_code failure;
        if (const auto path = fs::canonical(rows->stringForColumnIndex(2).value_or(""), failure); !failure) {
            databases_.push_back(path.string());
        }
    }
    if (!rows || error) {
        throw DatabaseFailure(database_.lastError());
    }
    refresh();
}

void ContentReclaimer::Run::refresh() {
    if (rows_.refresh()) {
        next_ = 0;
    }
}

/// Takes the write lock, and what the rows say is known as it is under it.
ZAVTransaction ContentReclaimer::Run::takeLock() {
    ZAVError error;
    auto transaction = ZAVTransaction::begin(database_, &error);
    if (!transaction) {
        throw DatabaseFailure(error);
    }
    refresh();
    return *std::move(transaction);
}

std::optional<ContentRow> ContentReclaimer::Run::nextRow() {
    while (next_ < rows_.purgeable().size()) {
        const std::int64_t row = rows_.purgeable()[next_++];
        if (done_.insert(row).second) {
            if (auto found = rows_.row(row)) {
                return found;
            }
        }
    }
    return std::nullopt;
}

std::string ContentReclaimer::Run::refusalOfPath(const ContentRow& row, const std::string& fault) const {
    const auto url = ZAVURL::URLWithString(row.filePath, ZAVURL::fileURLWithDirectoryPath(cache_.path()));
    if (!url || !url->baseURL()) {
        return "event " + row.event + " part " + row.index + ": the stored file_path " + fault;
    }
    // An absolute path may lead out, and may not; that it does is what there is to say about it.
    return url->filePath() + ": " +
           (rows_.isBelow(*rows_.location(row.filePath)) ? fault : "leads out of the cache directory");
}

Decision ContentReclaimer::Run::decide(const ContentRow& chosen) {
    using Outcome = ReclaimedContent::Outcome;
    std::string fault;
    const auto path = StoredPath::parse(chosen.filePath, &fault);
    if (!path) {
        return {{chosen.filePath, Outcome::refused, 0, 0, refusalOfPath(chosen, fault)}};
    }
    try {
        return decideOnFile(chosen, path->names());
    } catch (const std::system_error& failure) {
        return {{chosen.filePath, Outcome::refused, 0, 0,
                 rows_.location(chosen.filePath).value_or("") + ": " + reasonOf(failure)}};
    }
}

Decision ContentReclaimer::Run::decideOnFile(const ContentRow& chosen,
                                             const std::vector<std::string>& names) {
    using Outcome = ReclaimedContent::Outcome;
    const std::string location = rows_.location(chosen.filePath).value_or("");
    Decision decision{{chosen.filePath, Outcome::gone}};
    for (const ContentRow& row : rows_.naming(location)) {
        if (!row.isComplete) {
            return {{chosen.filePath, Outcome::kept}};
        }
        if (!row.isPurged) {
            decision.rows.push_back(row.row);
        }
    }
    done_.insert(decision.rows.begin(), decision.rows.end());
    decision.content.parts = decision.rows.size();
    auto directory = cache_.open({names.begin(), names.end() - 1});
    const auto status = directory ? directory->status(names.back()) : std::nullopt;
    if (!status) {
        return decision;
    }
    if (status->isDirectory) {
        throw std::system_error(std::make_error_code(std::errc::is_a_directory));
    }
    const auto target = statusOfFile(location);
    if (isDatabaseFile(status->identity, databases_) ||
        (target && isDatabaseFile(target->identity, databases_))) {
        return {{chosen.filePath, Outcome::refused, 0, 0, location + ": belongs to the database"}};
    }
    if (rows_.isNeeded(status->identity)) {
        return {{chosen.filePath, Outcome::kept}};
    }
    decision.content.outcome = Outcome::removed;
    decision.content.bytes = status->names <= ++gone_[status->identity] ? status->size : 0;
    decision.file = status->identity;
    decision.trash = Trash{*std::move(directory), location, names.back(), makeTrashName(names.back())};
    return decision;
}

/// Gives the file of a decision its trash name.
void ContentReclaimer::Run::setAside(Decision& decision) {
    using Outcome = ReclaimedContent::Outcome;
    const Trash& trash = *decision.trash;
    const auto refuse = [&](const std::string& reason) {
        --gone_[decision.file];
        decision = {{decision.content.path, Outcome::refused, 0, 0, trash.location + ": " + reason}};
    };
    try {
        if (!trash.directory.rename(trash.name, trash.trashName)) {
            --gone_[decision.file];
            decision.content.outcome = Outcome::gone;
            decision.content.bytes = 0;
            decision.trash.reset();
            return;
        }
        const auto status = trash.directory.status(trash.trashName);
        if (!status || status->identity != decision.file) {
            // It was replaced by another file, which was not decided on.
            trash.directory.renameToFreeName(trash.trashName, trash.name);
            refuse("was replaced meanwhile");
        }
    } catch (const std::system_error& failure) {
        refuse(reasonOf(failure));
    }
}

/// Takes files out of use under one lock, until so many bytes are about to be freed. What fails is undone.
std::vector<Decision> ContentReclaimer::Run::reclaimSome(std::uint64_t bytes) {
    std::vector<Decision> decisions;
    auto transaction = takeLock();
    try {
        std::uint64_t freed = 0;
        while (freed < bytes && decisions.size() < filesOfOneLock) {
            const auto row = nextRow();
            if (!row) {
                break;
            }
            decisions.push_back(decide(*row));
            Decision& decision = decisions.back();
            if (decision.trash) {
                setAside(decision);
            }
            for (const std::int64_t marked : decision.rows) {
                rows_.markPurged(marked);
            }
            freed += decision.content.bytes;
        }
        for (const Decision& decision : decisions) {
            if (decision.trash) {
                decision.trash->directory.sync();  // the names before the marks: then nothing is left over
            }
        }
        ZAVError error;
        if (!transaction.commit(&error)) {
            throw DatabaseFailure(error);
        }
    } catch (...) {
        transaction.rollback();
        // The commit may have reached the file all the same: the rows say whether it did.
        try {
            const auto lock = takeLock();
            for (const Decision& decision : decisions) {
                if (decision.trash) {
                    settle(*decision.trash);
                }
            }
        } catch (const std::exception&) {
            // The next run finds what is left.
        }
        throw;
    }
    return decisions;
}

void ContentReclaimer::Run::removeTrash(std::vector<Decision>& decisions) const {
    for (Decision& decision : decisions) {
        if (!decision.trash) {
            continue;
        }
        try {
            decision.trash->directory.remove(decision.trash->trashName);
        } catch (const std::system_error&) {
            decision.content.bytes = 0;  // the next run tries again
        }
    }
}

void ContentReclaimer::Run::reclaim(std::uint64_t bytes, const Observer& observer) {
    start();
    repair(observer);
    std::uint64_t freed = 0;
    while (freed < bytes) {
        auto decisions = reclaimSome(bytes - freed);
        if (decisions.empty()) {
            return;
        }
        removeTrash(decisions);
        gone_.clear();
        for (const Decision& decision : decisions) {
            freed += decision.content.bytes;
            observer(decision.content);
        }
    }
}

void ContentReclaimer::Run::foretell(std::uint64_t bytes, const Observer& observer) {
    start();
    std::uint64_t freed = 0;
    while (freed < bytes) {
        refresh();
        const auto row = nextRow();
        if (!row) {
            return;
        }
        const Decision decision = decide(*row);
        freed += decision.content.bytes;
        observer(decision.content);
    }
}

std::vector<Trash> ContentReclaimer::Run::findTrash() const {
    std::vector<Trash> result;
    std::vector<std::vector<std::string>> toVisit{{}};
    while (!toVisit.empty()) {
        const std::vector<std::string> names = std::move(toVisit.back());
        toVisit.pop_back();
        fs::path path = cache_.path();
        for (const std::string& name : names) {
            path /= name;
        }
        std::error_code failure;
        for (fs::directory_iterator entry(path, failure), end; !failure && entry != end;
             entry.increment(failure)) {
            std::error_code ignored;
            const std::string name = entry->path().filename().string();
            if (fs::is_directory(entry->symlink_status(ignored))) {
                toVisit.push_back(names);
                toVisit.back().push_back(name);
            } else if (const auto before = nameBeforeTrash(name)) {
                try {
                    if (auto directory = cache_.open(names)) {
                        result.push_back({*std::move(directory), (path / *before).lexically_normal().string(),
                                          *before, name});
                    }
                } catch (const std::system_error&) {
                    // It cannot be reached any more.
                }
            }
        }
    }
    return result;
}

/// Ends what a run began that did not come to its end, under the write lock.
void ContentReclaimer::Run::settle(const Trash& trash) const {
    const auto rows = rows_.naming(trash.location);
    const bool isNeeded = rows.empty() || std::any_of(rows.begin(), rows.end(), [](const ContentRow& row) {
                              return !row.isPurged && !row.isToDownload;
                          });
    if (isNeeded && trash.directory.renameToFreeName(trash.trashName, trash.name)) {
        return;
    }
    const auto old = trash.directory.status(trash.trashName);
    const auto present = trash.directory.status(trash.name);
    const bool isSecondName = old && present && old->identity == present->identity;
    // What has the name now is the file of the rows. Where no row says so, it is not for this store to
    // choose.
    if (!isNeeded || isSecondName || (!rows.empty() && present && !present->isDirectory)) {
        trash.directory.remove(trash.trashName);
    }
}

void ContentReclaimer::Run::repair(const Observer& observer) {
    const auto found = findTrash();
    if (found.empty()) {
        return;
    }
    std::vector<ReclaimedContent> refusals;
    {
        const auto lock = takeLock();
        for (const Trash& trash : found) {
            try {
                settle(trash);
            } catch (const std::system_error& failure) {
                refusals.push_back({trash.name, ReclaimedContent::Outcome::refused, 0, 0,
                                    trash.location + ": " + reasonOf(failure)});
            }
        }
    }
    for (const ReclaimedContent& refusal : refusals) {
        observer(refusal);
    }
}

ContentReclaimer::ContentReclaimer(FMDatabase& database, const std::string& directory)
    : run_(std::make_unique<Run>(database, directory)) {}

ContentReclaimer::~ContentReclaimer() = default;

bool ContentReclaimer::reclaim(std::uint64_t bytes, const Observer& observer, ZAVError* error) {
    try {
        run_->reclaim(bytes, observer);
        return true;
    } catch (const DatabaseFailure& failure) {
        ZAVStoreError(error, failure.error());
        return false;
    }
}

bool ContentReclaimer::foretell(std::uint64_t bytes, const Observer& observer, ZAVError* error) {
    try {
        run_->foretell(bytes, observer);
        return true;
    } catch (const DatabaseFailure& failure) {
        ZAVStoreError(error, failure.error());
        return false;
    }
}

}  // namespace zavevents
