#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVPrintable.h>

namespace zavevents {

/// An operation failed; the text says which and why. The tool prints it and exits with status 1.
class ToolError : public std::runtime_error {
public:
    /// @param message may have several lines. Text from outside, such as names in the file, is made
    /// printable with `ZAVPrintable` before.
    explicit ToolError(const std::string& message) : std::runtime_error(message) {}

    /// `what` failed with the database's own error, which may hold any name that stands in the file.
    ToolError(const std::string& what, const zav::ZAVError& error)
        : std::runtime_error(what + ": " +
                             (error ? zav::ZAVPrintable(error.message()) : "failed without a reason")) {}
};

/// @param what what cannot be done.
/// @throws ToolError unless an operation succeeded.
inline void require(bool succeeded, std::string_view what, const zav::ZAVError& error) {
    if (!succeeded) {
        throw ToolError(std::string(what), error);
    }
}

/// What an operation answered.
/// @throws ToolError when it answered nothing.
template <class Answer>
[[nodiscard]] Answer required(std::optional<Answer> answer, std::string_view what,
                              const zav::ZAVError& error) {
    require(answer.has_value(), what, error);
    return *std::move(answer);
}

}  // namespace zavevents
