#pragma once

#include <stdexcept>
#include <string>

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

}  // namespace zavevents
