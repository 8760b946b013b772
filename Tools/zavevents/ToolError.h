#pragma once

#include <stdexcept>
#include <string>

#include "Private/Foundation/ZAVError.h"

namespace zavevents {

/// An operation failed; the text says which and why. The tool prints it and exits with status 1.
class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& message) : std::runtime_error(message) {}

    /// `what` failed with the database's own error.
    ToolError(const std::string& what, const zav::ZAVError& error)
        : std::runtime_error(what + ": " + (error ? error.message() : "failed without a reason")) {}
};

}  // namespace zavevents
