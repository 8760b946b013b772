#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <ZAVEventRepository/FMObservation.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// Of what commits changed that which timelines consist of. Who commits adds to it, so it is little.
class ZAVTimelineChanges {
public:
    enum class Kind : std::uint8_t {
        event,  ///< inserted or updated
        removedEvent,
        part,      ///< inserted or updated
        metadata,  ///< of the event in the row
        stream,    ///< inserted, updated or removed
    };
    struct Change {
        ZAVDatabaseIdentifier row;
        Kind kind;

        friend bool operator==(const Change&, const Change&) = default;
    };

    /// Adds a commit. No changes are unknown ones.
    void add(std::span<const FMRowChange> changes) noexcept;

    /// Whether any row may have changed: the changes are not known, or there are too many.
    [[nodiscard]] bool isAnything() const noexcept { return isAnything_; }

    /// Whether parts were removed, of which events nobody can tell any more.
    [[nodiscard]] bool arePartsRemoved() const noexcept { return arePartsRemoved_; }

    [[nodiscard]] const std::vector<Change>& rows() const noexcept { return rows_; }
    [[nodiscard]] bool areThere() const noexcept { return isAnything_ || arePartsRemoved_ || !rows_.empty(); }

private:
    void addOne(const FMRowChange& change);
    void addRow(Kind kind, ZAVDatabaseIdentifier row);

    bool isAnything_ = false;
    bool arePartsRemoved_ = false;
    std::vector<Change> rows_;
};

}  // namespace zav
