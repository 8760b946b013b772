#pragma once

#include <ZAVEventRepository/FMResultSet.h>
#include <ZAVEventRepository/ZAVDictionary.h>

namespace zav {

/// The keyed value on the current row, whose column is followed by whether it is bytes: bytes as bytes, and
/// whatever else as the text that it reads as.
[[nodiscard]] ZAVDictionaryValue ZAVKeyedValueFromRow(const FMResultSet& row, int valueColumn);

}  // namespace zav
