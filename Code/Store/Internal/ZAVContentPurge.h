#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include <ZAVEventRepository/ZAVContent.h>

#include "Store/Internal/ZAVContentRows.h"
#include "Store/Internal/ZAVContentSession.h"
#include "Store/Internal/ZAVContentTrash.h"

namespace zav {

/// Removes the files of parts, in the order that `ZAVContentCache::purge` describes.
///
/// All of it throws `ZAVContentFailure` and `std::system_error`.
class ZAVContentPurge {
public:
    ZAVContentPurge(ZAVContentSession& session, const ZAVPurgePolicy& policy,
                    const ZAVPurgeObserver& observer);

    [[nodiscard]] ZAVPurgeResult run();

private:
    struct Decision;

    void purgeAll();
    void foretell(const ZAVContentRows& rows);
    void settleTrash();
    [[nodiscard]] std::vector<Decision> purgeSome();
    void chooseSome(ZAVContentRows& rows, std::vector<Decision>& decisions);
    void count(const Decision& decision);
    [[nodiscard]] bool isEnough() const;
    [[nodiscard]] bool allows(const ZAVContentRow& row) const;
    [[nodiscard]] std::optional<ZAVContentRow> nextRow(const ZAVContentRows& rows);
    [[nodiscard]] Decision decide(const ZAVContentRows& rows, const ZAVContentRow& chosen);
    [[nodiscard]] Decision decideOnFile(const ZAVContentRows& rows, const ZAVContentRow& chosen,
                                        const std::vector<std::string>& names);
    [[nodiscard]] std::string refusalOfPath(const ZAVContentRows& rows, const ZAVContentRow& row,
                                            const std::string& fault) const;
    void setAside(Decision& decision);
    void tell(const ZAVPurgedContent& content);

    ZAVContentSession& session_;
    const ZAVPurgePolicy& policy_;
    const ZAVPurgeObserver& observer_;
    ZAVPurgeResult result_;
    std::string mark_;                               ///< of the store's trash
    std::uint64_t freed_ = 0;                        ///< and about to be
    std::uint64_t present_ = 0;                      ///< by the rows, without what is about to be freed
    std::size_t generation_ = 0;                     ///< of the rows that `next_` counts
    std::size_t next_ = 0;                           ///< in the purgeable rows
    std::unordered_set<std::int64_t> done_;          ///< rows that were decided on
    std::map<ZAVFileIdentity, std::uint64_t> gone_;  ///< how many names files have lost, or are about to lose
};

}  // namespace zav
