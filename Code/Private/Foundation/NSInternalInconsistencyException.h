#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace zav {

/// A violated precondition: a programming error of the caller, never a failure of the database.
class NSInternalInconsistencyException : public std::logic_error {
public:
    explicit NSInternalInconsistencyException(const std::string& reason) : std::logic_error(reason) {}

    [[nodiscard]] std::string_view name() const noexcept { return "NSInternalInconsistencyException"; }

    /// The formatted reason; the same text as `what()`.
    [[nodiscard]] std::string reason() const { return what(); }
};

}  // namespace zav
