#pragma once

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventContent.h>

#include <string>
#include <vector>

namespace zav::test {

/// Every field of a record as text; of an event without its metadata and its parts.
[[nodiscard]] std::string describeAlone(const ZAVEvent& event);
[[nodiscard]] std::string describe(const ZAVEventContent& content);
[[nodiscard]] std::vector<std::string> describeParts(const ZAVEvent& event);
[[nodiscard]] std::vector<std::string> describeMetadata(const ZAVEvent& event);

}  // namespace zav::test
