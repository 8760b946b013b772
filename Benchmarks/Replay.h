#pragma once

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVSet.h>

#include <cstddef>
#include <string>

namespace zav::bench {

/// Events that are stored in one transaction.
inline constexpr std::size_t replayBatch = 1'000;

/// All events of a store. @throws std::runtime_error when there are none.
ZAVSet<ZAVEvent> readAll(const std::string& path);

/// Takes the rows of their old store from events, which each need a sequence and a stream with a UUID.
/// @throws std::runtime_error when one has not.
void makeNew(const ZAVSet<ZAVEvent>& events);

/// Stores new events in a new file as somebody who has just received them.
void persist(const ZAVSet<ZAVEvent>& events, const std::string& path);

}  // namespace zav::bench
