#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include <ZAVEventRepository/ZAVData.h>

/// @namespace zav
/// The event store of a messaging client. Everything public is in this namespace.
namespace zav {

/// Row identifier: the value of a `database_identifier` column.
using ZAVDatabaseIdentifier = std::int64_t;

/// Sequence number that the service assigns within a stream.
using ZAVSequence = std::int32_t;

/// Byte count or row limit.
using ZAVSize = std::uint64_t;

/// A UUID in its binary form, 16 bytes in the order of its canonical text; see `ZAVUUIDFromData`.
using ZAVTUUID = ZAVData;

/// Identifies a user.
using ZAVTProviderUserId = std::string;

/// The row identifier of a record that has no row yet. Zero is a row identifier like any other.
inline constexpr ZAVDatabaseIdentifier ZAVDatabaseIdentifierNotSet =
    std::numeric_limits<ZAVDatabaseIdentifier>::max();

/// The sequence of something that the service has not sequenced.
inline constexpr ZAVSequence ZAVSequenceNotSet = std::numeric_limits<ZAVSequence>::max();

}  // namespace zav
