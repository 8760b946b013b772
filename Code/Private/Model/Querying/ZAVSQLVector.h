#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVValue.h>

namespace zav {

/// A run of row identifiers for the right side of an IN: the placeholders, and the values that go with them.
class ZAV_EXPORT ZAVSQLVector {
public:
    /// Cuts a collection into consecutive runs of at most `limit` elements, in order. An empty collection
    /// makes none.
    /// @throws std::invalid_argument when `limit` is 0: no run would ever hold an element.
    [[nodiscard]] static std::vector<ZAVSQLVector> arrayOfVectorsWithCollection(
        std::span<const ZAVDatabaseIdentifier> collection, std::size_t limit);

    /// One placeholder for each value: "(?, ?, ?)".
    [[nodiscard]] std::string stringRepresentation() const;

    /// The values in the order of the placeholders, for `executeUpdateWithArgumentsInArray`.
    [[nodiscard]] const std::vector<ZAVValue>& arguments() const noexcept { return arguments_; }

private:
    explicit ZAVSQLVector(std::span<const ZAVDatabaseIdentifier> values)
        : arguments_(values.begin(), values.end()) {}

    std::vector<ZAVValue> arguments_;
};

}  // namespace zav
