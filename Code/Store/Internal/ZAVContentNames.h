#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zav {

/// A new mark for the trash of one store: 8 hexadecimal digits.
[[nodiscard]] std::string ZAVMakeTrashMark();

/// Whether a text is one that `ZAVMakeTrashMark` makes.
[[nodiscard]] bool ZAVIsTrashMark(std::string_view text);

/// The name under which a file called `name` waits in its directory to be removed by the store of a mark:
/// another at each call, so that nobody who removes what has such a name removes another's file. The name
/// that the file had can be read from it.
[[nodiscard]] std::string ZAVMakeTrashName(const std::string& mark, const std::string& name);

/// The name that the file had before, when `name` is one that `ZAVMakeTrashName` makes.
/// @param mark that of the store whose trash it is; empty for any.
[[nodiscard]] std::optional<std::string> ZAVNameBeforeTrash(std::string_view name,
                                                            std::string_view mark = {});

/// The name under which a file that will be called `name` is written: another at each call.
[[nodiscard]] std::string ZAVMakePartialName(const std::string& name);

/// The name under which a file that will be called `name` is written for one part, by one download after the
/// other until it is whole: the same for the same number of the part.
[[nodiscard]] std::string ZAVPartialNameOfPart(const std::string& name, std::uint64_t part);

/// The name that the file will have, when `name` is one under which files are written.
[[nodiscard]] std::optional<std::string> ZAVNameAfterPartial(std::string_view name);

}  // namespace zav
