#include "Store/Internal/ZAVContentPurge.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVURL.h>

#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVContentNames.h"

namespace zav {

using PurgeOutcome = ZAVPurgedContent::Outcome;

/// What is to be done about one part.
struct ZAVContentPurge::Decision {
    ZAVPurgedContent content;
    std::vector<ZAVContentRow> rows{};       ///< to be marked
    std::optional<ZAVContentTrash> trash{};  ///< the file to be removed, which has its own name so far
    ZAVFileIdentity file{};                  ///< which file that is
};

ZAVContentPurge::ZAVContentPurge(ZAVContentSession& session, const ZAVPurgePolicy& policy,
                                 const ZAVPurgeObserver& observer)
    : session_(session), policy_(policy), observer_(observer) {}

ZAVPurgeResult ZAVContentPurge::run() {
    if (policy_.changesNothing) {
        session_.inSnapshot([this](const ZAVContentRows& rows) { foretell(rows); });
    } else {
        settleTrash();
        purgeAll();
    }
    return result_;
}

void ZAVContentPurge::tell(const ZAVPurgedContent& content) {
    result_.parts += content.parts;
    result_.bytes += content.bytes;
    result_.refused += content.outcome == PurgeOutcome::refused ? 1 : 0;
    if (observer_) {
        observer_(content);
    }
}

bool ZAVContentPurge::isEnough() const {
    return (policy_.bytesToFree || policy_.bytesToKeep) && freed_ >= policy_.bytesToFree.value_or(0) &&
           (!policy_.bytesToKeep || present_ <= *policy_.bytesToKeep);
}

bool ZAVContentPurge::allows(const ZAVContentRow& row) const {
    return (!policy_.accessedBefore || (row.lastAccessed && *row.lastAccessed < *policy_.accessedBefore)) &&
           (policy_.types.empty() || policy_.types.contains(row.type)) &&
           (!row.stream || !policy_.streamsToKeep.contains(*row.stream));
}

std::optional<ZAVContentRow> ZAVContentPurge::nextRow(const ZAVContentRows& rows) {
    if (std::exchange(generation_, rows.generation()) != rows.generation()) {
        next_ = 0;
    }
    while (next_ < rows.purgeable().size()) {
        const std::int64_t row = rows.purgeable()[next_++];
        if (done_.insert(row).second) {
            if (auto found = rows.row(row); found && allows(*found)) {
                return found;
            }
        }
    }
    return std::nullopt;
}

std::string ZAVContentPurge::refusalOfPath(const ZAVContentRows& rows, const ZAVContentRow& row,
                                           const std::string& fault) const {
    const auto url =
        ZAVURL::URLWithString(row.filePath, ZAVURL::fileURLWithDirectoryPath(session_.directory().path()));
    if (!url || !url->baseURL()) {
        return "event " + row.event + " part " + row.index + ": the stored file_path " + fault;
    }
    // An absolute path may lead out, and may not; that it does is what there is to say about it.
    return url->filePath() + ": " +
           (rows.isBelow(*rows.location(row.filePath)) ? fault : "leads out of the cache directory");
}

ZAVContentPurge::Decision ZAVContentPurge::decide(const ZAVContentRows& rows, const ZAVContentRow& chosen) {
    std::string fault;
    const auto path = ZAVContentPath::parse(chosen.filePath, &fault);
    if (!path) {
        return {{chosen.filePath, PurgeOutcome::refused, 0, 0, refusalOfPath(rows, chosen, fault)}};
    }
    try {
        return decideOnFile(rows, chosen, path->names());
    } catch (const std::system_error& failure) {
        return {{chosen.filePath, PurgeOutcome::refused, 0, 0,
                 rows.location(chosen.filePath).value_or("") + ": " + ZAVReasonOf(failure)}};
    }
}

ZAVContentPurge::Decision ZAVContentPurge::decideOnFile(const ZAVContentRows& rows,
                                                        const ZAVContentRow& chosen,
                                                        const std::vector<std::string>& names) {
    const std::string location = rows.location(chosen.filePath).value_or("");
    Decision decision{{chosen.filePath, PurgeOutcome::gone}};
    for (const ZAVContentRow& row : rows.naming(location)) {
        if (!row.isComplete || (!row.isPurged && !allows(row))) {
            return {{chosen.filePath, PurgeOutcome::kept}};
        }
        if (!row.isPurged) {
            decision.rows.push_back(row);
        }
    }
    for (const ZAVContentRow& row : decision.rows) {
        done_.insert(row.row);
    }
    decision.content.parts = decision.rows.size();
    auto found = session_.directory().find(names);
    if (!found) {
        return decision;
    }
    const ZAVFileStatus& status = found->status;
    if (status.isDirectory) {
        throw std::system_error(std::make_error_code(std::errc::is_a_directory));
    }
    const auto target = ZAVStatusOfFile(location);
    if (rows.isOfDatabase(status.identity) || (target && rows.isOfDatabase(target->identity))) {
        return {{chosen.filePath, PurgeOutcome::refused, 0, 0, location + ": belongs to the database"}};
    }
    if (rows.isNeeded(status.identity)) {
        return {{chosen.filePath, PurgeOutcome::kept}};
    }
    decision.content.outcome = PurgeOutcome::removed;
    decision.content.bytes = status.names <= ++gone_[status.identity] ? status.size : 0;
    decision.file = status.identity;
    decision.trash = ZAVContentTrash{std::move(found->directory), location, names.back(),
                                     ZAVMakeTrashName(mark_, names.back())};
    return decision;
}

/// Gives the file of a decision its trash name.
void ZAVContentPurge::setAside(Decision& decision) {
    const ZAVContentTrash& trash = *decision.trash;
    const auto refuse = [&](const std::string& reason) {
        --gone_[decision.file];
        decision = {{decision.content.path, PurgeOutcome::refused, 0, 0, trash.location + ": " + reason}};
    };
    try {
        if (!trash.directory.rename(trash.name, trash.trashName)) {
            --gone_[decision.file];
            decision.content.outcome = PurgeOutcome::gone;
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
        refuse(ZAVReasonOf(failure));
    }
}

/// Takes files out of use, until that is enough or others have waited for long enough.
void ZAVContentPurge::chooseSome(ZAVContentRows& rows, std::vector<Decision>& decisions) {
    // Enough that reading the names again, when others write to the database meanwhile, is not done for each,
    // and few enough that these others need not wait for long.
    constexpr std::size_t filesOfOneLock = 16;
    freed_ = result_.bytes;
    present_ = policy_.bytesToKeep ? rows.bytes() : 0;
    while (!isEnough() && decisions.size() < filesOfOneLock) {
        const auto row = nextRow(rows);
        if (!row) {
            break;
        }
        decisions.push_back(decide(rows, *row));
        Decision& decision = decisions.back();
        if (decision.trash) {
            setAside(decision);
        }
        for (const ZAVContentRow& marked : decision.rows) {
            rows.markPurged(marked.row);
        }
        count(decision);
    }
    for (const Decision& decision : decisions) {
        if (decision.trash) {
            decision.trash->directory.sync();  // the names before the marks: then nothing is left over
        }
    }
}

void ZAVContentPurge::count(const Decision& decision) {
    freed_ += decision.content.bytes;
    for (const ZAVContentRow& row : decision.rows) {
        present_ -= std::min(present_, row.size);
    }
}

/// Takes files out of use under one lock. What fails is undone.
std::vector<ZAVContentPurge::Decision> ZAVContentPurge::purgeSome() {
    std::vector<Decision> decisions;
    try {
        session_.underLock([&](ZAVContentRows& rows) { chooseSome(rows, decisions); });
    } catch (...) {
        // The commit may have reached the file all the same: the rows say whether it did.
        try {
            session_.underLock([&](const ZAVContentRows& rows) {
                for (const Decision& decision : decisions) {
                    if (decision.trash) {
                        decision.trash->settle(rows);
                    }
                }
            });
        } catch (const std::exception&) {
            // The next purge finds what is left.
        }
        throw;
    }
    return decisions;
}

void ZAVContentPurge::purgeAll() {
    mark_ = session_.makeTrashMark();
    for (auto decisions = purgeSome(); !decisions.empty(); decisions = purgeSome()) {
        for (Decision& decision : decisions) {
            try {
                if (decision.trash) {
                    decision.trash->directory.remove(decision.trash->trashName);
                }
            } catch (const std::system_error&) {
                decision.content.bytes = 0;  // the next purge tries again
            }
        }
        gone_.clear();
        for (const Decision& decision : decisions) {
            tell(decision.content);
        }
    }
}

void ZAVContentPurge::foretell(const ZAVContentRows& rows) {
    present_ = policy_.bytesToKeep ? rows.bytes() : 0;
    while (!isEnough()) {
        const auto row = nextRow(rows);
        if (!row) {
            return;
        }
        const Decision decision = decide(rows, *row);
        count(decision);
        tell(decision.content);
    }
}

/// Ends what a purge began that did not come to its end.
void ZAVContentPurge::settleTrash() {
    const auto mark = session_.trashMark();
    const auto found = mark ? ZAVFindTrash(session_.directory(), *mark) : std::vector<ZAVContentTrash>();
    if (found.empty()) {
        return;
    }
    std::vector<ZAVPurgedContent> refusals;
    session_.underLock([&](const ZAVContentRows& rows) {
        for (const ZAVContentTrash& trash : found) {
            try {
                trash.settle(rows);
            } catch (const std::system_error& failure) {
                refusals.push_back(
                    {trash.name, PurgeOutcome::refused, 0, 0, trash.location + ": " + ZAVReasonOf(failure)});
            }
        }
    });
    for (const ZAVPurgedContent& refusal : refusals) {
        tell(refusal);
    }
}

}  // namespace zav
