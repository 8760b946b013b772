#pragma once

#include <rapidcheck.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Model/Comparison.h"
#include "Model/Records.h"

/// Where the arguments of operations are drawn from: small pools, so that things collide and most lookups
/// find something. What comes first in a pool is the plainest; values shrink towards it.
namespace zav::test::values {

template <class T>
[[nodiscard]] rc::Gen<T> from(std::vector<T> pool) {
    auto indices = rc::gen::inRange<std::size_t>(0, pool.size());
    return rc::gen::map(std::move(indices),
                        [pool = std::move(pool)](std::size_t index) { return pool[index]; });
}

/// `common` values, and once in a while one of the `rare` ones.
template <class T>
[[nodiscard]] rc::Gen<T> mostly(const std::vector<T>& common, const std::vector<T>& rare, std::size_t times) {
    std::vector<T> pool;
    for (std::size_t round = 0; round < times; ++round) {
        pool.insert(pool.end(), common.begin(), common.end());
    }
    pool.insert(pool.end(), rare.begin(), rare.end());
    return from(std::move(pool));
}

/// True once in so many times, and false once in so many times. Both shrink towards false.
[[nodiscard]] bool onceIn(std::size_t times);
[[nodiscard]] bool usually(std::size_t times);

[[nodiscard]] rc::Gen<std::size_t> number(std::size_t below);
[[nodiscard]] rc::Gen<ZAVDatabaseIdentifier> eventRow();
[[nodiscard]] rc::Gen<ZAVDatabaseIdentifier> streamRow();
[[nodiscard]] rc::Gen<ZAVDatabaseIdentifier> smallRow();
[[nodiscard]] rc::Gen<ZAVSequence> sequence();
[[nodiscard]] rc::Gen<ZAVUUID> streamUUID();
[[nodiscard]] rc::Gen<std::optional<Bytes>> clientID();
[[nodiscard]] rc::Gen<std::optional<std::string>> text();
[[nodiscard]] rc::Gen<std::string> member();
[[nodiscard]] rc::Gen<std::string> mediaType();
[[nodiscard]] rc::Gen<std::optional<std::set<std::string>>> mediaTypes();
[[nodiscard]] rc::Gen<std::string> url();
[[nodiscard]] rc::Gen<std::uint64_t> limit();
[[nodiscard]] rc::Gen<std::uint64_t> byteCount();
[[nodiscard]] rc::Gen<std::int64_t> partIndex();
[[nodiscard]] rc::Gen<std::uint64_t> transferStatus();
[[nodiscard]] rc::Gen<Metadata> metadata();

/// Slots of events; none, one or several, possibly one of them twice.
[[nodiscard]] rc::Gen<std::vector<std::size_t>> eventSlots();

/// Where a record that is found is kept, if it is.
[[nodiscard]] rc::Gen<std::optional<std::size_t>> slotToKeepIn(std::size_t slots);

/// A part in a slot of its own, or one of an event's.
[[nodiscard]] rc::Gen<Comparison::PartPlace> partPlace();

[[nodiscard]] rc::Gen<PartRecord> part();
[[nodiscard]] rc::Gen<EventRecord> event();

/// Some of the fields of a record, by a name for them.
template <class Record>
struct FieldGroup {
    const char* name;
    std::function<void(const Record& from, Record& to)> copy;
};
[[nodiscard]] rc::Gen<FieldGroup<EventRecord>> eventFields();
[[nodiscard]] rc::Gen<FieldGroup<PartRecord>> partFields();

}  // namespace zav::test::values
